// What the service's frequent operations cost at most, counted. The bounds are what they cost at present, so that
// whoever makes one dearer does so knowingly. scripts/figures.sh prints the lines that begin with "cost: ".

#include <dlfcn.h>
#include <gnu/libc-version.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <vector>

#include "Cost.h"
#include "TVLRealOs.h"
#include "TestAccess.h"
#include "TestKit.h"
#include "TestPeer.h"
#include "ZORBootstrapService.h"
#include "ZORChildProcess.h"
#include "ZORCmdLine.h"
#include "ZORCryptoHelper.h"

namespace {

void require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(what);
}

// The pause before each connection is one call, and not worth the time.
class HastyOs : public TVLRealOs {
  public:
    HastyOs() { install(this); }
    ~HastyOs() override { install(nullptr); }
    void sleepMs(std::int64_t /*durationMs*/) override {}
};

// A service with a running child, whose log takes warnings, as installed.
class Supervision {
  public:
    explicit Supervision(const std::string& ping) {
        const XmlText document(
            "<bootstrap><processManager pollIntervalsec='30'/><process name='alpha'><start><spawn>"
            "<path>/bin/sleep</path><param>60</param></spawn></start><stop type='signal'><signal "
            "signal='15'/>"
            "</stop>" +
            ping + "</process><daemonSpawn><path>x</path></daemonSpawn></bootstrap>");
        require(m_service.parseParams(document.root()) == 1, "the document is refused");
        child().start();
        require(child().isAlive() != 0, "no child");
        std::signal(SIGPIPE, SIG_IGN);  // as main() does
        require(ZORCryptoHelper::InitializeCrypto() == 1, "no security library");
    }
    ~Supervision() { TVLOs::current().kill(child().getProcessHandle(), SIGKILL); }
    Supervision(const Supervision&) = delete;
    Supervision& operator=(const Supervision&) = delete;

    void poll() {
        TestAccess::runCycle(TestAccess::supervisor(m_service));
        require(child().m_pingCounter <= 0, "an unanswered ping");
    }

  private:
    ZORChildProcess& child() { return *m_service.getChildren().front(); }

    HastyOs m_os;
    ZORBootstrapService m_service;
};

class CostTest : public ServiceTest {
  protected:
    struct Bound {
        const char* operation;
        std::size_t systemCalls;
        std::size_t allocations;
    };

    CostTest() {
        ZORLoggerFactory* const factory = ZORLoggerFactory::getInstance();
        factory->reset();
        factory->setLevel(ZOR_WARN);
        factory->addFile("../logs/cost.log", 1);
    }

