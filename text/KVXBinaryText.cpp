// The text form of KVXBinary: toText (the public writer level, which prepares,
// runs TextWriter and puts the namespace declarations in) and fromText (the
// public reader level, which runs TextParser into a fresh frame and replaces or
// grafts). Text handed out is a malloc block owned by the caller. One thread at
// a time per message.
#include "binary/Grafting.h"
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
#include <memory>
#include <new>
#include <string_view>

namespace KVX {

using namespace Internal;

namespace {

// Room beyond the estimate of the text for the XML declaration and the namespace
// declarations, which a text of a few nodes would otherwise grow for.
constexpr std::size_t DeclarationRoom = 256;

constexpr std::string_view XsiDeclaration = " xmlns:xsi=\"";

// The path of a parse, whose two stacks keep their blocks from parse to parse
// on a thread: a small text would otherwise spend a fair share of its time
// growing them. A parse that finds the blocks taken starts with empty stacks.
class ReusedPath {
public:
    ReusedPath() {
        path.entries.swap(spare().entries);
        path.namespaces.swap(spare().namespaces);
        path.entries.clear();
        path.namespaces.clear();
    }
    ~ReusedPath() {
        if (path.entries.capacity() <= 1024 && path.namespaces.capacity() <= 1024) {
            spare().entries.swap(path.entries);
            spare().namespaces.swap(path.namespaces);
        }
    }
    ReusedPath(ReusedPath const &) = delete;
    ReusedPath &operator=(ReusedPath const &) = delete;

    BinaryPath path;

private:
    static BinaryPath &spare() {
        static thread_local BinaryPath kept;
        return kept;
    }
};

} // namespace

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

        // The text of a packet is about as long as its frame: the block starts
        // a quarter larger, plus room for the XML and namespace declarations,
        // and doubles in the rare case that this is not enough. It is handed
        // out as it stands, so the text is never copied, and it is not cut to
        // size either: a large block that shrank would make the allocator give
        // the next text of that size fresh pages instead of the same ones.
        TextBuffer out;
        std::uint64_t const nodeSize = top.nodeSize();
        out.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(
                        nodeSize + nodeSize / 4,
                        std::min<std::uint64_t>(2 * static_cast<std::uint64_t>(doc->used),
                                                MaxTextLength))) +
                    DeclarationRoom);
        if (namespaceBase.empty()) {
            // Text is copied byte for byte and never transcoded, so the
            // declaration always names UTF-8.
            static char const declaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
            out.append(declaration, sizeof declaration - 1);
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
            std::size_t at =
                std::string_view(out.data(), out.size())
                    .find(std::string_view(name.data, static_cast<std::size_t>(name.length)));
            if (at == std::string_view::npos)
                return nullptr;
            at += static_cast<std::size_t>(name.length);
            // Each declaration goes in front of those already inserted at that
            // point: the last key of the map stands first, the xsi declaration
            // last. Measured first and written into one gap, so the text moves
            // one time.
            bool const xsi = from == nullptr || namespaceBase.empty();
            std::size_t length = xsi ? XsiDeclaration.size() + XsiNamespace.length + 1 : 0;
            for (TextWriter::Prefixes::value_type const &entry : prefixes)
                length += static_cast<std::size_t>(10 + entry.second.size() + entry.first.length);
            char *to = out.openGap(at, length);
            for (TextWriter::Prefixes::reverse_iterator it = prefixes.rbegin();
                 it != prefixes.rend(); ++it) {
                to = copyText(to, " xmlns:", 7);
                to = copyText(to, it->second.data(), it->second.size());
                to = copyText(to, "=\"", 2);
                to = copyText(to, it->first);
                *to++ = '"';
            }
            if (xsi) {
                to = copyText(to, XsiDeclaration.data(), XsiDeclaration.size());
                to = copyText(to, XsiNamespace);
                *to = '"';
            }
        }
        if (out.size() > MaxTextLength)
            return nullptr;
        return out.release();
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
            ReusedPath reused;
            char const *position = text;
            TextParser parser(*this);
            result = parser.parse(position, reused.path);
        } catch (std::bad_alloc const &) {
            result = -1;
        }
        if (result >= 0 && frameIsEmpty(internals->buffer))
            result = -1; // nothing was built: empty input, comments only, an end tag
    }

    if (result >= 0) {
        if (to == nullptr)
            return 0;
        std::unique_ptr<KVXBinaryInternals> const parsed(internals);
        internals = aside;
        std::uint32_t const length = static_cast<std::uint32_t>(parsed->used);
        if (measureFrame(parsed->buffer, length) != static_cast<std::int64_t>(length))
            return deserialize(parsed->buffer, parsed->used, to);
        // What deserialize does with a frame and a cursor, except that the ids
        // are named through the parser's own map instead of a map read back
        // from the frame's name table: every entry of that table was written
        // through this map, so both name every id alike.
        KVXBinaryIterator &cursor = dynamic_cast<KVXBinaryIterator &>(*to);
        if (cursor.validateInternals() != 0)
            return -1;
        KVXBinary *owner = cursor.getBinaryMessage();
        if (owner == nullptr || owner->internals == nullptr)
            return -1;
        return graftSubtree(frameSource(parsed->buffer, length), BinaryPath(), parsed->ids,
                            *owner->internals, cursor.binaryPath());
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
