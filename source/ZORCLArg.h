// One argument of a command line: a name and, after the first "=", a value.
//
// Purpose: "-name=value" taken apart. "-x=" has an empty value, "-x" none.
// Ownership: a value; copies own their texts.
// Threads: one thread at a time.
// Units: none.
// Errors: none; a null text is an empty name without a value.
#pragma once

#include <optional>
#include <string>

class ZORCLArg {
  public:
    explicit ZORCLArg(const char* text);

    const std::string& getName() const { return m_name; }
    const char* getValue() const { return m_value ? m_value->c_str() : nullptr; }
    bool hasValue() const { return m_value.has_value(); }
    bool isNumber() const;  // a value of decimal digits only, at least one

  private:
    std::string m_name;
    std::optional<std::string> m_value;
};
