// What the service does often or must do cheaply: a suppressed log line, a written one, the substitution of
// properties. Allocations are counted, so that "builds nothing" is a number.
#include <benchmark/benchmark.h>

#include <string>

#include "CountingNew.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

namespace {

void quietLog() {
    ZORLoggerFactory* const factory = ZORLoggerFactory::getInstance();
    factory->reset();
    factory->setLevel(ZOR_WARN);
    factory->addFile("/dev/null", 1);
}

void suppressedLine(benchmark::State& state) {
    quietLog();
    static ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("bench");
    const std::size_t before = countedAllocations();
    for (auto step : state) {
        (void)step;
        logger->log(ZOR_DEBUG, "Pinging process %s. Ping counter: %s", "alpha", "0");
    }
    state.counters["allocations"] = static_cast<double>(countedAllocations() - before);
}
BENCHMARK(suppressedLine);

void writtenLine(benchmark::State& state) {
    quietLog();
    static ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("bench");
    for (auto step : state) {
        (void)step;
        logger->log(ZOR_WARN, "Pinging process %s. Ping counter: %s", "alpha", "0");
    }
}
BENCHMARK(writtenLine);

// A text with a reference every 32 bytes; the time is to grow as the text does.
void substitution(benchmark::State& state) {
    quietLog();
    ZORPropertyInserter* const properties = ZORPropertyInserter::getInstance();
    properties->add("name", "a value of some length");
    std::string text;
    while (text.size() < static_cast<std::size_t>(state.range(0)))
        text += "some words of text and a ${name}";
    for (auto step : state) {
        (void)step;
        std::string copy = text;
        properties->insertProperties(copy);
        benchmark::DoNotOptimize(copy);
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(substitution)->RangeMultiplier(4)->Range(1 << 10, 1 << 20)->Complexity();

}  // namespace

BENCHMARK_MAIN();
