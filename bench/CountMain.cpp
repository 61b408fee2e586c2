// kvx_count: runs one road N times in one function, for instruction counts
// that do not depend on the machine's load:
//   valgrind --tool=callgrind --toggle-collect='runRoad*' kvx_count <road> <size> <N>
// gives N times the road's instructions ("Collected"), the inputs' set-up left
// out. Roads: fromText, pugixml (load_buffer, parse_default), toText (40500).
// Sizes index the benchmark's texts: 0 = 1KB, 1 = 64KB, 2 = 4MB. With a file
// name as a fourth argument the text is written there instead.
#include "PacketCorpus.h"

#include <kvx/KVXMsgFactory.h>

#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

namespace {

using KVX::Bench::MessageDeleter;
using KVX::Bench::Sample;
using MessagePtr = std::unique_ptr<KVX::KVXMessage, MessageDeleter>;

// Not inlined, so that callgrind can collect exactly this call.
[[gnu::noinline]] bool runRoad(std::string const &road, Sample const &sample, long count) {
    if (road == "fromText") {
        MessagePtr message(KVX::KVXMsgFactory::createNew());
        for (long i = 0; i < count; ++i) {
            if (message->fromText(sample.text.c_str()) < 0)
                return false;
        }
        return true;
    }
    if (road == "pugixml") {
        pugi::xml_document document;
        for (long i = 0; i < count; ++i) {
            if (!document.load_buffer(sample.text.data(), sample.text.size(), pugi::parse_default))
                return false;
        }
        return true;
    }
    if (road == "toText") {
        MessagePtr message(KVX::KVXMsgFactory::createNew());
        if (message->init(sample.frame.data(), static_cast<int>(sample.frame.size())) != 0)
            return false;
        std::string const noBase;
        for (long i = 0; i < count; ++i) {
            char *text = message->toText(nullptr, noBase, 40500);
            if (text == nullptr)
                return false;
            std::free(text);
        }
        return true;
    }
    return false;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 4) {
        std::fprintf(stderr,
                     "usage: kvx_count fromText|pugixml|toText 0|1|2 <count> [text file]\n");
        return 2;
    }
    if (!KVX::Bench::prepareCorpus())
        return 1;
    std::size_t const size = static_cast<std::size_t>(std::atoi(argv[2]));
    if (size >= KVX::Bench::corpus().texts.size()) {
        std::fprintf(stderr, "kvx_count: no text of size %s\n", argv[2]);
        return 2;
    }
    Sample const &sample = KVX::Bench::corpus().texts[size];
    if (argc > 4) {
        std::ofstream(argv[4], std::ios::binary) << sample.text;
        return 0;
    }
    if (!runRoad(argv[1], sample, std::atol(argv[3]))) {
        std::fprintf(stderr, "kvx_count: %s failed or is unknown\n", argv[1]);
        return 1;
    }
    return 0;
}
