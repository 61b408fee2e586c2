// The XML writer: one pass over the nodes of a frame, appending to one buffer
// and inserting attributes into their element's start tag. It reads the frame
// and the document's id map only, and owns nothing but the text it builds. One
// thread at a time per document, since a name lookup may load the name table.
#include "text/TextWriter.h"

#include "binary/KVXBinaryInternals.h"
#include "text/TextLimits.h"
#include "vocabulary/VocabularyConstants.h"

#include <kvx/KVXCommon.h>

#include <algorithm>
#include <charconv>
#include <new>

// The writer's per-node steps are inlined into its loop: a call per node and
// tag costs as much as the writing itself.
#if defined(__GNUC__)
#define KVX_TEXT_INLINE inline __attribute__((always_inline))
#else
#define KVX_TEXT_INLINE inline
#endif

namespace KVX {
namespace Internal {

namespace {

std::map<int, CharArray> makeAttributeNames() {
    std::map<int, CharArray> names;
    for (AttributeRow const &row : AttributeRows)
        names.emplace(row.id, row.name);
    return names;
}

// The name of an attribute id from the format's table; false for an id that
// has none.
bool attributeName(int id, CharArray &name) {
    for (AttributeRow const &row : AttributeRows) {
        if (row.id == id) {
            name = row.name;
            return true;
        }
    }
    return false;
}

// Bytes that end a run of plain text: the three escaped characters and the NUL
// that ends a value.
struct RunEnds {
    bool stop[256];
    constexpr RunEnds() : stop() {
        stop[0] = true;
        stop[static_cast<unsigned char>('&')] = true;
        stop[static_cast<unsigned char>('<')] = true;
        stop[static_cast<unsigned char>('>')] = true;
    }
};
constexpr RunEnds Escaped;

// Copies `length` bytes of `text`, up to a NUL, to `to` with '&', '<' and '>'
// as entities; sets `nul` when a NUL ended the copy. Returns the end of the
// copy. Requires: room for 5 * length bytes at `to`. Values are mostly short
// words, so one table test and one store per byte beat a call per run.
char *copyEscaped(char *to, char const *text, std::size_t length, bool &nul) {
    char const *const end = text + length;
    for (; text != end; ++text) {
        unsigned char const c = static_cast<unsigned char>(*text);
        if (!Escaped.stop[c]) {
            *to++ = static_cast<char>(c);
            continue;
        }
        switch (c) {
        case '&':
            std::memcpy(to, "&amp;", 5);
            to += 5;
            break;
        case '<':
            std::memcpy(to, "&lt;", 4);
            to += 4;
            break;
        case '>':
            std::memcpy(to, "&gt;", 4);
            to += 4;
            break;
        default:
            nul = true;
            return to;
        }
    }
    return to;
}

// Appends the escaped form of `length` bytes (or up to a NUL before them). The
// room for the worst case is asked a piece at a time, so that a long value does
// not ask for five times its size at once.
void appendEscaped(TextBuffer &out, char const *text, std::size_t length) {
    constexpr std::size_t Piece = 16384;
    while (length != 0) {
        std::size_t const part = std::min(length, Piece);
        char *const start = out.room(5 * part);
        bool nul = false;
        char *const stop = copyEscaped(start, text, part, nul);
        out.commit(static_cast<std::size_t>(stop - start));
        if (nul)
            return;
        text += part;
        length -= part;
    }
}

// Decimal text of an integer, the same plain text as intToStr and
// longlongToStr give, written in place instead of through a string. Requires:
// room for 20 bytes at `to`.
template <typename T> char *putDecimal(char *to, T value) {
    constexpr std::size_t Room = 20; // "-9223372036854775808"
    return std::to_chars(to, to + Room, value).ptr;
}

// The first `width` bytes of a value, zero-filled where the node has fewer: a
// number kind with a short `size` in a damaged frame must not read past its node.
void readValue(char *into, std::size_t width, char const *value, std::uint64_t available) {
    std::memset(into, 0, width);
    std::memcpy(into, value, static_cast<std::size_t>(std::min<std::uint64_t>(width, available)));
}

// The 32-bit value of a node of kind int, as readValue reads it.
std::int32_t intValue(char const *value, std::uint64_t available) {
    if (available >= 4)
        return loadInt32(value);
    char number[4];
    readValue(number, 4, value, available);
    return loadInt32(number);
}

// The length of the end tag that putEndTag writes.
std::size_t endTagLength(CharArray const &prefix, CharArray const &name) {
    return static_cast<std::size_t>(4 + (prefix.length != 0 ? prefix.length + 1 : 0) + name.length);
}

// '<', the prefix and ':' if there is one, the name and '>'.
KVX_TEXT_INLINE char *putStartTag(char *to, CharArray const &prefix, CharArray const &name) {
    *to++ = '<';
    if (prefix.length != 0) {
        to = copyText(to, prefix);
        *to++ = ':';
    }
    to = copyText(to, name);
    *to++ = '>';
    return to;
}

// "</", the prefix and ':' if there is one, the name, '>' and a line feed.
KVX_TEXT_INLINE char *putEndTag(char *to, CharArray const &prefix, CharArray const &name) {
    *to++ = '<';
    *to++ = '/';
    if (prefix.length != 0) {
        to = copyText(to, prefix);
        *to++ = ':';
    }
    to = copyText(to, name);
    *to++ = '>';
    *to++ = '\n';
    return to;
}

void appendEndTag(TextBuffer &out, CharArray const &prefix, CharArray const &name) {
    std::size_t const length = endTagLength(prefix, name);
    putEndTag(out.room(length), prefix, name);
    out.commit(length);
}

// A leaf value at most this long is written in the same piece as its tags.
constexpr std::uint32_t ShortValue = 4096;

} // namespace

void TextBuffer::reserve(std::size_t bytes) {
    if (bytes <= capacity && text != nullptr)
        return;
    std::size_t const size = bytes != 0 ? bytes : 1;
    char *const grown = static_cast<char *>(std::realloc(text, size));
    if (grown == nullptr)
        throw std::bad_alloc();
    text = grown;
    capacity = size;
}

void TextBuffer::growFor(std::size_t more) {
    if (more > MaxTextLength || length > MaxTextLength)
        throw std::bad_alloc(); // never a text the format can hand out
    reserve(std::max<std::size_t>({length + more, 2 * capacity, 256}));
}

char *TextBuffer::openGap(std::size_t at, std::size_t count) {
    room(count);
    if (count != 0)
        std::memmove(text + at + count, text + at, length - at);
    length += count;
    return text + at;
}

void TextBuffer::moveBack(std::size_t at, std::size_t from) {
    std::size_t const count = length - from;
    if (count == 0 || at == from)
        return;
    // The piece is parked behind the text while the bytes in front of it move.
    char *const spare = room(count);
    std::memcpy(spare, text + from, count);
    std::memmove(text + at + count, text + at, from - at);
    std::memcpy(text + at, spare, count);
}

char *TextBuffer::release() {
    *room(1) = '\0';
    char *result = text;
    // Only a block more than twice as large as its text is cut down (the cut
    // does not move the bytes; should it fail, the larger block serves as
    // well). Cutting every block to size would make the allocator return a
    // large block's pages after use and fault in fresh ones for the next.
    if (capacity / 2 > length + 1) {
        char *const cut = static_cast<char *>(std::realloc(text, length + 1));
        if (cut != nullptr)
            result = cut;
    }
    text = nullptr;
    length = 0;
    capacity = 0;
    return result;
}

std::map<int, CharArray> const TextWriter::AttributeNames = makeAttributeNames();

TextWriter::TextWriter(KVXBinaryInternals &document)
    : doc(document), frame(nullptr), used(0), format(0), lastNamespace(-1), lastType(0) {
    std::memset(slotIds, 0, sizeof slotIds);
    open.reserve(16); // a packet nests a handful of levels
}

std::string TextWriter::escape(char const *text) {
    std::size_t const length = text != nullptr ? std::strlen(text) : 0;
    std::string out(5 * length, '\0');
    bool nul = false;
    char *const start = &out[0];
    out.resize(static_cast<std::size_t>(copyEscaped(start, text, length, nul) - start));
    return out;
}

std::string const &TextWriter::prefixOf(Prefixes &prefixes, CharArray const &uri) {
    Prefixes::iterator found = prefixes.find(uri);
    if (found != prefixes.end())
        return found->second;
    // Numbered in order of first use: the map's size before the new entry, plus 1.
    std::string prefix = "ns" + intToStr(static_cast<int>(prefixes.size()) + 1);
    return prefixes.emplace(uri, prefix).first->second;
}

CharArray TextWriter::nameOf(int id) {
    // Names do not change while the frame is written, so a slot stays right for
    // the whole write; a packet uses a few dozen names over and over.
    std::size_t const slot = static_cast<unsigned>(id) & (NameSlots - 1);
    if (slotIds[slot] != id) {
        slotIds[slot] = id;
        slotNames[slot] = doc.ids.lookupName(id);
    }
    return slotNames[slot];
}

CharArray TextWriter::prefixOfNamespace(Prefixes &prefixes, unsigned ns) {
    if (static_cast<int>(ns) != lastNamespace) {
        CharArray const uri = nameOf(static_cast<int>(ns));
        lastPrefix = uri.empty() ? CharArray() : CharArray(prefixOf(prefixes, uri));
        lastNamespace = static_cast<int>(ns);
    }
    return lastPrefix;
}

// Most nodes of a packet are plain elements: no attribute, no type, and a short
// text, a number or children. Such a node is written here with fewer
// questions than begin() asks; anything else, a node that breaks a bound
// included, is left to begin(), which writes it or fails.
KVX_TEXT_INLINE bool TextWriter::writePlain(TextBuffer &out, Open &parent, Prefixes *prefixes) {
    std::uint32_t const offset = parent.next;
    if (offset == 0 || used < ShortHeaderSize || offset > used - ShortHeaderSize)
        return false;
    char const *const head = frame + offset;
    int const id = loadInt32(head);
    unsigned const kind = load16(head + 4);
    std::uint32_t const size = load32(head + 8);
    if (static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId) || size == 0)
        return false;
    bool const number = kind == KindInt;
    bool const text = kind == KindString || kind == KindUntyped;
    if (!(number || (text && size <= ShortValue) || kind == KindStructure))
        return false;
    std::uint64_t const end = offset + nodeSize(size, kind, format);
    std::uint64_t const valueOffset = offset + headerSize(size, kind);
    if (end > parent.end || end > used || open.size() >= MaxTextDepth)
        return false;
    if (kind != KindStructure && valueOffset + size > end)
        return false;

