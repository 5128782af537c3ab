// Sends a command over a socket and classifies the answer.
//
// Purpose: the ping of a child, and a way to stop it.
// Ownership: owns its socket command, which prepare() creates.
// Threads: executions are serialised by a lock of the action's own; the pause after one is outside of it.
// Units: the answer's time limit in seconds, sizes in bytes.
// Errors: prepare() throws ZORBadConfigException. execute() returns a ZORSendResult, or the answer's length.
#pragma once

#include <memory>
#include <string>

#include "TVLThreadSync.h"
#include "ZORAction.h"
#include "ZORSocketCommand.h"

enum ZORSendResult : int {
    ZOR_NOT_SENT = -1,      // not sent, or no answer could be read
    ZOR_NO_SUCCESS = -2,    // an answer without any of the markers
    ZOR_FATAL_ANSWER = -3,  // "responseFatal" found
    ZOR_RETRY_ANSWER = -4   // "responseRetry" found
};

class ZORSockSendAction : public ZORAction {
  public:
    ZORSockSendAction();
    ~ZORSockSendAction() override;

    int executeImpl() override;
    void prepare(TVLIDOM_Element element) override;

    // As they were prepared; the command is not to be used while the action is executed.
    ZORSocketCommand& getCommand() TVL_UNCHECKED { return *m_command; }
    int getResponseSize() const { return m_responseSize; }
    const std::string& getResponseOK() const { return m_responseOK; }
    const std::string& getResponseFatal() const { return m_responseFatal; }
    const std::string& getResponseRetry() const { return m_responseRetry; }

    // Makes a zero-terminated answer fit for a log line and a search in plain ASCII. Deliberate: bytes from 128
    // on are negative as signed characters and become blanks too; see ZORSockSendActionTest.AnswersAreTidied.
    static void tidy(char* text, int length) {
        for (int i = 0; i < length && text[i] != '\0'; ++i) {
            if (static_cast<signed char>(text[i]) < 32) text[i] = ' ';
        }
    }

  private:
    void prepareMarkers(const TVLIDOM_Element& element);
    int exchange() TVL_REQUIRES(m_mutex);
    int readResponse() TVL_REQUIRES(m_mutex);
    int classify(const char* answer, int received) const;

    TVLThreadMutex m_mutex;
    std::unique_ptr<ZORSocketCommand> m_command TVL_PT_GUARDED_BY(m_mutex);
    int m_responseSize = 0;  // answer bytes to read; 0 or less reads nothing
    std::string m_responseOK;
    std::string m_responseFatal;
    std::string m_responseRetry;
};
