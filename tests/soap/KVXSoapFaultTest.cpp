// Tests of KVXSoapFault, KVXSoapFault11 and KVXSoapFault12: construction, createSoapFault, the code
// names of each class and the byte-exact fault documents of both SOAP versions.
#include <kvx/KVXSoapFault.h>

#include <kvx/KVXCommon.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

using KVX::KVXSoapEnvelope;
using KVX::KVXSoapFault;
using KVX::KVXSoapFault11;
using KVX::KVXSoapFault12;

namespace {

const char Soap11Uri[] = "http://schemas.xmlsoap.org/soap/envelope/";
const char Soap12Uri[] = "http://www.w3.org/2003/05/soap-envelope";

const char EnvelopeStart11[] =
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";

const char EnvelopeStart12[] =
    "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";

const char EnvelopeEnd[] = "</soap:Body>\n</soap:Envelope>";

std::string takeText(char *text) {
    EXPECT_NE(nullptr, text);
    if (text == nullptr)
        return std::string();
    std::string result(text);
    std::free(text);
    return result;
}

// Counts assertions instead of aborting, for the length of one test.
int assertionCount = 0;

void countAssertion(char const *, char const *, int) {
    ++assertionCount;
}

class AssertCounter {
public:
    AssertCounter() : previous(KVX::setAssertHandler(countAssertion)) { assertionCount = 0; }
    ~AssertCounter() { KVX::setAssertHandler(previous); }

private:
    KVX::AssertHandler previous;
};

// The abstract base made concrete, with its code names opened to the tests.
class BaseFault : public KVXSoapFault {
public:
    BaseFault(Code faultCode, std::string const &reason)
        : KVXSoapFault("urn:base", faultCode, reason) {}
    char *toText() override { return assembly(); }
    using KVXSoapFault::faultCodeToString;
};

class OpenFault11 : public KVXSoapFault11 {
public:
    using KVXSoapFault11::assembly;
    using KVXSoapFault11::faultCodeToString;
    using KVXSoapFault11::KVXSoapFault11;
};

class OpenFault12 : public KVXSoapFault12 {
public:
    using KVXSoapFault12::assembly;
    using KVXSoapFault12::faultCodeToString;
    using KVXSoapFault12::KVXSoapFault12;
};

} // namespace

// --- construction --------------------------------------------------------------------------------

TEST(KVXSoapFault, CodeEnumeratorsHaveTheirNumbers) {
    EXPECT_EQ(0, static_cast<int>(KVXSoapFault::CodeVersionMismatch));
    EXPECT_EQ(1, static_cast<int>(KVXSoapFault::CodeMustUnderstand));
    EXPECT_EQ(2, static_cast<int>(KVXSoapFault::CodeClient));
    EXPECT_EQ(3, static_cast<int>(KVXSoapFault::CodeServer));
}

TEST(KVXSoapFault, BaseConstructorSetsUriCodeAndStringOnly) {
    BaseFault fault(KVXSoapFault::CodeServer, "broken");
    EXPECT_EQ("urn:base", fault.soapURI);
    EXPECT_EQ(KVXSoapFault::CodeServer, fault.code);
    EXPECT_EQ("broken", fault.faultString);
    EXPECT_EQ("", fault.detail);
    EXPECT_EQ("", fault.header);
    EXPECT_EQ("", fault.body);
}

TEST(KVXSoapFault11, ConstructorTakesSoap11Uri) {
    KVXSoapFault11 fault(KVXSoapFault::CodeClient, "bad");
    EXPECT_EQ(Soap11Uri, fault.soapURI);
    EXPECT_EQ(KVXSoapFault::CodeClient, fault.code);
    EXPECT_EQ("bad", fault.faultString);
    EXPECT_EQ("", fault.detail);
    EXPECT_EQ("", fault.header);
    EXPECT_EQ("", fault.body);
}

TEST(KVXSoapFault12, ConstructorTakesSoap12Uri) {
    KVXSoapFault12 fault(KVXSoapFault::CodeMustUnderstand, "bad");
    EXPECT_EQ(Soap12Uri, fault.soapURI);
    EXPECT_EQ(KVXSoapFault::CodeMustUnderstand, fault.code);
    EXPECT_EQ("bad", fault.faultString);
    EXPECT_EQ("", fault.detail);
}

TEST(KVXSoapFault11, CopyConstructorCopiesAllFields) {
    KVXSoapFault11 fault(KVXSoapFault::CodeServer, "s");
    fault.header = "h";
    fault.body = "b";
    fault.detail = "d";
    KVXSoapFault11 copy(fault);
    EXPECT_EQ(Soap11Uri, copy.soapURI);
    EXPECT_EQ("h", copy.header);
    EXPECT_EQ("b", copy.body);
    EXPECT_EQ(KVXSoapFault::CodeServer, copy.code);
    EXPECT_EQ("s", copy.faultString);
    EXPECT_EQ("d", copy.detail);
}

