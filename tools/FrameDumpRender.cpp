// The two renderings of a frame layout for `kvxmsg dump`: aligned tables for a
// person and one JSON object for a program. Values are escaped so that any
// bytes of a damaged or hostile frame print as valid text (UTF-8 sequences are
// kept, other bytes escaped). Pure functions of the layout; single-threaded.
#include "tools/FrameDump.h"

#include <kvx/KVXCommon.h>

#include <algorithm>
#include <cstdio>

namespace KVX {
namespace Tool {

namespace {

constexpr std::size_t TextShown = 48;      // characters of a value shown in the table
constexpr unsigned IndentLevelsShown = 32; // deeper names are not indented further

// Length of the valid UTF-8 sequence of two to four bytes at `text`, or 0.
std::size_t utf8Sequence(std::string const &text, std::size_t at) {
    unsigned char lead = static_cast<unsigned char>(text[at]);
    std::size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
    if (lead >= 0xF5 || length == 0 || length > text.size() - at)
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80)
            return 0;
    return length;
}

std::string hexByte(unsigned char byte, char const *format) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, format, byte);
    return buffer;
}

// `text` between double quotes with the escapes of C and JSON, a byte that is
// no character in `byteFormat`, and at most `limit` characters before "...".
std::string escapedText(std::string const &text, std::size_t limit, char const *byteFormat) {
    std::string out = "\"";
    for (std::size_t i = 0, shown = 0; i < text.size(); ++shown) {
        if (shown == limit)
            return out + "\"...";
        unsigned char c = static_cast<unsigned char>(text[i]);
        std::size_t sequence = c >= 0x80 ? utf8Sequence(text, i) : 0;
        if (sequence != 0) {
            out.append(text, i, sequence);
            i += sequence;
            continue;
        }
        ++i;
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            out += c >= 0x20 && c < 0x7F ? std::string(1, char(c)) : hexByte(c, byteFormat);
        }
    }
    return out + "\"";
}

// `text` between double quotes, C-style escapes, at most `limit` characters.
std::string quoted(std::string const &text, std::size_t limit) {
    return escapedText(text, limit, "\\x%02X");
}

// A JSON string; a byte that is no character is shown as the code point of its value.
std::string jsonString(std::string const &text) {
    return escapedText(text, std::string::npos, "\\u%04X");
}

std::string rawHex(std::string const &bytes) {
    std::string out;
    for (unsigned char c : bytes)
        out += (out.empty() ? "" : " ") + hexByte(c, "%02X");
    return out;
}

std::string hexWord(std::uint32_t value) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%08X", value);
    return buffer;
}

char const *tableKindName(int kind) {
    return kind == 0 ? "element" : kind == 1 ? "namespace" : "type";
}

std::string displayName(DumpNode const &node) {
    if (node.id == 0)
        return "(no id)";
    if (node.name.empty())
        return node.attribute ? "@?" : "?";
    return node.attribute ? "@" + node.name : node.name;
}

std::string valueText(DumpNode const &node) {
    switch (node.form) {
    case ValueForm::None:
        return std::string();
    case ValueForm::Text:
        return quoted(node.text, TextShown) + (node.terminated ? "" : " (no NUL)");
    case ValueForm::Integer:
        return std::to_string(node.integer);
    case ValueForm::Real:
        return doubleToStr(node.real);
    case ValueForm::Octets:
        return std::to_string(node.text.size()) + " octets " +
               quoted(Base64::encode(node.text.data(), static_cast<int>(node.text.size())),
                      TextShown) +
               (node.terminated ? "" : " (no closing NUL)");
    case ValueForm::Children:
        return std::to_string(node.children) + (node.children == 1 ? " child" : " children");
    case ValueForm::Unknown:
        return "raw " + rawHex(node.text);
    case ValueForm::Bad:
        return "(" + node.text + ")";
    }
    return std::string();
}

