// velbootstrapctl ping [CHILD] [--watch] [--json]
//
// Purpose: one exchange with each child that has a ping, or with one: every step, its time, and what the service makes
//   of it. With --watch again and again: the distribution of the answers' times, and the time-out that follows.
// Ownership: owns its options.
// Threads: one.
// Units: seconds between two rounds.
// Errors: exit codes 0 every answer good, 1 a failed ping, 2 a fatal answer, 3 "retry", 4 there is nothing to ping, 130
//   interrupted before there was an answer; of several the worst, in the order fatal, failed, retry.
#pragma once

#include <cstddef>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "CTLCommand.h"
#include "CTLDistribution.h"

struct CTLExchange;
class CTLInstance;
class CTLPreparation;
class ZORChildProcess;

class CTLPingCommand : public CTLCommand {
  public:
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

    // The exit code of exchanges.
    static int exitCodeOf(const std::vector<CTLExchange>& exchanges);

  private:
    // What has been seen of a child.
    struct Seen {
        CTLDistribution answers;
        std::size_t failed = 0;
        int timeoutSec = 0;
        std::string last;
    };

    std::vector<ZORChildProcess*> chosen(CTLPreparation& preparation) const;
    int rounds(CTLTerminal& terminal, const CTLInstance& instance,
               const std::vector<ZORChildProcess*>& children, int limit);
    void note(const std::vector<CTLExchange>& exchanges);
    void show(CTLTerminal& terminal, const CTLInstance& instance, const std::vector<CTLExchange>& exchanges,
              int limit) const;
    void showJson(CTLTerminal& terminal, const CTLInstance& instance,
                  const std::vector<CTLExchange>& exchanges, int limit) const;
    void showDistribution(CTLTerminal& terminal) const;
    static nlohmann::json distributionJson(const Seen& seen);

    std::string m_child;
    bool m_json = false;
    bool m_watch = false;
    int m_intervalSec = 2;
    int m_count = 0;  // rounds of --watch; 0: until it is enough
    std::map<std::string, Seen> m_seen;
};
