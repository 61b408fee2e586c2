// The analysis behind `kvxmsg dump`: one pass over the head, the nodes in
// document order and the name table of a frame held by the caller. Every read
// is preceded by a check in the subtraction form (`need <= end - offset`)
// against the end of the enclosing span, the walk keeps an explicit stack of
// open containers instead of recursing, and the first fault ends the listing.
// Single-threaded; the result owns copies of everything it shows.
#include "tools/FrameDump.h"

#include "binary/WireFormat.h"

#include <kvx/KVXDefaultMap.h>

#include <cstdio>
#include <map>

namespace KVX {
namespace Tool {

namespace {

using namespace KVX::Internal;

// Names of the attribute ids of the packet head; the text form shows them.
struct AttributeName {
    int id;
    char const *name;
};
constexpr AttributeName AttributeNames[] = {
    {101, "version"},  {102, "id"},      {103, "priority"},      {104, "time"}, {105, "type"},
    {106, "progress"}, {107, "timeout"}, {108, "timeout_limit"}, {109, "uid"},  {110, "log"},
};

constexpr std::size_t RawBytesShown = 16; // bytes of a value of unknown kind

std::string hex32(std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%02X %02X %02X %02X", value & 0xFF, (value >> 8) & 0xFF,
                  (value >> 16) & 0xFF, value >> 24);
    return text;
}

std::string charArrayText(CharArray const &row) {
    return row.length == 0 || row.data == nullptr ? std::string() : row.str();
}

char const *valueKindName(unsigned kind) {
    switch (kind) {
    case KindUntyped:
        return "Untyped";
    case KindInt:
        return "Int";
    case KindString:
        return "String";
    case KindLongLong:
        return "LongLong";
    case KindDouble:
        return "Double";
    case KindBase64:
        return "Base64";
    case KindTime:
        return "Time";
    case KindStructure:
        return "Structure";
    case KindXML:
        return "XML";
    default:
        return "unknown";
    }
}

class Analyser {
public:
    Analyser(char const *bytes, std::size_t count) : data(bytes), length(count) {
        layout.length = count;
    }

    FrameLayout run() {
        if (!readHead())
            return layout;
        readNameTable();
        if (!walkNodes())
            return layout;
        layout.nameTable = entries;
        if (tableFault.found)
            layout.fault = tableFault;
        return layout;
    }

private:
    bool fail(FrameFault &fault, std::uint64_t offset, std::string reason) {
        if (!fault.found) {
            fault.found = true;
            fault.offset = offset;
            fault.reason = std::move(reason);
        }
        return false;
    }
    bool fail(std::uint64_t offset, std::string reason) {
        return fail(layout.fault, offset, std::move(reason));
    }

    static std::string bytesText(std::uint64_t count) { return std::to_string(count) + " bytes"; }

    bool readHead() {
        if (length < FrameHeadSize)
            return fail(0, "the buffer holds " + bytesText(length) + "; a frame head needs 8");
        DumpHead &head = layout.head;
        head.magic = load32(data);
        if (head.magic != FrameMagic)
            return fail(0, "magic " + hex32(head.magic) + " is not 98 BA DC FE: not a frame");
        head.flags = frameFlags(data);
        head.format = frameFormat(data);
        head.empty = frameIsEmpty(data);
        head.nameTableSize = nameTableSize(data);
        layout.hasHead = true;
        std::uint64_t rootEnd = RootOffset;
        if (!head.empty) {
            if (length - RootOffset < ShortHeaderSize)
                return fail(RootOffset, "the root node's header passes the end of the buffer (" +
                                            bytesText(length) + ")");
            std::uint64_t rootSize =
                nodeSize(load32(data + RootOffset + 8), load16(data + RootOffset + 4), head.format);
            if (rootSize > length - RootOffset)
                return fail(RootOffset, "the root node of node size " + std::to_string(rootSize) +
                                            " passes the end of the buffer (" + bytesText(length) +
                                            ")");
            rootEnd += rootSize;
        }
        head.nameTableOffset = rootEnd;
        head.frameLength = rootEnd + head.nameTableSize;
        if (head.frameLength <= length)
            layout.trailing = length - head.frameLength;
        return true;
    }

    // Reads the table before the nodes so that they can be named by it; a fault
    // here is reported after the nodes, where the table stands in the frame.
    void readNameTable() {
        DumpHead const &head = layout.head;
        std::uint64_t offset = head.nameTableOffset;
        std::uint64_t end = head.frameLength;
        if (end > length) {
            fail(tableFault, offset,
                 "the name table of " + bytesText(head.nameTableSize) +
                     " passes the end of the buffer (" + bytesText(length) + ")");
            end = length;
        }
        while (offset < end) {
            if (end - offset < ShortHeaderSize) {
                fail(tableFault, offset,
                     "a name table entry's header passes the table's end at " +
                         std::to_string(end));
                return;
            }
            DumpEntry entry;
            entry.offset = offset;
            entry.id = loadInt32(data + offset);
            entry.tableKind = loadInt32(data + offset + 4);
            entry.size = load32(data + offset + 8);
            if (entry.size == 0) {
                fail(tableFault, offset, "a name table entry of size 0");
                return;
            }
            if (entry.tableKind < TableElement || entry.tableKind > TableType) {
                fail(tableFault, offset,
                     "name table kind " + std::to_string(entry.tableKind) + " is not 0, 1 or 2");
                return;
            }
            entry.nodeSize =
                nodeSize(entry.size, static_cast<unsigned>(entry.tableKind), head.format);
            std::uint32_t header = headerSize(entry.size, static_cast<unsigned>(entry.tableKind));
            if (entry.nodeSize > end - offset ||
                header + std::uint64_t(entry.size) > entry.nodeSize) {
                fail(tableFault, offset,
                     "a name table entry of node size " + std::to_string(entry.nodeSize) +
                         " passes the table's end at " + std::to_string(end));
                return;
            }
            entry.name.assign(data + offset + header, entry.size - 1);
            // As the library reads the table: the first entry of an id wins.
            auto &names = entry.tableKind == TableType ? typeNames : elementNames;
            names.emplace(entry.id, entry.name);
            entries.push_back(entry);
            offset += entry.nodeSize;
        }
    }

