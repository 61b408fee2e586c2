// The XML reader: one forward pass over a NUL-terminated text that builds nodes
// through the document's node operations. Open elements live on an explicit
// stack, bounded by MaxTextDepth, so hostile nesting cannot exhaust the machine
// stack. One parse at a time per document.
#include "text/TextParser.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/NameTable.h"
#include "binary/QuickAppend.h"
#include "text/Entities.h"
#include "text/TextLimits.h"
#include "text/TextWriter.h"
#include "vocabulary/VocabularyConstants.h"

#include <kvx/KVXBinary.h>

#include <climits>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace KVX {
namespace Internal {

namespace {

std::map<CharArray, int> makeAttributeIds() {
    std::map<CharArray, int> ids;
    for (AttributeRow const &row : AttributeRows)
        ids.emplace(row.name, row.id);
    return ids;
}

// Character classes of the scanner: one table load per character instead of a
// chain of comparisons.
enum : unsigned char {
    Space = 1,    // blank, tab, line feed and carriage return; nothing else counts
    NameEnd = 2,  // ends an element name: whitespace, '>', '/' and NUL
    TextStop = 4, // stops the scan of text content: '<', '&' and NUL
};

struct CharClassTable {
    unsigned char bits[256];
    constexpr CharClassTable() : bits() {
        for (unsigned char c : {' ', '\t', '\n', '\r'})
            bits[c] = Space | NameEnd;
        bits[static_cast<unsigned char>('>')] = NameEnd;
        bits[static_cast<unsigned char>('/')] = NameEnd;
        bits[static_cast<unsigned char>('<')] = TextStop;
        bits[static_cast<unsigned char>('&')] = TextStop;
        bits[0] = NameEnd | TextStop;
    }
};
constexpr CharClassTable Classes;

bool inClass(char c, unsigned char classes) {
    return (Classes.bits[static_cast<unsigned char>(c)] & classes) != 0;
}

bool isSpace(char c) {
    return inClass(c, Space);
}

// Scans run on a local pointer, never on one held by reference: every load of
// a character may alias the memory of such a pointer, and the compiler would
// store it back at each step of the loop.
char const *afterSpace(char const *text) {
    while (isSpace(*text))
        ++text;
    return text;
}

void skipSpace(char const *&text) {
    text = afterSpace(text);
}

// Equality of two texts of `length` bytes, both readable in full, by words
// that overlap at the end instead of byte by byte: the loop's exit, which
// depends on the length, would be mispredicted on nearly every name.
template <typename Word> Word wordAt(char const *text) {
    Word word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

template <typename Word> bool sameEnds(char const *a, char const *b, std::size_t length) {
    return wordAt<Word>(a) == wordAt<Word>(b) &&
           wordAt<Word>(a + length - sizeof(Word)) == wordAt<Word>(b + length - sizeof(Word));
}

bool sameLongText(char const *a, char const *b, std::size_t length) {
    for (std::size_t i = 0; i + 8 < length; i += 8) {
        if (wordAt<std::uint64_t>(a + i) != wordAt<std::uint64_t>(b + i))
            return false;
    }
    return wordAt<std::uint64_t>(a + length - 8) == wordAt<std::uint64_t>(b + length - 8);
}

// Names of up to 16 characters, nearly all of them, are compared without a
// loop, which keeps this small enough to be inlined where names are compared.
inline bool sameText(char const *a, char const *b, std::size_t length) {
    if (length > 16)
        return sameLongText(a, b, length);
    if (length >= 8)
        return sameEnds<std::uint64_t>(a, b, length);
    if (length >= 4)
        return sameEnds<std::uint32_t>(a, b, length);
    if (length >= 2)
        return sameEnds<std::uint16_t>(a, b, length);
    return length == 0 || a[0] == b[0];
}

// True when `text` starts with "</name>". `inputEnd` is the input's NUL.
// Where the tag's bytes all lie before it, the name is compared by words;
// otherwise byte by byte, which stops at the NUL at the latest, as the name
// holds none: neither reads behind the end of the input.
[[gnu::always_inline]] inline bool atEndTag(char const *text, CharArray const &name,
                                            char const *inputEnd) {
    if (text[0] != '<' || text[1] != '/')
        return false;
    std::size_t const length = static_cast<std::size_t>(name.length);
    char const *const tag = text + 2;
    if (static_cast<std::size_t>(inputEnd - tag) > length)
        return sameText(tag, name.data, length) && tag[length] == '>';
    for (std::size_t i = 0; i < length; ++i) {
        if (tag[i] != name.data[i])
            return false;
    }
    return tag[length] == '>';
}

// Masks of the first 0 to 8 bytes of a word as it lies in memory, by table:
// a name's length decides the mask, and a branch on it would be mispredicted.
struct FirstBytesTable {
    std::uint64_t masks[9];
    constexpr FirstBytesTable() : masks() {
        for (unsigned count = 1; count <= 8; ++count) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
            masks[count] = ~std::uint64_t(0) << (64 - 8 * count);
#else
            masks[count] = count == 8 ? ~std::uint64_t(0) : (std::uint64_t(1) << (8 * count)) - 1;
#endif
        }
    }
};
constexpr FirstBytesTable FirstBytes;

// The scans of the quick path, sixteen characters at a time where all of them
// lie before the input's NUL, else one at a time.
#if defined(__SSE2__)
inline __m128i sixteenAt(char const *text) {
    __m128i bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    return bytes;
}
#endif

// The first character at or behind `text` that may end a name: NameEnd, and
// with sixteen at a time every other control character too. The quick path
// takes a name only when that character is its '>', which is then the one
// the exact scan finds as well.
inline char const *quickNameEnd(char const *text, char const *inputEnd) {
#if defined(__SSE2__)
    while (inputEnd - text >= 16) {
        __m128i const bytes = sixteenAt(text);
        __m128i const control = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(' ')), bytes);
        __m128i const stops =
            _mm_or_si128(control, _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('>')),
                                               _mm_cmpeq_epi8(bytes, _mm_set1_epi8('/'))));
        int const found = _mm_movemask_epi8(stops);
        if (found != 0)
            return text + __builtin_ctz(static_cast<unsigned>(found));
        text += 16;
    }
