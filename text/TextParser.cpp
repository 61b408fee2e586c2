// The XML reader: one forward pass over a NUL-terminated text that builds nodes
// through the document's node operations. Open elements live on an explicit
// stack, bounded by MaxTextDepth, so hostile nesting cannot exhaust the machine
// stack. One parse at a time per document.
#include "text/TextParser.h"

#include "binary/KVXBinaryInternals.h"
#include "text/Entities.h"
#include "text/TextLimits.h"
#include "text/TextWriter.h"
#include "vocabulary/VocabularyConstants.h"
#include "vocabulary/VocabularyTrie.h"

#include <kvx/KVXBinary.h>

#include <climits>
#include <cstring>

namespace KVX {
namespace Internal {

namespace {

std::map<CharArray, int> makeAttributeIds() {
    std::map<CharArray, int> ids;
    for (AttributeRow const &row : AttributeRows)
        ids.emplace(row.name, row.id);
    return ids;
}

// Blank, tab, line feed and carriage return; nothing else counts.
bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

void skipSpace(char const *&text) {
    while (isSpace(*text))
        ++text;
}

// True when `text` starts with "</name>". strncmp stops at the text's NUL, so
// nothing behind the end of the input is read.
bool atEndTag(char const *text, CharArray const &name) {
    std::size_t length = static_cast<std::size_t>(name.length);
    return text[0] == '<' && text[1] == '/' && std::strncmp(text + 2, name.data, length) == 0 &&
           text[2 + length] == '>';
}

char const *findChar(CharArray const &view, char c) {
    return static_cast<char const *>(
        std::memchr(view.data, c, static_cast<std::size_t>(view.length)));
}

} // namespace

std::map<CharArray, int> const TextParser::AttributeIds = makeAttributeIds();

TextParser::TextParser(KVXBinary &message) : doc(*message.internals), policy(message.policy) {}

int TextParser::parse(char const *&text, BinaryPath &path) {
    std::vector<Open> open;
    for (;;) {
        Open element{};
        Outcome outcome =
            enter(text, path, !open.empty() && open.back().skipping, open.size() + 1, element);
        if (outcome == Failed)
            return -1;
        if (outcome == Opened) {
            open.push_back(element);
        } else {
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
            if (atEndTag(text, current.name)) {
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
            break;
        }
    }
}

TextParser::Outcome TextParser::enter(char const *&text, BinaryPath &path, bool skipping,
                                      std::size_t depth, Open &open) {
    char const *start = text;
    std::size_t mark = undo.size();
    if (!skipping && !path.entries.empty()) {
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
    while (*text != '\0' && *text != '>' && *text != '/' && !isSpace(*text))
        ++text;
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
        int id = ids.lookupId(name);
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
        } else if (appendNode(path, id, KindUntyped, nullptr, 0, false) != 0) {
            return Failed;
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
                std::map<CharArray, int>::const_iterator row = AttributeIds.find(attribute);
                if (row != AttributeIds.end()) {
                    role = Known;
                    attributeId = row->second;
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
                path.entries.pop_back();
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
        if (atEndTag(text, name)) {
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
            while (!(*end == '<' && atEndTag(end, name))) {
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
                path.entries.pop_back();
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
        path.entries.pop_back();
    undoTo(mark);
    if (!unknownTop)
        return Finished;
    // The fragment of an unknown empty element runs to the end of the input.
    return addFragment(path, start, std::strlen(start)) == 0 ? Finished : Failed;
}

int TextParser::close(char const *&text, BinaryPath &path, Open const &open) {
    if (open.pushed && !path.namespaces.empty())
        path.namespaces.pop_back();
    if (!open.skipping && !path.entries.empty())
        path.entries.pop_back();
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
    std::size_t length = static_cast<std::size_t>(value.length);
    if (!fitsTextLimit(static_cast<std::uint64_t>(doc.used), length + 64))
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
    KVXProtocolIDMap &ids = doc.ids;
    int allotted = ids.nextId;
    if (ids.nextId > INT_MIN)
        --ids.nextId;
    int id = ids.addEntry(NameRef(name.data, name.length), allotted, TableElement);
    if (id != 0)
        trieInsert(&ids.aliases, name.data, name.length, id);
    return id;
}

int TextParser::appendNode(BinaryPath &path, int id, unsigned short kind, char const *value,
                           std::size_t length, bool terminate) {
    // Room for the value, its NUL, a long header, padding and a name table
    // entry of a name up to MaxNameLength: a frame never passes MaxTextLength.
    if (!fitsTextLimit(static_cast<std::uint64_t>(doc.used), length + MaxNameLength + 64))
        return -1;
    return doc.append(path, id, kind, value, static_cast<std::uint32_t>(length), terminate);
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

void TextParser::undoTo(std::size_t mark) {
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
