// TextParser: reads XML text into the nodes of a KVXBinary, by a scanner of the
// library's own over one NUL-terminated buffer. Names and values stay views into
// the caller's text until a node operation copies them into the frame. It edits
// the document only through the node operations and its id map. One parse at a
// time per document; the static AttributeIds are read-only after load.
#ifndef KVX_TEXT_TEXTPARSER_H
#define KVX_TEXT_TEXTPARSER_H

#include "binary/KVXBinaryInternals.h"
#include "text/NameCache.h"

#include <kvx/BinaryPath.h>
#include <kvx/CharArray.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KVX {

class KVXBinary;

namespace Internal {

class TextParser {
public:
    // Prefix to namespace id, for the prefixes declared on the open elements.
    typedef std::map<CharArray, int> Scope;

    // Attribute name to id: the inverse of the writer's AttributeNames, with the
    // empty name giving 0. Filled when the library loads.
    static std::map<CharArray, int> const AttributeIds;

    // A parser that builds into the current document of `message` under its
    // text policy (KVXBinary::Policy as the message copied it). The parser
    // keeps a reference to that document: it must outlive the parser.
    // Requires: `message` has a document (not detached).
    explicit TextParser(KVXBinary &message);

    // Reads one element with everything inside it, or the end tag of its
    // parent, from `text` and moves `text` on. New nodes go under the last
    // entry of `path`. 0, or -1 when the text is refused; nodes made before a
    // failure stay. Requires: a NUL-terminated `text`.
    int parse(char const *&text, BinaryPath &path);

    // Gives the current element of `path` the complex type named by an
    // xsi:type-like attribute: `attrPrefix` is the attribute's prefix,
    // `typePrefix` and `typeName` the parts of its value. When the attribute's
    // prefix is bound to another URI than the schema-instance one, the value is
    // added as the attribute "type" instead. 0 or -1.
    int xmlTypeFromText(BinaryPath &path, CharArray const &typeName, CharArray const &typePrefix,
                        CharArray const &attrPrefix, Scope const &scope);
    // Adds the attribute "type" (id 105), KindUntyped, with `value` and a NUL
    // under the current element, leaving `path` where it was. 0 or -1.
    int attrFromText(BinaryPath &path, CharArray const &value);

    // The prefixes in force; a caller may declare some before a parse.
    Scope &currentScope() { return scope; }

private:
    // An element whose children are being read.
    struct Open {
        char const *start; // where its raw text began, markup in front included
        CharArray name;    // its name as written, for the end tag
        bool pushed;       // it pushed a default namespace
        bool unknownTop;   // it got no id and heads a skipped part
        bool skipping;     // it and everything below make no nodes
        std::size_t mark;  // undo position of its prefix declarations
    };
    enum Outcome { Failed = -1, Finished = 0, Opened = 1 };
    // One prefix declaration, undone when its element closes.
    struct Undo {
        CharArray prefix;
        bool existed;
        int previous;
    };