#endif
    while (!inClass(*text, NameEnd))
        ++text;
    return text;
}

// The first TextStop character at or behind `text`.
inline char const *textStop(char const *text, char const *inputEnd) {
#if defined(__SSE2__)
    while (inputEnd - text >= 16) {
        __m128i const bytes = sixteenAt(text);
        __m128i const stops =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('<')),
                         _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('&')),
                                      _mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
        int const found = _mm_movemask_epi8(stops);
        if (found != 0)
            return text + __builtin_ctz(static_cast<unsigned>(found));
        text += 16;
    }
#endif
    while (!inClass(*text, TextStop))
        ++text;
    return text;
}

// AttributeIds.find, by a pass over the eleven rows: their lengths tell most
// of them apart, where the tree compared the texts at every level. True, with
// `id` set, when `name` is one of them.
bool findAttribute(CharArray const &name, int &id) {
    for (AttributeRow const &row : AttributeRows) {
        if (row.name.length == name.length &&
            sameText(row.name.data, name.data, static_cast<std::size_t>(name.length))) {
            id = row.id;
            return true;
        }
    }
    return false;
}

char const *findChar(CharArray const &view, char c) {
    return static_cast<char const *>(
        std::memchr(view.data, c, static_cast<std::size_t>(view.length)));
}

} // namespace

std::map<CharArray, int> const TextParser::AttributeIds = makeAttributeIds();

TextParser::TextParser(KVXBinary &message) : doc(*message.internals), policy(message.policy) {}

int TextParser::parse(char const *&text, BinaryPath &path) {
    // However the parse ends (an exception of a full memory included), the
    // frame is handed on whole: a failed parse leaves its nodes in the
    // document with the sizes that the node operations would have given the
    // elements still open, and the room behind the root section is closed.
    struct Finish {
        TextParser &parser;
        BinaryPath &path;
        bool done;
        ~Finish() {
            if (!done)
                parser.settlePath(path);
            parser.doc.closeRoom();
        }
    } finish{*this, path, false};
    // The input's end lets end tags be compared by words (atEndTag).
    inputEnd = text + std::strlen(text);
    int const result = parseElements(text, path);
    finish.done = result == 0;
    return result;
}

int TextParser::parseElements(char const *&text, BinaryPath &path) {
    // The stack of open elements keeps its block from parse to parse on a
    // thread: a small text would otherwise spend a fair share of its time
    // growing it. A parse that finds the block taken starts a stack of its own.
    static thread_local std::vector<Open> spare;
    std::vector<Open> open;
    open.swap(spare);
    open.clear();
    struct GiveBack {
        std::vector<Open> &open;
        ~GiveBack() {
            if (open.capacity() <= 1024)
                spare.swap(open);
        }
    } giveBack{open};
    for (;;) {
        bool const skipping = !open.empty() && open.back().skipping;
        std::size_t const depth = open.size() + 1;
        // enter fills its slot in place: an Open built aside and copied in is
        // stored field by field and read back in wider moves, which stalls.
        open.emplace_back();
        Outcome outcome = enter(text, path, skipping, depth, open.back());
        if (outcome == Failed)
            return -1;
        if (outcome != Opened) {
            open.pop_back();
            if (open.empty())
                return 0;
            skipSpace(text);
            if (*text == '\0')
                return -1;
        }
        // The child loop of the innermost open element: its end tag closes it,
        // anything but a start tag (or a skipped piece of markup) fails.
        for (;;) {
            Open &current = open.back();
            if (atEndTag(text, current.name, inputEnd)) {
                int result = close(text, path, current);
                open.pop_back();
                if (result != 0)
                    return -1;
                if (open.empty())
                    return 0;
                skipSpace(text);
                if (*text == '\0')
                    return -1;
                continue;
            }
            if (*text != '<' || text[1] == '/')
                return -1;
            Run const run = quickRun(text, path, open);
            if (run == RunFailed)
                return -1;
            if (run == RunFinished)
                return 0;
            if (run == NoProgress)
                break;
        }
    }
}

