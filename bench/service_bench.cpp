// What the service does often or must do cheaply: a suppressed log line, a written one, the substitution of
// properties, the reading of its document. Allocations are counted, so that "builds nothing" is a number.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "AllocationCounter.h"
#include "TVLIDOM_Parser.h"
#include "TextStream.h"
#include "ZORBootstrapService.h"
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
    const std::size_t before = AllocationCounter::made();
    for (auto step : state) {
        (void)step;
        logger->log(ZOR_DEBUG, "Pinging process %s. Ping counter: %s", "alpha", "0");
    }
    state.counters["allocations"] = static_cast<double>(AllocationCounter::made() - before);
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

std::string documentOf(std::int64_t children) {
    std::string text = "<bootstrap>";
    for (std::int64_t i = 0; i < children; ++i) {
        text += "<process name='p'><start><spawn><path>${name}/x</path>";
        for (int k = 0; k < 9; ++k)
            text += "<param>-D=${name}/x</param>";
        text += "</spawn></start><stop type='signal'><signal signal='15'/></stop></process>";
    }
    return text + "<daemonSpawn><path>x</path></daemonSpawn></bootstrap>";
}

// A document of many children with ten references each, from its text to children that are ready to start.
void bootstrapDocument(benchmark::State& state) {
    quietLog();
    ZORPropertyInserter::getInstance()->add("name", "/opt/product");
    TVLIDOM_DOMImplementation::initialize();
    const std::string text = documentOf(state.range(0));
    const std::size_t before = AllocationCounter::made();
    const std::size_t aliveBefore = AllocationCounter::aliveBytes();
    AllocationCounter::beginPeak();
    for (auto step : state) {
        (void)step;
        TextStream stream(text);
        TVLIDOM_Document document;
        TVLIDOM_Parser().parse(stream, document);
        ZORBootstrapService service;
        if (service.parseParams(document.getDocumentElement()) != 1) state.SkipWithError("refused");
    }
    state.counters["allocations"] = benchmark::Counter(
        static_cast<double>(AllocationCounter::made() - before), benchmark::Counter::kAvgIterations);
    state.counters["peak_MiB"] =
        static_cast<double>(AllocationCounter::peakBytes() - aliveBefore) / (1024 * 1024);
    TVLIDOM_DOMImplementation::terminate();
}
BENCHMARK(bootstrapDocument)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
