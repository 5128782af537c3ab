// A child of the service in virtual time: how others reach it, how it behaves, and how its process fares.
//
// Purpose: what VirtualMachine keeps of each child, and what its user changes while time passes.
// Ownership: a value, kept by VirtualMachine.
// Threads: guarded by VirtualMachine.
// Units: milliseconds.
// Errors: none.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <limits>
#include <string>

struct VirtualChild {
    // What comes of a connection to it. In each but the first it also takes no stop command.
    enum class Mood {
        Answers,
        Silent,   // connections and handshakes succeed, and nothing is answered
        Refuses,  // nobody listens
        Frozen,  // the system accepts connections for it, and nothing more happens; signals do nothing either
        Sluggish,  // each step takes as long as it just may, and nothing is answered
        Stuck      // connections take as long as they may, and handshakes never end
    };
    static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

    std::string name{};
    // Empty: it is not pinged, or not stopped over a socket.
    std::string pingUri{};
    std::string pingCommand{};
    std::string stopUri{};
    std::string stopCommand{};

    // How it behaves.
    Mood mood = Mood::Answers;
    std::string usualAnswer = "OK";
    std::string answer = usualAnswer;
    std::int64_t answersAfterMs = 0;
    bool endsWithProcess = false;     // these three: the next process answers again, as usual and at once
    std::int64_t listensAfterMs = 0;  // counted from the start of a process; before that it refuses
    std::int64_t endsAfterMs = 0;     // what it takes to end when it is told to; kNever: it does not

    // How it fares.
    pid_t pid = 0;  // of its latest process
    bool alive = false;
    std::int64_t startedMs = 0;

    void recover() {
        mood = Mood::Answers;
        answer = usualAnswer;
        answersAfterMs = 0;
        endsWithProcess = false;
    }

    // What is observed at that time.
    Mood moodAt(std::int64_t nowMs) const {
        const bool listens = alive && nowMs - startedMs >= listensAfterMs;
        return listens ? mood : Mood::Refuses;
    }
};
