// Tests of `kvxmsg dump`: the annotated layout of the worked 80-byte example in
// both renderings, every value kind, names from the frame and the vocabulary,
// the legacy layout, and damaged frames, which are listed up to their first
// fault and never read outside the buffer.
#include "tools/FrameBytes.h"
#include "tools/ToolRunner.h"

#include <cstring>

using ToolTest::data;
using ToolTest::dataPath;
using ToolTest::FrameBytes;
using ToolTest::run;
using ToolTest::Scratch;

namespace {

std::string int32Bytes(std::int32_t value) {
    std::string out(4, '\0');
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<char>((static_cast<std::uint32_t>(value) >> (8 * i)) & 0xFF);
    return out;
}

std::string int64Bytes(std::uint64_t value) {
    std::string out(8, '\0');
    for (int i = 0; i < 8; ++i)
        out[i] = static_cast<char>((value >> (8 * i)) & 0xFF);
    return out;
}

std::string doubleBytes(double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return int64Bytes(bits);
}

// Dumps `frame` given on standard input.
ToolTest::Result dumpBytes(std::string const &frame, bool json = false) {
    return json ? run({"dump", "--json"}, frame) : run({"dump"}, frame);
}

} // namespace

TEST(FrameDump, WorkedExampleAsTables) {
    ToolTest::Result result = run({"dump", dataPath("worked-example.bin")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ("frame: 80 bytes\n"
              "head\n"
              "  magic       98 BA DC FE\n"
              "  flags       0x02000028\n"
              "  format      2\n"
              "  empty       no\n"
              "  name table  40 bytes at offset 40\n"
              "nodes\n"
              "  offset depth   id name kind         ns size node value\n"
              "       8     0 1008 node 50 Structure  0   16   32 1 child\n"
              "      24     1 1010   id 1 Int         0    4   16 42\n"
              "name table\n"
              "  offset   id kind    size node name\n"
              "      40 1010 element    3   16 \"id\"\n"
              "      56 1008 element    5   24 \"node\"\n",
              result.out);
}

TEST(FrameDump, WorkedExampleAsJson) {
    ToolTest::Result result = run({"dump", "--json", dataPath("worked-example.bin")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("worked-example.dump.json"), result.out);
}

TEST(FrameDump, PacketNamesComeFromTheFrame) {
    ToolTest::Result result = run({"dump", dataPath("plain-packet.bin")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("plain-packet.dump.txt"), result.out);
}

TEST(FrameDump, EveryKindIsRenderedByItsKind) {
    FrameBytes frame;
    std::size_t root = frame.open(1008);
    frame.leaf(101, 0, std::string("4.5.0", 6));                  // attribute "version"
    frame.leaf(1010, 1, int32Bytes(-5));                          // id
    frame.leaf(1026, 2, "h\xC3\xA9llo!\n");                       // name, 8 bytes: long header
    frame.leaf(1077, 3, int64Bytes(1099511627776ull));            // uptime
    frame.leaf(1078, 4, doubleBytes(2.5));                        // memory
    frame.leaf(1496, 5, std::string("\x01\x02\x03", 4));          // description
    frame.leaf(1004, 6, std::string("2024-05-01T12:00:00Z", 21)); // time
    frame.leaf(0, 51, std::string("<a/>", 5));                    // raw XML without an id
    frame.leaf(1192, 7, "\x01\x02\x03\x04");                      // status, a kind 7
    frame.leaf(1405, 1, "abc");                                   // code, an int of 3 bytes
    std::size_t typed = frame.open(1402, 150, 297);               // operator of type 150
    frame.leaf(-2, 2, std::string("x\x80", 3), 297);              // 0x80 is no UTF-8
    frame.close(typed);
    frame.leaf(1068, 0, ""); // host, no value
    frame.close(root);
    frame.table();
    frame.entry(-2, 0, "custom");
    frame.entry(150, 2, "eid_listType");
    frame.entry(297, 1, "urn:example:protocol");
    frame.entry(1008, 0, "node");
    ToolTest::Result result = dumpBytes(frame.finish());
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(
        "frame: 416 bytes\n"
        "head\n"
        "  magic       98 BA DC FE\n"
        "  flags       0x02000078\n"
        "  format      2\n"
        "  empty       no\n"
        "  name table  120 bytes at offset 296\n"
        "nodes\n"
        "  offset depth   id name          kind                   ns size node value      "
        "                namespace\n"
        "       8     0 1008 node          50 Structure            0  272  288 12 children\n"
        "      24     1  101   @version    0 Untyped               0    6   24 \"4.5.0\"\n"
        "      48     1 1010   id          1 Int                   0    4   16 -5\n"
        "      64     1 1026   name        2 String                0    8   24 "
        "\"h\xC3\xA9llo!\\n\" (no NUL)\n"
        "      88     1 1077   uptime      3 LongLong              0    8   24 1099511627776\n"
        "     112     1 1078   memory      4 Double                0    8   24 2.5\n"
        "     136     1 1496   description 5 Base64                0    4   16 3 octets "
        "\"AQID\"\n"
        "     152     1 1004   time        6 Time                  0   21   40 "
        "\"2024-05-01T12:00:00Z\"\n"
        "     192     1    0   (no id)     51 XML                  0    5   24 \"<a/>\"\n"
        "     216     1 1192   status      7 unknown               0    4   16 raw 01 02 03 "
        "04\n"
        "     232     1 1405   code        1 Int                   0    3   16 (size 3, the "
        "kind takes 4)\n"
        "     248     1 1402   operator    150 type eid_listType 297   16   32 1 child      "
        "              urn:example:protocol\n"
        "     264     2   -2     custom    2 String              297    3   16 \"x\\x80\"   "
        "                 urn:example:protocol\n"
        "     280     1 1068   host        0 Untyped               0    0   16\n"
        "name table\n"
        "  offset   id kind      size node name\n"
        "     296   -2 element      7   24 \"custom\"\n"
        "     320  150 type        13   32 \"eid_listType\"\n"
        "     352  297 namespace   21   40 \"urn:example:protocol\"\n"
        "     392 1008 element      5   24 \"node\"\n",
        result.out);
}

TEST(FrameDump, JsonKeepsEveryByteOfAValue) {
    FrameBytes frame;
    std::size_t root = frame.open(1008);
    frame.leaf(1026, 2, std::string("a\"b\\c\x01\xFF", 8)); // with the literal's NUL
    frame.close(root);
    frame.table();
    frame.entry(1008, 0, "node");
    ToolTest::Result result = dumpBytes(frame.finish(), true);
    EXPECT_EQ(0, result.status);
    EXPECT_NE(std::string::npos,
              result.out.find("\"value\": \"a\\\"b\\\\c\\u0001\\u00FF\", \"terminated\": true}"))
        << result.out;
}

TEST(FrameDump, LegacyLayoutUsesItsNodeSizes) {
    FrameBytes frame(0);
    std::size_t root = frame.open(1008);
    frame.leaf(1010, 1, int32Bytes(42)); // 24 bytes in the legacy layout, 16 in format 2
    frame.close(root);
    frame.table();
    frame.entry(1010, 0, "id");
    frame.entry(1008, 0, "node");
    ToolTest::Result result = dumpBytes(frame.finish());
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("frame: 88 bytes\n"
              "head\n"
              "  magic       98 BA DC FE\n"
              "  flags       0x00000028\n"
              "  format      0 (legacy node sizes)\n"
              "  empty       no\n"
              "  name table  40 bytes at offset 48\n"
              "nodes\n"
              "  offset depth   id name kind         ns size node value\n"
              "       8     0 1008 node 50 Structure  0   24   40 1 child\n"
              "      24     1 1010   id 1 Int         0    4   24 42\n"
              "name table\n"
              "  offset   id kind    size node name\n"
              "      48 1010 element    3   16 \"id\"\n"
              "      64 1008 element    5   24 \"node\"\n",
              result.out);
}

TEST(FrameDump, FreshHeadHasNoNodes) {
    ToolTest::Result result = dumpBytes(std::string("\x98\xBA\xDC\xFE\x01\x00\x00\x02", 8));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("frame: 8 bytes\n"
              "head\n"
              "  magic       98 BA DC FE\n"
              "  flags       0x02000001\n"
              "  format      2\n"
              "  empty       yes\n"
              "  name table  0 bytes at offset 8\n",
              result.out);
}

TEST(FrameDump, TrailingBytesAreNamed) {
    ToolTest::Result result = dumpBytes(data("worked-example.bin") + "more");
    EXPECT_EQ(0, result.status);
    EXPECT_NE(std::string::npos, result.out.find("frame: 84 bytes\n"));
    EXPECT_NE(std::string::npos, result.out.find("\ntrailing: 4 bytes behind the frame\n"));
}

TEST(FrameDump, TruncatedFrameStopsAtTheNameTable) {
    ToolTest::Result result = run({"dump", dataPath("worked-example-truncated.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: dump: fault at offset 40: the name table of 40 bytes passes the end of the "
              "buffer (40 bytes)\n",
              result.err);
    EXPECT_EQ("frame: 40 bytes\n"
              "head\n"
              "  magic       98 BA DC FE\n"
              "  flags       0x02000028\n"
              "  format      2\n"
              "  empty       no\n"
              "  name table  40 bytes at offset 40\n"
              "nodes\n"
              "  offset depth   id name kind         ns size node value\n"
              "       8     0 1008 node 50 Structure  0   16   32 1 child\n"
              "      24     1 1010   id 1 Int         0    4   16 42\n"
              "fault at offset 40: the name table of 40 bytes passes the end of the buffer (40 "
              "bytes)\n",
              result.out);
}

TEST(FrameDump, DamagedSizeStopsAtTheNode) {
    ToolTest::Result result = run({"dump", dataPath("worked-example-damaged.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: dump: fault at offset 24: node size 112 passes the parent's end at 40\n",
              result.err);
    EXPECT_NE(std::string::npos,
              result.out.find("       8     0 1008 node 50 Structure  0   16   32 0 children\n"
                              "fault at offset 24: node size 112 passes the parent's end at 40\n"));
}

TEST(FrameDump, JsonNamesTheFault) {
    ToolTest::Result result = run({"dump", "--json", dataPath("worked-example-damaged.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos,
              result.out.find("\"fault\": {\"offset\": 24, \"reason\": \"node size 112 passes "
                              "the parent's end at 40\"}\n}\n"));
}

TEST(FrameDump, ShortBufferHasNoHead) {
    ToolTest::Result result = dumpBytes("\x98\xBA\xDC");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("frame: 3 bytes\nfault at offset 0: the buffer holds 3 bytes; a frame head needs 8\n",
              result.out);
    EXPECT_EQ("kvxmsg: dump: fault at offset 0: the buffer holds 3 bytes; a frame head needs 8\n",
              result.err);
}

TEST(FrameDump, TextIsNotAFrame) {
    ToolTest::Result result = run({"dump", dataPath("plain-packet.xml")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(
        "kvxmsg: dump: fault at offset 0: magic 3C 3F 78 6D is not 98 BA DC FE: not a frame\n",
        result.err);
}

TEST(FrameDump, RootPastTheBufferIsAFault) {
    std::string frame = data("worked-example.bin");
    frame[16] = '\xF0'; // the root's size becomes 0xFFFFFFF0: its node size passes 32 bits
    frame[17] = '\xFF';
    frame[18] = '\xFF';
    frame[19] = '\xFF';
    ToolTest::Result result = dumpBytes(frame);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: dump: fault at offset 8: the root node of node size 4294967296 passes the "
              "end of the buffer (80 bytes)\n",
              result.err);
}

TEST(FrameDump, BadTableKindIsAFault) {
    std::string frame = data("worked-example.bin");
    frame[60] = 7; // the second entry's table kind
    ToolTest::Result result = dumpBytes(frame);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: dump: fault at offset 56: name table kind 7 is not 0, 1 or 2\n", result.err);
    EXPECT_NE(std::string::npos, result.out.find("      40 1010 element    3   16 \"id\"\n"
                                                 "fault at offset 56"));
}

TEST(FrameDump, EmptyNameIsAFault) {
    std::string frame = data("worked-example.bin");
    frame[48] = 0; // the first entry's size
    ToolTest::Result result = dumpBytes(frame);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: dump: fault at offset 40: a name table entry of size 0\n", result.err);
}

TEST(FrameDump, DeepNestingIsWalkedWithoutRecursion) {
    // 20,000 nested containers: far deeper than any stack frame per level allows.
    int const depth = 20000;
    FrameBytes frame;
    std::vector<std::size_t> open;
    for (int i = 0; i < depth; ++i)
        open.push_back(frame.open(1008));
    while (!open.empty()) {
        frame.close(open.back());
        open.pop_back();
    }
    frame.table();
    frame.entry(1008, 0, "node");
    ToolTest::Result result = dumpBytes(frame.finish(), true);
    EXPECT_EQ(0, result.status);
    EXPECT_NE(std::string::npos, result.out.find("{\"offset\": 319992, \"depth\": 19999, "));
}

TEST(FrameDump, OutputFileTakesTheListing) {
    Scratch scratch;
    ToolTest::Result result =
        run({"dump", dataPath("worked-example.bin"), "-o", scratch.path("dump.txt")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ(run({"dump", dataPath("worked-example.bin")}).out,
              ToolTest::readFile(scratch.path("dump.txt")));
}
