// The quick path of the XML reader: runs of the elements that make up nearly
// all of a packet ("<name>text</name>" and "<name>" with children, no
// attributes, entities or markup) and of their end tags, read in one loop
// that gives the same nodes as the general path (TextParser.cpp) with a
// fraction of its steps. One parse at a time per document.
#include "text/TextParser.h"

#include "binary/KVXBinaryInternals.h"
#include "binary/QuickAppend.h"
#include "text/NameCache.h"
#include "text/TextLimits.h"
#include "text/TextScan.h"

#include <cstdint>

namespace KVX {
namespace Internal {

// Here, where the quick path closes most elements, so that it is inlined.
void TextParser::leave(BinaryPath &path) {
    std::uint32_t const offset = path.entries.back().offset;
    if (!doc.quickSettle(quick, offset, quickTrusted))
        doc.settleAtEnd(offset);
    path.entries.pop_back();
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
    // Names of 1 to 16 characters (MaxNameLength is larger).
    static_assert(MaxNameLength >= 16, "a quick name is within the limit");
    if (*nameEnd != '>' || length - 1 >= 16 || *nameStart == '!' || *nameStart == '?')
        return NotQuick;
    NameCache::Key const mask = NameCache::maskOf(length);
    NameCache::Key const key = inputEnd - nameStart >= 16 ? NameCache::keyAt(nameStart, mask)
                                                          : NameCache::keyOf(nameStart, length);
    int const id = names.idOf(key, length);
    // A cached id above 0 is one whose name the document holds with this
    // text: a vocabulary id recorded by this parse, or an id that the frame's
    // own table gave (see lookupNewName, keepPendingName), so append would
    // find the name. Attribute ids (which append treats apart) and dynamic
    // ids (below 0) are left to the general path.
    if (id <= LastAttributeId)
        return id == 0 ? firstUse(text, path, open, CharArray(nameStart, length)) : NotQuick;
    CharArray const name(nameStart, static_cast<unsigned long long>(length));
    char const *const valueStart = nameEnd + 1;
    char const *const end = textStop(valueStart, inputEnd);
    if (*end != '<')
        return NotQuick; // an entity, or the end of the input
    // The end tag compares by the key where its sixteen bytes are readable.
    bool const endsHere = inputEnd - (end + 2) >= 16 ? end[1] == '/' && end[2 + length] == '>' &&
                                                           NameCache::keyAt(end + 2, mask) == key
                                                     : atEndTag(end, name, inputEnd);
    std::uint64_t const frameLength = static_cast<std::uint64_t>(doc.frameLength());
    if (endsHere) {
        std::size_t const valueLength = static_cast<std::size_t>(end - valueStart);
        // appendLeaf's limits, so that the same texts take the same way.
        if (!leafInOneStep(frameLength, valueLength, static_cast<std::uint64_t>(doc.capacity)) ||
            !doc.quickAppend(quick, path, id, valueStart, static_cast<std::uint32_t>(valueLength),
                             true, quickTrusted, true))
            return NotQuick;
        quickTrusted = true;
        text = end + length + 3;
        return QuickLeaf;
    }
    // Only blanks may stand between the tag and the child's start tag; other
    // text in front of markup is the value of a leaf.
    if (afterSpace(valueStart) != end || end[1] == '/' || !elementFits(frameLength, 0) ||
        !doc.quickAppend(quick, path, id, nullptr, 0, false, quickTrusted, true))
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
    if (leaf ? !leafInOneStep(frameLength, valueLength, static_cast<std::uint64_t>(doc.capacity))
             : afterSpace(valueStart) != end || end[1] == '/' || !elementFits(frameLength, 0))
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
        if (doc.appendElementAtEnd(path, id) != 0)
            return QuickFailed;
        if (!path.namespaces.empty())
            doc.setNamespace(path, path.namespaces.back());
    }
    if (pending.entry.length != 0)
        keepPendingName();
    if (leaf)
        return QuickLeaf;
    openElement(open, start, name);
    text = end;
    return QuickOpened;
}

} // namespace Internal
} // namespace KVX
