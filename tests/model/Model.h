// The service as the table has it.
//
// Purpose: follows the table through a scenario and tells what the service has to do.
// Ownership: refers to the tables, the scenario and the observed run.
// Threads: one at a time. The threads of the service are followed one after the other, each on a clock of its own.
// Units: milliseconds of virtual time.
// Errors: std::runtime_error for a table that cannot be followed: a name nobody knows, a place without a row that fits,
//   no end.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Run.h"
#include "Scenario.h"
#include "Table.h"
#include "World.h"

class Model {
  public:
    // Where two threads meet at the same millisecond, either may be first: `observed` tells which was.
    Model(const Tables& tables, const Scenario& scenario, const Run& observed);

    Run follow();
    // Rows of the supervisor's tables that were taken.
    std::size_t steps() const { return m_steps; }
    // How many of them had been taken when an agent did that.
    std::size_t stepAt(Agent agent, std::size_t deed) const;
    // How often the row in that line of the text was taken.
    const std::map<int, std::size_t>& taken() const { return m_taken; }

  private:
    using Numbers = std::map<std::string, long>;
    using Phrase = void (Model::*)();

    struct Prepared {
        std::string table{};  // "spawn", "signal" or "send"
        Numbers numbers{};
        std::string path{};
        std::string commandLine{};
        std::vector<std::string> arguments{};  // without the program's own name
        std::string uri{};
        std::string command{};
        std::string ok{};
        std::string fatal{};
        std::string retry{};
    };
    struct Child {
        std::string name;
        Numbers numbers;
        std::map<std::string, Prepared> actions;
    };
    // What was found last: a word, or a number when the word is empty.
    struct Found {
        bool any = false;
        long number = 0;
        std::string word{};
    };
    struct Flags {
        std::int64_t fromMs = 0;
        bool running = false;
        bool answered = false;
        bool fatal = false;
    };

    // What the document's texts come to.
    static Prepared prepared(const ActionText& text);
    static void prepareSend(Prepared& action, const ActionText& text);
    static void prepareSpawn(Prepared& action, const ActionText& text);
    static Child prepared(const ChildText& text);
    static std::string family(const std::string& uri, const std::string& command, const std::string& network);
    void prepareLoop();

    void runTable(const std::string& name);
    const Row& rowAt(const Table& table, const std::string& place) const;
    bool fits(const Row& row) const;
    void act(const Table& table, const Action& action);
    void assign(const Action& action);
    void runForEach(const std::string& name);
    void execute(const std::string& name);
    void prepare(const std::string& name);
    void giveBack(const std::string& value);
    void phrase(const std::string& name);

    long number(const std::string& word) const;
    Numbers& ownerOf(const std::string& name);
    std::string filledIn(const std::string& text) const;
    std::string valueOf(const std::string& name) const;

    void note(const std::string& what);
    void find(long number) { m_found = {true, number, {}}; }
    void find(const char* word) { m_found = {true, 0, word}; }
    void pause(std::int64_t durationMs);
    void reply(const Reply& reply);
    const Deed* observedNext() const;

    // The phrases.
    void forkAsChild() { note("fork 0"); }
    void setsid() { note("setsid"); }
    void initializeLibrary() { note("SEK_CryptoInitialize"); }
    void nextArgument();
    void startSignalThread();
    void startSupervisor();
    void lookAtFlags();
    void waitForSupervisor();
    void waitForSignal();
    void writePidFile();
    void waitForPoll(std::int64_t limitMs);
    void publishFlags();
    void showFlags();
    void publishFatal();
    void statLimitFile();
    void readLimitFile();
    void wakeMainThread();
    void work();
    void fork();
    void kill(long process, long signal);
    void socket();
    void connect();
    void lastDetails();
    void freeDetails();
    void establish();
    void send();
    void poll();
    void receive();
    void close();
    void removePidFile() { m_run.pidFileLeft = false; }

    std::int64_t toldAtMs() const;
    std::string answerRead(long capacity);

    static const std::map<std::string, Phrase>& phrases();

    const Tables& m_tables;
    const Scenario& m_scenario;
    const Run& m_observed;
    World m_world;
    Run m_run;
    std::size_t m_steps = 0;
    std::size_t m_rows = 0;
    std::array<std::vector<std::size_t>, 3> m_stepAt{};  // for each deed
    std::map<int, std::size_t> m_taken;

    Agent m_agent = Agent::Main;
    std::int64_t m_nowMs = 0;
    Numbers m_numbers;
    std::vector<Child> m_children;
    Child* m_child = nullptr;
    Prepared* m_action = nullptr;
    Prepared m_daemonSpawn;
    std::size_t m_argument = 0;
    Found m_found;
    bool m_returned = false;  // the present table has answered
    std::string m_details;
    std::string m_answer;
    Reply m_lastReply;
    bool m_handleOpen = false;

    std::int64_t m_signalsBeginMs = 0;
    std::int64_t m_supervisorBeginMs = 0;
    bool m_startedWithDelay = false;
    std::int64_t m_finishedMs =
        kNever;  // for ever: nobody will wake the main thread, and the system refuses to wait
    std::vector<Flags> m_flags{{}};
};