    CharArray name = nameOf(id);
    if (name.empty())
        name = InvalidTag;
    // A namespace without a URI shows no prefix, and a child is given no
    // default prefix.
    unsigned const ns = load16(head + 6);
    CharArray const prefix =
        prefixes != nullptr && ns != 0 ? prefixOfNamespace(*prefixes, ns) : CharArray();
    std::size_t const tagLength =
        static_cast<std::size_t>(2 + (prefix.length != 0 ? prefix.length + 1 : 0) + name.length);
    parent.next = static_cast<std::uint32_t>(end);
    if (kind == KindStructure) {
        char *const to = putStartTag(out.room(tagLength + 1), prefix, name);
        *to = '\n';
        out.commit(tagLength + 1);
        // Filled where it stands: a copy from the stack would reload freshly
        // stored fields in one wide read, which stalls.
        Open &next = open.emplace_back(); // `parent` may move from here on
        next.next = static_cast<std::uint32_t>(std::min<std::uint64_t>(valueOffset, end));
        next.end = end;
        next.childInsertAt = out.size() - 2;
        next.prefix = prefix;
        next.name = name;
        return true;
    }
    // The start tag, the value, the end tag and a line feed, in one piece.
    char *const start = out.room(2 * tagLength + 2 + (number ? 11 : 5 * std::size_t{size}));
    char *to = putStartTag(start, prefix, name);
    char const *const value = frame + valueOffset;
    if (number) {
        to = putDecimal(to, intValue(value, end - valueOffset));
    } else {
        bool nul = false;
        to = copyEscaped(to, value, size, nul);
    }
    to = putEndTag(to, prefix, name);
    out.commit(static_cast<std::size_t>(to - start));
    return true;
}

int TextWriter::write(TextBuffer &out, std::uint32_t &offset, std::size_t insertAt,
                      Prefixes *prefixes, std::string const &defaultPrefix) {
    if (doc.buffer == nullptr || doc.used < 0)
        return -1;
    frame = doc.buffer;
    used = static_cast<std::uint32_t>(doc.used);
    format = doc.format();
    lastNamespace = -1; // the prefixes may be another map's
    open.clear();
    binary::Node top(frame, used, offset, format);
    if (!top.fits())
        return -1;
    std::uint64_t const topEnd = offset + top.nodeSize();

    // An explicit stack of open containers instead of recursion: a frame from
    // outside may nest as deep as its length allows.
    std::uint64_t end = 0;
    if (begin(out, offset, used, insertAt, prefixes, CharArray(defaultPrefix), end) != 0)
        return -1;
    CharArray const noPrefix;
    while (!open.empty()) {
        if (out.size() > MaxTextLength)
            return -1;
        // By index: begin may push onto the stack and move its elements.
        std::size_t const current = open.size() - 1;
        if (open[current].next < open[current].end) {
            if (writePlain(out, open[current], prefixes))
                continue;
            if (begin(out, open[current].next, open[current].end, open[current].childInsertAt,
                      prefixes, noPrefix, end) != 0)
                return -1;
            open[current].next = static_cast<std::uint32_t>(end);
            continue;
        }
        appendEndTag(out, open[current].prefix, open[current].name);
        open.pop_back();
    }
    if (out.size() > MaxTextLength)
        return -1;
    offset = static_cast<std::uint32_t>(topEnd);
    return 0;
}

void TextWriter::writeValue(TextBuffer &out, unsigned kind, char const *value, std::uint32_t size,
                            std::uint64_t available) {
    char number[8];
    switch (kind) {
    case KindUntyped:
    case KindString:
        appendEscaped(out, value, size);
        break;
    case KindInt: {
        char *const at = out.room(20);
        out.commit(static_cast<std::size_t>(putDecimal(at, intValue(value, available)) - at));
        break;
    }
    case KindLongLong: {
        readValue(number, 8, value, available);
        char *const at = out.room(20);
        out.commit(static_cast<std::size_t>(putDecimal(at, loadInt64(number)) - at));
        break;
    }
    case KindDouble:
        readValue(number, 8, value, available);
        out.append(doubleToStr(loadDouble(number)));
        break;
    case KindBase64:
        // The last byte is the counted NUL behind the octets.
        out.append(Base64::encode(value, static_cast<int>(size - 1)));
        break;
    case KindTime:
        out.append(value, strnlen(value, size));
        break;
    case KindXML:
        out.append(value, strnlen(value, size));
        out.append('\n');
        break;
    default:
        break;
    }
}

int TextWriter::begin(TextBuffer &out, std::uint32_t offset, std::uint64_t limit,
                      std::size_t insertAt, Prefixes *prefixes, CharArray const &defaultPrefix,
                      std::uint64_t &nodeEnd) {
    if (open.size() >= MaxTextDepth)
        return -1;
    // Every node must lie above the head, inside its parent and inside the used
    // bytes before anything of it is read.
    if (offset == 0)
        return -1;
    binary::Node const node(frame, used, offset, format);
    if (!node.fits())
        return -1;
    // The whole short header lies inside the frame: its fields are read as they
    // stand, without a bound check per field.
    char const *const head = frame + offset;
    int const id = loadInt32(head);
    unsigned const kind = load16(head + 4);
    unsigned const ns = load16(head + 6);
    std::uint32_t const size = load32(head + 8);
    bool const container = isContainerKind(kind);
    std::uint64_t const valueOffset = offset + headerSize(size, kind);
    std::uint64_t const end = offset + nodeSize(size, kind, format);
    if (end > limit || end > used)
        return -1;
    if (!container && valueOffset + size > end)
        return -1;
    nodeEnd = end;
    char const *const value = frame + std::min<std::uint64_t>(valueOffset, end);

    // Ids 0 to 200, as an unsigned comparison, are attributes: dynamic element
    // ids are negative and go to the id map.
    bool const attributeId = static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId);
    CharArray name;
    if (attributeId) {
        if (!attributeName(id, name))
            return -1;
    } else {
        name = nameOf(id);
    }