// Rows of cells printed as columns; `right` marks the right-aligned ones.
class Table {
public:
    Table(std::vector<std::string> header, std::vector<bool> rightAligned)
        : right(std::move(rightAligned)) {
        rows.push_back(std::move(header));
    }
    void add(std::vector<std::string> row) { rows.push_back(std::move(row)); }

    std::string render() const {
        std::vector<std::size_t> width(right.size(), 0);
        for (auto const &row : rows)
            for (std::size_t i = 0; i < row.size(); ++i)
                width[i] = std::max(width[i], row[i].size());
        std::string out;
        for (auto const &row : rows) {
            std::string line = " ";
            for (std::size_t i = 0; i < row.size(); ++i) {
                std::string pad(width[i] - row[i].size(), ' ');
                line += " " + (right[i] ? pad + row[i] : row[i] + pad);
            }
            line.erase(line.find_last_not_of(' ') + 1);
            out += line + "\n";
        }
        return out;
    }

private:
    std::vector<bool> right;
    std::vector<std::vector<std::string>> rows;
};

} // namespace

std::string renderLayoutText(FrameLayout const &layout) {
    std::string out = "frame: " + std::to_string(layout.length) + " bytes\n";
    if (layout.hasHead) {
        DumpHead const &head = layout.head;
        out += "head\n";
        out += "  magic       98 BA DC FE\n";
        out += "  flags       " + hexWord(head.flags) + "\n";
        out += "  format      " + std::to_string(head.format) +
               (head.format == 2 ? "" : " (legacy node sizes)") + "\n";
        out += std::string("  empty       ") + (head.empty ? "yes" : "no") + "\n";
        out += "  name table  " + std::to_string(head.nameTableSize) + " bytes at offset " +
               std::to_string(head.nameTableOffset) + "\n";
    }
    if (!layout.nodes.empty()) {
        // The namespace URI column is left out when no node has a namespace.
        bool namespaces = std::any_of(layout.nodes.begin(), layout.nodes.end(),
                                      [](DumpNode const &node) { return node.ns != 0; });
        std::vector<std::string> header = {"offset", "depth", "id",   "name", "kind",
                                           "ns",     "size",  "node", "value"};
        std::vector<bool> right = {true, true, true, false, false, true, true, true, false};
        if (namespaces) {
            header.push_back("namespace");
            right.push_back(false);
        }
        Table nodes(header, right);
        for (DumpNode const &node : layout.nodes) {
            std::string indent(2 * std::min(node.depth, IndentLevelsShown), ' ');
            std::vector<std::string> row = {std::to_string(node.offset),
                                            std::to_string(node.depth),
                                            std::to_string(node.id),
                                            indent + displayName(node),
                                            std::to_string(node.kind) + " " + node.kindName,
                                            std::to_string(node.ns),
                                            std::to_string(node.size),
                                            std::to_string(node.nodeSize),
                                            valueText(node)};
            if (namespaces)
                row.push_back(node.ns == 0                ? std::string()
                              : node.namespaceUri.empty() ? std::string("?")
                                                          : node.namespaceUri);
            nodes.add(row);
        }
        out += "nodes\n" + nodes.render();
    }
    if (!layout.nameTable.empty()) {
        Table entries({"offset", "id", "kind", "size", "node", "name"},
                      {true, true, false, true, true, false});
        for (DumpEntry const &entry : layout.nameTable)
            entries.add({std::to_string(entry.offset), std::to_string(entry.id),
                         tableKindName(entry.tableKind), std::to_string(entry.size),
                         std::to_string(entry.nodeSize), quoted(entry.name, std::string::npos)});
        out += "name table\n" + entries.render();
    }
    if (layout.trailing != 0)
        out += "trailing: " + std::to_string(layout.trailing) + " bytes behind the frame\n";
    if (layout.fault.found)
        out += "fault at offset " + std::to_string(layout.fault.offset) + ": " +
               layout.fault.reason + "\n";
    return out;
}

