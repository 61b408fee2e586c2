// TextWriter: writes a binary document, or the subtree at a cursor, as XML text
// in one pass over the frame. It only reads the frame (names come through the
// document's id map) and owns nothing but the string it builds. One thread at a
// time per document: a name lookup may load the document's name table.
#ifndef KVX_TEXT_TEXTWRITER_H
#define KVX_TEXT_TEXTWRITER_H

#include <kvx/CharArray.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KVX {

class KVXBinaryInternals;

namespace Internal {

// One attribute of the text form: the id of its node and the name it shows.
struct AttributeRow {
    int id;
    CharArray name;
};

// The attribute names, in the order of the format's own table; the row with id
// 0 names nothing and lets a node of id 0 be written (as "INVALID_TAG").
inline constexpr AttributeRow AttributeRows[] = {
    {101, CharArray("version", 7)},        // protocol version, "%d.%d.%d"
    {102, CharArray("id", 2)},             // message id
    {103, CharArray("priority", 8)},       // integer
    {104, CharArray("time", 4)},           // time stamp
    {105, CharArray("type", 4)},           // packet type, or text on other elements
    {106, CharArray("progress", 8)},       // "on" or "off"
    {110, CharArray("log", 3)},            // "on" or "off"
    {107, CharArray("timeout", 7)},        // integer
    {108, CharArray("timeout_limit", 13)}, // integer
    {109, CharArray("uid", 3)},            // text
    {0, CharArray("", 0)},                 // the empty name
};

class TextWriter {
public:
    // Namespace URI to its prefix ("ns1", "ns2", ...), ordered as CharArray
    // orders: by length, then alphabetically.
    typedef std::map<CharArray, std::string> Prefixes;

    // Attribute id to name, filled from AttributeRows when the library loads.
    static std::map<int, CharArray> const AttributeNames;

    // `text` with '&', '<' and '>' replaced by "&amp;", "&lt;" and "&gt;".
    // Quotes and apostrophes stay. Requires: a NUL-terminated `text`.
    static std::string escape(char const *text);
    // The same for `length` bytes (or up to a NUL before them), appended to `out`.
    static void appendEscaped(std::string &out, char const *text, std::size_t length);

    // A writer over the frame of `document`.
    explicit TextWriter(KVXBinaryInternals &document);

    // Writes the node at `offset` with everything below it to `out` and adds
    // its node size to `offset`. `insertAt` is the position in `out` where an
    // attribute node is put (the '>' of its parent's start tag). `prefixes`
    // is null below version 40000. `defaultPrefix` is written for an element
    // that has no prefix of its own when not empty. 0, or -1 when a node lies
    // outside its parent or the used bytes, an attribute id has no name, an
    // attribute has children, the nesting passes MaxTextDepth or the text
    // passes MaxTextLength; `out` then holds a partial text.
    // Requires: a document with a buffer; `offset` need not be sound.
    int write(std::string &out, std::uint32_t &offset, std::size_t insertAt, Prefixes *prefixes,
              std::string const &defaultPrefix);

private:
    // An element whose children are being written.
    struct Open {
        std::uint32_t next;        // offset of the next child
        std::uint64_t end;         // end of the element's node
        std::size_t childInsertAt; // the '>' of its start tag, where its attributes go
        std::string closeTag;      // its end tag and line feed
    };

    // Writes one node that must end by `limit`; a container is pushed on `open`
    // with its children still to come. 0, or -1 on failure.
    int begin(std::string &out, std::uint32_t offset, std::uint64_t limit, std::size_t insertAt,
              Prefixes *prefixes, std::string const &defaultPrefix, std::vector<Open> &open);
    // The prefix of a namespace URI, made on first use.
    static std::string const &prefixOf(Prefixes &prefixes, CharArray const &uri);

    KVXBinaryInternals &doc;
};

} // namespace Internal
} // namespace KVX

#endif // KVX_TEXT_TEXTWRITER_H