    std::string elementName(int id) const {
        for (AttributeName const &attribute : AttributeNames)
            if (attribute.id == id)
                return attribute.name;
        auto found = elementNames.find(id);
        if (found != elementNames.end())
            return found->second;
        return id > LastAttributeId ? charArrayText(KVXDefaultMap::findElemID(id)) : std::string();
    }
    std::string namespaceUri(unsigned ns) const {
        auto found = elementNames.find(static_cast<int>(ns));
        if (found != elementNames.end())
            return found->second;
        return charArrayText(KVXDefaultMap::findNSID(static_cast<int>(ns)));
    }
    std::string kindName(unsigned kind) const {
        if (kind <= LastValueKind)
            return valueKindName(kind);
        auto found = typeNames.find(static_cast<int>(kind));
        std::string type = found != typeNames.end()
                               ? found->second
                               : charArrayText(KVXDefaultMap::findTypeID(static_cast<int>(kind)));
        return type.empty() ? std::string("type ?") : "type " + type;
    }

    void readValue(DumpNode &node, char const *value) const {
        std::uint32_t size = node.size;
        switch (node.kind) {
        case KindUntyped:
        case KindString:
        case KindTime:
        case KindXML: {
            if (size == 0)
                return;
            node.form = ValueForm::Text;
            std::size_t used = 0;
            while (used < size && value[used] != '\0')
                ++used;
            node.terminated = used < size;
            node.text.assign(value, used);
            return;
        }
        case KindInt:
        case KindLongLong:
        case KindDouble: {
            std::uint32_t expected = node.kind == KindInt ? 4 : 8;
            if (size != expected) {
                node.form = ValueForm::Bad;
                node.text =
                    "size " + std::to_string(size) + ", the kind takes " + std::to_string(expected);
            } else if (node.kind == KindDouble) {
                node.form = ValueForm::Real;
                node.real = loadDouble(value);
            } else {
                node.form = ValueForm::Integer;
                node.integer = node.kind == KindInt ? loadInt32(value) : loadInt64(value);
            }
            return;
        }
        case KindBase64:
            if (size == 0) {
                node.form = ValueForm::Bad;
                node.text = "size 0, the kind has at least its closing NUL";
                return;
            }
            node.form = ValueForm::Octets;
            node.text.assign(value, size - 1);
            node.terminated = value[size - 1] == '\0';
            return;
        default:
            node.form = size == 0 ? ValueForm::None : ValueForm::Unknown;
            node.text.assign(value, size < RawBytesShown ? size : RawBytesShown);
            return;
        }
    }

    bool walkNodes() {
        if (layout.head.empty)
            return true;
        struct Open {
            std::uint64_t end;
            std::size_t index;
        };
        std::vector<Open> open;
        std::uint64_t const rootEnd = layout.head.nameTableOffset;
        unsigned const format = layout.head.format;
        std::uint64_t offset = RootOffset;
        for (;;) {
            while (!open.empty() && offset == open.back().end)
                open.pop_back();
            if (open.empty() && offset >= rootEnd)
                return true;
            std::uint64_t end = open.empty() ? rootEnd : open.back().end;
            if (end - offset < ShortHeaderSize)
                return fail(offset,
                            "a node header passes its parent's end at " + std::to_string(end));
            DumpNode node;
            node.offset = offset;
            node.depth = static_cast<unsigned>(open.size());
            node.id = loadInt32(data + offset);
            node.kind = load16(data + offset + 4);
            node.ns = load16(data + offset + 6);
            node.size = load32(data + offset + 8);
            node.nodeSize = nodeSize(node.size, node.kind, format);
            std::uint32_t header = headerSize(node.size, node.kind);
            if (node.nodeSize > end - offset)
                return fail(offset, "node size " + std::to_string(node.nodeSize) +
                                        " passes the parent's end at " + std::to_string(end));
            if (header + std::uint64_t(node.size) > node.nodeSize)
                return fail(offset, "the value of size " + std::to_string(node.size) +
                                        " passes the node's end");
            node.attribute = static_cast<unsigned>(node.id) - 1u < unsigned(LastAttributeId);
            node.name = elementName(node.id);
            node.kindName = kindName(node.kind);
            if (node.ns != 0)
                node.namespaceUri = namespaceUri(node.ns);
            bool container = isContainerKind(node.kind);
            if (container)
                node.form = ValueForm::Children;
            else
                readValue(node, data + offset + header);
            if (!open.empty())
                ++layout.nodes[open.back().index].children;
            layout.nodes.push_back(std::move(node));
            if (container) {
                open.push_back({offset + layout.nodes.back().nodeSize, layout.nodes.size() - 1});
                offset += header;
            } else {
                offset += layout.nodes.back().nodeSize;
            }
        }
    }

    char const *data;
    std::uint64_t length;
    FrameLayout layout;
    std::vector<DumpEntry> entries;
    FrameFault tableFault;
    std::map<int, std::string> elementNames; // element and namespace ids share one map
    std::map<int, std::string> typeNames;
};

} // namespace

FrameLayout analyseFrame(char const *data, std::size_t length) {
    return Analyser(data, length).run();
}

} // namespace Tool
} // namespace KVX
