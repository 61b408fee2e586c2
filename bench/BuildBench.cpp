// Building a packet through a cursor, from createNew to the last record, at
// 1k, 10k and 100k records. The time per record shows whether appending stays
// linear as the frame grows. Single-threaded; each iteration owns its packet.
#include "Benchmarks.h"
#include "PacketCorpus.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace KVX {
namespace Bench {

namespace {

using MessagePtr = std::unique_ptr<KVXMessage, MessageDeleter>;

void buildRecords(benchmark::State &state) {
    int const records = static_cast<int>(state.range(0));
    for (auto _ : state) {
        MessagePtr message(buildPacket(records));
        if (!message) {
            state.SkipWithError("building the packet failed");
            break;
        }
        benchmark::DoNotOptimize(message.get());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * records);
    state.counters["records"] = records;
    // Seconds per record, shown by the console in its own unit.
    state.counters["per_record"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * records,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

} // namespace

void registerBuildBenchmarks() {
    benchmark::RegisterBenchmark("Build/cursor", buildRecords)
        ->Arg(1000)
        ->Arg(10000)
        ->Arg(100000)
        ->Unit(benchmark::kMillisecond);
}

} // namespace Bench
} // namespace KVX
