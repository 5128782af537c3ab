// The installation that the sample's script makes, with a Tomcat that is really started.
//
// Purpose: makes it as an administrator would, turns the log up and the patience down, and looks at the JVM and at
//   what its application tells.
// Ownership: the tree and all processes belong to the base's ServiceUnderTest; the two ports are the fixture's. The
//   search path is changed in this process, and is what it was after the test.
// Threads: one thread only.
// Units: seconds.
// Errors: a script that fails fails the test and shows its words.
#pragma once

#include "ExternalProgram.h"
#include "ServiceUnderTest.h"

// What a program said and how it ended.
struct Said {
    int exitCode = -1;
    std::string words;
};
// Runs a program of the machine to its end, without a Java home from outside.
Said say(std::vector<std::string> command);

// The sample's script with the programs of this build. The circumstances are words for env.
Said makeInstallation(const std::vector<std::string>& arguments,
                      const std::vector<std::string>& circumstances = {});

// curl that believes only this authority. Its words are the body, a line feed, and the status.
Said curl(const std::string& authorityFile, const std::string& url);

// A folder that is searched for programs before all others, as long as this lives.
class SearchPath {
  public:
    explicit SearchPath(const std::string& first);
    ~SearchPath();
    SearchPath(const SearchPath&) = delete;
    SearchPath& operator=(const SearchPath&) = delete;

  private:
    std::string m_before;
};

// A systemd-cat that does this, in the tree's folder "tools".
void withJournal(const ServiceUnderTest& service, const std::string& script);

class TomcatTest : public SystemTest {
  protected:
    // With a poll each second and a limit of two failed pings.
    void SetUp() override;

    // "-start" with checks a second apart, as many as a JVM on a busy machine may need.
    RunResult start(int tries = 60);
    // As start(), and it must succeed. The daemon's id.
    pid_t started();
    RunResult stop();

    // The JVM that runs; 0 when there is none.
    pid_t jvm() const;
    // The one that has taken the place of that one.
    pid_t jvmAfter(pid_t former);
    // Has been pinged well, after everything that was logged until now.
    testing::AssertionResult isPingedWell();
    // More failed pings, or other messages of a kind, than were logged until now.
    testing::AssertionResult isLoggedAgain(const std::string& level, const std::string& logger,
                                           const std::string& text, std::size_t times = 1);

    // What the application answers from now on.
    void applicationSays(const std::string& status) const;
    // How often the application wrote this into Tomcat's log.
    std::size_t applicationTold(const std::string& event) const;

    Said get(const std::string& page) const;
    std::string authorityFile() const { return service.path("configuration/ca.pem"); }
    const ReservedPort& port() const { return m_port; }

  private:
    // In the sample's document, which must hold the text.
    void adapt(const std::string& document, const std::string& from, const std::string& to) const;

    ReservedPort m_port;
    ReservedPort m_shutdownPort;
    // Whatever this machine has: no journal can be reached, unless a test says otherwise.
    SearchPath m_tools{service.path("tools")};
};
