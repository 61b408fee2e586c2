// The text form of KVXBinary: toText (the public writer level, which prepares,
// runs TextWriter and puts the namespace declarations in) and fromText (the
// public reader level, which runs TextParser into a fresh frame and replaces or
// grafts). Text handed out is a malloc block owned by the caller. One thread at
// a time per message.
#include "binary/KVXBinaryInternals.h"
#include "text/TextLimits.h"
#include "text/TextParser.h"
#include "text/TextWriter.h"
#include "vocabulary/VocabularyConstants.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>
#include <kvx/KVXCommon.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace KVX {

using namespace Internal;

char *KVXBinary::toText(KVXMessageIterator const *from, std::string const &namespaceBase,
                        int version) const {
    try {
        saveChanges();
        KVXBinaryInternals *doc = internals;
        if (doc == nullptr || doc->buffer == nullptr || doc->used < static_cast<int>(FrameHeadSize))
            return nullptr;
        std::uint32_t start = RootOffset;
        if (from != nullptr) {
            KVXBinaryIterator const *cursor = dynamic_cast<KVXBinaryIterator const *>(from);
            // The caller passed a cursor of another message class.
            KVX_ASSERT(cursor != nullptr);
            if (cursor == nullptr)
                return nullptr;
            BinaryPath const &path = cursor->binaryPath();
            // The caller passed a cursor that stands on no node.
            KVX_ASSERT(!path.entries.empty());
            if (path.entries.empty())
                return nullptr;
            start = path.entries.back().offset;
        }
        if (start >= doc->rootEnd())
            return nullptr; // no root, or a cursor behind the nodes
        binary::Node top = doc->node(start);
        if (!top.fits())
            return nullptr;

        // Twice the node size is normally enough for the whole text.
        std::string out;
        out.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(
            2 * top.nodeSize(),
            std::min<std::uint64_t>(2 * static_cast<std::uint64_t>(doc->used), MaxTextLength))));
        if (namespaceBase.empty()) {
            // Text is copied byte for byte and never transcoded, so the
            // declaration always names UTF-8.
            out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
        }
        doc->ids.load();

        TextWriter writer(*doc);
        std::uint32_t offset = start;
        if (version < 40000) {
            // Old peers get no namespaces and no types.
            if (writer.write(out, offset, 0, nullptr, std::string()) < 0)
                return nullptr;
        } else {
            TextWriter::Prefixes prefixes;
            if (writer.write(out, offset, 0, &prefixes, std::string()) < 0)
                return nullptr;
            // Prefixes are known only now: the declarations go behind the first
            // occurrence of the start node's name in the text. That is normally
            // the root's start tag, but a root named "xml" or "version" finds
            // the XML declaration first, and the format keeps it that way.
            int startId = doc->node(start).id();
            CharArray name;
            if (static_cast<unsigned>(startId) > static_cast<unsigned>(LastAttributeId))
                name = doc->ids.lookupName(startId);
            if (name.empty())
                return nullptr;
            std::size_t at = out.find(name.data, 0, static_cast<std::size_t>(name.length));
            if (at == std::string::npos)
                return nullptr;
            at += static_cast<std::size_t>(name.length);
            // Each declaration goes in front of those already inserted at that
            // point: the last key of the map stands first, the xsi declaration
            // last. Built first and inserted once, so the text moves one time.
            std::string declarations;
            for (TextWriter::Prefixes::reverse_iterator it = prefixes.rbegin();
                 it != prefixes.rend(); ++it) {
                declarations += " xmlns:";
                declarations += it->second;
                declarations += "=\"";
                declarations += it->first.str();
                declarations += '"';
            }
            if (from == nullptr || namespaceBase.empty()) {
                declarations += " xmlns:xsi=\"";
                declarations += XsiNamespace.str();
                declarations += '"';
            }
            out.insert(at, declarations);
        }
        if (out.size() > MaxTextLength)
            return nullptr;
        char *result = static_cast<char *>(std::malloc(out.size() + 1));
        if (result == nullptr)
            return nullptr;
        std::memcpy(result, out.c_str(), out.size() + 1);
        return result;
    } catch (std::bad_alloc const &) {
        return nullptr;
    }
}

char *KVXBinary::toText(KVXMessageIterator const *from, std::string const &namespaceBase) const {
    return toText(from, namespaceBase, 40500);
}

bool KVXBinary::toText(int version, char *&text, int &length) const {
    text = toText(nullptr, std::string(), version);
    if (text == nullptr)
        return true;
    std::size_t size = std::strlen(text);
    if (size > MaxTextLength) {
        std::free(text);
        text = nullptr;
        return true;
    }
    length = static_cast<int>(size);
    return false;
}

int KVXBinary::fromText(char const *text, KVXMessageIterator *to) {
    // A null text is the caller's bug, not bad input.
    KVX_ASSERT(text != nullptr);
    if (text == nullptr)
        return -1;
    // With a cursor the text is parsed into a document of its own and grafted
    // afterwards; the message's document waits aside meanwhile.
    KVXBinaryInternals *aside = nullptr;
    if (to != nullptr) {
        if (internals == nullptr)
            return -1;
        aside = internals;
        internals = nullptr;
    }
    if (internals == nullptr) {
        internals = new (std::nothrow) KVXBinaryInternals();
        if (internals == nullptr) {
            internals = aside;
            return -1;
        }
    }

    int result = -1;
    if (internals->resetBuffer() == 0) {
        try {
            BinaryPath path;
            char const *position = text;
            TextParser parser(*this);
            result = parser.parse(position, path);
        } catch (std::bad_alloc const &) {
            result = -1;
        }
        if (result >= 0 && frameIsEmpty(internals->buffer))
            result = -1; // nothing was built: empty input, comments only, an end tag
    }

    if (result >= 0) {
        if (to == nullptr)
            return 0;
        KVXBinaryInternals *parsed = internals;
        internals = aside;
        result = deserialize(parsed->buffer, parsed->used, to);
        delete parsed;
        return result;
    }

    // The message keeps the partly built document and the one set aside is not
    // restored. The set-aside document is freed unless other messages share it;
    // then this message leaves their family with a counter of its own. The new
    // document's stamp is put past the old one's, so that a cursor of the old
    // document finds its path stale instead of reading through it.
    if (aside != nullptr) {
        if (internals->stamp <= aside->stamp)
            internals->stamp = aside->stamp + 1;
        if (!multiReference()) {
            delete aside;
        } else {
            std::atomic<int> *own = new (std::nothrow) std::atomic<int>(1);
            if (own != nullptr) {
                std::atomic<int> *shared = referenceCount;
                referenceCount = own;
                shared->fetch_sub(1);
            } else {
                delete internals; // no counter of its own: stay with the family
                internals = aside;
            }
        }
    }
    return -1;
}

} // namespace KVX
