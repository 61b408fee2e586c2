// Tests of KVXSoapEnvelope: soapVersions, the case-insensitive string, byte-exact assembly and the
// text-search parser with its accepted and refused inputs.
#include <kvx/KVXSoapEnvelope.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

using KVX::istring;
using KVX::KVXSoapEnvelope;

namespace {

const char Soap11Uri[] = "http://schemas.xmlsoap.org/soap/envelope/";
const char Soap12Uri[] = "http://www.w3.org/2003/05/soap-envelope";

const char EnvelopeStart11[] =
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";

// Takes ownership of a malloc'ed text and gives it back as a string.
std::string takeText(char *text) {
    EXPECT_NE(nullptr, text);
    if (text == nullptr)
        return std::string();
    std::string result(text);
    std::free(text);
    return result;
}

// Opens the protected assembly() to the tests.
class OpenEnvelope : public KVXSoapEnvelope {
public:
    using KVXSoapEnvelope::assembly;
    using KVXSoapEnvelope::KVXSoapEnvelope;
};

std::unique_ptr<KVXSoapEnvelope> parse(char const *text) {
    return std::unique_ptr<KVXSoapEnvelope>(KVXSoapEnvelope::fromText(text));
}

// True when fromText gives no envelope for `text`.
bool refused(char const *text) {
    return parse(text) == nullptr;
}

std::string plain(istring const &text) {
    return std::string(text.data(), text.size());
}

} // namespace

// --- SoapVersion and soapVersions ----------------------------------------------------------------

TEST(SoapVersion, EnumeratorsHaveTheirNumbers) {
    EXPECT_EQ(0, static_cast<int>(KVX::SoapVersionNone));
    EXPECT_EQ(1, static_cast<int>(KVX::SoapVersion11));
    EXPECT_EQ(2, static_cast<int>(KVX::SoapVersion12));
}

TEST(SoapVersions, HasExactlyThreeRowsInByteOrder) {
    ASSERT_EQ(3u, KVX::soapVersions.size());
    auto row = KVX::soapVersions.begin();
    EXPECT_EQ("", row->first);
    EXPECT_EQ(KVX::SoapVersionNone, row->second);
    ++row;
    EXPECT_EQ(Soap11Uri, row->first);
    EXPECT_EQ(KVX::SoapVersion11, row->second);
    ++row;
    EXPECT_EQ(Soap12Uri, row->first);
    EXPECT_EQ(KVX::SoapVersion12, row->second);
}

TEST(SoapVersions, LookupFindsEachUri) {
    EXPECT_EQ(KVX::SoapVersionNone, KVX::soapVersions.at(""));
    EXPECT_EQ(KVX::SoapVersion11, KVX::soapVersions.at(Soap11Uri));
    EXPECT_EQ(KVX::SoapVersion12, KVX::soapVersions.at(Soap12Uri));
}

TEST(SoapVersions, LookupIsCaseSensitive) {
    EXPECT_EQ(KVX::soapVersions.end(),
              KVX::soapVersions.find("HTTP://SCHEMAS.XMLSOAP.ORG/SOAP/ENVELOPE/"));
    EXPECT_EQ(KVX::soapVersions.end(),
              KVX::soapVersions.find("http://www.w3.org/2003/05/SOAP-envelope"));
}

TEST(SoapVersions, LookupNeedsTheWholeUri) {
    EXPECT_EQ(KVX::soapVersions.end(),
              KVX::soapVersions.find("http://schemas.xmlsoap.org/soap/envelope"));
}

// --- ignorecase_traits ---------------------------------------------------------------------------

TEST(IgnoreCaseTraits, FindMatchesWithoutRegardToCase) {
    istring text("<SOAP:Envelope xmlns:soap=\"x\">");
    EXPECT_EQ(5u, text.find(":envelope "));
    EXPECT_EQ(5u, text.find(":ENVELOPE "));
    EXPECT_EQ(15u, text.find("XMLNS:SOAP"));
    EXPECT_EQ(istring::npos, text.find(":envelope>"));
}

TEST(IgnoreCaseTraits, FindOfCharacterMatchesWithoutRegardToCase) {
    istring text("abcABC");
    EXPECT_EQ(1u, text.find('B'));
    EXPECT_EQ(1u, text.find('b'));
    EXPECT_EQ(4u, text.find('b', 2));
}