std::string renderLayoutJson(FrameLayout const &layout) {
    auto field = [](char const *key, std::string const &value) {
        return std::string("\"") + key + "\": " + value;
    };
    auto number = [](auto value) { return std::to_string(value); };
    std::string out = "{\n  " + field("length", number(layout.length)) + ",\n  ";
    if (layout.hasHead) {
        DumpHead const &head = layout.head;
        out += field("head", "{" + field("magic", jsonString(hexWord(head.magic))) + ", " +
                                 field("flags", jsonString(hexWord(head.flags))) + ", " +
                                 field("format", number(head.format)) + ", " +
                                 field("empty", head.empty ? "true" : "false") + ", " +
                                 field("nameTableSize", number(head.nameTableSize)) + ", " +
                                 field("nameTableOffset", number(head.nameTableOffset)) + ", " +
                                 field("frameLength", number(head.frameLength)) + "}");
    } else {
        out += field("head", "null");
    }
    out += ",\n  \"nodes\": [";
    for (std::size_t i = 0; i < layout.nodes.size(); ++i) {
        DumpNode const &node = layout.nodes[i];
        std::string value;
        switch (node.form) {
        case ValueForm::None:
            value = field("value", "null");
            break;
        case ValueForm::Text:
            value = field("value", jsonString(node.text)) + ", " +
                    field("terminated", node.terminated ? "true" : "false");
            break;
        case ValueForm::Integer:
            value = field("value", number(node.integer));
            break;
        case ValueForm::Real: {
            std::string text = doubleToStr(node.real);
            bool finite = text.find_first_not_of("0123456789.-+eE") == std::string::npos;
            value = field("value", finite ? text : jsonString(text));
            break;
        }
        case ValueForm::Octets:
            value = field("value", jsonString(Base64::encode(node.text.data(),
                                                             static_cast<int>(node.text.size())))) +
                    ", " + field("octets", number(node.text.size())) + ", " +
                    field("terminated", node.terminated ? "true" : "false");
            break;
        case ValueForm::Children:
            value = field("children", number(node.children));
            break;
        case ValueForm::Unknown:
            value = field("raw", jsonString(rawHex(node.text)));
            break;
        case ValueForm::Bad:
            value = field("error", jsonString(node.text));
            break;
        }
        out += std::string(i == 0 ? "\n" : ",\n") + "    {" + field("offset", number(node.offset)) +
               ", " + field("depth", number(node.depth)) + ", " + field("id", number(node.id)) +
               ", " + field("name", jsonString(node.name)) + ", " +
               field("attribute", node.attribute ? "true" : "false") + ", " +
               field("kind", number(node.kind)) + ", " +
               field("kindName", jsonString(node.kindName)) + ", " + field("ns", number(node.ns)) +
               ", " + field("namespace", jsonString(node.namespaceUri)) + ", " +
               field("size", number(node.size)) + ", " + field("nodeSize", number(node.nodeSize)) +
               ", " + value + "}";
    }
    out += layout.nodes.empty() ? "],\n  \"nameTable\": [" : "\n  ],\n  \"nameTable\": [";
    for (std::size_t i = 0; i < layout.nameTable.size(); ++i) {
        DumpEntry const &entry = layout.nameTable[i];
        out +=
            std::string(i == 0 ? "\n" : ",\n") + "    {" + field("offset", number(entry.offset)) +
            ", " + field("id", number(entry.id)) + ", " + field("kind", number(entry.tableKind)) +
            ", " + field("kindName", jsonString(tableKindName(entry.tableKind))) + ", " +
            field("size", number(entry.size)) + ", " + field("nodeSize", number(entry.nodeSize)) +
            ", " + field("name", jsonString(entry.name)) + "}";
    }
    out += layout.nameTable.empty() ? "],\n  " : "\n  ],\n  ";
    out += field("trailing", number(layout.trailing)) + ",\n  ";
    if (layout.fault.found)
        out += field("fault", "{" + field("offset", number(layout.fault.offset)) + ", " +
                                  field("reason", jsonString(layout.fault.reason)) + "}");
    else
        out += field("fault", "null");
    return out + "\n}\n";
}

} // namespace Tool
} // namespace KVX
