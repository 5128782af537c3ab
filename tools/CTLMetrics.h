// The status of an instance as metrics.
//
// Purpose: the text format that Prometheus reads, and the file that node_exporter's textfile collector takes it from. The
//   names are fixed: rules that wake somebody up use them.
// Ownership, threads: free functions without state.
// Units: seconds and bytes, as the names say.
// Errors: write() throws CTLError when the file cannot be written; the one that was there stays as it was.
#pragma once

#include <string>

struct CTLStatus;

namespace CTLMetrics {

// Every metric carries the label "folder". What is not known is left out.
std::string text(const CTLStatus& status);
// A reader sees the old file or the new one, never a part. Everybody may read it.
void write(const std::string& path, const std::string& text);

}  // namespace CTLMetrics