TEST(IgnoreCaseTraits, RfindMatchesWithoutRegardToCase) {
    istring text("<Body>x</BODY>");
    EXPECT_EQ(7u, text.rfind("</body"));
    EXPECT_EQ(0u, text.rfind("<BODY"));
    EXPECT_EQ(12u, text.rfind('y'));
    EXPECT_EQ(4u, text.rfind('Y', 11));
}

TEST(IgnoreCaseTraits, TextKeepsItsOwnCase) {
    istring text("MixedCase");
    EXPECT_EQ("MixedCase", plain(text));
    EXPECT_EQ("Case", plain(text.substr(5)));
}

TEST(IgnoreCaseTraits, EqualityIgnoresCase) {
    EXPECT_TRUE(istring("Soap:Body") == istring("SOAP:BODY"));
    EXPECT_EQ(0, istring("abc").compare("ABC"));
    EXPECT_TRUE(KVX::ignorecase_traits::eq('q', 'Q'));
    EXPECT_FALSE(KVX::ignorecase_traits::eq('q', 'R'));
}

TEST(IgnoreCaseTraits, OrderFollowsUpperCase) {
    // By plain bytes 'a' (0x61) is above '[' (0x5B); by upper case 'A' (0x41) is below.
    EXPECT_TRUE(KVX::ignorecase_traits::lt('a', '['));
    EXPECT_FALSE(KVX::ignorecase_traits::lt('[', 'a'));
    EXPECT_TRUE(istring("a") < istring("["));
    EXPECT_TRUE(istring("abc") < istring("ABD"));
    EXPECT_LT(istring("ABC").compare("abd"), 0);
    EXPECT_GT(istring("abd").compare("ABC"), 0);
}

TEST(IgnoreCaseTraits, NonLettersCompareAsThemselves) {
    EXPECT_TRUE(KVX::ignorecase_traits::eq('<', '<'));
    EXPECT_FALSE(KVX::ignorecase_traits::eq('@', '`'));
    EXPECT_FALSE(KVX::ignorecase_traits::eq('[', '{'));
    EXPECT_TRUE(KVX::ignorecase_traits::eq('\xe9', '\xe9'));
}

// --- construction and assembly -------------------------------------------------------------------

TEST(KVXSoapEnvelope, ConstructorSetsUriAndLeavesHeaderAndBodyEmpty) {
    KVXSoapEnvelope envelope("urn:x");
    EXPECT_EQ("urn:x", envelope.soapURI);
    EXPECT_EQ("", envelope.header);
    EXPECT_EQ("", envelope.body);
}

TEST(KVXSoapEnvelope, CopyConstructorCopiesAllThreeStrings) {
    KVXSoapEnvelope envelope("urn:x");
    envelope.header = "h";
    envelope.body = "b";
    KVXSoapEnvelope copy(envelope);
    EXPECT_EQ("urn:x", copy.soapURI);
    EXPECT_EQ("h", copy.header);
    EXPECT_EQ("b", copy.body);
}

TEST(KVXSoapEnvelope, AssignmentCopiesAllThreeStrings) {
    KVXSoapEnvelope envelope("urn:x");
    envelope.header = "h";
    envelope.body = "b";
    KVXSoapEnvelope other("urn:y");
    other.header = "old header";
    other.body = "old body";
    other = envelope;
    EXPECT_EQ("urn:x", other.soapURI);
    EXPECT_EQ("h", other.header);
    EXPECT_EQ("b", other.body);
}

TEST(KVXSoapEnvelope, AssemblyWithoutHeaderPrintsNoHeaderElement) {
    OpenEnvelope envelope(Soap11Uri);
    envelope.body = "<m:GetInfoResponse/>\n";
    EXPECT_EQ(std::string(EnvelopeStart11) +
                  "<soap:Body>\n<m:GetInfoResponse/>\n</soap:Body>\n</soap:Envelope>",
              takeText(envelope.assembly()));
}

TEST(KVXSoapEnvelope, AssemblyWithHeaderWrapsItInHeaderElement) {
    OpenEnvelope envelope(Soap11Uri);
    envelope.header = "<packet_header/>\n";
    envelope.body = "<m:GetInfoResponse/>\n";
    EXPECT_EQ(std::string(EnvelopeStart11) +
                  "<soap:Header>\n<packet_header/>\n</soap:Header>\n"
                  "<soap:Body>\n<m:GetInfoResponse/>\n</soap:Body>\n</soap:Envelope>",
              takeText(envelope.assembly()));
}

