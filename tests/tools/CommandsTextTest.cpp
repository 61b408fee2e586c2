// Tests of `kvxmsg encode` and `kvxmsg decode`: the golden frame of a packet,
// the text it decodes to, the trip encode -> decode -> encode with the same
// bytes, the old peers' text form, and each kind of failure.
#include "tools/ToolRunner.h"

using ToolTest::data;
using ToolTest::dataPath;
using ToolTest::hex;
using ToolTest::run;

namespace {

char const XmlDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
char const XsiDeclaration[] = " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"";

} // namespace

TEST(CommandsText, EncodeWritesTheGoldenFrame) {
    ToolTest::Result result = run({"encode", dataPath("plain-packet.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(hex(data("plain-packet.bin")), hex(result.out));
}

TEST(CommandsText, EncodeReadsStandardInput) {
    ToolTest::Result result = run({"encode", "-"}, data("plain-packet.xml"));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(hex(data("plain-packet.bin")), hex(result.out));
    EXPECT_EQ(result.out, run({"encode"}, data("plain-packet.xml")).out);
}

TEST(CommandsText, EncodeDecodeEncodeKeepsTheFrameBytes) {
    // Untyped text values, no attributes, no namespaces: the text trip keeps them all.
    ToolTest::Result first = run({"encode", dataPath("plain-packet.xml")});
    ToolTest::Result text = run({"decode"}, first.out);
    ToolTest::Result second = run({"encode"}, text.out);
    EXPECT_EQ(0, first.status);
    EXPECT_EQ(0, text.status);
    EXPECT_EQ(0, second.status);
    EXPECT_EQ(data("plain-packet.xml"), text.out);
    EXPECT_EQ(hex(first.out), hex(second.out));
}

TEST(CommandsText, DecodeWritesTheTextForm) {
    ToolTest::Result result = run({"decode", dataPath("plain-packet.bin")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("plain-packet.xml"), result.out);
}

TEST(CommandsText, DecodeOfTheWorkedExample) {
    ToolTest::Result result = run({"decode", dataPath("worked-example.bin")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(std::string(XmlDeclaration) + "<node" + XsiDeclaration + ">\n<id>42</id>\n</node>\n",
              result.out);
}

TEST(CommandsText, DecodeAcceptsText) {
    ToolTest::Result result = run({"decode", dataPath("plain-packet.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(data("plain-packet.xml"), result.out);
}

TEST(CommandsText, DecodeDeclaresNamespacesAtTheRoot) {
    ToolTest::Result frame = run({"encode", dataPath("namespaced-packet.xml")});
    ToolTest::Result result = run({"decode"}, frame.out);
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(std::string(XmlDeclaration) + "<packet xmlns:ns1=\"urn:example:protocol\"" +
                  XsiDeclaration +
                  " version=\"4.5.0\">\n<ns1:origin>console</ns1:origin>\n<data>\n"
                  "<ns1:server>up</ns1:server>\n</data>\n</packet>\n",
              result.out);
    EXPECT_EQ(result.out, run({"decode", "--version", "40000"}, frame.out).out);
}

TEST(CommandsText, DecodeForAnOldPeerDropsNamespaces) {
    ToolTest::Result frame = run({"encode", dataPath("namespaced-packet.xml")});
    ToolTest::Result result = run({"decode", "--version", "39999"}, frame.out);
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(std::string(XmlDeclaration) +
                  "<packet version=\"4.5.0\">\n<origin>console</origin>\n<data>\n"
                  "<server>up</server>\n</data>\n</packet>\n",
              result.out);
}

TEST(CommandsText, EncodeRefusesBadXml) {
    ToolTest::Result result = run({"encode", dataPath("bad-packet.xml")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: encode: fromText failed (-1): the XML text does not parse\n", result.err);
}

TEST(CommandsText, EncodeOfAMissingFile) {
    ToolTest::Result result = run({"encode", "/nonexistent/packet.xml"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: encode: cannot open /nonexistent/packet.xml: No such file or directory\n",
              result.err);
}

TEST(CommandsText, DecodeRefusesATruncatedFrame) {
    ToolTest::Result result = run({"decode", dataPath("worked-example-truncated.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: decode: deserialize failed (-1): incomplete frame (40 bytes)\n", result.err);
}

TEST(CommandsText, DecodeRefusesADamagedFrameBeforeLoadingIt) {
    ToolTest::Result result = run({"decode", dataPath("worked-example-damaged.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: decode: verify failed (-1): fault at offset 24\n", result.err);
}

TEST(CommandsText, DecodeRefusesBadXml) {
    ToolTest::Result result = run({"decode", dataPath("bad-packet.xml")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: decode: fromText failed (-1): the input is neither a frame nor XML text "
              "that parses\n",
              result.err);
}

TEST(CommandsText, DecodeRefusesAVersionThatIsNoNumber) {
    ToolTest::Result result = run({"decode", "--version", "abc", dataPath("plain-packet.bin")});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: Could not convert: --version = abc (see kvxmsg --help)\n", result.err);
}