TEST(KVXSoapFault12, AssignmentCopiesAllFields) {
    KVXSoapFault12 fault(KVXSoapFault::CodeServer, "s");
    fault.soapURI = "urn:changed";
    fault.header = "h";
    fault.body = "b";
    fault.detail = "d";
    KVXSoapFault12 other(KVXSoapFault::CodeClient, "other");
    other.detail = "old";
    other = fault;
    EXPECT_EQ("urn:changed", other.soapURI);
    EXPECT_EQ("h", other.header);
    EXPECT_EQ("b", other.body);
    EXPECT_EQ(KVXSoapFault::CodeServer, other.code);
    EXPECT_EQ("s", other.faultString);
    EXPECT_EQ("d", other.detail);
}

// --- createSoapFault -----------------------------------------------------------------------------

TEST(KVXSoapFault, CreateSoapFault11MakesAVersion11Fault) {
    std::unique_ptr<KVXSoapFault> fault(
        KVXSoapFault::createSoapFault(KVX::SoapVersion11, KVXSoapFault::CodeClient, "why"));
    ASSERT_NE(nullptr, fault.get());
    EXPECT_NE(nullptr, dynamic_cast<KVXSoapFault11 *>(fault.get()));
    EXPECT_EQ(Soap11Uri, fault->soapURI);
    EXPECT_EQ(KVXSoapFault::CodeClient, fault->code);
    EXPECT_EQ("why", fault->faultString);
    EXPECT_EQ("", fault->detail);
}

TEST(KVXSoapFault, CreateSoapFault12MakesAVersion12Fault) {
    std::unique_ptr<KVXSoapFault> fault(
        KVXSoapFault::createSoapFault(KVX::SoapVersion12, KVXSoapFault::CodeServer, "why"));
    ASSERT_NE(nullptr, fault.get());
    EXPECT_NE(nullptr, dynamic_cast<KVXSoapFault12 *>(fault.get()));
    EXPECT_EQ(Soap12Uri, fault->soapURI);
    EXPECT_EQ(KVXSoapFault::CodeServer, fault->code);
    EXPECT_EQ("why", fault->faultString);
}

TEST(KVXSoapFault, CreateSoapFaultOfVersionNoneIsNull) {
    EXPECT_EQ(nullptr,
              KVXSoapFault::createSoapFault(KVX::SoapVersionNone, KVXSoapFault::CodeClient, "x"));
}

TEST(KVXSoapFault, CreateSoapFaultOfUnknownVersionIsNull) {
    EXPECT_EQ(nullptr, KVXSoapFault::createSoapFault(static_cast<KVX::SoapVersion>(3),
                                                     KVXSoapFault::CodeClient, "x"));
}

// --- faultCodeToString ---------------------------------------------------------------------------

TEST(KVXSoapFault, BaseNamesOnlySharedCodes) {
    BaseFault fault(KVXSoapFault::CodeClient, "");
    EXPECT_EQ("VersionMismatch", fault.faultCodeToString(KVXSoapFault::CodeVersionMismatch));
    EXPECT_EQ("MustUnderstand", fault.faultCodeToString(KVXSoapFault::CodeMustUnderstand));
    EXPECT_EQ("", fault.faultCodeToString(KVXSoapFault::CodeClient));
    EXPECT_EQ("", fault.faultCodeToString(KVXSoapFault::CodeServer));
}

TEST(KVXSoapFault11, NamesClientAndServer) {
    AssertCounter counter;
    OpenFault11 fault(KVXSoapFault::CodeClient, "");
    EXPECT_EQ("VersionMismatch", fault.faultCodeToString(KVXSoapFault::CodeVersionMismatch));
    EXPECT_EQ("MustUnderstand", fault.faultCodeToString(KVXSoapFault::CodeMustUnderstand));
    EXPECT_EQ("Client", fault.faultCodeToString(KVXSoapFault::CodeClient));
    EXPECT_EQ("Server", fault.faultCodeToString(KVXSoapFault::CodeServer));
    EXPECT_EQ(0, assertionCount);
}

