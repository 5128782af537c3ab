// A history as a page for a browser.
//
// Purpose: one HTML document that needs nothing beside itself: the table, a timeline of the service and each child, failed
//   pings and restarts over time, and how long pings took, as drawings in it; light or dark as the reader's system is. It
//   has no scripts and loads nothing, which it also tells the browser to hold it to.
// Ownership: values.
// Threads: as any value.
// Units: seconds since the epoch; coordinates of the drawings.
// Errors: none; whatever a log holds is text, not markup.
#pragma once

#include <string>

struct CTLRecord;

namespace CTLHistoryPage {

// `title` names the instance. With more events than can be drawn the newest are.
std::string of(const CTLRecord& record, const std::string& title, bool isComplete);

// For markup: with what would begin or end markup in its place, and what is no text replaced.
std::string escaped(const std::string& text);

}  // namespace CTLHistoryPage
