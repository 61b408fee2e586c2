// get and set: one value of a packet by path, through a cursor's typed getters
// and setters (--as chooses the family). set writes the packet back in the form
// it came in, frame or XML text. The commands own the message and its cursor;
// single-threaded.
#include "tools/Commands.h"

#include <kvx/KVXCommon.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <memory>

namespace KVX {
namespace Tool {

namespace {

enum class ValueType { Int, String, LongLong, Double, Base64, Time };

std::map<std::string, ValueType> const ValueTypes = {
    {"int", ValueType::Int},       {"string", ValueType::String}, {"longlong", ValueType::LongLong},
    {"double", ValueType::Double}, {"base64", ValueType::Base64}, {"time", ValueType::Time},
};

struct ValueOptions {
    InputOutput io;
    std::string path;
    std::string value;
    ValueType type = ValueType::String;
};

typedef std::unique_ptr<KVXMessageIterator> CursorPtr;

std::string failure(char const *call, int result, std::string const &what) {
    return std::string(call) + " failed (" + std::to_string(result) + "): " + what;
}

// Attributes of an element, reached with "@name" as the last path segment;
// the cursor's paths have no attribute step, so these go by their ids.
std::map<std::string, int> const AttributeIds = {
    {"version", 101},  {"id", 102},      {"priority", 103},      {"time", 104}, {"type", 105},
    {"progress", 106}, {"timeout", 107}, {"timeout_limit", 108}, {"uid", 109},  {"log", 110},
};

// Where a value is: a path for the cursor's path forms, or the element above
// and an attribute id for the id forms.
struct Target {
    std::string parent;
    std::string leaf;
    int attribute = 0;
};

Target splitPath(std::string const &path) {
    Target target;
    std::size_t slash = path.rfind('/');
    target.leaf = slash == std::string::npos ? path : path.substr(slash + 1);
    target.parent = slash == std::string::npos ? std::string() : path.substr(0, slash);
    if (target.leaf.empty() || slash == 0)
        throw CommandFailure("path '" + path + "' names no element below the root");
    if (target.leaf[0] == '@') {
        auto found = AttributeIds.find(target.leaf.substr(1));
        if (found == AttributeIds.end())
            throw CommandFailure("'" + target.leaf + "' is none of the ten attributes");
        target.attribute = found->second;
    }
    return target;
}

// Moves the cursor to the element above the value.
void seekParent(KVXMessageIterator &cursor, Target const &target) {
    if (target.parent.empty())
        return;
    int found = cursor.seek(target.parent);
    if (found != 0)
        throw CommandFailure(failure("seek", found, "no element at " + target.parent));
}

// The value at `where` (a path, or an id of the current node's children) as text.
template <typename Where>
std::string readValue(KVXMessageIterator const &cursor, ValueType type, Where const &where,
                      std::string const &path) {
    std::string const missing = "no such value at " + path;
    std::string text;
    int result = 0;
    switch (type) {
    case ValueType::Int: {
        int value = 0;
        if ((result = cursor.getValue(value, where)) != 0)
            throw CommandFailure(failure("getValue", result, missing + " as int"));
        return intToStr(value);
    }
    case ValueType::String:
        if ((result = cursor.getValue(text, where)) != 0)
            throw CommandFailure(failure("getValue", result, missing + " as string"));
        return text;
    case ValueType::LongLong: {
        __int64 value = 0;
        if ((result = cursor.getValueLongLong(value, where)) != 0)
            throw CommandFailure(failure("getValueLongLong", result, missing + " as longlong"));
        return longlongToStr(value);
    }
    case ValueType::Double: {
        double value = 0;
        if ((result = cursor.getValueDouble(value, where)) != 0)
            throw CommandFailure(failure("getValueDouble", result, missing + " as double"));
        return doubleToStr(value);
    }
    case ValueType::Base64: {
        if ((result = cursor.getValueBase64(text, where)) != 0)
            throw CommandFailure(failure("getValueBase64", result, missing + " as base64"));
        return Base64::encode(text.data(), static_cast<int>(text.size()));
    }
    case ValueType::Time: {
        __int64 time = 0;
        int zone = 0;
        if ((result = cursor.getValueTimeZone(time, zone, where)) != 0)
            throw CommandFailure(failure("getValueTimeZone", result, missing + " as time"));
        return zone != 0 ? time2strZone(time, zone) : time2str(time);
    }
    }
    return text;
}

void get(ValueOptions const &options) {
    MessagePtr message = loadPacket(readInput(options.io.input));
    CursorPtr cursor(message->newIterator());
    std::string text;
    if (!options.path.empty() && options.path.back() != '/' &&
        options.path.find('@') == std::string::npos) {
        text = readValue(*cursor, options.type, options.path, options.path);
    } else {
        Target target = splitPath(options.path);
        if (target.attribute == 0)
            throw CommandFailure("path '" + options.path + "' names no element below the root");
        seekParent(*cursor, target);
        text = readValue(*cursor, options.type, target.attribute, options.path);
    }
    writeOutput(options.io.output, text + "\n");
}

// Whole-text number parsing: trailing characters or overflow are refused.
template <typename Number, typename Parse>
Number parseNumber(std::string const &text, char const *type, Parse parse) {
    char *end = nullptr;
    errno = 0;
    auto value = parse(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || errno == ERANGE ||
        static_cast<decltype(value)>(static_cast<Number>(value)) != value)
        throw CommandFailure("value '" + text + "' is not a " + type);
    return static_cast<Number>(value);
}

// Writes the value at `where`: the name of a child of the node the cursor
// stands on, or an attribute id.
template <typename Where>
int put(KVXMessageIterator &cursor, ValueOptions const &options, Where const &leaf) {
    std::string const &text = options.value;
    switch (options.type) {
    case ValueType::Int:
        return cursor.putValue(
            parseNumber<int>(text, "32-bit int",
                             [](char const *s, char **e) { return std::strtol(s, e, 10); }),
            leaf);
    case ValueType::String:
        return cursor.putValue(text, leaf);
    case ValueType::LongLong:
        return cursor.putValueLongLong(
            parseNumber<__int64>(text, "64-bit int",
                                 [](char const *s, char **e) { return std::strtoll(s, e, 10); }),
            leaf);
    case ValueType::Double:
        return cursor.putValueDouble(
            parseNumber<double>(text, "double",
                                [](char const *s, char **e) { return std::strtod(s, e); }),
            leaf);
    case ValueType::Base64: {
        std::string octets;
        int decoded = Base64::decode(text.data(), static_cast<int>(text.size()), &octets);
        if (decoded != 0)
            throw CommandFailure("Base64::decode failed (" + std::to_string(decoded) +
                                 "): value is not Base64 text");
        return cursor.putValueBase64(octets, leaf);
    }
    case ValueType::Time: {
        int zone = 0;
        __int64 time = str2time(text.c_str(), zone);
        if (time == -1)
            throw CommandFailure("str2time failed (-1): value '" + text +
                                 "' is not a time such as 2024-05-01T12:00:00Z");
        return zone != 0 ? cursor.putValueTimeZone(time, zone, leaf)
                         : cursor.putValueTime(time, leaf);
    }
    }
    return -1;
}

void set(ValueOptions const &options) {
    std::string bytes = readInput(options.io.input);
    Target target = splitPath(options.path);
    MessagePtr message = loadPacket(bytes);
    CursorPtr cursor(message->newIterator());
    // The setters create a missing last element only; the elements above it
    // must exist, or the whole path would become one element name.
    seekParent(*cursor, target);
    int result = target.attribute != 0 ? put(*cursor, options, target.attribute)
                                       : put(*cursor, options, target.leaf);
    if (result != 0)
        throw CommandFailure("setting " + options.path + " failed (" + std::to_string(result) +
                             ")");
    cursor.reset();
    writeOutput(options.io.output, packetBytes(*message, !isFrame(bytes)));
}

void addValueOptions(CLI::App &command, ValueOptions &options) {
    command.add_option("INPUT", options.io.input, "a frame or XML text ('-': standard input)")
        ->required();
    command
        .add_option(
            "PATH", options.path,
            "path from the root, e.g. data/server/uptime; a last segment @name is an attribute")
        ->required();
}

void addTypeOption(CLI::App &command, ValueOptions &options) {
    command
        .add_option("--as", options.type,
                    "value type (default string): int, string, longlong, double, base64 "
                    "(Base64 text of the octets) or time (ISO 8601 text)")
        ->transform(CLI::CheckedTransformer(ValueTypes))
        ->option_text("TYPE")
        ->default_str("string");
}

} // namespace

void addValueCommands(CLI::App &app) {
    auto getOptions = std::make_shared<ValueOptions>();
    CLI::App *getCommand = app.add_subcommand("get", "read one value of a packet by path");
    addValueOptions(*getCommand, *getOptions);
    addTypeOption(*getCommand, *getOptions);
    getCommand->add_option("-o,--output", getOptions->io.output, "write to this file")
        ->option_text("FILE");
    getCommand->footer("Prints the value and a line feed; a missing value or one that does not\n"
                       "read as TYPE exits with status 1. A last segment @name reads an attribute\n"
                       "(version, id, priority, time, type, progress, timeout, timeout_limit,\n"
                       "uid, log) of the element above it.\n"
                       "Examples:\n"
                       "  kvxmsg get reply.bin data/server/uptime --as int\n"
                       "  kvxmsg get request.xml @priority --as int");
    setAction(*getCommand, [getOptions]() { get(*getOptions); });

    auto setOptions = std::make_shared<ValueOptions>();
    CLI::App *setCommand = app.add_subcommand(
        "set", "write one value of a packet by path; the packet goes out in the form it came in");
    addValueOptions(*setCommand, *setOptions);
    setCommand->add_option("VALUE", setOptions->value, "the new value, as text")->required();
    addTypeOption(*setCommand, *setOptions);
    setCommand->add_option("-o,--output", setOptions->io.output, "write to this file")
        ->option_text("FILE");
    setCommand->footer("The elements above the last one must exist; the last one is created\n"
                       "when missing, and an existing one takes the new value and kind. A last\n"
                       "segment @name writes an attribute.\n"
                       "Examples:\n"
                       "  kvxmsg set reply.bin data/server/uptime 3600 --as int -o reply2.bin\n"
                       "  kvxmsg set request.xml origin console -o request2.xml");
    setAction(*setCommand, [setOptions]() { set(*setOptions); });
}

} // namespace Tool
} // namespace KVX