TEST(KVXSoapFault12, NamesSenderAndReceiver) {
    AssertCounter counter;
    OpenFault12 fault(KVXSoapFault::CodeClient, "");
    EXPECT_EQ("VersionMismatch", fault.faultCodeToString(KVXSoapFault::CodeVersionMismatch));
    EXPECT_EQ("MustUnderstand", fault.faultCodeToString(KVXSoapFault::CodeMustUnderstand));
    EXPECT_EQ("Sender", fault.faultCodeToString(KVXSoapFault::CodeClient));
    EXPECT_EQ("Receiver", fault.faultCodeToString(KVXSoapFault::CodeServer));
    EXPECT_EQ(0, assertionCount);
}

// --- SOAP 1.1 layout -----------------------------------------------------------------------------

TEST(KVXSoapFault11, LayoutWithoutDetail) {
    KVXSoapFault11 fault(KVXSoapFault::CodeClient, "Version mismatch");
    EXPECT_EQ(std::string(EnvelopeStart11) +
                  "<soap:Body>\n"
                  "<soap:Fault>\n"
                  "<faultcode>soap:Client</faultcode>\n"
                  "<faultstring>Version mismatch</faultstring>\n"
                  "</soap:Fault>\n" +
                  EnvelopeEnd,
              takeText(fault.toText()));
}

TEST(KVXSoapFault11, LayoutWithDetail) {
    KVXSoapFault11 fault(KVXSoapFault::CodeServer, "KVAgent responded with error");
    fault.detail = "<error>7</error>\n";
    EXPECT_EQ(std::string(EnvelopeStart11) +
                  "<soap:Body>\n"
                  "<soap:Fault>\n"
                  "<faultcode>soap:Server</faultcode>\n"
                  "<faultstring>KVAgent responded with error</faultstring>\n"
                  "<detail>\n<error>7</error>\n</detail>\n"
                  "</soap:Fault>\n" +
                  EnvelopeEnd,
              takeText(fault.toText()));
}

TEST(KVXSoapFault11, LayoutKeepsHeader) {
    KVXSoapFault11 fault(KVXSoapFault::CodeVersionMismatch, "v");
    fault.header = "<packet_header/>\n";
    EXPECT_EQ(std::string(EnvelopeStart11) +
                  "<soap:Header>\n<packet_header/>\n</soap:Header>\n"
                  "<soap:Body>\n"
                  "<soap:Fault>\n"
                  "<faultcode>soap:VersionMismatch</faultcode>\n"
                  "<faultstring>v</faultstring>\n"
                  "</soap:Fault>\n" +
                  EnvelopeEnd,
              takeText(fault.toText()));
    EXPECT_EQ("<packet_header/>\n", fault.header);
}

TEST(KVXSoapFault11, ToTextReplacesBody) {
    KVXSoapFault11 fault(KVXSoapFault::CodeMustUnderstand, "m");
    fault.body = "stale";
    takeText(fault.toText());
    EXPECT_EQ("<soap:Fault>\n"
              "<faultcode>soap:MustUnderstand</faultcode>\n"
              "<faultstring>m</faultstring>\n"
              "</soap:Fault>\n",
              fault.body);
}

TEST(KVXSoapFault11, RepeatedToTextGivesSameText) {
    KVXSoapFault11 fault(KVXSoapFault::CodeClient, "c");
    fault.detail = "d";
    std::string const first = takeText(fault.toText());
    std::string const second = takeText(fault.toText());
    EXPECT_EQ(first, second);
    EXPECT_EQ(std::string(EnvelopeStart11) +
                  "<soap:Body>\n<soap:Fault>\n<faultcode>soap:Client</faultcode>\n"
                  "<faultstring>c</faultstring>\n<detail>\nd</detail>\n</soap:Fault>\n" +
                  EnvelopeEnd,
              second);
}

TEST(KVXSoapFault11, ToTextFollowsChangedFields) {
    KVXSoapFault11 fault(KVXSoapFault::CodeClient, "first");
    fault.detail = "d";
    takeText(fault.toText());
    fault.code = KVXSoapFault::CodeServer;
    fault.faultString = "second";
    fault.detail.clear();
    EXPECT_EQ(std::string(EnvelopeStart11) +
                  "<soap:Body>\n<soap:Fault>\n<faultcode>soap:Server</faultcode>\n"
                  "<faultstring>second</faultstring>\n</soap:Fault>\n" +
                  EnvelopeEnd,
              takeText(fault.toText()));
}

TEST(KVXSoapFault11, FaultStringWithAngleBracketGoesOutAsItStands) {
    KVXSoapFault11 fault(KVXSoapFault::CodeClient, "a <b> & c");
    std::string const text = takeText(fault.toText());
    EXPECT_NE(std::string::npos, text.find("<faultstring>a <b> & c</faultstring>\n"));
}

