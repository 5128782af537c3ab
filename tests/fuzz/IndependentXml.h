// XML as another parser reads it: what the documents of this system are compared with.
//
// Purpose: the content of the root element as a flat list of events, in document order, as Expat reports them.
// Ownership: a value.
// Threads: any.
// Units: none.
// Errors: no value when Expat does not accept the bytes.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

struct XmlEvent {
    enum class Kind { Open, Close, Text, Cdata, Other };

    Kind kind = Kind::Other;  // Other: a comment or a processing instruction
    std::string text{};       // of an element its name
    std::map<std::string, std::string> attributes{};
};

// Characters that follow upon each other are one event.
std::optional<std::vector<XmlEvent>> readIndependently(const std::string& bytes);
