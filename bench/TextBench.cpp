// The text form against pugixml on the same XML: fromText (text to frame)
// against parse_default, and toText at 40500 against save with format_raw.
// Both sides start from the same bytes and end with the same kind of result:
// a tree in memory, or the whole text in one block. Single-threaded.
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

void setBytes(benchmark::State &state, Sample const &sample) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(sample.text.size()));
}

// One message takes every parse, as a server reuses its message objects.
void kvxFromText(benchmark::State &state, int index) {
    Sample const &sample = corpus().texts[index];
    MessagePtr message(KVXMsgFactory::createNew());
    for (auto _ : state) {
        if (message->fromText(sample.text.c_str()) < 0) {
            state.SkipWithError("fromText refused the text");
            break;
        }
        benchmark::ClobberMemory();
    }
    setBytes(state, sample);
}

// load_buffer copies the input first, as fromText leaves its input alone.
void pugiParse(benchmark::State &state, int index) {
    Sample const &sample = corpus().texts[index];
    pugi::xml_document document;
    for (auto _ : state) {
        if (!document.load_buffer(sample.text.data(), sample.text.size(), pugi::parse_default)) {
            state.SkipWithError("pugixml refused the text");
            break;
        }
        benchmark::ClobberMemory();
    }
    setBytes(state, sample);
}

void kvxToText(benchmark::State &state, int index) {
    Sample const &sample = corpus().texts[index];
    MessagePtr message(KVXMsgFactory::createNew());
    if (message->init(sample.frame.data(), static_cast<int>(sample.frame.size())) != 0) {
        state.SkipWithError("init refused the frame");
        return;
    }
    KVXMessage const &source = *message;
    std::string const noBase;
    for (auto _ : state) {
        char *text = source.toText(nullptr, noBase, 40500);
        if (text == nullptr) {
            state.SkipWithError("toText failed");
            break;
        }
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
    setBytes(state, sample);
}

// pugixml's best case: the output string keeps its capacity between runs.
struct StringWriter : pugi::xml_writer {
    std::string out;
    void write(void const *data, std::size_t size) override {
        out.append(static_cast<char const *>(data), size);
    }
};

void pugiSave(benchmark::State &state, int index) {
    Sample const &sample = corpus().texts[index];
    pugi::xml_document document;
    if (!document.load_buffer(sample.text.data(), sample.text.size(), pugi::parse_default)) {
        state.SkipWithError("pugixml refused the text");
        return;
    }
    StringWriter writer;
    for (auto _ : state) {
        writer.out.clear();
        document.save(writer, "", pugi::format_raw);
        benchmark::DoNotOptimize(writer.out.data());
    }
    setBytes(state, sample);
}

} // namespace

void registerTextBenchmarks() {
    for (int i = 0; i < static_cast<int>(corpus().texts.size()); ++i) {
        std::string const &label = corpus().texts[i].label;
        benchmark::RegisterBenchmark(("Parse/pugixml/" + label).c_str(), pugiParse, i);
        benchmark::RegisterBenchmark(("Parse/fromText/" + label).c_str(), kvxFromText, i);
    }
    for (int i = 0; i < static_cast<int>(corpus().texts.size()); ++i) {
        std::string const &label = corpus().texts[i].label;
        benchmark::RegisterBenchmark(("Write/pugixml/" + label).c_str(), pugiSave, i);
        benchmark::RegisterBenchmark(("Write/toText/" + label).c_str(), kvxToText, i);
    }
}

} // namespace Bench
} // namespace KVX
