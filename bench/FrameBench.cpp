// Frame load and store of a 1 MiB frame against memcpy of the same bytes.
// Loading a whole frame is meant to be one copy into the message's buffer, and
// writing one a copy out behind a fresh head: the references are that copy.
// Single-threaded; the message and buffers live for one benchmark run.
#include "Benchmarks.h"
#include "PacketCorpus.h"

#include <kvx/KVXMsgFactory.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace KVX {
namespace Bench {

namespace {

using MessagePtr = std::unique_ptr<KVXMessage, MessageDeleter>;

std::string const &frame() {
    return corpus().mibFrame.frame;
}

void setBytes(benchmark::State &state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(frame().size()));
}

// The load's reference: the bytes into a buffer that already exists, as a
// message reuses its buffer from one load to the next.
void loadMemcpy(benchmark::State &state) {
    std::vector<char> target(frame().size());
    for (auto _ : state) {
        std::memcpy(target.data(), frame().data(), frame().size());
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

void loadInit(benchmark::State &state) {
    MessagePtr message(KVXMsgFactory::createNew());
    int const length = static_cast<int>(frame().size());
    for (auto _ : state) {
        if (message->init(frame().data(), length) != 0) {
            state.SkipWithError("init refused the frame");
            break;
        }
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

void loadDeserialize(benchmark::State &state) {
    MessagePtr message(KVXMsgFactory::createNew());
    int const length = static_cast<int>(frame().size());
    for (auto _ : state) {
        if (message->deserialize(frame().data(), length, nullptr) != 0) {
            state.SkipWithError("deserialize refused the frame");
            break;
        }
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

// A received frame through the factory's front door: a new message each time.
void loadFactory(benchmark::State &state) {
    int const length = static_cast<int>(frame().size());
    for (auto _ : state) {
        MessagePtr message(KVXMsgFactory::createNew(frame().data(), length));
        if (!message) {
            state.SkipWithError("createNew refused the frame");
            break;
        }
        benchmark::DoNotOptimize(message.get());
    }
    setBytes(state);
}

// The store's references. The allocating serialize hands out a fresh heap
// block each time, so its fair reference allocates too; the plain copy into a
// kept buffer is shown beside it as the floor.
void storeMemcpy(benchmark::State &state) {
    std::vector<char> target(frame().size());
    for (auto _ : state) {
        std::memcpy(target.data(), frame().data(), frame().size());
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

void storeMallocMemcpy(benchmark::State &state) {
    for (auto _ : state) {
        char *target = static_cast<char *>(std::malloc(frame().size()));
        std::memcpy(target, frame().data(), frame().size());
        benchmark::DoNotOptimize(target);
        std::free(target);
    }
    setBytes(state);
}

void storeSerialize(benchmark::State &state) {
    MessagePtr message(KVXMsgFactory::createNew());
    if (message->init(frame().data(), static_cast<int>(frame().size())) != 0) {
        state.SkipWithError("init refused the frame");
        return;
    }
    for (auto _ : state) {
        char *out = nullptr;
        int length = 0;
        if (message->serialize(&out, &length, nullptr, 40500) != 0) {
            state.SkipWithError("serialize failed");
            break;
        }
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    setBytes(state);
}

// The fixed-buffer form into a kept buffer: the copy without the allocation.
void storeSerializeFixed(benchmark::State &state) {
    MessagePtr message(KVXMsgFactory::createNew());
    if (message->init(frame().data(), static_cast<int>(frame().size())) != 0) {
        state.SkipWithError("init refused the frame");
        return;
    }
    std::vector<char> target(frame().size());
    for (auto _ : state) {
        unsigned __int64 size = target.size();
        if (message->serialize(target.data(), &size, nullptr) != 0) {
            state.SkipWithError("serialize failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

} // namespace

void registerFrameBenchmarks() {
    benchmark::RegisterBenchmark("FrameLoad/memcpy/1MiB", loadMemcpy);
    benchmark::RegisterBenchmark("FrameLoad/init/1MiB", loadInit);
    benchmark::RegisterBenchmark("FrameLoad/deserialize/1MiB", loadDeserialize);
    benchmark::RegisterBenchmark("FrameLoad/createNew/1MiB", loadFactory);
    benchmark::RegisterBenchmark("FrameStore/memcpy/1MiB", storeMemcpy);
    benchmark::RegisterBenchmark("FrameStore/malloc+memcpy/1MiB", storeMallocMemcpy);
    benchmark::RegisterBenchmark("FrameStore/serialize/1MiB", storeSerialize);
    benchmark::RegisterBenchmark("FrameStore/serializeFixed/1MiB", storeSerializeFixed);
}

} // namespace Bench
} // namespace KVX
