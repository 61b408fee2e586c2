// The XML writer: one pass over the nodes of a frame, appending to one string
// and inserting attributes into their element's start tag. It reads the frame
// and the document's id map only, and owns nothing but the text it builds. One
// thread at a time per document, since a name lookup may load the name table.
#include "text/TextWriter.h"

#include "binary/KVXBinaryInternals.h"
#include "text/TextLimits.h"
#include "vocabulary/VocabularyConstants.h"

#include <kvx/KVXCommon.h>

#include <algorithm>
#include <cstring>

namespace KVX {
namespace Internal {

namespace {

std::map<int, CharArray> makeAttributeNames() {
    std::map<int, CharArray> names;
    for (AttributeRow const &row : AttributeRows)
        names.emplace(row.id, row.name);
    return names;
}

// The first `width` bytes of a value, zero-filled where the node has fewer: a
// number kind with a short `size` in a damaged frame must not read past its node.
void readValue(char *into, std::size_t width, char const *value, std::uint64_t available) {
    std::memset(into, 0, width);
    std::memcpy(into, value, static_cast<std::size_t>(std::min<std::uint64_t>(width, available)));
}

// Where an attribute's next piece of text goes: behind everything inserted
// since its own text began, which is all at `at` since an attribute has no
// children.
std::size_t attributePosition(std::string const &out, std::size_t at, std::size_t noted) {
    return std::min(at + (out.size() - noted), out.size());
}

} // namespace

std::map<int, CharArray> const TextWriter::AttributeNames = makeAttributeNames();

TextWriter::TextWriter(KVXBinaryInternals &document) : doc(document) {}

std::string TextWriter::escape(char const *text) {
    std::string out;
    appendEscaped(out, text, text != nullptr ? std::strlen(text) : 0);
    return out;
}

void TextWriter::appendEscaped(std::string &out, char const *text, std::size_t length) {
    for (std::size_t i = 0; i < length && text[i] != '\0'; ++i) {
        switch (text[i]) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        default:
            out += text[i];
        }
    }
}

std::string const &TextWriter::prefixOf(Prefixes &prefixes, CharArray const &uri) {
    Prefixes::iterator found = prefixes.find(uri);
    if (found != prefixes.end())
        return found->second;
    // Numbered in order of first use: the map's size before the new entry, plus 1.
    std::string prefix = "ns" + intToStr(static_cast<int>(prefixes.size()) + 1);
    return prefixes.emplace(uri, prefix).first->second;
}

int TextWriter::write(std::string &out, std::uint32_t &offset, std::size_t insertAt,
                      Prefixes *prefixes, std::string const &defaultPrefix) {
    if (doc.buffer == nullptr || doc.used < 0)
        return -1;
    binary::Node top = doc.node(offset);
    if (!top.fits())
        return -1;
    std::uint64_t topEnd = offset + top.nodeSize();

    // An explicit stack of open containers instead of recursion: a frame from
    // outside may nest as deep as its length allows.
    std::vector<Open> open;
    if (begin(out, offset, static_cast<std::uint64_t>(doc.used), insertAt, prefixes, defaultPrefix,
              open) != 0)
        return -1;
    while (!open.empty()) {
        if (out.size() > MaxTextLength)
            return -1;
        Open &current = open.back();
        if (current.next < current.end) {
            std::uint32_t child = current.next;
            binary::Node node = doc.node(child);
            if (!node.fits())
                return -1;
            std::uint64_t childEnd = child + node.nodeSize();
            if (childEnd > current.end)
                return -1; // the child passes its parent's end
            current.next = static_cast<std::uint32_t>(childEnd);
            std::size_t childInsertAt = current.childInsertAt;
            if (begin(out, child, current.end, childInsertAt, prefixes, std::string(), open) != 0)
                return -1;
            continue;
        }
        out += current.closeTag;
        open.pop_back();
    }
    if (out.size() > MaxTextLength)
        return -1;
    offset = static_cast<std::uint32_t>(topEnd);
    return 0;
}

int TextWriter::begin(std::string &out, std::uint32_t offset, std::uint64_t limit,
                      std::size_t insertAt, Prefixes *prefixes, std::string const &defaultPrefix,
                      std::vector<Open> &open) {
    if (open.size() >= MaxTextDepth)
        return -1;
    // Every node must lie above the head, inside its parent and inside the used
    // bytes before anything of it is read.
    if (offset == 0)
        return -1;
    binary::Node node = doc.node(offset);
    if (!node.fits())
        return -1;
    std::uint64_t end = offset + node.nodeSize();
    if (end > limit || end > static_cast<std::uint64_t>(doc.used))
        return -1;
    int id = node.id();
    unsigned kind = node.kind();
    unsigned ns = node.ns();
    std::uint32_t size = node.size();
    bool container = isContainerKind(kind);
    std::uint64_t valueOffset = node.valueOffset();
    if (!container && valueOffset + size > end)
        return -1;
    char const *value = doc.buffer + std::min<std::uint64_t>(valueOffset, end);

    // Ids 0 to 200, as an unsigned comparison, are attributes: dynamic element
    // ids are negative and go to the id map.
    bool attributeId = static_cast<unsigned>(id) <= static_cast<unsigned>(LastAttributeId);
    CharArray name;
    if (attributeId) {
        std::map<int, CharArray>::const_iterator row = AttributeNames.find(id);
        if (row == AttributeNames.end())
            return -1;
        name = row->second;
    } else {
        name = doc.ids.lookupName(id);
    }

    // A type's full name is "URI:local" or a bare local name; the URI may hold
    // colons of its own, so the last one separates.
    CharArray typeName;
    CharArray typeUri;
    CharArray typeLocal;
    bool typeHasUri = false;
    if (kind > LastValueKind) {
        typeName = doc.ids.lookupTypeName(static_cast<int>(kind));
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

    // The element's namespace gets its prefix before the type's namespace does.
    std::string elementPrefix;
    std::string typePrefix;
    if (prefixes != nullptr) {
        if (ns != 0) {
            CharArray uri = doc.ids.lookupName(static_cast<int>(ns));
            if (!uri.empty())
                elementPrefix = prefixOf(*prefixes, uri);
        }
        if (!typeName.empty())
            typePrefix = typeHasUri ? prefixOf(*prefixes, typeUri) : elementPrefix;
    }

    bool xml = kind == KindXML;
    bool attribute = !xml && attributeId;
    std::size_t at = std::min(insertAt, out.size());
    std::size_t noted = out.size();
    std::size_t tagEnd = 0;
    std::string shownPrefix;
    if (attribute) {
        std::string head = " ";
        head.append(name.data, static_cast<std::size_t>(name.length));
        head += "=\"";
        out.insert(at, head);
    } else if (!xml) {
        if (prefixes != nullptr)
            shownPrefix = !elementPrefix.empty() ? elementPrefix : defaultPrefix;
        out += '<';
        if (!shownPrefix.empty()) {
            out += shownPrefix;
            out += ':';
        }
        out.append(name.data, static_cast<std::size_t>(name.length));
        if (prefixes != nullptr && !typeName.empty()) {
            out += " xsi:type=\"";
            if (!typePrefix.empty()) {
                out += typePrefix;
                out += ':';
            }
            out.append(typeLocal.data, static_cast<std::size_t>(typeLocal.length));
            out += '"';
        }
        out += '>';
        tagEnd = out.size() - 1;
    }

    // Attribute text goes into the parent's start tag, everything else to the end.
    std::string text;
    if (size != 0) {
        if (container) {
            // An attribute has no start tag to hold children: such a node comes
            // only from a damaged frame or a misused cursor, and is refused.
            if (attribute)
                return -1;
            out += '\n';
            Open next{};
            next.next = static_cast<std::uint32_t>(std::min<std::uint64_t>(valueOffset, end));
            next.end = end;
            next.childInsertAt = tagEnd;
            next.closeTag = "</";
            if (!shownPrefix.empty())
                next.closeTag += shownPrefix + ":";
            next.closeTag.append(name.data, static_cast<std::size_t>(name.length));
            next.closeTag += ">\n";
            open.push_back(next);
            return 0;
        }
        std::uint64_t available = end - valueOffset;
        char number[8];
        switch (kind) {
        case KindUntyped:
        case KindString:
            appendEscaped(text, value, size);
            break;
        case KindInt:
            readValue(number, 4, value, available);
            text = intToStr(loadInt32(number));
            break;
        case KindLongLong:
            readValue(number, 8, value, available);
            text = longlongToStr(loadInt64(number));
            break;
        case KindDouble:
            readValue(number, 8, value, available);
            text = doubleToStr(loadDouble(number));
            break;
        case KindBase64:
            // The last byte is the counted NUL behind the octets.
            text = Base64::encode(value, static_cast<int>(size - 1));
            break;
        case KindTime:
            text.assign(value, strnlen(value, size));
            break;
        case KindXML:
            out.append(value, strnlen(value, size));
            out += '\n';
            break;
        default:
            break;
        }
        if (attribute)
            out.insert(attributePosition(out, at, noted), text);
        else
            out += text;
    }

    if (xml)
        return 0;
    if (attribute) {
        out.insert(attributePosition(out, at, noted), 1, '"');
    } else if (size == 0) {
        out[tagEnd] = '/';
        out += ">\n";
    } else {
        out += "</";
        if (!shownPrefix.empty()) {
            out += shownPrefix;
            out += ':';
        }
        out.append(name.data, static_cast<std::size_t>(name.length));
        out += ">\n";
    }
    return 0;
}

} // namespace Internal
} // namespace KVX