TextParser::Run TextParser::quickRun(char const *&text, BinaryPath &path, std::vector<Open> &open) {
    // The child loop of parseElements for the elements that quickElement
    // takes and the end tags of elements without declarations, namespaces
    // or skipped parts: close() would only settle them and step over the tag.
    // Only quick appends and settles edit the frame until this returns; the
    // general path that follows may edit it in any way.
    struct Distrust {
        bool &trusted;
        ~Distrust() { trusted = false; }
    } distrust{quickTrusted};
    quickTrusted = false;
    Run result = NoProgress;
    for (;;) {
        if (text[1] == '/') {
            Open const &current = open.back();
            if (current.pushed || current.skipping || current.unknownTop ||
                undo.size() > current.mark || path.entries.empty() ||
                !atEndTag(text, current.name, inputEnd))
                return result;
            leave(path);
            text += current.name.length + 3;
            open.pop_back();
            if (open.empty())
                return RunFinished;
        } else {
            Quick const quickly = quickElement(text, path, open);
            if (quickly == NotQuick)
                return result;
            if (quickly == QuickFailed)
                return RunFailed;
        }
        result = Progress;
        skipSpace(text);
        if (*text == '\0')
            return RunFailed;
        if (*text != '<')
            return result;
    }
}

inline TextParser::Quick TextParser::quickElement(char const *&text, BinaryPath &path,
                                                  std::vector<Open> &open) {
    // What enter() and appendLeaf() would do for these two elements, step for
    // step, less what cannot happen to them: no attribute, prefix, declaration
    // or entity, a name whose id is cached (so recorded, and nothing pending),
    // and below the first level (the parent is sound).
    if (open.back().skipping || open.size() >= MaxTextDepth)
        return NotQuick;
    char const *const start = text;
    char const *const nameStart = start + 1;
    char const *const nameEnd = quickNameEnd(nameStart, inputEnd);
    std::size_t const length = static_cast<std::size_t>(nameEnd - nameStart);
    if (*nameEnd != '>' || length == 0 || length > MaxNameLength || *nameStart == '!' ||
        *nameStart == '?')
        return NotQuick;
    if (length > 16)
        return NotQuick;
    NameKey const key =
        inputEnd - nameStart >= 16 ? keyAt(nameStart, length) : keyOf(nameStart, length);
    int const id = cachedId(key, length);
    if (id == 0)
        return firstUse(text, path, open, CharArray(nameStart, length));
    CharArray const name(nameStart, static_cast<unsigned long long>(length));
    char const *const valueStart = nameEnd + 1;
    char const *const end = textStop(valueStart, inputEnd);
    if (*end != '<')
        return NotQuick; // an entity, or the end of the input
    // The end tag compares by the key where its sixteen bytes are readable.
    bool const endsHere = inputEnd - (end + 2) >= 16 ? end[1] == '/' && end[2 + length] == '>' &&
                                                           keyAt(end + 2, length) == key
                                                     : atEndTag(end, name, inputEnd);
    std::uint64_t const frameLength = static_cast<std::uint64_t>(doc.frameLength());
    if (endsHere) {
        std::size_t const valueLength = static_cast<std::size_t>(end - valueStart);
        // appendLeaf's limits, so that the same texts take the same way.
        constexpr std::size_t Slack = 1024;
        if (!fitsTextLimit(frameLength, valueLength + MaxNameLength + 64 + Slack) ||
            static_cast<std::uint64_t>(valueLength) + Slack >=
                static_cast<std::uint64_t>(doc.capacity) ||
            !doc.quickAppend(quick, path, id, valueStart, static_cast<std::uint32_t>(valueLength),
                             true, quickTrusted))
            return NotQuick;
        quickTrusted = true;
        text = end + length + 3;
        return QuickLeaf;
    }
    // Only blanks may stand between the tag and the child's start tag; other
    // text in front of markup is the value of a leaf.
    if (afterSpace(valueStart) != end || end[1] == '/' ||
        !fitsTextLimit(frameLength, MaxNameLength + 64) ||
        !doc.quickAppend(quick, path, id, nullptr, 0, false, quickTrusted))
        return NotQuick;
    quickTrusted = true;
    // The namespace in force, set again as setElementNamespace does. It may
    // record the namespace's name, which edits the frame.
    if (!path.namespaces.empty()) {
        doc.setNamespace(path, path.namespaces.back());
        quickTrusted = false;
    }
    openElement(open, start, name);
    text = end;
    return QuickOpened;
}

