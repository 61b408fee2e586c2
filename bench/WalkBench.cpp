// A full read of a packet: every element, its name, and each leaf's value by
// a typed getter, through the cursor and through a pugixml DOM of the same
// packet's text. Neither walk visits attributes: firstChild() passes them by.
// Single-threaded; each run owns its message or document.
#include "Benchmarks.h"
#include "PacketCorpus.h"

#include <kvx/KVXMsgFactory.h>

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace KVX {
namespace Bench {

namespace {

using MessagePtr = std::unique_ptr<KVXMessage, MessageDeleter>;

// The walk in depth-first order without recursion: down with firstChild, on
// with nextSibling, up with seekUp. A node without element children is a leaf.
std::uint64_t walkCursor(KVXMessageIterator const &cursor) {
    std::uint64_t sum = 0;
    int depth = 0;
    std::string text;
    for (;;) {
        std::string const name = cursor.curName();
        sum += name.size();
        if (cursor.firstChild() == 0) {
            ++depth;
            continue;
        }
        if (isNumberField(name.data(), name.size())) {
            int value = 0;
            cursor.getValue(value);
            sum += static_cast<unsigned>(value);
        } else {
            cursor.getValue(text);
            sum += text.size();
        }
        // nextSibling is not for the root, so the climb stops at depth 0.
        for (;;) {
            if (depth == 0)
                return sum;
            if (cursor.nextSibling() == 0)
                break;
            cursor.seekUp();
            --depth;
        }
    }
}

std::uint64_t walkPugi(pugi::xml_node root) {
    std::uint64_t sum = 0;
    pugi::xml_node node = root;
    for (;;) {
        char const *name = node.name();
        std::size_t const length = std::strlen(name);
        sum += length;
        pugi::xml_node child = node.first_child();
        while (child && child.type() != pugi::node_element)
            child = child.next_sibling();
        if (child) {
            node = child;
            continue;
        }
        if (isNumberField(name, length))
            sum += static_cast<unsigned>(node.text().as_int());
        else
            sum += std::strlen(node.child_value());
        for (;;) {
            if (node == root)
                return sum;
            pugi::xml_node next = node.next_sibling();
            while (next && next.type() != pugi::node_element)
                next = next.next_sibling();
            if (next) {
                node = next;
                break;
            }
            node = node.parent();
        }
    }
}

void setCounters(benchmark::State &state, Sample const &sample) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * sample.records);
}

void cursorWalk(benchmark::State &state, int index) {
    Sample const &sample = corpus().texts[index];
    MessagePtr message(KVXMsgFactory::createNew());
    if (message->init(sample.frame.data(), static_cast<int>(sample.frame.size())) != 0) {
        state.SkipWithError("init refused the frame");
        return;
    }
    std::unique_ptr<KVXMessageIterator const> cursor(
        static_cast<KVXMessage const &>(*message).newIterator());
    for (auto _ : state) {
        cursor->seekRoot();
        benchmark::DoNotOptimize(walkCursor(*cursor));
    }
    setCounters(state, sample);
}

void pugiWalk(benchmark::State &state, int index) {
    Sample const &sample = corpus().texts[index];
    pugi::xml_document document;
    if (!document.load_buffer(sample.text.data(), sample.text.size(), pugi::parse_default)) {
        state.SkipWithError("pugixml refused the text");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(walkPugi(document.document_element()));
    setCounters(state, sample);
}

} // namespace

void registerWalkBenchmarks() {
    // Both walks must read the same things, or the comparison means nothing.
    for (Sample const &sample : corpus().texts) {
        MessagePtr message(KVXMsgFactory::createNew());
        pugi::xml_document document;
        if (message->init(sample.frame.data(), static_cast<int>(sample.frame.size())) != 0 ||
            !document.load_buffer(sample.text.data(), sample.text.size()))
            continue;
        std::unique_ptr<KVXMessageIterator const> cursor(
            static_cast<KVXMessage const &>(*message).newIterator());
        std::uint64_t const mine = walkCursor(*cursor);
        std::uint64_t const theirs = walkPugi(document.document_element());
        if (mine != theirs)
            std::fprintf(stderr, "kvx_bench: walks of %s differ (%llu, %llu)\n",
                         sample.label.c_str(), static_cast<unsigned long long>(mine),
                         static_cast<unsigned long long>(theirs));
    }
    for (int i = 0; i < static_cast<int>(corpus().texts.size()); ++i) {
        std::string const &label = corpus().texts[i].label;
        benchmark::RegisterBenchmark(("Walk/pugixml/" + label).c_str(), pugiWalk, i);
        benchmark::RegisterBenchmark(("Walk/cursor/" + label).c_str(), cursorWalk, i);
    }
}

} // namespace Bench
} // namespace KVX
