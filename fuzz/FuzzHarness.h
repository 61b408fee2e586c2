// What every fuzz target shares: the assertion stop, owners for what the
// library hands out, a complete cursor walk, and the check that turns a broken
// property into a crash the fuzzer reports. Header only, so the libFuzzer
// targets and the regression tests (tests/fuzz) run exactly the same code.
// Single-threaded: the assertion handler is process-wide.
#ifndef KVX_FUZZ_FUZZHARNESS_H
#define KVX_FUZZ_FUZZHARNESS_H

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>
#include <kvx/KVXCommon.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

// LeakSanitizer's switches, present only in sanitized builds.
extern "C" {
void __lsan_disable() __attribute__((weak));
void __lsan_enable() __attribute__((weak));
}

namespace KVX {
namespace Fuzz {

// Thrown by the assertion handler to abandon the current input.
struct AssertionStop {};

// The assertion sites met so far, each reported once on stderr: an assertion
// on outside bytes is a fault of the library (asserts are for caller bugs), so
// the fuzz report lists them.
struct AssertionLog {
    std::set<std::string> sites;
    unsigned long stops = 0;
    bool quiet = false;
};

inline AssertionLog &assertionLog() {
    static AssertionLog log;
    return log;
}

// Stops the input by throwing. During unwinding (a destructor tripping an
// assertion while the stop is under way) it only records, since a second
// exception would terminate.
inline void stopOnAssertion(char const *expression, char const *file, int line) {
    AssertionLog &log = assertionLog();
    std::string const site = std::string(file) + ":" + std::to_string(line) + ": " + expression;
    if (log.sites.insert(site).second && !log.quiet)
        std::fprintf(stderr, "KVX_ASSERT stopped an input: %s\n", site.c_str());
    if (std::uncaught_exceptions() == 0)
        throw AssertionStop();
}

// A property of the library that the input broke: reported as a crash.
inline void propertyFailed(char const *what) {
    std::fprintf(stderr, "fuzz property broken: %s\n", what);
    std::abort();
}
#define KVX_FUZZ_CHECK(cond) ((cond) ? static_cast<void>(0) : ::KVX::Fuzz::propertyFailed(#cond))

// Runs `body` with the assertion stop installed. An input that trips an
// assertion is run with LeakSanitizer switched off, so that what the stop
// abandoned is not reported as a leak; every other input runs a second time
// with leak checking on. True when the input ran without an assertion.
template <class Body> bool runGuarded(Body &&body) {
    AssertHandler const previous = setAssertHandler(&stopOnAssertion);
    bool const leakSwitch = &__lsan_disable != nullptr && &__lsan_enable != nullptr;
    bool stopped = false;
    if (leakSwitch)
        __lsan_disable();
    try {
        body();
    } catch (AssertionStop const &) {
        stopped = true;
    }
    if (leakSwitch)
        __lsan_enable();
    if (leakSwitch && !stopped) {
        try {
            body();
        } catch (AssertionStop const &) {
            stopped = true; // the same input stops again: nothing new to learn
        }
    }
    setAssertHandler(previous);
    if (stopped)
        ++assertionLog().stops;
    return !stopped;
}

// Owners of what the library hands out.
struct MessageRelease {
    void operator()(KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};
typedef std::unique_ptr<KVXMessage, MessageRelease> MessagePtr;
struct CFree {
    void operator()(void *block) const { std::free(block); }
};
typedef std::unique_ptr<char, CFree> CText;
typedef std::unique_ptr<KVXMessageIterator> CursorPtr;
typedef std::unique_ptr<KVXMessageIterator const> ConstCursorPtr;

// A new message of the default (binary) protocol. The first getFactory call
// registers the protocol.
inline MessagePtr newMessage() {
    static bool const registered = KVXMessage::getFactory() != nullptr;
    (void)registered;
    return MessagePtr(KVXMsgFactory::createNew());
}

// The input as a block of exactly its own length, so that a read past it is
// caught by the address sanitizer; `terminate` adds a NUL for text entry points.
inline std::vector<char> exactCopy(std::uint8_t const *data, std::size_t size, bool terminate) {
    std::vector<char> copy(reinterpret_cast<char const *>(data),
                           reinterpret_cast<char const *>(data) + size);
    if (terminate)
        copy.push_back('\0');
    copy.shrink_to_fit();
    return copy;
}

// True when the cursor stands on a node; a document without a root gives a
// cursor with an empty path, on which every operation is a caller fault.
inline bool standsOnNode(KVXMessageIterator const &cursor) {
    KVXBinaryIterator const *binary = dynamic_cast<KVXBinaryIterator const *>(&cursor);
    return binary != nullptr && !binary->binaryPath().entries.empty();
}

// Every reader of the cursor, at the node it stands on. Results are not
// judged: they only have to come back. `top` says that the node has no parent
// in the walk, where a sibling step would be a caller fault.
inline void readNode(KVXMessageIterator const &cursor, bool top) {
    std::string const name = cursor.curName();
    std::string const type = cursor.curType();
    (void)cursor.curNamespaceID();
    bool flag = false;
    int number = 0;
    __int64 wide = 0;
    double real = 0;
    int zone = 0;
    std::string text;
    (void)cursor.getValue(flag);
    (void)cursor.getValue(number);
    (void)cursor.getValue(text);
    (void)cursor.getValueLongLong(wide);
    (void)cursor.getValueDouble(real);
    (void)cursor.getValueTime(wide);
    (void)cursor.getValueTimeZone(wide, zone);
    (void)cursor.getValueBase64(text);
    (void)cursor.getValue(text, std::string("version"));
    (void)cursor.seekPresence(101);
    KVXBinaryIterator const *binary = dynamic_cast<KVXBinaryIterator const *>(&cursor);
    if (binary != nullptr) {
        (void)binary->curID();
        (void)binary->getValueXML(text);
        for (int attribute = 101; attribute <= 110; ++attribute) {
            (void)binary->getAttr(text, attribute);
            (void)binary->getAttr(number, attribute);
            (void)binary->getAttrTime(wide, attribute);
        }
    }
    // Lookups by the node's own name, on a copy so that the walk stays put.
    if (!name.empty()) {
        ConstCursorPtr probe(cursor.newIterator());
        if (probe != nullptr) {
            if (!top)
                (void)probe->nextSibling(name);
            (void)probe->firstChild(name);
            (void)probe->seek(name);
        }
    }
}

// Bound on the nodes of one walk. A fuzz input of a few kilobytes has at most
// some hundreds of nodes (each takes 16 bytes or more); a walk that passes
// this has met a cycle.
constexpr std::size_t MaxWalkNodes = 1u << 20;

// Visits the node the cursor stands on and everything below it in document
// order, reading each, and leaves the cursor on that node. Returns the count.
inline std::size_t walkTree(KVXMessageIterator const &cursor) {
    if (!standsOnNode(cursor))
        return 0;
    std::size_t visited = 0;
    std::size_t depth = 0;
    for (;;) {
        readNode(cursor, depth == 0);
        KVX_FUZZ_CHECK(++visited <= MaxWalkNodes);
        if (cursor.firstChild() == 0) {
            ++depth;
            continue;
        }
        for (;;) {
            if (depth == 0)
                return visited;
            if (cursor.nextSibling() == 0)
                break;
            (void)cursor.seekUp();
            --depth;
        }
    }
}

// Text of the whole message at `version`, freed at once.
inline void writeText(KVXMessage const &message, int version) {
    CText text(message.toText(nullptr, std::string(), version));
}

} // namespace Fuzz
} // namespace KVX

#endif // KVX_FUZZ_FUZZHARNESS_H
