// Scaling across threads: each thread parses its own copy of the 64 KB packet
// text into its own message and writes it back as text, sharing nothing but
// the read-only input and the vocabulary. Throughput at two threads against
// one, in wall-clock time. The same work done by pugixml is the control: if
// it does not scale either, the machine, not the library, sets the limit.
#include "Benchmarks.h"
#include "PacketCorpus.h"

#include <kvx/KVXMsgFactory.h>

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <memory>
#include <string>

namespace KVX {
namespace Bench {

namespace {

using MessagePtr = std::unique_ptr<KVXMessage, MessageDeleter>;

void convertOwn(benchmark::State &state) {
    Sample const &sample = corpus().texts[1];
    // Per thread: the message and its own copy of the input.
    std::string const text = sample.text;
    MessagePtr message(KVXMsgFactory::createNew());
    KVXMessage const &source = *message;
    std::string const noBase;
    for (auto _ : state) {
        if (message->fromText(text.c_str()) < 0) {
            state.SkipWithError("fromText refused the text");
            break;
        }
        char *out = source.toText(nullptr, noBase, 40500);
        if (out == nullptr) {
            state.SkipWithError("toText failed");
            break;
        }
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

struct StringWriter : pugi::xml_writer {
    std::string out;
    void write(void const *data, std::size_t size) override {
        out.append(static_cast<char const *>(data), size);
    }
};

void convertOwnPugi(benchmark::State &state) {
    std::string const text = corpus().texts[1].text;
    pugi::xml_document document;
    StringWriter writer;
    for (auto _ : state) {
        if (!document.load_buffer(text.data(), text.size(), pugi::parse_default)) {
            state.SkipWithError("pugixml refused the text");
            break;
        }
        writer.out.clear();
        document.save(writer, "", pugi::format_raw);
        benchmark::DoNotOptimize(writer.out.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

} // namespace

void registerThreadBenchmarks() {
    // Wall-clock rows on shared cores vary more than the others: each runs
    // half a second, whatever the run's minimum time.
    constexpr double MinimumSeconds = 0.5;
    benchmark::RegisterBenchmark("Threads/convert/64KB", convertOwn)
        ->Threads(1)
        ->Threads(2)
        ->MinTime(MinimumSeconds)
        ->UseRealTime();
    benchmark::RegisterBenchmark("Threads/pugixml/64KB", convertOwnPugi)
        ->Threads(1)
        ->Threads(2)
        ->MinTime(MinimumSeconds)
        ->UseRealTime();
}

} // namespace Bench
} // namespace KVX
