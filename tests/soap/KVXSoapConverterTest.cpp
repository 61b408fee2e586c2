// Tests of the SOAP bridge's converter: requests to packets, the failure table
// of each direction with exact codes and words, and the layout of the faults.
#include <kvx/KVXBinaryIterator.h>
#include <kvx/KVXMsgFactory.h>
#include <kvx/KVXSoapConverter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

using namespace KVX;

namespace {

char const Soap11[] = "http://schemas.xmlsoap.org/soap/envelope/";
char const Soap12[] = "http://www.w3.org/2003/05/soap-envelope";
char const ServerUri[] = "http://www.kvx.org/webservices/kvx/4.5.0/server";

struct MessageDeleter {
    void operator()(KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};
typedef std::unique_ptr<KVXMessage, MessageDeleter> MessagePtr;

MessagePtr newMessage() {
    return MessagePtr(KVXMsgFactory::createNew());
}

std::string envelope(char const *uri, std::string const &header, std::string const &body) {
    std::string text = "<soap:Envelope xmlns:soap=\"";
    text += uri;
    text += "\">\n";
    if (!header.empty())
        text += "<soap:Header>" + header + "</soap:Header>\n";
    text += "<soap:Body>" + body + "</soap:Body>\n</soap:Envelope>";
    return text;
}

std::string operation(std::string const &inner = "<filter>all</filter>") {
    return std::string("<ns:GetInfo xmlns:ns=\"") + ServerUri + "\">" + inner + "</ns:GetInfo>";
}

std::string faultText(KVXSoapFault *fault) {
    char *text = fault->toText();
    std::string result = text != nullptr ? text : "";
    std::free(text);
    return result;
}

std::string fault11(std::string const &code, std::string const &words) {
    return std::string("<soap:Envelope xmlns:soap=\"") + Soap11 +
           "\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n<soap:Body>\n"
           "<soap:Fault>\n<faultcode>soap:" +
           code + "</faultcode>\n<faultstring>" + words +
           "</faultstring>\n</soap:Fault>\n</soap:Body>\n</soap:Envelope>";
}

std::string fault12(std::string const &code, std::string const &words) {
    return std::string("<soap:Envelope xmlns:soap=\"") + Soap12 +
           "\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n<soap:Body>\n"
           "<soap:Fault>\n<soap:Code>\n<soap:Value>soap:" +
           code + "</soap:Value>\n</soap:Code>\n<soap:Reason>\n<soap:Text>" + words +
           "</soap:Text>\n</soap:Reason>\n</soap:Fault>\n</soap:Body>\n</soap:Envelope>";
}

// Converts a request and returns the result with the converter kept for checks.
struct Request {
    explicit Request(std::string const &text) : message(newMessage()) {
        result = converter.soapToKvxmsg(text.c_str(), *message);
    }
    KVXSoapConverter converter;
    MessagePtr message;
    int result;
};

// Exposes the protected steps for the cases a whole envelope cannot reach.
class OpenConverter : public KVXSoapConverter {
public:
    using KVXSoapConverter::convertBody;
    using KVXSoapConverter::getSoapURIByVersion;
    using KVXSoapConverter::removeNamespaces;
};

std::string value(KVXMessage &message, std::string const &path) {
    std::unique_ptr<KVXMessageIterator const> cursor(
        static_cast<KVXMessage const &>(message).newIterator());
    std::string out = "<missing>";
    cursor->getValue(out, path);
    return out;
}

} // namespace

TEST(SoapToMessage, RequestWithPacketHeaderFillsPacket) {
    Request r(envelope(Soap12,
                       "<packet_header xmlns=\"http://www.kvx.org/webservices/kvx/4.0.0/protocol\" "
                       "id=\"m1\"><origin>console</origin></packet_header>",
                       operation()));
    ASSERT_EQ(0, r.result);
    EXPECT_EQ(SoapVersion12, r.converter.getSoapVersion());
    EXPECT_EQ(nullptr, r.converter.getFault());
    EXPECT_EQ("console", value(*r.message, "origin"));
    EXPECT_EQ("server", value(*r.message, "target"));
    EXPECT_EQ("getinfo", value(*r.message, "cookie/request"));
    EXPECT_EQ(ServerUri, value(*r.message, "cookie/name"));
    std::string id;
    EXPECT_EQ(0, r.message->getID(id));
    EXPECT_EQ("m1", id);
    int version = 0;
    EXPECT_EQ(0, r.message->getVersion(version));
    EXPECT_EQ(40500, version);
    std::unique_ptr<KVXMessageIterator> cursor(r.message->newIterator());
    ASSERT_EQ(0, cursor->seek("data/server"));
    ASSERT_EQ(0, cursor->firstChild());
    EXPECT_EQ("GetInfo", cursor->curName()); // a dynamic id, named by the local name
}

TEST(SoapToMessage, RequestWithoutHeaderCreatesPacket) {
    Request r(envelope(Soap11, "", operation()));
    ASSERT_EQ(0, r.result);
    EXPECT_EQ(SoapVersion11, r.converter.getSoapVersion());
    std::unique_ptr<KVXMessageIterator> cursor(r.message->newIterator());
    EXPECT_EQ("packet", cursor->curName());
    EXPECT_EQ("server", value(*r.message, "target"));
    EXPECT_EQ("getinfo", value(*r.message, "cookie/request"));
    EXPECT_EQ(0, cursor->seek("cookie"));
    EXPECT_EQ(297, cursor->curNamespaceID());
}

TEST(SoapToMessage, HeaderTargetTakesThePlaceOfTheUriSegment) {
    Request r(
        envelope(Soap11, "<packet_header><target>Backup</target></packet_header>", operation()));
    ASSERT_EQ(0, r.result);
    EXPECT_EQ("Backup", value(*r.message, "target"));
    std::unique_ptr<KVXMessageIterator> cursor(r.message->newIterator());
    EXPECT_EQ(0, cursor->seek("data/backup"));
}

TEST(SoapToMessage, SelfClosedPacketHeaderIsExpanded) {
    Request r(envelope(Soap11, "<packet_header id=\"7\"/>", operation()));
    ASSERT_EQ(0, r.result);
    std::string id;
    EXPECT_EQ(0, r.message->getID(id));
    EXPECT_EQ("7", id);
}

TEST(SoapToMessage, SystemOperatorIsNeverWrittenAsTarget) {
    std::string body = "<ns:Restart xmlns:ns=\"http://www.kvx.org/webservices/kvx/4.5.0/SYSTEM\"/>";
    Request r(envelope(Soap11, "", body));
    ASSERT_EQ(0, r.result);
    EXPECT_EQ("<missing>", value(*r.message, "target"));
    std::unique_ptr<KVXMessageIterator> cursor(r.message->newIterator());
    EXPECT_EQ(0, cursor->seek("data/system"));
}

TEST(SoapToMessage, UriWithOneSlashSetsNoVersion) {
    std::string body = "<ns:Op xmlns:ns=\"urn:x/server\"><filter>a</filter></ns:Op>";
    Request r(envelope(Soap11, "", body));
    ASSERT_EQ(0, r.result);
    int version = 0;
    EXPECT_EQ(-1, r.message->getVersion(version));
    EXPECT_EQ("server", value(*r.message, "target"));
}

TEST(SoapToMessage, DefaultNamespaceOperationNeedsItsOwnDeclaration) {
    std::string body =
        std::string("<GetInfo xmlns=\"") + ServerUri + "\"><filter>x</filter></GetInfo>";
    Request r(envelope(Soap11, "", body));
    ASSERT_EQ(0, r.result);
    EXPECT_EQ("getinfo", value(*r.message, "cookie/request"));
    EXPECT_EQ(ServerUri, value(*r.message, "cookie/name"));
}

TEST(SoapToMessage, CommentBehindBodyTagIsPassedOver) {
    Request r(envelope(Soap11, "", "<!-- first --><!DOCTYPE x>" + operation()));
    ASSERT_EQ(0, r.result);
    EXPECT_EQ("getinfo", value(*r.message, "cookie/request"));
}

TEST(SoapToMessage, UnparsableEnvelopeIsVersionMismatch) {
    Request r("<soap:Envelope>\n<soap:Body><a/></soap:Body></soap:Envelope>");
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ(KVXSoapFault::CodeVersionMismatch, r.converter.getFault()->code);
    EXPECT_EQ(fault11("VersionMismatch", "Version mismatch"), faultText(r.converter.getFault()));
}

TEST(SoapToMessage, SelfClosedBodyIsVersionMismatch) {
    Request r(std::string("<soap:Envelope xmlns:soap=\"") + Soap12 +
              "\"><soap:Body/></soap:Envelope>");
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ("Version mismatch", r.converter.getFault()->faultString);
}

TEST(SoapToMessage, UnknownEnvelopeUriIsVersionMismatch) {
    Request r(envelope("urn:other", "", operation()));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ(fault11("VersionMismatch", "Version mismatch"), faultText(r.converter.getFault()));
}

TEST(SoapToMessage, EmptyEnvelopeUriFailsLaterWithoutFault) {
    Request r(envelope("", "", ""));
    EXPECT_EQ(-1, r.result);
    EXPECT_EQ(SoapVersionNone, r.converter.getSoapVersion());
    EXPECT_EQ(nullptr, r.converter.getFault());
}

TEST(SoapToMessage, PacketHeaderWithoutEndIsWrongPacketHeader) {
    Request r(envelope(Soap11, "<packet_header id=\"1\">", operation()));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ(fault11("Client", "Wrong packet header"), faultText(r.converter.getFault()));
}

TEST(SoapToMessage, PacketHeaderWithoutClosingTagAfterRewriteIsWrongPacketHeader) {
    Request r(envelope(Soap12, "<packet_header x/packet_header>", operation()));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ(fault12("Sender", "Wrong packet header"), faultText(r.converter.getFault()));
}

TEST(SoapToMessage, RefusedPacketHeaderText) {
    Request r(envelope(Soap11, "<packet_header foo=\"1\"></packet_header>", operation()));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ("Soap header cannot be converted to KVAgent message",
              r.converter.getFault()->faultString);
    EXPECT_EQ(KVXSoapFault::CodeClient, r.converter.getFault()->code);
}

TEST(SoapToMessage, EmptyBodyHasNoOperation) {
    Request r(envelope(Soap11, "", ""));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ(fault11("Client", "No KVAgent operation was specified"),
              faultText(r.converter.getFault()));
}

TEST(SoapToMessage, NamelessOperationHasNoOperation) {
    Request r(envelope(Soap11, "", "< x=\"1\">"));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ("No KVAgent operation was specified", r.converter.getFault()->faultString);
}

TEST(SoapToMessage, DefaultNamespaceOperationWithoutAttributesHasNoOperation) {
    Request r(envelope(Soap11, "", "<GetInfo><filter>x</filter></GetInfo>"));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ("No KVAgent operation was specified", r.converter.getFault()->faultString);
}

TEST(SoapToMessage, DefaultNamespaceOperationWithoutDeclarationHasNoOperator) {
    Request r(envelope(Soap11, "", "<GetInfo id=\"1\" xmlns:p=\"urn:a/b\"></GetInfo>"));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ("No KVAgent target operator was specified", r.converter.getFault()->faultString);
}

TEST(SoapToMessage, UndeclaredPrefixHasNoOperator) {
    Request r(envelope(Soap12, "", "<q:GetInfo><filter>x</filter></q:GetInfo>"));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ(fault12("Sender", "No KVAgent target operator was specified"),
              faultText(r.converter.getFault()));
}

TEST(SoapToMessage, UriWithoutSlashHasNoOperator) {
    Request r(envelope(Soap11, "", "<ns:Op xmlns:ns=\"urn:none\"></ns:Op>"));
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ("No KVAgent target operator was specified", r.converter.getFault()->faultString);
}

TEST(SoapToMessage, PrefixDeclaredOnlyOnEnvelopeCannotBeParsed) {
    std::string text = std::string("<soap:Envelope xmlns:soap=\"") + Soap11 + "\" xmlns:ns=\"" +
                       ServerUri + "\">\n<soap:Body><ns:GetInfo><filter>x</filter></ns:GetInfo>" +
                       "</soap:Body></soap:Envelope>";
    Request r(text);
    EXPECT_EQ(-1, r.result);
    ASSERT_NE(nullptr, r.converter.getFault());
    EXPECT_EQ("Soap message body cannot be converted to KVAgent message",
              r.converter.getFault()->faultString);
}

TEST(SoapToMessage, BodyWithoutClosingTagCannotBeParsed) {
    OpenConverter converter;
    MessagePtr message = newMessage();
    ASSERT_EQ(0, message->create("packet"));
    EXPECT_EQ(-1, converter.convertBody("<soap:Body><a>", *message));
    ASSERT_NE(nullptr, converter.getFault());
    EXPECT_EQ("Cannot parse soap message body", converter.getFault()->faultString);
}

TEST(SoapToMessage, RemoveNamespacesCutsEveryDeclaration) {
    OpenConverter converter;
    istring text = "<a xmlns=\"u\" b=\"1\" xmlns:p=\"v\" xmlnsq><c XMLNS:z=\"w\"/></a>";
    converter.removeNamespaces(text);
    // The quote searched behind " xmlnsq" is the one of the next element's value.
    EXPECT_EQ(std::string("<a b=\"1\"/></a>"), std::string(text.data(), text.size()));
    istring open = "<a xmlns=\"u>";
    converter.removeNamespaces(open);
    EXPECT_EQ(std::string("<a"), std::string(open.data(), open.size()));
    istring bare = "<a xmlns>";
    converter.removeNamespaces(bare);
    EXPECT_EQ(std::string("<a>"), std::string(bare.data(), bare.size()));
}

TEST(SoapToMessage, SoapUriByVersion) {
    OpenConverter converter;
    EXPECT_EQ(Soap11, converter.getSoapURIByVersion(SoapVersion11));
    EXPECT_EQ(Soap12, converter.getSoapURIByVersion(SoapVersion12));
    EXPECT_EQ("", converter.getSoapURIByVersion(SoapVersionNone));
    EXPECT_EQ("", converter.getSoapURIByVersion(static_cast<SoapVersion>(3)));
}
