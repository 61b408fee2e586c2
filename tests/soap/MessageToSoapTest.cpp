// Tests of the reply direction of the SOAP bridge: response and fault layout,
// the namespace base, the system/configuration rule and every failure word.
#include <kvx/KVXBinaryIterator.h>
#include <kvx/KVXMsgFactory.h>
#include <kvx/KVXSoapConverter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

using namespace KVX;

namespace {

char const ServerUri[] = "http://www.kvx.org/webservices/kvx/4.5.0/server";
char const EnvelopeHead11[] =
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";
char const EnvelopeHead12[] =
    "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";

struct MessageDeleter {
    void operator()(KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};
typedef std::unique_ptr<KVXMessage, MessageDeleter> MessagePtr;

// A reply packet: cookie with the operation's tag and namespace (unless left
// out), and `data` holding the operator's element `op` (unless empty).
MessagePtr reply(bool withCookie = true, std::string const &op = "server") {
    MessagePtr message(KVXMsgFactory::createNew());
    EXPECT_EQ(0, message->create("packet"));
    std::unique_ptr<KVXMessageIterator> cursor(message->newIterator());
    if (withCookie) {
        EXPECT_EQ(0, cursor->newChild("cookie"));
        EXPECT_EQ(0, cursor->putValue(std::string("getinfo"), 1322));
        EXPECT_EQ(0, cursor->putValue(std::string(ServerUri), 1026));
        EXPECT_EQ(0, cursor->seekUp());
    }
    EXPECT_EQ(0, cursor->newChild("data"));
    if (!op.empty()) {
        EXPECT_EQ(0, cursor->newChild(op));
    }
    return message;
}

// Adds a child named `name` with an integer value under the element at `path`.
void addValue(KVXMessage &message, std::string const &path, std::string const &name, int value) {
    std::unique_ptr<KVXMessageIterator> cursor(message.newIterator());
    ASSERT_EQ(0, cursor->seek(path));
    ASSERT_EQ(0, cursor->newChild(name));
    ASSERT_EQ(0, cursor->putValue(value, 0));
}

std::string text(KVXSoapEnvelope *envelope) {
    char *t = envelope->toText();
    std::string result = t != nullptr ? t : "";
    std::free(t);
    return result;
}

std::string cookieHeader(std::string const &segment) {
    return "<packet_header xmlns=\"http://www.kvx.org/webservices/kvx/" + segment +
           "/protocol\">\n<cookie>\n<request>getinfo</request>\n<name>" + ServerUri +
           "</name>\n</cookie>\n</packet_header>\n";
}

struct Conversion {
    Conversion(KVXMessage &message, SoapVersion version) {
        result = converter.kvxmsgToSoap(message, version, envelope);
    }
    ~Conversion() { delete envelope; }
    KVXSoapConverter converter;
    KVXSoapEnvelope *envelope = nullptr;
    int result;
};

} // namespace

TEST(MessageToSoap, ResponseEnvelopeSoap11) {
    MessagePtr message = reply();
    addValue(*message, "data/server", "uptime", 5);
    Conversion c(*message, SoapVersion11);
    ASSERT_EQ(0, c.result);
    ASSERT_NE(nullptr, c.envelope);
    EXPECT_EQ(nullptr, c.converter.getFault());
    EXPECT_EQ(nullptr, dynamic_cast<KVXSoapFault *>(c.envelope));
    std::string expected = std::string(EnvelopeHead11) + "<soap:Header>\n" + cookieHeader("4.5.0") +
                           "</soap:Header>\n<soap:Body>\n" + "<getinfoResponse xmlns=\"" +
                           ServerUri + "\">\n<uptime>5</uptime>\n</getinfoResponse>\n" +
                           "</soap:Body>\n</soap:Envelope>";
    EXPECT_EQ(expected, text(c.envelope));
}

TEST(MessageToSoap, ResponseEnvelopeSoap12DiffersOnlyByUri) {
    MessagePtr message = reply();
    addValue(*message, "data/server", "uptime", 5);
    Conversion c(*message, SoapVersion12);
    ASSERT_EQ(0, c.result);
    EXPECT_EQ("http://www.w3.org/2003/05/soap-envelope", c.envelope->soapURI);
    EXPECT_EQ(cookieHeader("4.5.0"), c.envelope->header);
    std::string expected = std::string(EnvelopeHead12) + "<soap:Header>\n" + cookieHeader("4.5.0") +
                           "</soap:Header>\n<soap:Body>\n" + "<getinfoResponse xmlns=\"" +
                           ServerUri + "\">\n<uptime>5</uptime>\n</getinfoResponse>\n" +
                           "</soap:Body>\n</soap:Envelope>";
    EXPECT_EQ(expected, text(c.envelope));
}

TEST(MessageToSoap, VersionSegmentFromSessionIdentifier) {
    struct Case {
        char const *session;
        char const *segment;
    } const cases[] = {{"kvx.40500.1.a.b.c", "4.5.0"},
                       {"kvx.30005.1.a.b.c", "3.0.5"},
                       {"kvx.120304.1.a.b.c", "12.3.4"}};
    for (Case const &one : cases) {
        MessagePtr message = reply();
        ASSERT_EQ(0, message->setSessionID(one.session));
        Conversion c(*message, SoapVersion11);
        ASSERT_EQ(0, c.result);
        std::string header = c.envelope->header;
        std::string prefix =
            std::string("<packet_header xmlns=\"http://www.kvx.org/webservices/kvx/") +
            one.segment + "/protocol\">";
        EXPECT_EQ(0u, header.find(prefix)) << one.session;
    }
}

TEST(MessageToSoap, PlainWordSessionIgnoresHeaderVersion) {
    MessagePtr message = reply();
    ASSERT_EQ(0, message->setVersion(30005));
    ASSERT_EQ(0, message->setSessionID("word"));
    Conversion c(*message, SoapVersion11);
    ASSERT_EQ(0, c.result);
    EXPECT_NE(std::string::npos, c.envelope->header.find("/kvx/4.5.0/protocol\""));
}

TEST(MessageToSoap, HeaderVersionWithoutSession) {
    MessagePtr message = reply();
    ASSERT_EQ(0, message->setVersion(30005));
    Conversion c(*message, SoapVersion11);
    ASSERT_EQ(0, c.result);
    EXPECT_NE(std::string::npos, c.envelope->header.find("/kvx/3.0.5/protocol\""));
}

TEST(MessageToSoap, OperatorErrorBecomesServerFault11) {
    MessagePtr message = reply();
    addValue(*message, "data/server", "error", 3);
    Conversion c(*message, SoapVersion11);
    ASSERT_EQ(0, c.result);
    EXPECT_EQ(nullptr, c.converter.getFault());
    KVXSoapFault *fault = dynamic_cast<KVXSoapFault *>(c.envelope);
    ASSERT_NE(nullptr, fault);
    EXPECT_EQ(KVXSoapFault::CodeServer, fault->code);
    std::string expected =
        std::string(EnvelopeHead11) + "<soap:Header>\n" + cookieHeader("4.5.0") +
        "</soap:Header>\n<soap:Body>\n" + "<soap:Fault>\n<faultcode>soap:Server</faultcode>\n" +
        "<faultstring>KVAgent responded with error</faultstring>\n" +
        "<detail>\n<error>3</error>\n</detail>\n</soap:Fault>\n" + "</soap:Body>\n</soap:Envelope>";
    EXPECT_EQ(expected, text(c.envelope));
}

TEST(MessageToSoap, SystemErrorWinsAndCollectsEveryError12) {
    MessagePtr message = reply();
    addValue(*message, "data", "error", 1);
    addValue(*message, "data", "error", 2);
    addValue(*message, "data/server", "error", 9);
    Conversion c(*message, SoapVersion12);
    ASSERT_EQ(0, c.result);
    KVXSoapFault *fault = dynamic_cast<KVXSoapFault *>(c.envelope);
    ASSERT_NE(nullptr, fault);
    EXPECT_EQ("<error>1</error>\n<error>2</error>\n", fault->detail);
    std::string expected =
        std::string(EnvelopeHead12) + "<soap:Header>\n" + cookieHeader("4.5.0") +
        "</soap:Header>\n<soap:Body>\n" +
        "<soap:Fault>\n<soap:Code>\n<soap:Value>soap:Receiver</soap:Value>\n" +
        "</soap:Code>\n<soap:Reason>\n<soap:Text>KVAgent responded with error" +
        "</soap:Text>\n</soap:Reason>\n<detail>\n<error>1</error>\n" +
        "<error>2</error>\n</detail>\n</soap:Fault>\n</soap:Body>\n</soap:Envelope>";
    EXPECT_EQ(expected, text(c.envelope));
}

TEST(MessageToSoap, ErrorWithoutCookieFailsWithCookieWords) {
    MessagePtr message = reply(false);
    addValue(*message, "data", "error", 1);
    Conversion c(*message, SoapVersion11);
    EXPECT_EQ(-1, c.result);
    EXPECT_EQ(nullptr, c.envelope);
    ASSERT_NE(nullptr, c.converter.getFault());
    EXPECT_EQ("Cannot get cookie!", c.converter.getFault()->faultString);
    EXPECT_EQ(KVXSoapFault::CodeClient, c.converter.getFault()->code);
}

TEST(MessageToSoap, CookieWithoutRequestOrName) {
    {
        MessagePtr message = reply(false);
        std::unique_ptr<KVXMessageIterator> cursor(message->newIterator());
        ASSERT_EQ(0, cursor->newChild("cookie"));
        ASSERT_EQ(0, cursor->putValue(std::string(ServerUri), 1026));
        Conversion c(*message, SoapVersion11);
        EXPECT_EQ(-1, c.result);
        ASSERT_NE(nullptr, c.converter.getFault());
        EXPECT_EQ("Cannot get original operation name from KVAgent message",
                  c.converter.getFault()->faultString);
    }
    {
        MessagePtr message = reply(false);
        std::unique_ptr<KVXMessageIterator> cursor(message->newIterator());
        ASSERT_EQ(0, cursor->newChild("cookie"));
        ASSERT_EQ(0, cursor->putValue(std::string("getinfo"), 1322));
        Conversion c(*message, SoapVersion12);
        EXPECT_EQ(-1, c.result);
        ASSERT_NE(nullptr, c.converter.getFault());
        EXPECT_EQ("Cannot get original operation namespace from KVAgent message",
                  c.converter.getFault()->faultString);
    }
}

TEST(MessageToSoap, UnsupportedVersionOnFailureIsSoap11Fault) {
    MessagePtr message = reply(false);
    Conversion c(*message, SoapVersionNone);
    EXPECT_EQ(-1, c.result);
    ASSERT_NE(nullptr, c.converter.getFault());
    EXPECT_EQ("Unsupported soap version", c.converter.getFault()->faultString);
    EXPECT_EQ("http://schemas.xmlsoap.org/soap/envelope/", c.converter.getFault()->soapURI);
}

TEST(MessageToSoap, UnsupportedVersionOnSuccessLeavesNoFault) {
    MessagePtr message = reply();
    Conversion c(*message, SoapVersionNone);
    EXPECT_EQ(-1, c.result);
    EXPECT_EQ(nullptr, c.envelope);
    EXPECT_EQ(nullptr, c.converter.getFault());
}

TEST(MessageToSoap, UnsupportedVersionOnErrorReplyFallsBackToSoap11) {
    MessagePtr message = reply();
    addValue(*message, "data", "error", 1);
    Conversion c(*message, static_cast<SoapVersion>(3));
    EXPECT_EQ(-1, c.result);
    ASSERT_NE(nullptr, c.converter.getFault());
    EXPECT_EQ("Unsupported soap version", c.converter.getFault()->faultString);
}

TEST(MessageToSoap, NoChildUnderDataWritesDataItself) {
    MessagePtr message = reply(true, "");
    Conversion c(*message, SoapVersion11);
    ASSERT_EQ(0, c.result);
    // curName of `data` is not empty, so the start tag is closed.
    EXPECT_EQ(std::string("<getinfoResponse xmlns=\"") + ServerUri +
                  "\">\n<data/>\n</getinfoResponse>\n",
              c.envelope->body);
}

TEST(MessageToSoap, SystemReplyWithConfigurationIsWrittenWhole) {
    MessagePtr message = reply(true, "system");
    addValue(*message, "data/system", "configuration", 1);
    Conversion c(*message, SoapVersion11);
    ASSERT_EQ(0, c.result);
    EXPECT_EQ(std::string("<getinfoResponse xmlns=\"") + ServerUri +
                  "\">\n<system>\n<configuration>1</configuration>\n</system>\n"
                  "</getinfoResponse>\n",
              c.envelope->body);
}

TEST(MessageToSoap, SystemReplyWithoutConfigurationIsWrittenFromChildren) {
    MessagePtr message = reply(true, "system");
    addValue(*message, "data/system", "uptime", 7);
    Conversion c(*message, SoapVersion11);
    ASSERT_EQ(0, c.result);
    EXPECT_EQ(std::string("<getinfoResponse xmlns=\"") + ServerUri +
                  "\">\n<uptime>7</uptime>\n</getinfoResponse>\n",
              c.envelope->body);
}

TEST(MessageToSoap, DataIsGoneAfterConversion) {
    MessagePtr message = reply();
    addValue(*message, "data/server", "uptime", 5);
    {
        Conversion first(*message, SoapVersion11);
        ASSERT_EQ(0, first.result);
    }
    std::unique_ptr<KVXMessageIterator> cursor(message->newIterator());
    EXPECT_EQ(-1, cursor->seek("data"));
    // Without data the first element child of the root, `cookie`, stands in
    // for the operator's element and is written from its children.
    Conversion second(*message, SoapVersion11);
    ASSERT_EQ(0, second.result);
    EXPECT_EQ(std::string("<getinfoResponse xmlns=\"") + ServerUri +
                  "\">\n<request>getinfo</request>\n<name>" + ServerUri +
                  "</name>\n</getinfoResponse>\n",
              second.envelope->body);
    // The packet keeps its root: the header is written as before.
    EXPECT_EQ(cookieHeader("4.5.0"), second.envelope->header);
}

namespace {

// Adds an element `name` under `parent` (the root for an empty name) holding an
// attribute node with an id that has no attribute name (150): the text writer
// cannot write it, so the text of that element is not obtained.
void addUnwritable(KVXMessage &message, std::string const &parent, std::string const &name) {
    std::unique_ptr<KVXMessageIterator> cursor(message.newIterator());
    ASSERT_EQ(0, cursor->seek(parent));
    if (!name.empty()) {
        ASSERT_EQ(0, cursor->newChild(name));
    }
    ASSERT_EQ(0, cursor->newChild(150));
}

std::string failureWords(KVXMessage &message, SoapVersion version) {
    Conversion c(message, version);
    EXPECT_EQ(-1, c.result);
    EXPECT_EQ(nullptr, c.envelope);
    KVXSoapFault *fault = c.converter.getFault();
    if (fault == nullptr)
        return "<no fault>";
    EXPECT_EQ(KVXSoapFault::CodeClient, fault->code);
    return fault->faultString;
}

} // namespace

TEST(MessageToSoap, SystemErrorTextNotObtained) {
    MessagePtr message = reply();
    addUnwritable(*message, "data", "error");
    EXPECT_EQ("Cannot get system error from KVAgent message",
              failureWords(*message, SoapVersion11));
}

TEST(MessageToSoap, OperatorErrorTextNotObtained) {
    MessagePtr message = reply();
    addUnwritable(*message, "data/server", "error");
    EXPECT_EQ("Cannot get operator error from KVAgent message",
              failureWords(*message, SoapVersion12));
}

TEST(MessageToSoap, ResponseTextNotObtained) {
    MessagePtr message = reply();
    addUnwritable(*message, "data/server", "uptime");
    EXPECT_EQ("Cannot get response from KVAgent message", failureWords(*message, SoapVersion11));
}

TEST(MessageToSoap, HeaderTextNotObtained) {
    MessagePtr message = reply();
    addValue(*message, "data/server", "uptime", 5);
    addUnwritable(*message, "", "");
    EXPECT_EQ("Cannot parse KVAgent message", failureWords(*message, SoapVersion12));
}

TEST(MessageToSoap, FailureWithUnsupportedVersionReportsUnsupportedVersion) {
    MessagePtr message = reply();
    addUnwritable(*message, "data/server", "uptime");
    Conversion c(*message, SoapVersionNone);
    EXPECT_EQ(-1, c.result);
    ASSERT_NE(nullptr, c.converter.getFault());
    EXPECT_EQ("Unsupported soap version", c.converter.getFault()->faultString);
    EXPECT_EQ("http://schemas.xmlsoap.org/soap/envelope/", c.converter.getFault()->soapURI);
}