inline void TextParser::openElement(std::vector<Open> &open, char const *start,
                                    CharArray const &name) {
    open.emplace_back();
    Open &opened = open.back();
    opened.start = start;
    opened.name = name;
    opened.pushed = false;
    opened.unknownTop = false;
    opened.skipping = false;
    opened.mark = undo.size();
}

TextParser::Quick TextParser::firstUse(char const *&text, BinaryPath &path, std::vector<Open> &open,
                                       CharArray const &name) {
    // The same steps as enter() and appendLeaf() in their order: the limits,
    // the lookup (which may leave the name pending), the name's entry, the
    // node by the general append, and the pending name into the cache. The
    // lookup runs only where the quick way is then taken, but a second one by
    // enter() would find the same id.
    char const *const start = name.data - 1;
    char const *const valueStart = name.data + name.length + 1;
    char const *const end = textStop(valueStart, inputEnd);
    if (*end != '<')
        return NotQuick; // an entity, or the end of the input
    bool const leaf = atEndTag(end, name, inputEnd);
    std::uint64_t const frameLength = static_cast<std::uint64_t>(doc.frameLength());
    std::size_t const valueLength = static_cast<std::size_t>(end - valueStart);
    constexpr std::size_t Slack = 1024; // as in appendLeaf
    if (leaf ? !fitsTextLimit(frameLength, valueLength + MaxNameLength + 64 + Slack) ||
                   static_cast<std::uint64_t>(valueLength) + Slack >=
                       static_cast<std::uint64_t>(doc.capacity)
             : afterSpace(valueStart) != end || end[1] == '/' ||
                   !fitsTextLimit(frameLength, MaxNameLength + 64))
        return NotQuick;
    int const id = lookupElement(name);
    if (static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId))
        return NotQuick; // no id, or an attribute's: enter() decides
    // From here on the frame is edited by the general operations.
    quickTrusted = false;
    if (leaf) {
        if (!doc.ids.recordsName(id))
            return NotQuick; // appendLeaf leaves it to enter() too
        if (doc.appendTextAtEnd(path, id, valueStart, static_cast<std::uint32_t>(valueLength)) != 0)
            return QuickFailed;
        text = end + name.length + 3;
    } else {
        if (doc.appendAtEnd(path, id, KindUntyped, nullptr, 0, false) != 0)
            return QuickFailed;
        if (!path.namespaces.empty())
            doc.setNamespace(path, path.namespaces.back());
    }
    if (pending.length != 0)
        keepPendingName();
    if (leaf)
        return QuickLeaf;
    openElement(open, start, name);
    text = end;
    return QuickOpened;
}