TEST(KVXSoapEnvelope, AssemblyOfEmptyEnvelopeHasEmptyBodyElement) {
    OpenEnvelope envelope("");
    EXPECT_EQ("<soap:Envelope xmlns:soap=\"\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
              "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
              "<soap:Body>\n</soap:Body>\n</soap:Envelope>",
              takeText(envelope.assembly()));
}

TEST(KVXSoapEnvelope, AssemblyUsesTheUriAsItStands) {
    OpenEnvelope envelope(Soap12Uri);
    envelope.body = "x";
    EXPECT_EQ("<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
              "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
              "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
              "<soap:Body>\nx</soap:Body>\n</soap:Envelope>",
              takeText(envelope.assembly()));
}

TEST(KVXSoapEnvelope, AssemblyCopiesTextWithoutEscaping) {
    OpenEnvelope envelope("a\"b");
    envelope.header = "<&>";
    envelope.body = "1 < 2 & \"3\"";
    EXPECT_EQ("<soap:Envelope xmlns:soap=\"a\"b\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
              "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
              "<soap:Header>\n<&></soap:Header>\n"
              "<soap:Body>\n1 < 2 & \"3\"</soap:Body>\n</soap:Envelope>",
              takeText(envelope.assembly()));
}

TEST(KVXSoapEnvelope, ToTextGivesTheAssemblyAndLeavesFields) {
    OpenEnvelope envelope(Soap11Uri);
    envelope.header = "<h/>\n";
    envelope.body = "<b/>\n";
    std::string const expected = takeText(envelope.assembly());
    EXPECT_EQ(expected, takeText(envelope.toText()));
    EXPECT_EQ(expected, takeText(envelope.toText()));
    EXPECT_EQ(Soap11Uri, envelope.soapURI);
    EXPECT_EQ("<h/>\n", envelope.header);
    EXPECT_EQ("<b/>\n", envelope.body);
}

TEST(KVXSoapEnvelope, ToTextEndsWithClosingTagAndTerminatingZero) {
    KVXSoapEnvelope envelope(Soap11Uri);
    char *text = envelope.toText();
    ASSERT_NE(nullptr, text);
    std::size_t const length = std::strlen(text);
    std::string const tail = "</soap:Body>\n</soap:Envelope>";
    ASSERT_GE(length, tail.size());
    EXPECT_EQ(tail, std::string(text + length - tail.size()));
    std::free(text);
}

// --- fromText: accepted --------------------------------------------------------------------------

