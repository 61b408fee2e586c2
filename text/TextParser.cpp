// The XML reader's general path: one forward pass over a NUL-terminated text
// that builds nodes through the document's node operations, handing runs of
// plain elements to the quick path (QuickParse.cpp) and attributes to
// TextAttributes.cpp. Open elements live on an explicit stack, bounded by
// MaxTextDepth, so hostile nesting cannot exhaust the machine stack. One parse
// at a time per document.
#include "text/TextParser.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/NameTable.h"
#include "binary/QuickAppend.h"
#include "text/Entities.h"
#include "text/NameCache.h"
#include "text/TextLimits.h"
#include "text/TextScan.h"
#include "text/TextWriter.h"
#include "vocabulary/VocabularyConstants.h"

#include <kvx/KVXBinary.h>

#include <climits>
#include <cstdint>
#include <cstring>

namespace KVX {
namespace Internal {

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
                if (pending.entry.length != 0)
                    keepPendingName();
                return Finished;
            }
            if (appendNode(path, id, KindUntyped, nullptr, 0, false) != 0)
                return Failed;
            if (pending.entry.length != 0)
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
        if (readAttributes(text, path, skipping, hasPrefix, prefix, pushed) != 0)
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
    if (!leafInOneStep(static_cast<std::uint64_t>(doc.frameLength()), length,
                       static_cast<std::uint64_t>(doc.capacity)))
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

int TextParser::lookupElement(CharArray const &name) {
    // Most names of a packet come again and again. A name whose id the id map
    // gave from the vocabulary, and which the document has recorded, keeps that
    // id for the rest of the parse: the map finds a recorded vocabulary id
    // before anything else, and nothing here takes a recorded name away. So
    // does a name outside the vocabulary, once it has an id (below).
    std::size_t const length = static_cast<std::size_t>(name.length);
    NameCache::Key const key = NameCache::keyOf(name.data, length);
    std::size_t const slot = names.find(key, name.data, length);
    if (names.filled(slot))
        return names.idAt(slot);
    return lookupNewName(name, key, slot);
}

// Kept out of lookupElement, which then has nearly no registers to save on
// the way in and out: most lookups hit the cache.
[[gnu::noinline]] int TextParser::lookupNewName(CharArray const &name, NameCache::Key const &key,
                                                std::size_t slot) {
    std::size_t const length = static_cast<std::size_t>(name.length);
    KVXProtocolIDMap &ids = doc.ids;
    pending = Pending{};
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
    if (id != 0 && names.hasRoom()) {
        if (keeps) {
            names.fill(slot, NameCache::Entry{key, name.data, length, id});
        } else if (vocabulary == id) {
            // A vocabulary name met for the first time is recorded by the
            // append that follows; keepPendingName() caches it then.
            pending = Pending{NameCache::Entry{key, name.data, length, id}, slot};
        }
    }
    return id;
}

void TextParser::keepPendingName() {
    // Nothing has entered the cache since the lookup, so the slot is free.
    if (doc.ids.isRecorded(pending.entry.id))
        names.fill(pending.slot, pending.entry);
    pending = Pending{};
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
    if (!elementFits(static_cast<std::uint64_t>(doc.frameLength()), length))
        return -1;
    return doc.appendAtEnd(path, id, kind, value, static_cast<std::uint32_t>(length), terminate);
}

void TextParser::settlePath(BinaryPath const &path) {
    for (PathEntry const &entry : path.entries)
        doc.settleAtEnd(entry.offset);
}

} // namespace Internal
} // namespace KVX