TextParser::Outcome TextParser::enter(char const *&text, BinaryPath &path, bool skipping,
                                      std::size_t depth, Open &open) {
    char const *start = text;
    std::size_t mark = undo.size();
    // Below the first level the parent is an element that this parse opened:
    // a sound node, untyped or a container, which needs no check per child.
    if (!skipping && depth == 1 && !path.entries.empty()) {
        binary::Node parent = doc.node(path.entries.back().offset);
        if (!parent.fits())
            return Failed;
        unsigned kind = parent.kind();
        if (kind != KindUntyped && !isContainerKind(kind))
            return Failed; // a typed leaf takes no children
    }
    for (;;) {
        skipSpace(text);
        if (*text != '<')
            return Failed; // NUL, or text where an element must start
        if (text[1] == '/')
            return Finished; // the parent's end: it is the caller's to read
        if (text[1] == '!' || text[1] == '?') {
            // Declarations, comments, CDATA and processing instructions end at
            // the first '>', whatever they hold.
            char const *end = std::strchr(text, '>');
            if (end == nullptr)
                return Failed;
            text = end + 1;
            continue;
        }
        ++text;
        break;
    }

    char const *nameStart = text;
    char const *nameEnd = text;
    while (!inClass(*nameEnd, NameEnd))
        ++nameEnd;
    text = nameEnd;
    CharArray name(nameStart, static_cast<unsigned long long>(text - nameStart));
    if (*text == '\0' || name.empty() || name.length > MaxNameLength)
        return Failed;
    if (depth > MaxTextDepth)
        return Failed;

    KVXProtocolIDMap &ids = doc.ids;
    bool hasPrefix = false;
    CharArray prefix;
    bool unknownTop = false;
    if (!skipping) {
        int id = lookupElement(name);
        if (id == 0) {
            char const *colon = findChar(name, ':');
            if (colon == nullptr) {
                id = allotElementId(name);
            } else {
                prefix = CharArray(nameStart, static_cast<unsigned long long>(colon - nameStart));
                hasPrefix = !prefix.empty();
                id =
                    ids.intern(CharArray(colon + 1, name.length - prefix.length - 1), TableElement);
            }
        }
        if (id == 0) {
            if ((policy & 2) != 0)
                return Failed;
            skipping = true;
            unknownTop = true;
        } else {
            Leaf const leaf =
                *text == '>' ? appendLeaf(text, path, id, name, hasPrefix, prefix) : NotLeaf;
            if (leaf != NotLeaf) {
                if (leaf == LeafFailed)
                    return Failed;
                if (pending.length != 0)
                    keepPendingName();
                return Finished;
            }
            if (appendNode(path, id, KindUntyped, nullptr, 0, false) != 0)
                return Failed;
            if (pending.length != 0)
                keepPendingName();
        }
    }

    char ended = *text;
    bool emptyTag = ended == '/';
    if (isSpace(ended)) {
        skipSpace(text);
        if (*text == '\0')
            return Failed;
        emptyTag = text[0] == '/' && text[1] == '>';
    }

    bool pushed = false;
    if (!emptyTag) {
        skipSpace(text);
        if (*text == '\0')
            return Failed;
        CharArray typeName;
        CharArray typePrefix;
        CharArray attrPrefix;
        bool deferred = false;
        CharArray deferredType;
        while (*text != '>' && *text != '/') {
            // The name runs to the first '=', blanks included.
            char const *equals = std::strchr(text, '=');
            if (equals == nullptr)
                return Failed;
            CharArray attribute(text, static_cast<unsigned long long>(equals - text));
            text = equals + 1;
            enum {
                Known,
                DefaultNamespace,
                PrefixDeclaration,
                TypeAttribute,
                Ignored
            } role = Ignored;
            int attributeId = 0;
            CharArray declared;
            if (!skipping) {
                if (findAttribute(attribute, attributeId)) {
                    role = Known;
                } else if (char const *colon = findChar(attribute, ':')) {
                    CharArray before(attribute.data,
                                     static_cast<unsigned long long>(colon - attribute.data));
                    CharArray after(colon + 1, attribute.length - before.length - 1);
                    if (before == XmlnsName) {
                        role = PrefixDeclaration;
                        declared = after;
                    } else if (after == TypeName) {
                        role = TypeAttribute;
                        attrPrefix = before;
                    }
                } else if (attribute == XmlnsName) {
                    role = DefaultNamespace;
                } else {
                    return Failed; // not one of the ten attributes of the format
                }
            }
            if (*text != '"')
                return Failed;
            char const *valueStart = text + 1;
            char const *valueEnd = std::strchr(valueStart, '"');
            if (valueEnd == nullptr)
                return Failed;
            CharArray value(valueStart, static_cast<unsigned long long>(valueEnd - valueStart));
            if (!skipping) {
                // Once this tag has pushed a default namespace, an attribute that
                // would be dropped pushes its value as one more: the format has
                // always read tags this way, and the order of attributes matters.
                if (role == DefaultNamespace || (role == Ignored && pushed)) {
                    int ns = ids.intern(value, TableNamespace);
                    if (ns == 0)
                        return Failed;
                    path.namespaces.push_back(ns);
                    pushed = true;
                } else if (role == PrefixDeclaration) {
                    int ns = ids.intern(value, TableNamespace);
                    if (ns == 0)
                        return Failed;
                    declare(declared, ns);
                } else if (role == TypeAttribute) {
                    char const *colon = findChar(value, ':');
                    if (colon != nullptr) {
                        typePrefix = CharArray(valueStart,
                                               static_cast<unsigned long long>(colon - valueStart));
                        typeName = CharArray(colon + 1, value.length - typePrefix.length - 1);
                    } else {
                        typePrefix = CharArray();
                        typeName = value;
                    }
                } else if (role == Known) {
                    if (attributeId == 105 && !path.namespaces.empty()) {
                        deferred = true;
                        deferredType = value;
                    } else {
                        if (appendNode(path, attributeId, KindUntyped, value.data,
                                       static_cast<std::size_t>(value.length), true) != 0)
                            return Failed;
                        path.entries.pop_back();
                    }
                }
            }
            text = valueEnd + 1;
            skipSpace(text);
            if (*text == '\0')
                return Failed;
        }

        if (setElementNamespace(path, hasPrefix, prefix) != 0)
            return Failed;
        if (deferred) {
            // A plain "type" under a default namespace: a type only when that
            // namespace is the schema-instance one, and then it has no prefix
            // and xmlTypeFromText refuses it.
            CharArray uri = ids.lookupName(path.namespaces.back());
            if (uri.empty())
                return Failed;
            if (uri != XsiNamespace) {
                if (attrFromText(path, deferredType) != 0)
                    return Failed;
            } else {
                if (!typeName.empty())
                    return Failed;
                typeName = deferredType;
            }
        }
        if (!typeName.empty() &&
            xmlTypeFromText(path, typeName, typePrefix, attrPrefix, scope) != 0)
            return Failed;
        if (*text != '>' && *text != '/')
            return Failed;
        if (*text == '/') {
            // "/x" closes the tag as "/>" does: the second character is not
            // looked at. It is not stepped over when it is the input's end.
            text += text[1] != '\0' ? 2 : 1;
            if (pushed && !path.namespaces.empty())
                path.namespaces.pop_back();
            if (!skipping && !path.entries.empty())
                leave(path);
            undoTo(mark);
            return Finished;
        }

        // Content.
        ++text;
        char const *valueStart = text;
        skipSpace(text);
        if (*text == '\0')
            return Failed;
        CharArray value;
        if (atEndTag(text, name, inputEnd)) {
            value = CharArray(valueStart, static_cast<unsigned long long>(text - valueStart));
        } else if (*text == '<') {
            if (text[1] == '/')
                return Failed; // the end tag of another element
            open.start = start;
            open.name = name;
            open.pushed = pushed;
            open.unknownTop = unknownTop;
            open.skipping = skipping;
            open.mark = mark;
            return Opened;
        } else {
            // Text content runs to the exact end tag; markup inside is text.
            char const *end = text;
            while (!(*end == '<' && atEndTag(end, name, inputEnd))) {
                if (*end == '\0')
                    return Failed;
                ++end;
            }
            value = CharArray(valueStart, static_cast<unsigned long long>(end - valueStart));
            text = end;
        }
        int result = 0;
        if (!skipping) {
            result = setValue(path, value);
            if (!path.entries.empty())
                leave(path);
        }
        if (pushed && !path.namespaces.empty())
            path.namespaces.pop_back();
        text += name.length + 3;
        undoTo(mark);
        if (unknownTop && (policy & 1) == 0)
            result = addFragment(path, start, static_cast<std::size_t>(text - start));
        return result == 0 ? Finished : Failed;
    }

    // An empty element without attributes: "<name/>" or "<name />".
    if (text[1] != '>')
        return Failed;
    text += 2;
    if (setElementNamespace(path, hasPrefix, prefix) != 0)
        return Failed;
    if (!skipping && !path.entries.empty())
        leave(path);
    undoTo(mark);
    if (!unknownTop)
        return Finished;
    // The fragment of an unknown empty element runs to the end of the input.
    return addFragment(path, start, std::strlen(start)) == 0 ? Finished : Failed;
}