    // parse() before the sizes of open elements are settled on a failure.
    int parseElements(char const *&text, BinaryPath &path);
    // Reads the next element up to its content. Finished: the element (or the
    // parent's end) is done. Opened: `open` describes an element whose
    // children are to be read.
    Outcome enter(char const *&text, BinaryPath &path, bool skipping, std::size_t depth,
                  Open &open);
    enum Leaf { NotLeaf, LeafDone, LeafFailed };
    // "<name>text</name>" appended in one step with its value, `text` being at
    // the '>' of the start tag and moved behind the end tag. NotLeaf, with
    // nothing changed, where the general path must run.
    Leaf appendLeaf(char const *&text, BinaryPath &path, int id, CharArray const &name,
                    bool hasPrefix, CharArray const &prefix);
    enum Quick { NotQuick, QuickLeaf, QuickOpened, QuickFailed };
    // The two elements that make up nearly all of a packet, read in one short
    // pass where the general path gives the same nodes: "<name>text</name>"
    // and "<name>" followed by a child's start tag, for a name in the cache,
    // without attributes, entities or markup, with room in the frame. `text`
    // is at a start tag inside the innermost of `open`. QuickOpened pushes the
    // element on `open`; NotQuick reads and changes nothing.
    [[gnu::always_inline]] Quick quickElement(char const *&text, BinaryPath &path,
                                              std::vector<Open> &open);
    // quickElement for `name`, the name of a start tag at `text` that ends
    // with its '>', when the name is not in the cache yet. QuickFailed where
    // enter() would fail.
    [[gnu::noinline]] Quick firstUse(char const *&text, BinaryPath &path, std::vector<Open> &open,
                                     CharArray const &name);
    // Pushes an element that has no attributes and gets children.
    void openElement(std::vector<Open> &open, char const *start, CharArray const &name);
    enum Run { NoProgress, Progress, RunFailed, RunFinished };
    // Elements and end tags read by the quick path one after another, from a
    // start or end tag at `text` inside the innermost of `open`, until one
    // needs the general path. RunFailed where parseElements fails (the input
    // ends behind an element), RunFinished when the last open element closed,
    // else whether anything was read; `text` is then at a non-blank.
    Run quickRun(char const *&text, BinaryPath &path, std::vector<Open> &open);
    // The end of an element that had child elements; `text` is at its end tag.
    int close(char const *&text, BinaryPath &path, Open const &open);
    // The attributes of a start tag, `text` being at its first one, up to its
    // '>' or '/': attribute nodes, namespace declarations (a default one
    // pushed on `path`, then `pushed`), the element's namespace and its
    // complex type. 0, or -1 where the tag is refused.
    int readAttributes(char const *&text, BinaryPath &path, bool skipping, bool hasPrefix,
                       CharArray const &prefix, bool &pushed);
    // Sets the element's namespace from its prefix or the default in force.
    int setElementNamespace(BinaryPath &path, bool hasPrefix, CharArray const &prefix);
    // Stores the content as the value of the element at the end of `path`.
    int setValue(BinaryPath &path, CharArray const &value);
    // A KindXML node of id 0 with the raw text of a skipped part.
    int addFragment(BinaryPath &path, char const *start, std::size_t length);
    // lookupId of the id map, answered from a small cache for the names that
    // keep their id (see the definition).
    int lookupElement(CharArray const &name);
    // lookupElement for a name that is not in the cache, whose key is `key`
    // and whose free slot there is `slot`.
    int lookupNewName(CharArray const &name, NameCache::Key const &key, std::size_t slot);
    // Caches the name that lookupElement left pending, once its append has
    // recorded it.
    void keepPendingName();
    // A new dynamic element id for `name`, with its name table entry; 0 when
    // the entry cannot be added.
    int allotElementId(CharArray const &name);
    // Nodes are added by appendAtEnd, which leaves the sizes of open elements
    // to be settled: leave() settles the last entry and takes it off `path`,
    // settlePath() settles every entry (before replaceValue, or on failure).
    void leave(BinaryPath &path);
    void settlePath(BinaryPath const &path);
    // appendAtEnd(), refused when the frame would pass MaxTextLength.
    int appendNode(BinaryPath &path, int id, unsigned short kind, char const *value,
                   std::size_t length, bool terminate);
    void declare(CharArray const &prefix, int id);
    // Undoes the declarations made since `mark`. Inline: nearly every element
    // declares nothing, and then this is one comparison.
    void undoTo(std::size_t mark) {
        if (undo.size() > mark)
            undoDeclarations(mark);
    }
    void undoDeclarations(std::size_t mark);

    // A vocabulary name met for the first time, cached once its append has
    // recorded it (keepPendingName), in the slot the lookup found free.
    struct Pending {
        NameCache::Entry entry; // length 0 for none
        std::size_t slot;
    };
    // One of the ten attributes of the format by its name: true, with `id`.
    static bool findAttribute(CharArray const &name, int &id);

    KVXBinaryInternals &doc;
    int policy;
    NameCache names;
    char const *inputEnd = nullptr; // the NUL of the text being parsed
    Pending pending = {};
    KVXBinaryInternals::QuickState quick; // of the quick appends (quickElement)
    bool quickTrusted = false;            // `quick` is current (see quickAppend)
    Scope scope;
    std::vector<Undo> undo;
};

} // namespace Internal
} // namespace KVX

#endif // KVX_TEXT_TEXTPARSER_H