    // A type's full name is "URI:local" or a bare local name; the URI may hold
    // colons of its own, so the last one separates.
    CharArray typeName;
    CharArray typeUri;
    CharArray typeLocal;
    bool typeHasUri = false;
    if (kind > LastValueKind) {
        if (static_cast<int>(kind) != lastType) {
            lastTypeName = doc.ids.lookupTypeName(static_cast<int>(kind));
            lastType = static_cast<int>(kind);
        }
        typeName = lastTypeName;
        typeLocal = typeName;
        for (unsigned long long i = typeName.length; i > 0; --i) {
            if (typeName.data[i - 1] == ':') {
                typeHasUri = true;
                typeUri = CharArray(typeName.data, i - 1);
                typeLocal = CharArray(typeName.data + i, typeName.length - i);
                break;
            }
        }
    }
    if (name.empty())
        name = InvalidTag;

    // The element's namespace gets its prefix before the type's namespace does,
    // for attributes and XML nodes too, which show neither.
    CharArray elementPrefix;
    CharArray typePrefix;
    if (prefixes != nullptr) {
        if (ns != 0)
            elementPrefix = prefixOfNamespace(*prefixes, ns);
        if (!typeName.empty())
            typePrefix = typeHasUri ? CharArray(prefixOf(*prefixes, typeUri)) : elementPrefix;
    }