TextParser::Leaf TextParser::appendLeaf(char const *&text, BinaryPath &path, int id,
                                        CharArray const &name, bool hasPrefix,
                                        CharArray const &prefix) {
    // "<name>text</name>" is the element of most packets. Made as the format
    // describes it, it is appended empty and then given its value, which moves
    // the frame's tail twice; here it is appended once, with the value. This
    // runs only where the result is the same to the byte: a plain start tag,
    // text content, a named id, and room to spare in the buffer, so that the
    // growth rule reallocates exactly as the two steps would. Anything else
    // (children, a failure on the way) is left to the general path, and
    // nothing has been changed when NotLeaf is returned.
    char const *valueStart = text + 1;
    char const *end = valueStart;
    skipSpace(end);
    if (*end == '<' && !atEndTag(end, name, inputEnd))
        return NotLeaf; // child elements, or a stray end tag
    bool entity = false;
    for (;;) {
        while (!inClass(*end, TextStop))
            ++end;
        if (*end == '\0')
            return NotLeaf;
        if (*end == '&')
            entity = true;
        else if (atEndTag(end, name, inputEnd))
            break;
        ++end; // markup inside text is text
    }
    std::size_t const length = static_cast<std::size_t>(end - valueStart);
    if (static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId) ||
        (hasPrefix && scope.find(prefix) == scope.end()))
        return NotLeaf;
    // The slack covers the empty element and the name table entry of a name
    // of up to MaxNameLength characters (16 + 264 bytes). The two steps check
    // the value's limit after adding those; and where the node and the entry
    // together stay below the capacity, one append grows the buffer exactly
    // when, and as much as, the three growths of the two steps would.
    constexpr std::size_t Slack = 1024;
    std::uint64_t const used = static_cast<std::uint64_t>(doc.frameLength());
    if (!fitsTextLimit(used, length + MaxNameLength + 64 + Slack) ||
        static_cast<std::uint64_t>(length) + Slack >= static_cast<std::uint64_t>(doc.capacity))
        return NotLeaf;
    CharArray value(valueStart, static_cast<unsigned long long>(length));
    std::string unescaped;
    if (entity) {
        unescaped = value.str();
        if (unescape(unescaped) != 0)
            return NotLeaf;
        value = CharArray(unescaped.data(), unescaped.size());
    }
    // The name entry first: where the name cannot be recorded the general path
    // fails in the same way. Entry and node lie apart in the frame, so the
    // order of the two leaves the same bytes.
    if (!doc.ids.recordsName(id))
        return NotLeaf;
    // With the name recorded, only a lack of memory makes the append fail.
    if (!hasPrefix) {
        // Without a prefix the element takes the namespace in force, which
        // the append gives it already: setting it again changes nothing.
        if (doc.appendTextAtEnd(path, id, value.data, static_cast<std::uint32_t>(value.length)) !=
            0)
            return LeafFailed;
    } else {
        if (doc.appendAtEnd(path, id, KindUntyped, value.data,
                            static_cast<std::uint32_t>(value.length), true) != 0)
            return LeafFailed;
        setElementNamespace(path, hasPrefix, prefix);
        path.entries.pop_back();
    }
    text = end + name.length + 3;
    return LeafDone;
}

