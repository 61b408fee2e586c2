// Tests of the shared input and output of every command: standard input by
// "-", an output file by -o, and the one-line failures of a missing input, an
// input that cannot be read, an output that cannot be written, and an empty
// input.
#include "tools/ToolRunner.h"

using ToolTest::data;
using ToolTest::dataPath;
using ToolTest::readFile;
using ToolTest::run;
using ToolTest::Scratch;

TEST(ToolSupport, DashReadsStandardInput) {
    ToolTest::Result result = run({"verify", "-"}, data("worked-example.bin"));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("ok: 80 bytes\n", result.out);
}

TEST(ToolSupport, OutputOptionWritesAFile) {
    Scratch scratch;
    ToolTest::Result result =
        run({"encode", dataPath("plain-packet.xml"), "-o", scratch.path("packet.bin")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("plain-packet.bin"), readFile(scratch.path("packet.bin")));
}

TEST(ToolSupport, OutputThatCannotBeCreated) {
    ToolTest::Result result =
        run({"decode", dataPath("worked-example.bin"), "--output", "/nonexistent/dir/out.xml"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: decode: cannot create /nonexistent/dir/out.xml: No such file or directory\n",
              result.err);
}

TEST(ToolSupport, InputThatIsADirectory) {
    Scratch scratch;
    std::string folder = scratch.path("");
    ToolTest::Result result = run({"decode", folder});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: decode: cannot read " + folder + ": Is a directory\n", result.err);
}

TEST(ToolSupport, EmptyInputIsNoPacket) {
    ToolTest::Result result = run({"decode"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: decode: fromText failed (-1): the input is neither a frame nor XML text "
              "that parses\n",
              result.err);
}

TEST(ToolSupport, FrameHeadAloneIsIncomplete) {
    // A frame that ends with its head is never complete.
    ToolTest::Result result = run({"decode"}, std::string("\x98\xBA\xDC\xFE\x01\x00\x00\x02", 8));
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: decode: deserialize failed (-1): incomplete frame (8 bytes)\n", result.err);
}
