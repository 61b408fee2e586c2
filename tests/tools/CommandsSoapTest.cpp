// Tests of `kvxmsg soap-in`, `reply` and `soap-out`: a SOAP request as a
// packet, the reply genReply makes, the reply as a SOAP response or fault in
// both versions, the converter's faults printed as SOAP text with a failure
// line, and the whole road on frames.
#include "tools/ToolRunner.h"

using ToolTest::data;
using ToolTest::dataPath;
using ToolTest::hex;
using ToolTest::run;

namespace {

char const Soap11Uri[] = "http://schemas.xmlsoap.org/soap/envelope/";
char const Soap12Uri[] = "http://www.w3.org/2003/05/soap-envelope";

std::string faultText11(std::string const &code, std::string const &words) {
    return std::string("<soap:Envelope xmlns:soap=\"") + Soap11Uri +
           "\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
           "<soap:Body>\n<soap:Fault>\n<faultcode>soap:" +
           code + "</faultcode>\n<faultstring>" + words +
           "</faultstring>\n</soap:Fault>\n</soap:Body>\n</soap:Envelope>\n";
}

} // namespace

TEST(CommandsSoap, SoapInMakesThePacket) {
    ToolTest::Result result = run({"soap-in", "--text", dataPath("soap-getinfo-1.1.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("soap-getinfo-1.1.packet.xml"), result.out);
}

TEST(CommandsSoap, SoapInOfSoap12) {
    ToolTest::Result result = run({"soap-in", "--text", dataPath("soap-restart-1.2.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(data("soap-restart-1.2.packet.xml"), result.out);
}

TEST(CommandsSoap, SoapInWritesAFrameByDefault) {
    ToolTest::Result frame = run({"soap-in", dataPath("soap-getinfo-1.1.xml")});
    EXPECT_EQ(0, frame.status);
    ASSERT_LE(4u, frame.out.size());
    EXPECT_EQ("98 BA DC FE ", hex(frame.out.substr(0, 4)));
    // The frame holds what the text shows.
    ToolTest::Result fromText = run({"encode", dataPath("soap-getinfo-1.1.packet.xml")});
    EXPECT_EQ(run({"get", "-", "cookie/request"}, frame.out).out, "getinfo\n");
    EXPECT_EQ(run({"get", "-", "cookie/request"}, fromText.out).out, "getinfo\n");
}

TEST(CommandsSoap, SoapInPrintsTheFaultOfAnEmptyBody) {
    ToolTest::Result result = run({"soap-in", dataPath("soap-empty-body.xml")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(faultText11("Client", "No KVAgent operation was specified"), result.out);
    EXPECT_EQ("kvxmsg: soap-in: soapToKvxmsg failed (-1): No KVAgent operation was specified\n",
              result.err);
}

TEST(CommandsSoap, SoapInOfTextThatIsNoEnvelope) {
    ToolTest::Result result = run({"soap-in", dataPath("soap-not-an-envelope.xml")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(faultText11("VersionMismatch", "Version mismatch"), result.out);
    EXPECT_EQ("kvxmsg: soap-in: soapToKvxmsg failed (-1): Version mismatch\n", result.err);
}

TEST(CommandsSoap, SoapInOfAnEnvelopeOfNoVersionHasNoFaultText) {
    ToolTest::Result result =
        run({"soap-in"}, "<e:Envelope xmlns:e=\"\">\n<e:Body></e:Body></e:Envelope>");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: soap-in: soapToKvxmsg failed (-1): no fault text (the envelope's namespace "
              "is no SOAP version)\n",
              result.err);
}

TEST(CommandsSoap, SoapInOfAMissingFile) {
    ToolTest::Result result = run({"soap-in", "/nonexistent/request.xml"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: soap-in: cannot open /nonexistent/request.xml: No such file or directory\n",
              result.err);
}

TEST(CommandsSoap, ReplyInheritsFromTheRequest) {
    ToolTest::Result result =
        run({"reply", "--origin", "agent", "--text", dataPath("getinfo-request.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("getinfo-request.reply.xml"), result.out);
}

TEST(CommandsSoap, ReplyNeedsAnOrigin) {
    ToolTest::Result result = run({"reply", dataPath("getinfo-request.xml")});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("kvxmsg: --origin is required (see kvxmsg --help)\n", result.err);
}

TEST(CommandsSoap, ReplyOfATruncatedFrame) {
    ToolTest::Result result =
        run({"reply", "--origin", "agent", dataPath("worked-example-truncated.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("kvxmsg: reply: deserialize failed (-1): incomplete frame (40 bytes)\n", result.err);
}

TEST(CommandsSoap, SoapOutWritesTheResponse) {
    ToolTest::Result result = run({"soap-out", dataPath("soap-getinfo-1.1.reply.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("soap-getinfo-1.1.response.xml"), result.out);
}

TEST(CommandsSoap, SoapOutOfSoap12DiffersOnlyInTheEnvelope) {
    ToolTest::Result result =
        run({"soap-out", "--soap", "1.2", dataPath("soap-getinfo-1.1.reply.xml")});
    EXPECT_EQ(0, result.status);
    std::string expected = data("soap-getinfo-1.1.response.xml");
    expected.replace(expected.find(Soap11Uri), std::string(Soap11Uri).size(), Soap12Uri);
    EXPECT_EQ(expected, result.out);
}

TEST(CommandsSoap, SoapOutOfAnErrorIsAFault) {
    ToolTest::Result result =
        run({"soap-out", "--soap", "1.2", dataPath("soap-restart-1.2.reply.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("soap-restart-1.2.fault.xml"), result.out);
}

TEST(CommandsSoap, SoapOutWithoutACookieFails) {
    ToolTest::Result result = run({"soap-out", dataPath("worked-example.bin")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(faultText11("Client", "Cannot get cookie!"), result.out);
    EXPECT_EQ("kvxmsg: soap-out: kvxmsgToSoap failed (-1): Cannot get cookie!\n", result.err);
}

TEST(CommandsSoap, SoapOutRefusesAnotherVersion) {
    ToolTest::Result result =
        run({"soap-out", "--soap", "1.3", dataPath("soap-getinfo-1.1.reply.xml")});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("kvxmsg: --soap: 1.3 not in {1.1,1.2} (see kvxmsg --help)\n", result.err);
}

TEST(CommandsSoap, TheRoadOnFrames) {
    // What `make run` does: every stage hands the next one a frame.
    ToolTest::Result request = run({"soap-in", dataPath("soap-getinfo-1.1.xml")});
    ToolTest::Result reply = run({"reply", "--origin", "demo-agent", "--fill"}, request.out);
    ToolTest::Result response = run({"soap-out"}, reply.out);
    EXPECT_EQ(0, request.status) << request.err;
    EXPECT_EQ(0, reply.status) << reply.err;
    EXPECT_EQ(0, response.status) << response.err;
    EXPECT_EQ(data("soap-getinfo-1.1.response.xml"), response.out);
    EXPECT_EQ(data("soap-getinfo-1.1.reply.xml"), run({"decode"}, reply.out).out);
}

TEST(CommandsSoap, PacketHeaderBecomesThePacketHead) {
    ToolTest::Result packet = run({"soap-in", "--text", dataPath("soap-getinfo-1.2-header.xml")});
    EXPECT_EQ(0, packet.status) << packet.err;
    EXPECT_EQ("console\n", run({"get", "-", "origin"}, packet.out).out);
    EXPECT_EQ("1\n", run({"get", "-", "@priority"}, packet.out).out);
    // The operation's name and namespace go into the cookie the header step made.
    EXPECT_EQ("getinfo\n", run({"get", "-", "cookie/request"}, packet.out).out);
    ToolTest::Result reply = run({"reply", "--origin", "demo-agent", "--fill"}, packet.out);
    ToolTest::Result response = run({"soap-out", "--soap", "1.2"}, reply.out);
    EXPECT_EQ(0, response.status) << response.err;
    EXPECT_NE(std::string::npos, response.out.find("<getinfoResponse xmlns=")) << response.out;
}