TextParser::NameKey TextParser::keyOf(char const *name, std::size_t length) {
    char padded[16] = {};
    std::memcpy(padded, name, length < sizeof padded ? length : sizeof padded);
    NameKey key;
    std::memcpy(&key.low, padded, 8);
    std::memcpy(&key.high, padded + 8, 8);
    return key;
}

inline TextParser::NameKey TextParser::keyAt(char const *text, std::size_t length) {
    NameKey key;
    std::memcpy(&key.low, text, 8);
    std::memcpy(&key.high, text + 8, 8);
    key.low &= FirstBytes.masks[length < 8 ? length : 8];
    key.high &= FirstBytes.masks[length > 8 ? length - 8 : 0];
    return key;
}

inline std::size_t TextParser::findSlot(NameKey const &key, char const *name,
                                        std::size_t length) const {
    // Open addressing over a few slots, filled up to three quarters, so that
    // the probe meets an empty slot at the latest.
    std::size_t slot = static_cast<std::size_t>(
        ((key.low ^ (key.high * 0x9E3779B97F4A7C15u) ^ length) * 0xC2B2AE3D27D4EB4Fu) >> 58);
    static_assert(NameCacheSize == 64, "one bit of cacheFilled per slot");
    for (;; slot = (slot + 1) % NameCacheSize) {
        if (!slotFilled(slot))
            return slot;
        CachedName const &cached = nameCache[slot];
        if (cached.length == length && cached.key == key &&
            (length <= 16 || sameText(cached.data + 16, name + 16, length - 16)))
            return slot;
    }
}

inline int TextParser::cachedId(NameKey const &key, std::size_t length) const {
    std::size_t const slot = findSlot(key, nullptr, length);
    return slotFilled(slot) ? nameCache[slot].id : 0;
}

int TextParser::lookupElement(CharArray const &name) {
    // Most names of a packet come again and again. A name whose id the id map
    // gave from the vocabulary, and which the document has recorded, keeps that
    // id for the rest of the parse: the map finds a recorded vocabulary id
    // before anything else, and nothing here takes a recorded name away. So
    // does a name outside the vocabulary, once it has an id (below).
    std::size_t const length = static_cast<std::size_t>(name.length);
    NameKey const key = keyOf(name.data, length);
    std::size_t const slot = findSlot(key, name.data, length);
    if (slotFilled(slot))
        return nameCache[slot].id;
    return lookupNewName(name, key, slot);
}

// Kept out of lookupElement, which then has nearly no registers to save on
// the way in and out: most lookups hit the cache.
[[gnu::noinline]] int TextParser::lookupNewName(CharArray const &name, NameKey const &key,
                                                std::size_t slot) {
    std::size_t const length = static_cast<std::size_t>(name.length);
    KVXProtocolIDMap &ids = doc.ids;
    pending = CachedName{NameKey{0, 0}, nullptr, 0, 0};
    // The document was reset for this parse and only this parse writes to it.
    int vocabulary = 0;
    int const id = ids.lookupOwnId(name, &vocabulary);
    // A name outside the vocabulary keeps an id that its alias gives and that
    // `names` holds: an alias is never replaced (the first one stays) and no
    // entry of `names` goes during a parse. An id that the map found in the
    // frame's table instead is not kept, as a newer entry of the same text
    // would be found there next time.
    bool const keeps = vocabulary == 0 ? id != 0 && ids.aliases.find(name) == id
                                       : vocabulary == id && ids.isRecorded(id);
    if (id != 0 && cachedNames < NameCacheSize * 3 / 4) {
        if (keeps) {
            nameCache[slot] = CachedName{key, name.data, length, id};
            cacheFilled |= std::uint64_t(1) << slot;
            ++cachedNames;
        } else if (vocabulary == id) {
            // A vocabulary name met for the first time is recorded by the
            // append that follows; keepPendingName() caches it then.
            pending = CachedName{key, name.data, length, id};
            pendingSlot = slot;
        }
    }
    return id;
}

void TextParser::keepPendingName() {
    // Nothing has entered the cache since the lookup, so the slot is free.
    if (doc.ids.isRecorded(pending.id)) {
        nameCache[pendingSlot] = pending;
        cacheFilled |= std::uint64_t(1) << pendingSlot;
        ++cachedNames;
    }
    pending = CachedName{NameKey{0, 0}, nullptr, 0, 0};
}

int TextParser::close(char const *&text, BinaryPath &path, Open const &open) {
    if (open.pushed && !path.namespaces.empty())
        path.namespaces.pop_back();
    if (!open.skipping && !path.entries.empty())
        leave(path);
    text += open.name.length + 3;
    undoTo(open.mark);
    if (!open.unknownTop || (policy & 1) != 0)
        return 0;
    return addFragment(path, open.start, static_cast<std::size_t>(text - open.start));
}

