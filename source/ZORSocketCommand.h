// One command over a secure socket, and its answer.
//
// Purpose: sendCommand() connects with a fresh handle and sends; getResponse() reads one block; close()
//   releases the handle. Repeated for every exchange on the same object.
// Ownership: owns the open handle; the destructor closes it. The security library is not owned.
// Threads: one thread at a time, which is blocked meanwhile. Every connection is preceded by a pause of 2 s.
// Units: the time limit in seconds (-1: none), sizes in bytes.
// Errors: -1 after an ERROR line with the library's detail text; nothing throws.
#pragma once

#include <optional>
#include <string>

class TVLCrypto;

class ZORSocketCommand {
  public:
    static constexpr int kPauseBeforeConnectMs = 2000;

    ZORSocketCommand(const char* uri, const char* command, int timeoutSec);
    ZORSocketCommand(const ZORSocketCommand&) = delete;
    ZORSocketCommand& operator=(const ZORSocketCommand&) = delete;
    virtual ~ZORSocketCommand();

    int sendCommand();  // 1 when sent
    // The number of bytes read, 0 at the end of the stream. The buffer is not terminated. Deliberate: one
    // read only, an answer in several pieces is seen up to the first; see
    // ZORSocketCommandTest.AnAnswerInPiecesIsSeenUpToTheFirst.
    int getResponse(int capacity, char* buffer);
    void close();
    int connect();  // 0 when connected
    // The session document for the URI's address family. The startup configuration is asked once, then remembered.
    char* getSessionConfigDoc();

    const std::string& getCommand() const { return m_command; }
    const std::string& getURI() const { return m_uri; }
    int getTimeoutSec() const { return m_timeoutSec; }

    // Whether the startup configuration has decided on the address family: it is asked when the URI does not tell.
    bool hasAskedConfiguration() const { return m_isConfiguredForIPv6.has_value(); }

  private:
    bool isConfiguredForIPv6();
    // False after a line in the log that says why.
    bool createHandle(char* document);
    bool connectInTurns(char* document);
    bool establish(int& budget);
    bool waitForAnswer();
    void logLastError(const char* format);
    void logAndFree(const char* format, char* details);

    std::string m_command;
    std::string m_uri;
    int m_timeoutSec;
    TVLCrypto* m_crypto = nullptr;  // process-wide, null until connect()
    void* m_handle = nullptr;       // null until the library made one
    std::optional<bool> m_isConfiguredForIPv6;
};