TEST(KVXSoapEnvelopeFromText, ReadsUriHeaderAndBody) {
    auto envelope =
        parse("<?xml version=\"1.0\"?>\n"
              "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">\n"
              "<soap:Header>\n<packet_header/>\n</soap:Header>\n"
              "<soap:Body>\n<m:GetInfo xmlns:m=\"urn:m\"/>\n</soap:Body>\n"
              "</soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ(Soap11Uri, envelope->soapURI);
    EXPECT_EQ("<soap:Header>\n<packet_header/>\n</soap:Header>", envelope->header);
    EXPECT_EQ("<soap:Body>\n<m:GetInfo xmlns:m=\"urn:m\"/>\n</soap:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, EnvelopeWithoutHeaderGivesEmptyHeader) {
    auto envelope = parse("<env:Envelope xmlns:env=\"http://www.w3.org/2003/05/soap-envelope\">"
                          "<env:Body><op/></env:Body></env:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ(Soap12Uri, envelope->soapURI);
    EXPECT_EQ("", envelope->header);
    EXPECT_EQ("<env:Body><op/></env:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, HeaderAndBodyKeepTheirAttributes) {
    auto envelope = parse("<s:Envelope xmlns:s=\"u\"><s:Header a=\"1\"><h/></s:Header>"
                          "<s:Body b=\"2\"><op/></s:Body></s:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("<s:Header a=\"1\"><h/></s:Header>", envelope->header);
    EXPECT_EQ("<s:Body b=\"2\"><op/></s:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, UpperCaseEnvelopeAcceptedAndPrefixKeepsItsCase) {
    auto envelope = parse("<SOAP:ENVELOPE xmlns:SOAP=\"http://schemas.xmlsoap.org/soap/envelope/\">"
                          "<SOAP:HEADER><H/></SOAP:HEADER>"
                          "<SOAP:BODY><OP/></SOAP:BODY></SOAP:ENVELOPE>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ(Soap11Uri, envelope->soapURI);
    EXPECT_EQ("<SOAP:HEADER><H/></SOAP:HEADER>", envelope->header);
    EXPECT_EQ("<SOAP:BODY><OP/></SOAP:BODY>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, PrefixAndNamesMatchWithoutRegardToCase) {
    auto envelope = parse("<SOAP:Envelope XMLNS:soap=\"u\"><Soap:header>h</SOAP:HEADER>"
                          "<soap:BODY>b</Soap:body></SOAP:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("u", envelope->soapURI);
    EXPECT_EQ("<Soap:header>h</SOAP:HEADER>", envelope->header);
    EXPECT_EQ("<soap:BODY>b</Soap:body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, UriKeepsItsCase) {
    auto envelope = parse("<soap:Envelope xmlns:soap=\"HTTP://Example.COM/Soap\">"
                          "<soap:Body/></soap:Body>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("HTTP://Example.COM/Soap", envelope->soapURI);
}

TEST(KVXSoapEnvelopeFromText, EmptyUriIsAccepted) {
    auto envelope =
        parse("<soap:Envelope xmlns:soap=\"\"><soap:Body>x</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("", envelope->soapURI);
    EXPECT_EQ("<soap:Body>x</soap:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, NamespaceDeclarationNeedNotBeFirstAttribute) {
    auto envelope = parse("<soap:Envelope xmlns:xsd=\"urn:xsd\" xmlns:soap=\"urn:soap\">"
                          "<soap:Body>x</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("urn:soap", envelope->soapURI);
}

TEST(KVXSoapEnvelopeFromText, OnlyTheFirstDeclarationOfThePrefixCounts) {
    auto envelope = parse("<soap:Envelope xmlns:soap=\"first\" xmlns:soap=\"second\">"
                          "<soap:Body>x</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("first", envelope->soapURI);
}

TEST(KVXSoapEnvelopeFromText, DeclarationOfALongerPrefixIsTakenForThePrefix) {
    // "xmlns:soap" is found at the start of "xmlns:soapenv"; the text search knows no names.
    auto envelope = parse("<soap:Envelope xmlns:soapenv=\"other\" xmlns:soap=\"mine\">"
                          "<soap:Body>x</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("other", envelope->soapURI);
}

TEST(KVXSoapEnvelopeFromText, SelfClosedHeaderLeavesHeaderEmpty) {
    auto envelope = parse("<soap:Envelope xmlns:soap=\"u\"><soap:Header/>"
                          "<soap:Body>x</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("", envelope->header);
    EXPECT_EQ("<soap:Body>x</soap:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, SelfClosedHeaderMovesBodySearchToItsPlace) {
    // A body-like text inside an attribute of the envelope lies before the header: skipped.
    auto envelope = parse("<soap:Envelope xmlns:soap=\"u\" a=\"<soap:Body>early</soap:Body>\">"
                          "<soap:Header/><soap:Body>late</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("", envelope->header);
    EXPECT_EQ("<soap:Body>late</soap:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, WithoutHeaderBodySearchStartsBehindFirstQuote) {
    auto envelope = parse("<soap:Envelope xmlns:soap=\"u\" a=\"<soap:Body>early</soap:Body>\">"
                          "<soap:Body>late</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("<soap:Body>early</soap:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, HeaderWithoutClosingTagIsIgnored) {
    auto envelope = parse("<soap:Envelope xmlns:soap=\"u\"><soap:Header><h/>"
                          "<soap:Body>x</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("", envelope->header);
    EXPECT_EQ("<soap:Body>x</soap:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, BodySearchStartsAtHeaderStartNotItsEnd) {
    auto envelope = parse("<soap:Envelope xmlns:soap=\"u\">"
                          "<soap:Header><soap:Body>inner</soap:Body></soap:Header>"
                          "<soap:Body>outer</soap:Body></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("<soap:Header><soap:Body>inner</soap:Body></soap:Header>", envelope->header);
    EXPECT_EQ("<soap:Body>inner</soap:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, BodyEndsOneCharacterBehindClosingName) {
    auto envelope =
        parse("<soap:Envelope xmlns:soap=\"u\"><soap:Body>x</soap:Body   ></soap:Envelope>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("<soap:Body>x</soap:Body ", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, BodyAtEndOfTextEndsWithClosingName) {
    auto envelope = parse("<soap:Envelope xmlns:soap=\"u\"><soap:Body>x</soap:Body");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("<soap:Body>x</soap:Body", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, EnvelopeTagNeedsNoClosingTag) {
    auto envelope = parse("<soap:Envelope xmlns:soap=\"u\"><soap:Body>x</soap:Body>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("<soap:Body>x</soap:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, PrefixRunsFromNearestAngleBracket) {
    auto envelope = parse("<<a:Envelope xmlns:a=\"u\"><a:Body>x</a:Body>");
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ("u", envelope->soapURI);
    EXPECT_EQ("<a:Body>x</a:Body>", envelope->body);
}

TEST(KVXSoapEnvelopeFromText, AssembledEnvelopeReadsBack) {
    OpenEnvelope written(Soap12Uri);
    written.header = "<h/>\n";
    written.body = "<b/>\n";
    std::string const text = takeText(written.toText());
    auto envelope = parse(text.c_str());
    ASSERT_NE(nullptr, envelope.get());
    EXPECT_EQ(Soap12Uri, envelope->soapURI);
    EXPECT_EQ("<soap:Header>\n<h/>\n</soap:Header>", envelope->header);
    EXPECT_EQ("<soap:Body>\n<b/>\n</soap:Body>", envelope->body);
}

// --- fromText: refused ---------------------------------------------------------------------------

TEST(KVXSoapEnvelopeFromText, NullTextIsRefused) {
    EXPECT_EQ(nullptr, KVXSoapEnvelope::fromText(nullptr));
}

TEST(KVXSoapEnvelopeFromText, EmptyTextIsRefused) {
    EXPECT_TRUE(refused(""));
}

TEST(KVXSoapEnvelopeFromText, LineFeedBehindEnvelopeNameIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope\nxmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">"
                        "<soap:Body>x</soap:Body></soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, TabBehindEnvelopeNameIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope\txmlns:soap=\"u\"><soap:Body>x</soap:Body>"
                        "</soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, EnvelopeWithoutAttributesIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope><soap:Body>x</soap:Body></soap:Envelope>"));
    // Even when the prefix is declared further on: the envelope name must be followed by a blank.
    EXPECT_TRUE(refused("<soap:Envelope><soap:Header xmlns:soap=\"u\"/><soap:Body>x</soap:Body>"
                        "</soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, UnprefixedEnvelopeIsRefused) {
    EXPECT_TRUE(refused("<Envelope xmlns=\"http://schemas.xmlsoap.org/soap/envelope/\">"
                        "<Body>x</Body></Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, EnvelopeNameWithoutAngleBracketIsRefused) {
    EXPECT_TRUE(refused("soap:Envelope xmlns:soap=\"u\"><soap:Body>x</soap:Body>"));
}

TEST(KVXSoapEnvelopeFromText, MissingDeclarationOfThePrefixIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope xmlns:s=\"u\"><soap:Body>x</soap:Body>"
                        "</soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, DeclarationBeforeTheEnvelopeTagIsNotSeen) {
    EXPECT_TRUE(refused("<!-- xmlns:soap=\"u\" --><soap:Envelope a=\"1\">"
                        "<soap:Body>x</soap:Body></soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, SingleQuotedUriWithoutDoubleQuotesIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope xmlns:soap='u'><soap:Body>x</soap:Body>"
                        "</soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, UnclosedQuoteIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope xmlns:soap=\"u><soap:Body>x</soap:Body>"
                        "</soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, MissingBodyIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope xmlns:soap=\"u\"><soap:Header>h</soap:Header>"
                        "</soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, MissingClosingBodyIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope xmlns:soap=\"u\"><soap:Body>x</soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, SelfClosedBodyIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope xmlns:soap=\"u\"><soap:Body/></soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, BodyOfAnotherPrefixIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope xmlns:soap=\"u\"><env:Body>x</env:Body>"
                        "</soap:Envelope>"));
}

TEST(KVXSoapEnvelopeFromText, BodyOnlyBeforeTheHeaderIsRefused) {
    EXPECT_TRUE(refused("<soap:Envelope xmlns:soap=\"u\"><soap:Body>x</soap:Body>"
                        "<soap:Header/></soap:Envelope>"));
}