int TextParser::setElementNamespace(BinaryPath &path, bool hasPrefix, CharArray const &prefix) {
    // No test of skipping: in a skipped part the last entry of the path is the
    // nearest ancestor that has a node, and it takes the namespace. The result
    // of the node operation is not used: an empty path has nothing to set.
    if (!hasPrefix) {
        if (!path.namespaces.empty())
            doc.setNamespace(path, path.namespaces.back());
        return 0;
    }
    Scope::const_iterator found = scope.find(prefix);
    if (found == scope.end())
        return -1; // undeclared prefix
    doc.setNamespace(path, found->second);
    return 0;
}

int TextParser::setValue(BinaryPath &path, CharArray const &value) {
    // replaceValue checks and patches the sizes of every entry of the path.
    settlePath(path);
    std::size_t length = static_cast<std::size_t>(value.length);
    if (!fitsTextLimit(static_cast<std::uint64_t>(doc.frameLength()), length + 64))
        return -1;
    if (findChar(value, '&') == nullptr)
        return doc.replaceValue(path, KindUntyped, value.data, static_cast<std::uint32_t>(length),
                                true);
    std::string copy = value.str();
    if (unescape(copy) != 0)
        return -1;
    return doc.replaceValue(path, KindUntyped, copy.data(), static_cast<std::uint32_t>(copy.size()),
                            true);
}

int TextParser::addFragment(BinaryPath &path, char const *start, std::size_t length) {
    int result = appendNode(path, 0, KindXML, start, length, true);
    if (result == 0 && !path.entries.empty())
        path.entries.pop_back();
    return result;
}

int TextParser::allotElementId(CharArray const &name) {
    // A name without a prefix always gets an id of its own: the allotment needs
    // no name table lookup, so even a document whose table does not read gives
    // one. The alias lets the next element of that name find it.
    return doc.ids.allotElement(name);
}

int TextParser::appendNode(BinaryPath &path, int id, unsigned short kind, char const *value,
                           std::size_t length, bool terminate) {
    // Room for the value, its NUL, a long header, padding and a name table
    // entry of a name up to MaxNameLength: a frame never passes MaxTextLength.
    if (!fitsTextLimit(static_cast<std::uint64_t>(doc.frameLength()), length + MaxNameLength + 64))
        return -1;
    return doc.appendAtEnd(path, id, kind, value, static_cast<std::uint32_t>(length), terminate);
}

void TextParser::leave(BinaryPath &path) {
    std::uint32_t const offset = path.entries.back().offset;
    if (!doc.quickSettle(quick, offset, quickTrusted))
        doc.settleAtEnd(offset);
    path.entries.pop_back();
}

void TextParser::settlePath(BinaryPath const &path) {
    for (PathEntry const &entry : path.entries)
        doc.settleAtEnd(entry.offset);
}

int TextParser::attrFromText(BinaryPath &path, CharArray const &value) {
    int result = appendNode(path, 105, KindUntyped, value.data,
                            static_cast<std::size_t>(value.length), true);
    if (result == 0 && !path.entries.empty())
        path.entries.pop_back();
    return result;
}

int TextParser::xmlTypeFromText(BinaryPath &path, CharArray const &typeName,
                                CharArray const &typePrefix, CharArray const &attrPrefix,
                                Scope const &prefixes) {
    if (attrPrefix.empty())
        return -1;
    Scope::const_iterator attributeScope = prefixes.find(attrPrefix);
    if (attributeScope == prefixes.end())
        return -1;
    CharArray uri = doc.ids.lookupName(attributeScope->second);
    if (uri.empty())
        return -1;
    if (uri != XsiNamespace)
        return attrFromText(path, typeName);
    // A prefixed type is named by its namespace URI, a colon and the local
    // name, which no fixed type has: it gets a dynamic type id.
    std::string fullName;
    if (!typePrefix.empty()) {
        Scope::const_iterator typeScope = prefixes.find(typePrefix);
        if (typeScope == prefixes.end())
            return -1;
        CharArray typeUri = doc.ids.lookupName(typeScope->second);
        if (typeUri.empty())
            return -1;
        fullName = typeUri.str() + ":";
    }
    fullName += typeName.str();
    int type = doc.ids.intern(CharArray(fullName), TableType);
    if (type == 0)
        return -1;
    return doc.setKind(path, type);
}

void TextParser::declare(CharArray const &prefix, int id) {
    Scope::iterator found = scope.find(prefix);
    if (found != scope.end()) {
        undo.push_back(Undo{prefix, true, found->second});
        found->second = id;
    } else {
        undo.push_back(Undo{prefix, false, 0});
        scope.emplace(prefix, id);
    }
}

void TextParser::undoDeclarations(std::size_t mark) {
    while (undo.size() > mark) {
        Undo const &last = undo.back();
        if (last.existed)
            scope[last.prefix] = last.previous;
        else
            scope.erase(last.prefix);
        undo.pop_back();
    }
}

} // namespace Internal
} // namespace KVX
