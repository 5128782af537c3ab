// An installation as an administrator has it, with everything in its right place.
//
// Purpose: makes it in the tree of a ServiceUnderTest: the documents lie in configuration/, with links in bin/, as in
//   the package's instance; "dispatcher" is pinged and stopped over TLS, "helper" is watched without a ping; one log
//   for all commands. A test then does something wrong to it. What a check of the installation says, and what the
//   commands say, depends on that alone.
// Ownership: refers to the ServiceUnderTest, which must outlive it; owns the authority, the ports, and who else
//   listens there.
// Threads: one thread only.
// Units: none.
// Errors: throws std::runtime_error when a text to be replaced is not there or the file system refuses.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ExternalProgram.h"
#include "ServiceUnderTest.h"
#include "TestPki.h"

class Installation {
  public:
    explicit Installation(ServiceUnderTest& service);

    // The files by the names that they have in the tree.
    static constexpr const char* bootstrap = "configuration/bootstrap_linuxi38632.xml";
    static constexpr const char* logging = "configuration/zorlogconfig.xml";
    static constexpr const char* startup = "configuration/startup.xml";
    static constexpr const char* settings = "configuration/sek.cnf";
    static constexpr const char* log = "logs/velbootstrapservice.log";

    // What may be done to it.
    void replace(const std::string& file, const std::string& from, const std::string& to) const;
    void write(const std::string& file, const std::string& content) const { m_service.write(file, content); }
    void remove(const std::string& file) const { m_service.remove(file); }
    void mode(const std::string& file, unsigned bits) const;
    // As in the package's instance, where root's are only settings and programs; the user's are the key, too.
    void logsBelongToUser() const;
    // The dispatcher shows another certificate.
    void dispatcherShows(const TestPki::Request& request);
    void dispatcherOfAnotherAuthority();
    // The service shows one of its own.
    void serviceShowsItself();
    // Somebody else has the dispatcher's port, and answers whatever he is asked; nothing when that is empty.
    void occupyPort(const std::string& answer);
    // A command that was given by hand before; its daemon runs on.
    void startByHand();

    ServiceUnderTest& service() const { return m_service; }
    // A text that the service or a tool has printed, with what differs from one installation to the next replaced: the
    // tree's folder by nothing, the port by 9300.
    std::string plain(std::string text) const;

  private:
    void writeDocuments() const;
    void writeSettings() const;
    void install(const TestPki::Issued& issued, const std::string& name) const;

    ServiceUnderTest& m_service;
    ReservedPort m_port;
    TestPki m_pki;
    std::unique_ptr<ExternalProgram> m_stranger;
};
