// What a command writes to: standard output and standard error, with colour for a person's eyes.
//
// Purpose: texts go through here, so that colour is on a terminal only and NO_COLOR is heeded in one place.
// Ownership: the streams belong to the caller.
// Threads: one.
// Units: columns.
// Errors: none; whether standard output took everything is asked with `failed`.
#pragma once

#include <iosfwd>
#include <string>

enum class CTLColour { Plain, Good, Warning, Bad, Faint, Bold };

class CTLTerminal {
  public:
    // On this process's standard streams.
    CTLTerminal();
    // On streams of the caller's; `colour` says whether texts are painted.
    CTLTerminal(std::ostream& out, std::ostream& err, bool colour)
        : m_out(out), m_err(err), m_colour(colour) {}
    CTLTerminal(const CTLTerminal&) = delete;
    CTLTerminal& operator=(const CTLTerminal&) = delete;

    std::ostream& out() { return m_out; }
    std::ostream& err() { return m_err; }
    bool isColoured() const { return m_colour; }
    // The text between the marks of a colour, or as it is.
    std::string painted(CTLColour colour, const std::string& text) const;
    // Flushes standard output; true when something of it was lost, on a full disk for example.
    bool failed();
    // Of standard output; 80 where it has none.
    static int columns();

  private:
    std::ostream& m_out;
    std::ostream& m_err;
    bool m_colour;
};