    if (kind == KindXML) {
        // No tag at all, and the value as it stands.
        if (size != 0)
            writeValue(out, kind, value, size, end - valueOffset);
        return 0;
    }

    if (attributeId) {
        // The whole attribute goes in front of the '>' of the parent's start
        // tag: so the attributes of an element stand in the reverse order of
        // their nodes.
        if (container && size != 0)
            return -1; // an attribute has no start tag to hold children
        // Written at the end first, then moved into place in one step.
        std::size_t const at = std::min(insertAt, out.size());
        std::size_t const from = out.size();
        std::size_t const nameLength = static_cast<std::size_t>(name.length);
        char *to = out.room(nameLength + 3);
        *to++ = ' ';
        to = copyText(to, name);
        to[0] = '=';
        to[1] = '"';
        out.commit(nameLength + 3);
        if (size != 0)
            writeValue(out, kind, value, size, end - valueOffset);
        out.append('"');
        out.moveBack(at, from);
        return 0;
    }

    // The start tag.
    CharArray const shownPrefix = prefixes == nullptr
                                      ? CharArray()
                                      : (!elementPrefix.empty() ? elementPrefix : defaultPrefix);
    bool const showType = prefixes != nullptr && !typeName.empty();
    std::size_t tagLength = static_cast<std::size_t>(
        2 + (shownPrefix.length != 0 ? shownPrefix.length + 1 : 0) + name.length);
    if (showType)
        tagLength += static_cast<std::size_t>(
            12 + (typePrefix.length != 0 ? typePrefix.length + 1 : 0) + typeLocal.length);

