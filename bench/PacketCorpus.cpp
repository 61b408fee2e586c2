// Builds the benchmark inputs through the public cursor, the way an agent's
// handler builds its packets, so that what is measured is the library's own
// output. Everything here runs once, in main, before the benchmarks start.
#include "PacketCorpus.h"

#include <kvx/KVXMsgFactory.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace KVX {
namespace Bench {

namespace {

// Words of agent traffic: user, host, process and path names, short enough to
// stay in a std::string's inline buffer, so neither side pays for the heap.
std::string const Words[] = {"root",  "daemon", "www",      "cron",     "sshd", "nginx",
                             "mysql", "backup", "/usr/bin", "/var/log", "eth0", "node1",
                             "node2", "kvx",    "agent",    "/opt/kvx"};
constexpr unsigned WordCount = sizeof(Words) / sizeof(Words[0]);

// The operation namespace of the SOAP request; its last segment names the operator.
char const OperationUri[] = "http://www.kvx.org/webservices/kvx/4.5.0/process";
char const NamespaceBase[] = "http://www.kvx.org/webservices/kvx/4.5.0/";

using MessagePtr = std::unique_ptr<KVXMessage, MessageDeleter>;

bool leaf(KVXMessageIterator &cursor, char const *name, int value) {
    return cursor.newChild(name) == 0 && cursor.putValue(value) == 0 && cursor.seekUp() == 0;
}

bool leaf(KVXMessageIterator &cursor, char const *name, std::string const &value) {
    return cursor.newChild(name) == 0 && cursor.putValue(value) == 0 && cursor.seekUp() == 0;
}

std::string const &word(Rng &rng) {
    return Words[rng.below(WordCount)];
}

int number(Rng &rng) {
    return static_cast<int>(rng.below(100000));
}

bool fail(char const *what) {
    std::fprintf(stderr, "kvx_bench: %s\n", what);
    return false;
}

// Sizes of a packet's two forms, for scaling the record count to a target.
struct Measure {
    std::size_t text;
    std::size_t frame;
};

bool measure(int records, Measure &out) {
    MessagePtr message(buildPacket(records));
    if (!message)
        return false;
    out.text = packetText(*message).size();
    out.frame = packetFrame(*message).size();
    return out.text != 0 && out.frame != 0;
}

// The record count whose size (text or frame) comes closest to `target`,
// assuming the linear growth that records of a fixed mix give.
int recordsFor(std::size_t target, std::size_t one, std::size_t perRecord) {
    if (target <= one || perRecord == 0)
        return 1;
    return 1 + static_cast<int>((target - one + perRecord / 2) / perRecord);
}

bool fillSample(Sample &sample, char const *label, int records) {
    sample.label = label;
    sample.records = records;
    MessagePtr message(buildPacket(records));
    if (!message)
        return fail("building a packet failed");
    sample.text = packetText(*message);
    sample.frame = packetFrame(*message);
    if (sample.text.empty() || sample.frame.empty())
        return fail("writing a packet failed");
    return true;
}

// The text of a `list` of `records` records, as a fragment without declarations.
std::string listText(int records) {
    MessagePtr message(buildPacket(records, Seed + 1));
    if (!message)
        return std::string();
    std::unique_ptr<KVXMessageIterator const> cursor(
        static_cast<KVXMessage const &>(*message).newIterator());
    if (cursor->seek("data/process/list") != 0)
        return std::string();
    char *text = message->toText(cursor.get(), NamespaceBase, 40500);
    if (text == nullptr)
        return std::string();
    std::string result(text);
    std::free(text);
    return result;
}

// A request as a web service client sends it. The packet header carries what
// the reply must answer to (id, origin, session); without it the packet is
// created bare and gets only target and cookie from the body.
std::string soapRequest(std::string const &list, bool withHeader = true) {
    std::string text = "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">\n";
    if (withHeader) {
        text += "<soap:Header><packet_header xmlns=\"";
        text += NamespaceBase;
        text += "protocol\" version=\"4.5.0\" id=\"req-0001\"><origin>console</origin>"
                "<session>s-0001</session></packet_header></soap:Header>\n";
    }
    text += "<soap:Body><ns:GetProcess xmlns:ns=\"";
    text += OperationUri;
    text += "\">" + list + "</ns:GetProcess></soap:Body>\n</soap:Envelope>";
    return text;
}

Corpus theCorpus;

} // namespace

std::uint64_t Rng::next() {
    // splitmix64: one add and three mixes, the same sequence everywhere.
    std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
}

bool appendRecord(KVXMessageIterator &list, Rng &rng) {
    // The depth below the operator element: operator > list > node > leaf is 3.
    unsigned const depth = 3 + rng.below(3);
    if (list.newChild("node") != 0)
        return false;
    bool ok = true;
    if (depth == 3) {
        ok = leaf(list, "name", word(rng)) && leaf(list, "pid", number(rng)) &&
             leaf(list, "cpu", number(rng) % 100) && leaf(list, "memory", number(rng)) &&
             leaf(list, "user", word(rng));
    } else if (depth == 4) {
        ok = leaf(list, "name", word(rng)) && list.newChild("server") == 0 &&
             leaf(list, "host", word(rng)) && leaf(list, "uptime", number(rng)) &&
             leaf(list, "size", number(rng)) && list.seekUp() == 0 &&
             leaf(list, "user", word(rng)) && leaf(list, "group", word(rng));
    } else {
        ok = list.newChild("server") == 0 && leaf(list, "host", word(rng)) &&
             list.newChild("process") == 0 && leaf(list, "pid", number(rng)) &&
             leaf(list, "name", word(rng)) && leaf(list, "cpu", number(rng) % 100) &&
             leaf(list, "memory", number(rng)) && leaf(list, "path", word(rng)) &&
             list.seekUp() == 0 && leaf(list, "uptime", number(rng)) && list.seekUp() == 0 &&
             leaf(list, "group", word(rng));
    }
    return ok && list.seekUp() == 0;
}

KVXMessage *buildPacket(int records, std::uint64_t seed) {
    MessagePtr message(KVXMsgFactory::createNew());
    if (!message || message->create("packet") != 0)
        return nullptr;
    if (message->setVersion(40500) != 0 || message->setID("bench-0001") != 0 ||
        message->setTime(1700000000) != 0)
        return nullptr;
    std::unique_ptr<KVXMessageIterator> cursor(message->newIterator());
    Rng rng(seed);
    bool ok = leaf(*cursor, "origin", "console") && leaf(*cursor, "target", "process") &&
              leaf(*cursor, "session", "s-0001") && leaf(*cursor, "cookie", "c-42") &&
              cursor->newChild("data") == 0 && cursor->newChild("process") == 0 &&
              cursor->newChild("list") == 0;
    for (int i = 0; ok && i < records; ++i)
        ok = appendRecord(*cursor, rng);
    if (!ok)
        return nullptr;
    return message.release();
}

std::string packetText(KVXMessage const &message) {
    char *text = message.toText(nullptr, std::string(), 40500);
    if (text == nullptr)
        return std::string();
    std::string result(text);
    std::free(text);
    return result;
}

std::string packetFrame(KVXMessage const &message) {
    char *frame = nullptr;
    int length = 0;
    if (message.serialize(&frame, &length, nullptr, 40500) != 0 || frame == nullptr)
        return std::string();
    std::string result(frame, static_cast<std::size_t>(length));
    std::free(frame);
    return result;
}

bool isNumberField(char const *name, std::size_t length) {
    // pid, cpu, memory, uptime, size: no other field shares first letter and length.
    switch (length) {
    case 3:
        return name[0] == 'p' || name[0] == 'c';
    case 4:
        return name[0] == 's';
    case 6:
        return name[0] == 'm' || name[0] == 'u';
    default:
        return false;
    }
}

bool prepareCorpus() {
    // The default factory is registered by its first use, which is unguarded:
    // it happens here, before any benchmark thread exists.
    KVXMessage::getFactory();
    Measure one{}, many{};
    int const sampleRecords = 201;
    if (!measure(1, one) || !measure(sampleRecords, many))
        return fail("measuring the packet sizes failed");
    std::size_t const textPerRecord = (many.text - one.text) / (sampleRecords - 1);
    std::size_t const framePerRecord = (many.frame - one.frame) / (sampleRecords - 1);

    static struct {
        char const *label;
        std::size_t bytes;
    } const textSizes[] = {{"1KB", 1024}, {"64KB", 64 * 1024}, {"4MB", 4 * 1024 * 1024}};
    theCorpus.texts.resize(3);
    for (int i = 0; i < 3; ++i) {
        int const records = recordsFor(textSizes[i].bytes, one.text, textPerRecord);
        if (!fillSample(theCorpus.texts[i], textSizes[i].label, records))
            return false;
    }
    if (!fillSample(theCorpus.mibFrame, "1MiB",
                    recordsFor(std::size_t(1) << 20, one.frame, framePerRecord)))
        return false;

    // The largest request that stays within about 1 KB.
    int records = 1;
    std::string request = soapRequest(listText(records));
    for (int next = 2; next <= 32; ++next) {
        std::string bigger = soapRequest(listText(next));
        if (bigger.size() > 1100)
            break;
        request.swap(bigger);
        records = next;
    }
    theCorpus.soapRequest = request;
    theCorpus.soapRequestNoHeader = soapRequest(listText(records), false);
    theCorpus.soapRecords = records;
    return true;
}

Corpus const &corpus() {
    return theCorpus;
}

} // namespace Bench
} // namespace KVX
