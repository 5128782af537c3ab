// One exchange with a child: what the service does when it pings, with each step noted.
//
// Purpose: executes the child's own ping action, through the service's own classes and the security library that the
//   service uses. CTLExchangeNotes, while there is one, notes what is called, with what result and in what time. With a
//   CTLDoorway the pause that the service makes before it connects is left out.
// Ownership: a value.
// Threads: with() may be called from several threads at a time, each with another child.
// Units: microseconds; bytes.
// Errors: none thrown; a failed exchange says which step has failed and why.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CTLPeer.h"

class ZORChildProcess;

// What the service's rules make of an answer.
enum class CTLRule {
    NotSent,      // no connection, or nothing could be sent
    NoAnswer,     // none came in time, or it could not be read
    Sent,         // no answer is asked for: what was sent is good
    AnyAnswer,    // without a "responseOK" every answer is good
    ShortAnswer,  // shorter than "responseOK": good
    Good,         // "responseOK" found
    Fatal,        // "responseFatal" found
    Retry,        // "responseRetry" found
    NoMarker      // none of them found
};

struct CTLStep {
    std::string name;  // "prepare", "connect", "handshake", "send", "wait", "receive"
    std::int64_t us = 0;
    int calls = 0;
    long code = 0;        // of the last call
    std::string details;  // the library's words, when it has failed
};

struct CTLExchange {
    // The most of an answer that is kept to be shown.
    static constexpr std::size_t kMostShown = 4096;

    std::string child;
    std::string uri;
    int timeoutSec = 0;  // for the answer; -1: none
    int responseSize = 0;
    std::string family;     // "IPv4" or "IPv6"
    std::string familyWhy;  // which document or setting decided
    std::string address;    // "127.0.0.1:9300"; empty without a connection
    std::vector<CTLStep> steps;
    CTLPeer peer;
    std::string sent;
    std::string received;     // as it came, its beginning
    long receivedBytes = -1;  // -1: nothing was read
    std::string tidied;       // the text in which the markers are looked for
    CTLRule rule = CTLRule::NotSent;
    std::string marker;         // the text that decided, if one did
    int code = -1;              // of the action
    std::int64_t us = 0;        // in all
    std::int64_t answerUs = 0;  // from the end of sending to the answer, what "sockIOTimeoutSec" limits
    std::int64_t sparedMs = 0;  // pauses that were left out

    // The child must have a ping.
    static CTLExchange with(ZORChildProcess& child);

    bool isAnswered() const { return code >= 0; }
    // In words: what the rule says, and the step that has failed with the library's reason, if one has.
    std::string ruleText() const;
    std::string failure() const;
    // What the supervisor makes of the code; `limit` failed pings in a row make it ask the child to stop.
    std::string consequence(int limit) const;
    static const char* word(CTLRule rule);
};