    // A short string or a number goes out with both its tags in one piece:
    // one request for room, one commit.
    bool const text = kind == KindString || kind == KindUntyped;
    bool const oneShot = size != 0 && (kind == KindInt || (text && size <= ShortValue));
    std::size_t const valueRoom = !oneShot ? 0 : kind == KindInt ? 11 : 5 * std::size_t{size};
    std::size_t const endLength = oneShot ? endTagLength(shownPrefix, name) : 0;
    // Two more for the "/>" and line feed of an empty tag.
    char *const start = out.room(tagLength + valueRoom + endLength + 2);
    char *to = start;
    *to++ = '<';
    if (shownPrefix.length != 0) {
        to = copyText(to, shownPrefix);
        *to++ = ':';
    }
    to = copyText(to, name);
    if (showType) {
        to = copyText(to, " xsi:type=\"", 11);
        if (typePrefix.length != 0) {
            to = copyText(to, typePrefix);
            *to++ = ':';
        }
        to = copyText(to, typeLocal);
        *to++ = '"';
    }
    if (oneShot) {
        *to++ = '>';
        if (kind == KindInt) {
            to = putDecimal(to, intValue(value, end - valueOffset));
        } else {
            bool nul = false;
            to = copyEscaped(to, value, size, nul);
        }
        to = putEndTag(to, shownPrefix, name);
        out.commit(static_cast<std::size_t>(to - start));
        return 0;
    }
    if (size == 0) {
        // An empty tag.
        to[0] = '/';
        to[1] = '>';
        to[2] = '\n';
        out.commit(tagLength + 2);
        return 0;
    }
    *to = '>';
    out.commit(tagLength);
    std::size_t const tagEnd = out.size() - 1;
    if (container) {
        out.append('\n');
        Open &next = open.emplace_back();
        next.next = static_cast<std::uint32_t>(std::min<std::uint64_t>(valueOffset, end));
        next.end = end;
        next.childInsertAt = tagEnd;
        next.prefix = shownPrefix;
        next.name = name;
        return 0;
    }
    writeValue(out, kind, value, size, end - valueOffset);
    appendEndTag(out, shownPrefix, name);
    return 0;
}

} // namespace Internal
} // namespace KVX
