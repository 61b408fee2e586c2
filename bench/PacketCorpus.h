// Deterministic benchmark inputs: packets shaped like agent traffic, built
// through a cursor from a fixed seed, with their text and frame forms at the
// sizes the benchmarks compare. The corpus is filled once, before any
// benchmark thread starts, and is read-only afterwards.
#ifndef KVX_BENCH_PACKETCORPUS_H
#define KVX_BENCH_PACKETCORPUS_H

#include <kvx/KVXMessage.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KVX {
namespace Bench {

// A small, portable generator: the standard distributions are free to differ
// between library versions, and the inputs must not.
class Rng {
public:
    explicit Rng(std::uint64_t seed) : state(seed) {}
    std::uint64_t next();
    // A number in [0, bound).
    unsigned below(unsigned bound) { return static_cast<unsigned>(next() % bound); }

private:
    std::uint64_t state;
};

// The seed of every input; changing it changes all numbers in the tables.
constexpr std::uint64_t Seed = 0x4b5658u;

// Releases a message with destroy(), as its contract asks.
struct MessageDeleter {
    void operator()(KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};

// A packet of the default protocol: head attributes version, id and time,
// `origin`, `target`, `session`, `cookie`, and `data` holding the operator
// element `process` with a `list` of `records` records, each 3 to 5 levels
// below the operator. Caller owns the result (destroy()); null on failure.
KVXMessage *buildPacket(int records, std::uint64_t seed = Seed);

// Adds one record under the cursor's node (a `list`) and leaves the cursor
// where it was. False if an edit failed.
bool appendRecord(KVXMessageIterator &list, Rng &rng);

// The message as text at 40500, or empty on failure.
std::string packetText(KVXMessage const &message);
// The message as a frame (allocating serialize at 40500), or empty on failure.
std::string packetFrame(KVXMessage const &message);

// Leaves whose values are numbers; the walks read these with the int getters.
bool isNumberField(char const *name, std::size_t length);

// One input size: a packet with both of its forms.
struct Sample {
    std::string label; // "1KB", "64KB", "4MB", "1MiB frame"
    int records;
    std::string text;  // NUL-terminated through std::string
    std::string frame; // binary frame bytes
};

// The fixed inputs. Texts is ordered 1KB, 64KB, 4MB of XML text; MiBFrame is
// the packet whose frame is about 1 MiB. Requires: prepareCorpus() ran.
struct Corpus {
    std::vector<Sample> texts;
    Sample mibFrame;
    std::string soapRequest;         // a SOAP 1.1 request of about 1 KB, with a packet header
    std::string soapRequestNoHeader; // the same operation without a SOAP header
    int soapRecords;                 // records in the request's operation element
};

// Builds the corpus; false (with a line on stderr) when the library refused a step.
bool prepareCorpus();
Corpus const &corpus();

} // namespace Bench
} // namespace KVX

#endif // KVX_BENCH_PACKETCORPUS_H
