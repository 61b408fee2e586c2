// Tests of `kvxmsg get` and `kvxmsg set`: each --as type through the cursor's
// typed getters and setters, the conversions they refuse, a set that changes
// exactly the value's bytes, the packet written back in its input form, and
// the failures of a missing path, a bad value and a bad type.
#include "tools/ToolRunner.h"

#include <algorithm>

using ToolTest::data;
using ToolTest::dataPath;
using ToolTest::hex;
using ToolTest::run;

namespace {

// Sets `path` to `value` as `type` in `packet` and reads it back as `type`.
ToolTest::Result setThenGet(std::string const &packet, std::string const &path,
                            std::string const &value, std::string const &type) {
    ToolTest::Result set = run({"set", "-", path, value, "--as", type}, packet);
    EXPECT_EQ(0, set.status) << set.err;
    return run({"get", "-", path, "--as", type}, set.out);
}

} // namespace

TEST(CommandsValue, GetIntOfTheWorkedExample) {
    ToolTest::Result result = run({"get", dataPath("worked-example.bin"), "id", "--as", "int"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("42\n", result.out);
    EXPECT_EQ("", result.err);
}

TEST(CommandsValue, GetReadsAnIntAsTextAndAsLongLong) {
    EXPECT_EQ("42\n", run({"get", dataPath("worked-example.bin"), "id"}).out);
    EXPECT_EQ("42\n", run({"get", dataPath("worked-example.bin"), "id", "--as", "longlong"}).out);
}

TEST(CommandsValue, GetRefusesAnIntAsDouble) {
    ToolTest::Result result = run({"get", dataPath("worked-example.bin"), "id", "--as", "double"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: get: getValueDouble failed (-1): no such value at id as double\n",
              result.err);
}

TEST(CommandsValue, GetByPathInAPacket) {
    EXPECT_EQ("running\n", run({"get", dataPath("plain-packet.bin"), "data/server/status"}).out);
    EXPECT_EQ("uptime < 1 day & load > 2\n",
              run({"get", dataPath("plain-packet.xml"), "data/server/note"}).out);
}

TEST(CommandsValue, GetOfAMissingPath) {
    ToolTest::Result result = run({"get", dataPath("plain-packet.bin"), "data/client"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: get: getValue failed (-1): no such value at data/client as string\n",
              result.err);
}

TEST(CommandsValue, GetOfATruncatedFrame) {
    ToolTest::Result result = run({"get", dataPath("worked-example-truncated.bin"), "id"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: get: deserialize failed (-1): incomplete frame (40 bytes)\n", result.err);
}

TEST(CommandsValue, GetRefusesAnUnknownType) {
    ToolTest::Result result = run({"get", dataPath("worked-example.bin"), "id", "--as", "float"});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n'));
    EXPECT_EQ(0u, result.err.find("kvxmsg: --as: Check float value in {"));
}

TEST(CommandsValue, SetChangesOnlyTheValueBytes) {
    ToolTest::Result result =
        run({"set", dataPath("worked-example.bin"), "id", "7", "--as", "int"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    std::string expected = data("worked-example.bin");
    expected[36] = 7; // the value of the child 1010
    EXPECT_EQ(hex(expected), hex(result.out));
}

TEST(CommandsValue, SetKeepsTheTextForm) {
    ToolTest::Result result = run({"set", dataPath("plain-packet.xml"), "origin", "operator"});
    EXPECT_EQ(0, result.status);
    std::string expected = data("plain-packet.xml");
    expected.replace(expected.find("console"), 7, "operator");
    EXPECT_EQ(expected, result.out);
}

TEST(CommandsValue, SetCreatesTheLastElement) {
    ToolTest::Result result =
        setThenGet(data("plain-packet.bin"), "data/server/load", "0.5", "double");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("0.5\n", result.out);
}

TEST(CommandsValue, SetAndGetEveryType) {
    std::string packet = data("plain-packet.bin");
    EXPECT_EQ("-17\n", setThenGet(packet, "data/server/count", "-17", "int").out);
    EXPECT_EQ("1099511627776\n",
              setThenGet(packet, "data/server/size", "1099511627776", "longlong").out);
    EXPECT_EQ("a b\n", setThenGet(packet, "data/server/status", "a b", "string").out);
    EXPECT_EQ("AQID/w==\n", setThenGet(packet, "data/server/key", "AQID/w==", "base64").out);
    EXPECT_EQ("2024-05-01T12:00:00Z\n",
              setThenGet(packet, "data/server/time", "2024-05-01T12:00:00Z", "time").out);
    EXPECT_EQ("2024-05-01T14:00:00+02:00\n",
              setThenGet(packet, "data/server/time", "2024-05-01T14:00:00+02:00", "time").out);
}

TEST(CommandsValue, Base64IsNoText) {
    ToolTest::Result set =
        run({"set", "-", "data/key", "AQID", "--as", "base64"}, data("plain-packet.bin"));
    ToolTest::Result result = run({"get", "-", "data/key"}, set.out);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: get: getValue failed (-1): no such value at data/key as string\n",
              result.err);
}

TEST(CommandsValue, SetNeedsTheElementsAbove) {
    ToolTest::Result result = run({"set", dataPath("plain-packet.bin"), "data/client/name", "x"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: set: seek failed (-1): no element at data/client\n", result.err);
}

TEST(CommandsValue, SetRefusesAValueOfAnotherType) {
    ToolTest::Result result =
        run({"set", dataPath("worked-example.bin"), "id", "4x", "--as", "int"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: set: value '4x' is not a 32-bit int\n", result.err);
    result = run({"set", dataPath("worked-example.bin"), "id", "4294967296", "--as", "int"});
    EXPECT_EQ("kvxmsg: set: value '4294967296' is not a 32-bit int\n", result.err);
    result = run({"set", dataPath("worked-example.bin"), "id", "A*", "--as", "base64"});
    EXPECT_EQ("kvxmsg: set: Base64::decode failed (-1): value is not Base64 text\n", result.err);
    result = run({"set", dataPath("worked-example.bin"), "id", "yesterday", "--as", "time"});
    EXPECT_EQ("kvxmsg: set: str2time failed (-1): value 'yesterday' is not a time such as "
              "2024-05-01T12:00:00Z\n",
              result.err);
}

TEST(CommandsValue, SetRefusesAPathWithoutAnElement) {
    ToolTest::Result result = run({"set", dataPath("worked-example.bin"), "data/", "x"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: set: path 'data/' names no element below the root\n", result.err);
}

TEST(CommandsValue, SetOfBadXml) {
    ToolTest::Result result = run({"set", dataPath("bad-packet.xml"), "origin", "x"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: set: fromText failed (-1): the input is neither a frame nor XML text that "
              "parses\n",
              result.err);
}

TEST(CommandsValue, AttributesByName) {
    EXPECT_EQ("2\n", run({"get", dataPath("getinfo-request.xml"), "@priority", "--as", "int"}).out);
    EXPECT_EQ("4.5.0\n", run({"get", dataPath("getinfo-request.xml"), "@version"}).out);
    ToolTest::Result set =
        run({"set", dataPath("getinfo-request.xml"), "@priority", "5", "--as", "int"});
    EXPECT_EQ(0, set.status);
    EXPECT_EQ("5\n", run({"get", "-", "@priority"}, set.out).out);
    EXPECT_EQ("2024-05-01T12:00:00Z\n",
              setThenGet(data("worked-example.bin"), "@time", "2024-05-01T12:00:00Z", "time").out);
}

TEST(CommandsValue, UnknownAttributeName) {
    ToolTest::Result result = run({"get", dataPath("getinfo-request.xml"), "data/@colour"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: get: '@colour' is none of the ten attributes\n", result.err);
}