    // The bounds were taken with this version of the C library, and of the others that came with it. With others what
    // they ask for on their own may be a quarter more.
    static std::size_t allowed(std::size_t bound) {
        static const bool isReference = std::string(gnu_get_libc_version()) == "2.36";
        return isReference ? bound : bound + (bound + 3) / 4;
    }
    static void expectAtMost(const Bound& bound, const Cost& cost) {
        std::printf("cost: %s: %zu system calls, %zu allocations", bound.operation, cost.systemCalls,
                    cost.allocations);
        std::printf(cost.allocationsOfOpenSsl == 0 ? "\n" : ", %zu of OpenSSL's\n",
                    cost.allocationsOfOpenSsl);
        EXPECT_LE(cost.systemCalls, allowed(bound.systemCalls));
        EXPECT_LE(cost.allocations, allowed(bound.allocations));
        // Only an emulated processor cannot be traced.
        EXPECT_TRUE(cost.traceError == 0 || cost.traceError == ENOSYS) << cost.traceError;
    }
    static std::function<std::function<void()>()> polls(const std::string& ping) {
        return [ping] {
            const auto supervision = std::make_shared<Supervision>(ping);
            supervision->poll();  // what is made once is made
            return [supervision] { supervision->poll(); };
        };
    }
    static std::string pingOf(const std::string& uri) {
        return "<ping><socketSend URI='" + uri +
               "' commandString='PING' responseSize='20' responseOK='READY' responseFatal='BROKEN' "
               "responseRetry='LATER'/></ping>";
    }
    static TestPeer::Script answers(const PeerContext& context) {
        return [context](PeerConnection& connection) {
            // Otherwise the answer waits behind the session tickets until the client has acknowledged them.
            const int on = 1;
            setsockopt(connection.descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            if (context != nullptr && !connection.acceptTls(context)) return;
            if (connection.read() != "PING" || !connection.write("READY")) return;
            connection.waitForEnd();
            connection.closePolitely();
        };
    }
    static Cost costOfPing(const std::string& scheme, const PeerContext& context) {
        const TestPeer peer(answers(context), std::numeric_limits<int>::max());
        return Cost::of(12, polls(pingOf(peer.url(scheme))));
    }
};

TEST_F(CostTest, ALogLineThatTheLevelSuppressesCostsNothing) {
    const Cost cost = Cost::of(2, [] {
        ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("cost");
        return [logger] { logger->log(ZOR_DEBUG, "Pinging process %s. Ping counter: %s", "alpha", "0"); };
    });
    expectAtMost({"a log line that the level suppresses", 0, 0}, cost);
}

TEST_F(CostTest, ALogLineCostsLittle) {
    const Cost cost = Cost::of(3, [] {
        ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("cost");
        return [logger] { logger->log(ZOR_WARN, "Pinging process %s. Ping counter: %s", "alpha", "0"); };
    });
    expectAtMost({"a log line that is written", 3, 4}, cost);
}

TEST_F(CostTest, APollWithoutAPingCostsLittle) {
    expectAtMost({"a poll of a child without a ping", 2, 0}, Cost::of(3, polls({})));
}

TEST_F(CostTest, APollWithAPlainPingCostsLittle) {
    expectAtMost({"a poll with a plain ping", 19, 55}, costOfPing("tcp", nullptr));
}

TEST_F(CostTest, APollWithAPingOverTlsCostsLittle) {
    TestPki pki(folder.path("configuration"));
    folder.write("configuration/sek.cnf", "[gateway]\nVerifyCAFile = " + pki.authorityFile().string() + "\n");
    const PeerContext context = serverContext(pki.issueForLocalhost());
    // Session tickets arrive with the answer or before it, as chance has it.
    SSL_CTX_set_num_tickets(context.get(), 0);
    expectAtMost({"a poll with a ping over TLS", 45, 61}, costOfPing("https", context));
}

// As main() carries it out, in an installation where the service does not run.
TEST_F(CostTest, AQuestionCostsLittle) {
    const std::filesystem::path sample(VBS_SAMPLE);
    for (const char* const part : {"bin", "configuration"})
        std::filesystem::copy(sample / part, folder.path(part),
                              std::filesystem::copy_options::overwrite_existing);
    const Cost cost = Cost::of(1, [] {
        // What the loader does for a library and those that it needs is the system's, and differs between systems.
        if (dlopen("libSEK_Crypto_Interface.so", RTLD_LAZY) == nullptr) throw std::runtime_error(dlerror());
        return [] {
            TVLIDOM_DOMImplementation::initialize();
            ZORLoggerFactory::getInstance()->simplePrepare(ZOR_FATAL, "../logs/zordefault.log");
            ZORBootstrapService service;
            std::string program = "velbootstrapservice";
            std::string question = "-isrunning";
            std::string javaHome = "-java_home=/opt/java";
            std::vector<char*> arguments{program.data(), question.data(), javaHome.data(), nullptr};
            char* none = nullptr;
            ZORCmdLine line(static_cast<int>(arguments.size()) - 1, arguments.data());
            service.ParseStandardArgs(line, &none);
            ZORCryptoHelper::TerminateCrypto();
            TVLIDOM_DOMImplementation::terminate();
        };
    });
    // With root's rights each folder on the way to a document is looked at, two ways here; usually there are two folders.
    const std::filesystem::path place = folder.path();
    const auto further = static_cast<std::size_t>(std::distance(place.begin(), place.end())) - 3;
    expectAtMost({"a question (-isrunning)", 114 + 8 * further, 245 + 4 * further}, cost);
}

}  // namespace
