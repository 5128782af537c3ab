// How an instance is: its daemon, and each child of its bootstrap document.
//
// Purpose: puts together what the proc file system, the log and, if wished, an exchange with each child say. The daemon
//   is not touched: no signal, no connection to it, nothing written. Without exchanges no connection is opened at all.
// Ownership: a value.
// Threads: of() may start threads, which have ended when it returns.
// Units: seconds since the epoch, bytes.
// Errors: what cannot be known is absent; documents that the service would not use leave the children unknown.
#pragma once

#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CTLChildMatch.h"
#include "CTLDaemon.h"
#include "CTLExchange.h"
#include "CTLProcesses.h"

class CTLInstance;
class CTLLogFiles;
class CTLPreparation;
struct CTLPinged;
class ZORChildProcess;

struct CTLChildStatus {
    std::string name;
    bool isPinged = false;
    CTLMatch by = CTLMatch::None;
    std::size_t alike = 1;              // children started with the same words: whose is whose cannot be told
    std::optional<CTLProcess> process;  // none: missing, or it cannot be told which it is
    std::optional<int> descriptors;
    int restartsLastHour = 0;
    int restartsLastDay = 0;
    int restarts = 0;  // since the daemon was started, as far back as the log goes; with totals only
    std::optional<std::time_t> lastFailedPing;
    std::optional<CTLExchange> exchange;

    // When the first certificate of its chain ends, if an exchange has shown one.
    std::optional<std::time_t> expiry() const { return exchange ? exchange->peer.expiry() : std::nullopt; }
    bool hasFailed() const { return exchange && !exchange->isAnswered() && exchange->rule != CTLRule::Retry; }
};

struct CTLStatus {
    enum ExitCode : int {
        kAllThere = 0,
        kDeadWithPidFile = 1,
        kNotRunning = 3,
        kUnknown = 4,
        kChildMissing = 150,
        kPingFailed = 151
    };
    struct Wish {
        bool exchanges = false;
        bool totals = false;  // reads the log back to the daemon's start, not only a day
    };

    static CTLStatus of(const CTLInstance& instance, const CTLProcesses& processes, const CTLDaemon& daemon,
                        CTLPreparation& preparation, const CTLLogFiles& log, const Wish& wish);

    std::time_t asked = 0;
    std::string folder;
    CTLDaemon daemon;
    bool areChildrenKnown = false;
    std::string whyNot;  // the service's words about its documents
    std::vector<CTLChildStatus> children;
    std::vector<std::string>
        survivors;  // of a service that does not run: "dispatcher lives on as process 4711"
    std::size_t strangers =
        0;  // processes of the daemon's that are no child of the document, as far as can be told
    int failedPingLimit = 0;
    std::optional<std::time_t> lastLogLine;
    bool isLogComplete = true;

    // Neither there nor possibly among the strangers, nor hidden from this user.
    bool isMissing(const CTLChildStatus& child) const {
        return !child.process && strangers == 0 && daemon.verdict() != CTLVerdict::NotProved;
    }
    // How many are, at least.
    std::size_t missing() const;
    std::size_t there() const;
    std::size_t failed() const;
    int restartsLastHour() const;
    int restartsLastDay() const;
    // When the first certificate in any chain ends, as far as exchanges have shown.
    std::optional<std::time_t> firstExpiry() const;
    bool hasExchanges() const;
    int exitCode() const;

  private:
    void takeChildren(const std::vector<ZORChildProcess*>& prepared);
    void takeLog(const CTLLogFiles& log, const std::vector<CTLPinged>& pinged, const Wish& wish);
    void takeProcesses(const CTLProcesses& processes, const std::vector<ZORChildProcess*>& prepared);
    void takeProcessesOnce(const CTLProcesses& processes, const std::vector<ZORChildProcess*>& prepared);
    void takeSurvivors(const CTLInstance& instance, const CTLProcesses& processes,
                       const std::vector<ZORChildProcess*>& prepared);
    void exchangeWithAll(const std::vector<ZORChildProcess*>& prepared);

    std::map<std::string, CTLStartInLog> m_starts;  // what the log says of the children's last starts
};