TEST(KVXSoapFault11, AssemblyBeforeToTextHasEmptyBody) {
    OpenFault11 fault(KVXSoapFault::CodeClient, "c");
    EXPECT_EQ(std::string(EnvelopeStart11) + "<soap:Body>\n" + EnvelopeEnd,
              takeText(fault.assembly()));
}

TEST(KVXSoapFault11, ToTextThroughEnvelopePointerWritesTheFault) {
    std::unique_ptr<KVXSoapEnvelope> envelope(
        KVXSoapFault::createSoapFault(KVX::SoapVersion11, KVXSoapFault::CodeClient, "c"));
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ(std::string(EnvelopeStart11) +
                  "<soap:Body>\n<soap:Fault>\n<faultcode>soap:Client</faultcode>\n"
                  "<faultstring>c</faultstring>\n</soap:Fault>\n" +
                  EnvelopeEnd,
              takeText(envelope->toText()));
}

// --- SOAP 1.2 layout -----------------------------------------------------------------------------

TEST(KVXSoapFault12, LayoutWithoutDetail) {
    KVXSoapFault12 fault(KVXSoapFault::CodeClient, "Version mismatch");
    EXPECT_EQ(std::string(EnvelopeStart12) +
                  "<soap:Body>\n"
                  "<soap:Fault>\n"
                  "<soap:Code>\n<soap:Value>soap:Sender</soap:Value>\n</soap:Code>\n"
                  "<soap:Reason>\n<soap:Text>Version mismatch</soap:Text>\n</soap:Reason>\n"
                  "</soap:Fault>\n" +
                  EnvelopeEnd,
              takeText(fault.toText()));
}

TEST(KVXSoapFault12, LayoutWithUnqualifiedDetail) {
    KVXSoapFault12 fault(KVXSoapFault::CodeServer, "KVAgent responded with error");
    fault.detail = "<error>7</error>\n";
    EXPECT_EQ(std::string(EnvelopeStart12) +
                  "<soap:Body>\n"
                  "<soap:Fault>\n"
                  "<soap:Code>\n<soap:Value>soap:Receiver</soap:Value>\n</soap:Code>\n"
                  "<soap:Reason>\n<soap:Text>KVAgent responded with error</soap:Text>\n"
                  "</soap:Reason>\n"
                  "<detail>\n<error>7</error>\n</detail>\n"
                  "</soap:Fault>\n" +
                  EnvelopeEnd,
              takeText(fault.toText()));
}

TEST(KVXSoapFault12, LayoutKeepsHeader) {
    KVXSoapFault12 fault(KVXSoapFault::CodeMustUnderstand, "m");
    fault.header = "<h/>\n";
    EXPECT_EQ(std::string(EnvelopeStart12) +
                  "<soap:Header>\n<h/>\n</soap:Header>\n"
                  "<soap:Body>\n"
                  "<soap:Fault>\n"
                  "<soap:Code>\n<soap:Value>soap:MustUnderstand</soap:Value>\n</soap:Code>\n"
                  "<soap:Reason>\n<soap:Text>m</soap:Text>\n</soap:Reason>\n"
                  "</soap:Fault>\n" +
                  EnvelopeEnd,
              takeText(fault.toText()));
}

TEST(KVXSoapFault12, RepeatedToTextGivesSameText) {
    KVXSoapFault12 fault(KVXSoapFault::CodeVersionMismatch, "v");
    fault.body = "stale";
    std::string const first = takeText(fault.toText());
    std::string const second = takeText(fault.toText());
    EXPECT_EQ(first, second);
    EXPECT_EQ("<soap:Fault>\n"
              "<soap:Code>\n<soap:Value>soap:VersionMismatch</soap:Value>\n</soap:Code>\n"
              "<soap:Reason>\n<soap:Text>v</soap:Text>\n</soap:Reason>\n"
              "</soap:Fault>\n",
              fault.body);
}

TEST(KVXSoapFault12, FaultStringWithAngleBracketGoesOutAsItStands) {
    KVXSoapFault12 fault(KVXSoapFault::CodeClient, "x<y");
    std::string const text = takeText(fault.toText());
    EXPECT_NE(std::string::npos, text.find("<soap:Text>x<y</soap:Text>\n"));
}

TEST(KVXSoapFault12, FaultTextReadsBackAsEnvelope) {
    KVXSoapFault12 fault(KVXSoapFault::CodeServer, "r");
    std::string const text = takeText(fault.toText());
    std::unique_ptr<KVXSoapEnvelope> envelope(KVXSoapEnvelope::fromText(text.c_str()));
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ(Soap12Uri, envelope->soapURI);
    EXPECT_EQ("", envelope->header);
    EXPECT_EQ("<soap:Body>\n" + fault.body + "</soap:Body>", envelope->body);
}
