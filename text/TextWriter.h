// TextWriter: writes a binary document, or the subtree at a cursor, as XML text
// in one pass over the frame. It only reads the frame (names come through the
// document's id map) and owns nothing but the text it builds. One thread at a
// time per document: a name lookup may load the document's name table.
#ifndef KVX_TEXT_TEXTWRITER_H
#define KVX_TEXT_TEXTWRITER_H

#include <kvx/CharArray.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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

// Copies `count` bytes to `to` and returns the end of the copy. Names, tags and
// numbers are a few bytes long: up to 16 bytes go by two overlapping loads and
// stores each instead of a call to memcpy.
inline char *copyText(char *to, char const *from, std::size_t count) {
    if (count - 4 <= 3) { // 4 to 7 bytes
        std::uint32_t head;
        std::uint32_t tail;
        std::memcpy(&head, from, 4);
        std::memcpy(&tail, from + count - 4, 4);
        std::memcpy(to, &head, 4);
        std::memcpy(to + count - 4, &tail, 4);
    } else if (count - 8 <= 8) { // 8 to 16 bytes
        std::uint64_t head;
        std::uint64_t tail;
        std::memcpy(&head, from, 8);
        std::memcpy(&tail, from + count - 8, 8);
        std::memcpy(to, &head, 8);
        std::memcpy(to + count - 8, &tail, 8);
    } else if (count < 4) {
        if (count != 0) {
            to[0] = from[0];
            to[count / 2] = from[count / 2];
            to[count - 1] = from[count - 1];
        }
    } else {
        std::memcpy(to, from, count);
    }
    return to + count;
}

inline char *copyText(char *to, CharArray const &text) {
    return copyText(to, text.data, static_cast<std::size_t>(text.length));
}

// The text under construction, in one malloc block that toText hands out as it
// stands, so the finished text is never copied. Growth doubles; a failed
// allocation throws std::bad_alloc, which the public level turns into null.
class TextBuffer {
public:
    TextBuffer() : text(nullptr), length(0), capacity(0) {}
    ~TextBuffer() { std::free(text); }
    TextBuffer(TextBuffer const &) = delete;
    TextBuffer &operator=(TextBuffer const &) = delete;

    std::size_t size() const { return length; }
    // The bytes written so far; no NUL behind them. Valid until the next write.
    char const *data() const { return text; }

    // Makes the block hold at least `bytes` in all.
    void reserve(std::size_t bytes);
    // Room for `more` bytes behind the text: write there, then commit. An
    // empty buffer asked for no room may answer null.
    char *room(std::size_t more) {
        if (capacity - length < more)
            growFor(more);
        return text + length;
    }
    void commit(std::size_t written) { length += written; }

    void append(char c) {
        *room(1) = c;
        ++length;
    }
    void append(char const *bytes, std::size_t count) {
        copyText(room(count), bytes, count);
        length += count;
    }
    void append(CharArray const &bytes) {
        append(bytes.data, static_cast<std::size_t>(bytes.length));
    }
    void append(std::string const &bytes) { append(bytes.data(), bytes.size()); }
    // Moves the text from `at` on (at most size()) `count` bytes back and
    // returns the gap, for the caller to fill.
    char *openGap(std::size_t at, std::size_t count);
    // Moves the text from `from` on in front of position `at` (at <= from <=
    // size()): a piece written at the end goes into the middle.
    void moveBack(std::size_t at, std::size_t from);

    // The text with a NUL behind it, as a malloc block that the caller frees
    // with free(); the buffer is empty afterwards.
    char *release();

private:
    void growFor(std::size_t more);

    char *text;
    std::size_t length;
    std::size_t capacity;
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
    int write(TextBuffer &out, std::uint32_t &offset, std::size_t insertAt, Prefixes *prefixes,
              std::string const &defaultPrefix);

private:
    // An element whose children are being written. Its end tag is written from
    // the views kept here, which stay valid for the whole write: the name lies
    // in the vocabulary or the unchanged frame, the prefix in the map's node.
    struct Open {
        std::uint32_t next;        // offset of the next child
        std::uint64_t end;         // end of the element's node
        std::size_t childInsertAt; // the '>' of its start tag, where its attributes go
        CharArray prefix;          // the prefix shown in its start tag, or empty
        CharArray name;            // its name as shown
    };

    static constexpr std::size_t NameSlots = 64; // recently asked names; a power of two

    // Writes one node that must end by `limit`; a container is pushed on
    // `open` with its children still to come. Stores the node's end in
    // `nodeEnd`. 0, or -1 on failure.
    int begin(TextBuffer &out, std::uint32_t offset, std::uint64_t limit, std::size_t insertAt,
              Prefixes *prefixes, CharArray const &defaultPrefix, std::uint64_t &nodeEnd);
    // Writes the child at `parent.next` and moves `parent.next` behind it when
    // that child is a plain element; false, with nothing written, otherwise.
    bool writePlain(TextBuffer &out, Open &parent, Prefixes *prefixes);
    // Writes the value of a leaf of `kind` and `size` at `value` to `out`;
    // `available` bytes lie between the value and the node's end.
    static void writeValue(TextBuffer &out, unsigned kind, char const *value, std::uint32_t size,
                           std::uint64_t available);
    // The name of an element or namespace id, through the slots.
    CharArray nameOf(int id);
    // The prefix of a namespace id, made on first use; empty for a namespace
    // without a URI.
    CharArray prefixOfNamespace(Prefixes &prefixes, unsigned ns);
    // The prefix of a namespace URI, made on first use.
    static std::string const &prefixOf(Prefixes &prefixes, CharArray const &uri);

    KVXBinaryInternals &doc;
    char const *frame;  // the document's buffer, read-only while writing
    std::uint32_t used; // its used bytes
    unsigned format;    // its format byte
    std::vector<Open> open;
    int slotIds[NameSlots];         // the id of each slot, 0 for none: no one asks for id 0
    CharArray slotNames[NameSlots]; // the name of that id
    int lastNamespace;              // the namespace id of lastPrefix, -1 for none
    CharArray lastPrefix;           // the prefix of lastNamespace
    int lastType;                   // the kind whose type name is held below, 0 for none
    CharArray lastTypeName;         // the full type name of lastType
};

} // namespace Internal
} // namespace KVX

#endif // KVX_TEXT_TEXTWRITER_H
