// The whole road for a web service client, per SOAP version: a request
// envelope with a packet header becomes a packet, genReply answers it, a
// handler fills `data`, and the reply becomes a SOAP response (or, with an
// operator error, a fault), compared byte for byte with golden files.
#include <kvx/KVXBinaryIterator.h>
#include <kvx/KVXMsgFactory.h>
#include <kvx/KVXSoapConverter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

using namespace KVX;

namespace {

std::string readData(std::string const &name) {
    std::ifstream in(std::string(KVX_TEST_DATA_DIR) + "/soap/" + name, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

struct MessageDeleter {
    void operator()(KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};
typedef std::unique_ptr<KVXMessage, MessageDeleter> MessagePtr;

// The agent's side: answers the request with uptime and hostname, or with an
// operator error.
MessagePtr handle(KVXMessage const &request, bool fail) {
    MessagePtr reply(request.genReply("agent"));
    std::unique_ptr<KVXMessageIterator> cursor(reply->newIterator());
    EXPECT_EQ(0, cursor->seek("data"));
    EXPECT_EQ(0, cursor->newChild("server"));
    if (fail) {
        EXPECT_EQ(0, cursor->putValue(std::string("filter not supported"), "error"));
    } else {
        EXPECT_EQ(0, cursor->putValue(3600, "uptime"));
        EXPECT_EQ(0, cursor->putValue(std::string("node1"), "hostname"));
    }
    return reply;
}

// Request text to response text through the converter.
std::string roundTrip(std::string const &request, SoapVersion version, bool fail) {
    KVXSoapConverter converter;
    MessagePtr packet(KVXMsgFactory::createNew());
    EXPECT_EQ(0, converter.soapToKvxmsg(request.c_str(), *packet));
    EXPECT_EQ(version, converter.getSoapVersion());
    MessagePtr reply = handle(*packet, fail);
    KVXSoapEnvelope *envelope = nullptr;
    EXPECT_EQ(0, converter.kvxmsgToSoap(*reply, converter.getSoapVersion(), envelope));
    if (envelope == nullptr)
        return std::string();
    EXPECT_EQ(fail, dynamic_cast<KVXSoapFault *>(envelope) != nullptr);
    char *text = envelope->toText();
    std::string result = text != nullptr ? text : "";
    std::free(text);
    delete envelope;
    return result;
}

} // namespace

TEST(SoapRoundTrip, Soap11ResponseMatchesGolden) {
    EXPECT_EQ(readData("response_11.xml"),
              roundTrip(readData("request_11.xml"), SoapVersion11, false));
}

TEST(SoapRoundTrip, Soap12ResponseMatchesGolden) {
    EXPECT_EQ(readData("response_12.xml"),
              roundTrip(readData("request_12.xml"), SoapVersion12, false));
}

TEST(SoapRoundTrip, Soap11OperatorErrorMatchesGoldenFault) {
    EXPECT_EQ(readData("fault_11.xml"), roundTrip(readData("request_11.xml"), SoapVersion11, true));
}

TEST(SoapRoundTrip, Soap12OperatorErrorMatchesGoldenFault) {
    EXPECT_EQ(readData("fault_12.xml"), roundTrip(readData("request_12.xml"), SoapVersion12, true));
}
