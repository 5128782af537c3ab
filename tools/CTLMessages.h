// What the messages of the log mean, from the tables of the guide.
//
// Purpose: finds the message that a text is, with values in the places that the guide marks with an ellipsis; the reasons
//   of a failed connection in a text; and where there is no such message, those that are most alike.
// Ownership: owns what it has read of the tables.
// Threads: as any value, once made.
// Units: none.
// Errors: none; a text that is nothing of it is not found.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "CTLTextPattern.h"

struct CTLMessage {
    std::vector<std::string> loggers;  // that say it
    std::string level;
    std::string text;     // an ellipsis in place of each value
    std::string meaning;  // what it means, and what to do; may be empty: nothing is to be done
    CTLTextPattern pattern;
};

// Why a connection has failed: what the security library says in such a message.
struct CTLReason {
    std::vector<std::vector<std::string>> texts;  // each in pieces, which stand in that order
    std::string meaning;
    std::string remedy;  // may be empty

    // The text that is in there, in the guide's words; empty when none is.
    std::string foundIn(std::string_view text) const;
};

class CTLMessages {
  public:
    // From the pages of the guide.
    CTLMessages();

    const std::vector<CTLMessage>& all() const { return m_messages; }
    const std::vector<CTLReason>& reasons() const { return m_reasons; }

    // Those that the text is, or the one message that holds it. The text may be a whole line of the log, or of the command
    // "log".
    std::vector<const CTLMessage*> find(const std::string& text) const;
    std::vector<const CTLReason*> reasonsIn(const std::string& text) const;
    // The most alike, by the words that they have in common, best first; none when there are none.
    std::vector<const CTLMessage*> nearest(const std::string& text, std::size_t most) const;

    // Line ends and rows of blanks as a single blank, none at the ends.
    static std::string collapsed(std::string_view text);

  private:
    void readMessages(std::string_view page, bool isDebug);
    void readReasons(std::string_view page);

    std::vector<CTLMessage> m_messages;
    std::vector<CTLReason> m_reasons;
};
