#include "TomcatTest.h"

#include <cstdlib>
#include <filesystem>

#include "ProcessView.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kPinged = "process tomcat pinged successfully.";

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++found;
    return found;
}

}  // namespace

Said say(std::vector<std::string> command) {
    command.insert(command.begin(), {"env", "--unset=JAVA_HOME"});
    ExternalProgram program(command);
    Said said;
    said.exitCode = program.waitForEnd();
    said.words = program.words();
    return said;
}

Said makeInstallation(const std::vector<std::string>& arguments,
                      const std::vector<std::string>& circumstances) {
    std::vector<std::string> command = circumstances;
    for (const char* const word : {VBS_SCRIPTS "/velbootstrap-tomcat", "--programs", VBS_PROGRAMS})
        command.emplace_back(word);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return say(command);
}

Said curl(const std::string& authorityFile, const std::string& url) {
    return say({"curl", "--disable", "--silent", "--show-error", "--noproxy", "*", "--max-time", "15",
                "--cacert", authorityFile, "--write-out", "\n%{http_code}", url});
}

void withJournal(const ServiceUnderTest& service, const std::string& script) {
    fs::create_directories(service.path("tools"));
    service.write("tools/systemd-cat", "#!/bin/sh\n" + script + "\n");
    fs::permissions(service.path("tools/systemd-cat"), fs::perms::all);
}

SearchPath::SearchPath(const std::string& first) : m_before(std::getenv("PATH")) {
    setenv("PATH", (first + ":" + m_before).c_str(), 1);
}

SearchPath::~SearchPath() {
    setenv("PATH", m_before.c_str(), 1);
}

void TomcatTest::SetUp() {
    const Said made = makeInstallation(
        {"--port", m_port.str(), "--shutdown-port", m_shutdownPort.str(), service.path("made")});
    ASSERT_EQ(made.exitCode, 0) << made.words;
    // The programs and the logging document stay those of the tree, which tell every step.
    fs::rename(service.path("made/bin/bootstrap_linuxi38632.xml"),
               service.path("bin/bootstrap_linuxi38632.xml"));
    fs::rename(service.path("made/bin/keep-output"), service.path("bin/keep-output"));
    withJournal(service, "exit 1");
    fs::rename(service.path("made/temp/zor.prefs"), service.path("temp/zor.prefs"));
    fs::rename(service.path("made/tomcat"), service.path("tomcat"));
    fs::remove_all(service.path("configuration"));
    fs::rename(service.path("made/configuration"), service.path("configuration"));
    fs::remove_all(service.path("made"));
    adapt("bin/bootstrap_linuxi38632.xml", "pollIntervalsec=\"10\"", "pollIntervalsec=\"1\"");
    adapt("configuration/startup.xml", ">30<", ">2<");
    // Nothing here needs more rights than that.
    service.asOrdinaryUser();
}

void TomcatTest::adapt(const std::string& document, const std::string& from, const std::string& to) const {
    std::string text = service.read(document);
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from << " in " << document;
    service.write(document, text.replace(at, from.size(), to));
}

RunResult TomcatTest::start(int tries) {
    return service.run(ServiceUnderTest::Launch{
        .arguments = {"-start", "-testReadyInterval=1", "-testReadyTries=" + std::to_string(tries)},
        .withoutVariables = {"JAVA_HOME"}});
}

pid_t TomcatTest::started() {
    const RunResult result = start();
    EXPECT_EQ(result.exitCode, 0) << testing::PrintToString(result);
    return service.daemonPid();
}

RunResult TomcatTest::stop() {
    return service.run({"-stop", "-testDeadInterval=1", "-testDeadTries=60"});
}

pid_t TomcatTest::jvm() const {
    for (const pid_t pid : service.processes()) {
        if (fs::path(ProcessView(pid).target("exe")).filename() == "java") return pid;
    }
    return 0;
}

pid_t TomcatTest::jvmAfter(pid_t former) {
    pid_t present = 0;
    EXPECT_TRUE(service.waitFor("another JVM", [&] {
        present = jvm();
        return present != 0 && present != former;
    }));
    return present;
}

testing::AssertionResult TomcatTest::isLoggedAgain(const std::string& level, const std::string& logger,
                                                   const std::string& text, std::size_t times) {
    const std::size_t before = service.countLogged(level, logger, text);
    return service.waitFor(
        text, [&] { return service.countLogged(level, logger, text) >= before + times; }, 90);
}

testing::AssertionResult TomcatTest::isPingedWell() {
    return isLoggedAgain("DEBUG", "PingChildProcess", kPinged);
}

void TomcatTest::applicationSays(const std::string& status) const {
    service.write("temp/dispatcher.status", status + "\n");
}

std::size_t TomcatTest::applicationTold(const std::string& event) const {
    std::size_t told = 0;
    for (const auto& entry : fs::directory_iterator(service.path("tomcat/logs")))
        told += count(service.read("tomcat/logs/" + entry.path().filename().string()),
                      "dispatcher " + event + "\n");
    return told;
}

Said TomcatTest::get(const std::string& page) const {
    return curl(authorityFile(), "https://localhost:" + m_port.str() + page);
}
