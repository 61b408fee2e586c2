// Tests of `kvxmsg verify` and `kvxmsg split`: the verifier's answer and fault
// offset on sound, truncated and damaged frames, and a stream cut into frames
// and texts by the framing rule, with a trailing incomplete piece reported.
#include "tools/ToolRunner.h"

#include <algorithm>

using ToolTest::data;
using ToolTest::dataPath;
using ToolTest::readFile;
using ToolTest::run;
using ToolTest::Scratch;

TEST(CommandsFrame, VerifyAcceptsASoundFrame) {
    ToolTest::Result result = run({"verify", dataPath("worked-example.bin")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("ok: 80 bytes\n", result.out);
    EXPECT_EQ("", result.err);
}

TEST(CommandsFrame, VerifyNamesTrailingBytes) {
    ToolTest::Result result = run({"verify"}, data("worked-example.bin") + "next");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("ok: 80 bytes (4 trailing bytes not part of it)\n", result.out);
}

TEST(CommandsFrame, VerifyOfATruncatedFrame) {
    ToolTest::Result result = run({"verify", dataPath("worked-example-truncated.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("fault at offset 40\n", result.out);
    EXPECT_EQ("kvxmsg: verify: verify failed (-1): fault at offset 40\n", result.err);
}

TEST(CommandsFrame, VerifyOfADamagedFrame) {
    ToolTest::Result result = run({"verify", dataPath("worked-example-damaged.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("fault at offset 24\n", result.out);
    EXPECT_EQ("kvxmsg: verify: verify failed (-1): fault at offset 24\n", result.err);
}

TEST(CommandsFrame, VerifyOfText) {
    ToolTest::Result result = run({"verify", dataPath("plain-packet.xml")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("fault at offset 0\n", result.out);
    EXPECT_EQ("kvxmsg: verify: verify failed (-1): fault at offset 0\n", result.err);
}

TEST(CommandsFrame, VerifyOfAMissingFile) {
    ToolTest::Result result = run({"verify", "/nonexistent/frame.bin"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: verify: cannot open /nonexistent/frame.bin: No such file or directory\n",
              result.err);
}

TEST(CommandsFrame, SplitCutsFramesAndTexts) {
    Scratch scratch;
    std::string frame = data("worked-example.bin");
    std::string stream = frame + std::string("<a>1</a>", 9) + frame;
    ToolTest::Result result = run({"split", "-", scratch.path("pieces")}, stream);
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ("0001.bin  offset 0  80 bytes  frame, verified\n"
              "0002.xml  offset 80  9 bytes  text\n"
              "0003.bin  offset 89  80 bytes  frame, verified\n"
              "3 pieces: 2 frames, 1 text in " +
                  scratch.path("pieces") + "\n",
              result.out);
    EXPECT_EQ(frame, readFile(scratch.path("pieces/0001.bin")));
    EXPECT_EQ("<a>1</a>", readFile(scratch.path("pieces/0002.xml")));
    EXPECT_EQ(frame, readFile(scratch.path("pieces/0003.bin")));
}

TEST(CommandsFrame, SplitReportsATrailingIncompletePiece) {
    Scratch scratch;
    std::string frame = data("worked-example.bin");
    std::string stream = frame + frame.substr(0, 20);
    ToolTest::Result result = run({"split", "-", scratch.path("out")}, stream);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("0001.bin  offset 0  80 bytes  frame, verified\n"
              "incomplete: 20 bytes at offset 80 written to 0002.part\n",
              result.out);
    EXPECT_EQ("kvxmsg: split: trailing incomplete piece of 20 bytes at offset 80 (isComplete 0)\n",
              result.err);
    EXPECT_EQ(frame.substr(0, 20), readFile(scratch.path("out/0002.part")));
}

TEST(CommandsFrame, SplitNamesAFrameThatFailsTheVerifier) {
    Scratch scratch;
    ToolTest::Result result =
        run({"split", dataPath("worked-example-damaged.bin"), scratch.path("out")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("0001.bin  offset 0  80 bytes  frame, fault at offset 24\n"
              "1 piece: 1 frame, 0 texts in " +
                  scratch.path("out") + "\n",
              result.out);
}

TEST(CommandsFrame, SplitLeavesAShortTextIncomplete) {
    // Under 8 bytes the framing rule asks for more, even with a NUL in them.
    Scratch scratch;
    ToolTest::Result result = run({"split", "-", scratch.path("out")}, std::string("<b/>", 5));
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("incomplete: 5 bytes at offset 0 written to 0001.part\n", result.out);
}

TEST(CommandsFrame, SplitOfAnEmptyStream) {
    Scratch scratch;
    ToolTest::Result result = run({"split", "-", scratch.path("out")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("0 pieces: 0 frames, 0 texts in " + scratch.path("out") + "\n", result.out);
}

TEST(CommandsFrame, SplitIntoAFileIsRefused) {
    Scratch scratch;
    ToolTest::writeFile(scratch.path("file"), "x");
    ToolTest::Result result = run({"split", dataPath("worked-example.bin"), scratch.path("file")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ(0u, result.err.find("kvxmsg: split: cannot create directory " + scratch.path("file") +
                                  ": "));
    EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n'));
}

TEST(CommandsFrame, SplitNeedsADirectory) {
    ToolTest::Result result = run({"split", dataPath("worked-example.bin")});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("kvxmsg: DIR is required (see kvxmsg --help)\n", result.err);
}
