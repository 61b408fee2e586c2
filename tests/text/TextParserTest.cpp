// Tests of the XML reader: what it accepts and refuses, row by row, the nodes it
// makes (checked in the frame bytes), namespaces and types, the order-dependent
// default namespace, the unknown-part paths under both policy bits, and the
// depth and length bounds that keep hostile text from exhausting resources.
#include "text/TextParser.h"

#include "tests/text/TextTestSupport.h"
#include "text/TextLimits.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>

using namespace TextTest;
using KVX::Internal::CharArray;
using KVX::Internal::TextParser;

namespace {

constexpr int Packet = 1398;
constexpr int NodeId = 1008;
constexpr int Item = 1809;
constexpr unsigned Structure = 50;
constexpr unsigned Xml = 51;
char const XsiUri[] = "http://www.w3.org/2001/XMLSchema-instance";

struct Parsed {
    int result;
    std::string frame;
    std::vector<NodeInfo> nodes;
};

Parsed parse(std::string const &text) {
    Message message;
    Parsed parsed;
    parsed.result = message->fromText(text.c_str());
    parsed.frame = frameOf(*message);
    parsed.nodes = nodesOf(parsed.frame);
    return parsed;
}

int resultOf(std::string const &text) {
    return parse(text).result;
}

// A value as stored: the text and its NUL.
std::string z(std::string const &text) {
    return text + std::string(1, '\0');
}

// Sets KVXBinary::Policy for the messages made while it lives.
class PolicyScope {
public:
    explicit PolicyScope(int policy) : previous(KVX::KVXBinary::Policy) {
        KVX::KVXBinary::Policy = policy;
    }
    ~PolicyScope() { KVX::KVXBinary::Policy = previous; }

private:
    int previous;
};

// A message whose name table does not read (an entry of size 0), with a root
// "packet": every lookup by name gives 0 until a name is added, which is the
// one way an element can get no id.
std::string corruptFrame() {
    std::string bytes = frame(element(Packet, {}), {{0, 0, ""}});
    // Entry size 0 is the corruption; the builder wrote 1 for the NUL.
    KVX::Internal::store32(&bytes[24 + 8], 0);
    return bytes;
}

struct Unknown {
    int result;
    std::vector<NodeInfo> nodes;
};

// Runs the element-level parser under the root of a corrupt document with the
// prefix "x" declared.
Unknown parseUnknown(char const *text, int policy) {
    PolicyScope scope(policy);
    Message message;
    std::string bytes = corruptFrame();
    EXPECT_EQ(0, message->init(bytes.data(), static_cast<int>(bytes.size())));
    TextParser parser(*message);
    parser.currentScope()[CharArray("x")] = 201;
    KVX::BinaryPath path;
    path.entries.push_back(KVX::PathEntry{Packet, 8});
    char const *position = text;
    Unknown unknown;
    unknown.result = parser.parse(position, path);
    unknown.nodes = nodesOf(frameOf(*message));
    return unknown;
}

std::string nested(std::size_t depth) {
    std::string text;
    for (std::size_t i = 1; i < depth; ++i)
        text += "<node>";
    text += "<node/>";
    for (std::size_t i = 1; i < depth; ++i)
        text += "</node>";
    return text;
}

} // namespace

// --- What is accepted and rejected, one test per row ------------------------

TEST(TextParser, DeclarationsCommentsAndInstructionsAreSkipped) {
    Parsed parsed =
        parse("<?xml version=\"1.0\"?>\n<!DOCTYPE node>\n<!-- c -->\n<?pi x?>\n<node/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(NodeId, parsed.nodes[0].id);
}

TEST(TextParser, GreaterThanInsideCommentEndsItEarly) {
    EXPECT_EQ(-1, resultOf("<!-- a > b --><node/>"));
}

TEST(TextParser, CdataWhereAnElementMayStartIsSkipped) {
    Parsed parsed = parse("<node><![CDATA[lost]]></node>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(0u, parsed.nodes[0].kind);
    EXPECT_EQ(0u, parsed.nodes[0].size);
}

TEST(TextParser, CdataInsideTextIsOrdinaryText) {
    Parsed parsed = parse("<node>t<![CDATA[x]]></node>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(z("t<![CDATA[x]]>"), parsed.nodes[0].value);
}

TEST(TextParser, CommentInTheMidstOfTextIsPartOfTheValue) {
    Parsed parsed = parse("<node>x<!-- c -->y</node>");
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(z("x<!-- c -->y"), parsed.nodes.at(0).value);
}

TEST(TextParser, TextFirstTakesFollowingElementsAsText) {
    Parsed parsed = parse("<node>t<item>1</item></node>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(z("t<item>1</item>"), parsed.nodes[0].value);
}

TEST(TextParser, ElementFirstThenTextFails) {
    EXPECT_EQ(-1, resultOf("<node><item/>t</node>"));
}

TEST(TextParser, SingleQuotedAttributeFails) {
    EXPECT_EQ(-1, resultOf("<node id='1'/>"));
}

TEST(TextParser, BlanksAroundEqualsFail) {
    EXPECT_EQ(-1, resultOf("<node id =\"1\"/>"));
    EXPECT_EQ(-1, resultOf("<node id= \"1\"/>"));
}

TEST(TextParser, AttributeOutsideTheTenFails) {
    EXPECT_EQ(-1, resultOf("<node name=\"1\"/>"));
    EXPECT_EQ(-1, resultOf("<node xmlnsx=\"urn:u\"/>"));
}

TEST(TextParser, PrefixedAttributeThatIsNoDeclarationIsDropped) {
    Parsed parsed = parse("<node p:name=\"1\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(0u, parsed.nodes[0].kind);
    EXPECT_EQ(0u, parsed.nodes[0].size);
}

TEST(TextParser, UndeclaredPrefixOnElementFails) {
    EXPECT_EQ(-1, resultOf("<p:node/>"));
    EXPECT_EQ(-1, resultOf("<packet><p:node>1</p:node></packet>"));
}

TEST(TextParser, UndeclaredPrefixOnTypeAttributeFails) {
    EXPECT_EQ(-1, resultOf("<node q:type=\"t\"/>"));
}

TEST(TextParser, UndeclaredPrefixInTypeValueFails) {
    EXPECT_EQ(-1, resultOf(std::string("<node xmlns:xsi=\"") + XsiUri + "\" xsi:type=\"q:t\"/>"));
}

TEST(TextParser, ElementNameOf250CharactersIsAcceptedAnd251Refused) {
    std::string name250(250, 'n');
    std::string name251(251, 'n');
    Parsed parsed = parse("<" + name250 + ">v</" + name250 + ">");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(name250, nameOf(parsed.frame, parsed.nodes[0].id, 0));
    EXPECT_EQ(-1, resultOf("<" + name251 + ">v</" + name251 + ">"));
}

TEST(TextParser, EntityInElementTextIsReplaced) {
    Parsed parsed = parse("<node>a&lt;b&amp;c&gt;&quot;&apos;</node>");
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(z("a<b&c>\"'"), parsed.nodes.at(0).value);
}

TEST(TextParser, UnknownEntityInElementTextFails) {
    EXPECT_EQ(-1, resultOf("<node>&nbsp;</node>"));
}

TEST(TextParser, EntityInAttributeValueStaysAsWritten) {
    Parsed parsed = parse("<node id=\"a&lt;b\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(2u, parsed.nodes.size());
    EXPECT_EQ(102, parsed.nodes[1].id);
    EXPECT_EQ(z("a&lt;b"), parsed.nodes[1].value);
}

TEST(TextParser, AmpersandWithoutSemicolonInTextFails) {
    EXPECT_EQ(-1, resultOf("<node>a & b</node>"));
}

TEST(TextParser, AngleBracketsInTextAreAllowedUnlessTheyAreTheEndTag) {
    Parsed parsed = parse("<node>1 < 2 > 0 </nod> <node></node>");
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(z("1 < 2 > 0 </nod> <node>"), parsed.nodes.at(0).value);
}

TEST(TextParser, EndTagWithBlanksNeverMatches) {
    EXPECT_EQ(-1, resultOf("<node>x</node >"));
    EXPECT_EQ(-1, resultOf("<node>x</ node>"));
    EXPECT_EQ(-1, resultOf("<packet><node/></packet >"));
}

TEST(TextParser, TextBehindTheTopLevelElementIsIgnored) {
    Parsed parsed = parse("<node>1</node> trailing <junk & more");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(z("1"), parsed.nodes[0].value);
}

TEST(TextParser, EmptyInputFails) {
    EXPECT_EQ(-1, resultOf(""));
    EXPECT_EQ(-1, resultOf(" \t\r\n"));
    EXPECT_EQ(-1, resultOf("<!-- only a comment -->"));
    EXPECT_EQ(-1, resultOf("<?xml version=\"1.0\"?>  "));
    EXPECT_EQ(-1, resultOf("</node>"));
}

TEST(TextParser, AttributesAndTextContentFail) {
    EXPECT_EQ(-1, resultOf("<node id=\"1\">x</node>"));
    EXPECT_EQ(-1, resultOf("<node id=\"1\"> </node>"));
}

// The reader works with an explicit stack: depth costs no machine stack, and it
// stops at MaxTextDepth.
TEST(TextParser, DepthUpToTheBoundParsesAndOnePastFails) {
    ASSERT_EQ(10000u, KVX::Internal::MaxTextDepth);
    Parsed deep = parse(nested(KVX::Internal::MaxTextDepth));
    EXPECT_EQ(0, deep.result);
    ASSERT_EQ(KVX::Internal::MaxTextDepth, deep.nodes.size());
    EXPECT_EQ(static_cast<int>(KVX::Internal::MaxTextDepth) - 1, deep.nodes.back().depth);
    EXPECT_EQ(0u, deep.nodes.back().kind);
    EXPECT_EQ(-1, resultOf(nested(KVX::Internal::MaxTextDepth + 1)));
}

// --- Edge cases of the reader -------------------------------------------------

TEST(TextParser, EmptyTagGivesElementWithoutValue) {
    Parsed parsed = parse("<node/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(NodeId, parsed.nodes[0].id);
    EXPECT_EQ(0u, parsed.nodes[0].kind);
    EXPECT_EQ(0u, parsed.nodes[0].size);
    EXPECT_EQ("node", nameOf(parsed.frame, NodeId, 0));
    EXPECT_EQ(0, resultOf("<node />"));
}

TEST(TextParser, EmptyContentGivesValueOfLengthZero) {
    Parsed parsed = parse("<node></node>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(0u, parsed.nodes[0].kind);
    EXPECT_EQ(1u, parsed.nodes[0].size);
    EXPECT_EQ(z(""), parsed.nodes[0].value);
}

TEST(TextParser, BlanksAloneAreKeptAsTheValue) {
    Parsed parsed = parse("<node>  </node>");
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(z("  "), parsed.nodes.at(0).value);
}

TEST(TextParser, LeadingAndTrailingWhitespaceOfTextIsKept) {
    Parsed parsed = parse("<node>\n x \t</node>");
    EXPECT_EQ(z("\n x \t"), parsed.nodes.at(0).value);
}

TEST(TextParser, CommentAsOnlyContentGivesNoValue) {
    Parsed parsed = parse("<node><!-- c --></node>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(0u, parsed.nodes[0].kind);
    EXPECT_EQ(0u, parsed.nodes[0].size);
}

TEST(TextParser, CharacterBehindSlashIsNotExamined) {
    Parsed parsed = parse("<node id=\"1\"/x");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(2u, parsed.nodes.size());
    EXPECT_EQ(Structure, parsed.nodes[0].kind);
    EXPECT_EQ(102, parsed.nodes[1].id);
    EXPECT_EQ(0u, parsed.nodes[1].kind);
    EXPECT_EQ(z("1"), parsed.nodes[1].value);
}

TEST(TextParser, SlashInsideTheNameFails) {
    EXPECT_EQ(-1, resultOf("<node/b>"));
}

// Safety: "/" as the input's last character is not stepped over past the NUL.
TEST(TextParser, SlashAtTheEndOfInputIsNotSteppedPast) {
    EXPECT_EQ(0, resultOf("<node id=\"1\"/"));
    EXPECT_EQ(-1, resultOf("<packet><node id=\"1\"/"));
}

TEST(TextParser, PrefixedNameTakesLocalIdAndDeclaredNamespace) {
    Parsed parsed = parse("<ns1:node xmlns:ns1=\"urn:u\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(NodeId, parsed.nodes[0].id);
    EXPECT_EQ(0xFFFEu, parsed.nodes[0].ns);
    EXPECT_EQ("urn:u", nameOf(parsed.frame, 0xFFFE, 1));
}

TEST(TextParser, KnownWholeNameIgnoresItsPrefixAndTakesTheDefaultNamespace) {
    // "z:y" is known as a whole once it is a namespace URI of the document, so
    // the undeclared "z" is never looked at.
    Parsed parsed = parse("<packet xmlns=\"urn:d\" xmlns:p=\"z:y\"><z:y/></packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(2u, parsed.nodes.size());
    EXPECT_EQ(0xFFFEu, parsed.nodes[0].ns);
    EXPECT_EQ(0xFFFD, parsed.nodes[1].id);
    EXPECT_EQ(0xFFFEu, parsed.nodes[1].ns);
}

TEST(TextParser, PrefixesAreInheritedAndRedeclarable) {
    Parsed parsed = parse("<p:packet xmlns:p=\"urn:a\"><p:node xmlns:p=\"urn:b\"><p:item/></p:node>"
                          "<p:item/></p:packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(4u, parsed.nodes.size());
    EXPECT_EQ(0xFFFEu, parsed.nodes[0].ns); // urn:a
    EXPECT_EQ(0xFFFDu, parsed.nodes[1].ns); // urn:b
    EXPECT_EQ(0xFFFDu, parsed.nodes[2].ns);
    EXPECT_EQ(Item, parsed.nodes[3].id);
    EXPECT_EQ(0xFFFEu, parsed.nodes[3].ns); // back to urn:a behind the redeclaration
}

TEST(TextParser, DynamicNamesGetOneIdEach) {
    Parsed parsed = parse("<packet><x>1</x><x>2</x><y/></packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(4u, parsed.nodes.size());
    EXPECT_EQ(-2, parsed.nodes[1].id);
    EXPECT_EQ(-2, parsed.nodes[2].id);
    EXPECT_EQ(-3, parsed.nodes[3].id);
    EXPECT_EQ("x", nameOf(parsed.frame, -2, 0));
    EXPECT_EQ("y", nameOf(parsed.frame, -3, 0));
}

TEST(TextParser, AttributesComeBeforeChildrenInTextOrder) {
    Parsed parsed = parse("<packet id=\"a\" time=\"2020-01-01T00:00:00Z\"><node>1</node></packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(4u, parsed.nodes.size());
    EXPECT_EQ(102, parsed.nodes[1].id);
    EXPECT_EQ(104, parsed.nodes[2].id);
    EXPECT_EQ(z("2020-01-01T00:00:00Z"), parsed.nodes[2].value);
    EXPECT_EQ(NodeId, parsed.nodes[3].id);
}

TEST(TextParser, EmptyAttributeNameGivesAttributeOfIdZero) {
    Parsed parsed = parse("<node =\"v\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(2u, parsed.nodes.size());
    EXPECT_EQ(0, parsed.nodes[1].id);
    EXPECT_EQ(z("v"), parsed.nodes[1].value);
}

TEST(TextParser, XsiTypeBoundToTheSchemaInstanceNamespaceSetsTheType) {
    Parsed parsed =
        parse(std::string("<node xmlns:xsi=\"") + XsiUri + "\" xsi:type=\"configType\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(115u, parsed.nodes[0].kind);
    EXPECT_EQ(0u, parsed.nodes[0].size);
    EXPECT_EQ("configType", nameOf(parsed.frame, 115, 2));
}

TEST(TextParser, PrefixedTypeIsNamedByUriAndGetsADynamicId) {
    Parsed parsed = parse(std::string("<node xmlns:xsi=\"") + XsiUri +
                          "\" xmlns:t=\"urn:t\" xsi:type=\"t:configType\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    // The schema-instance URI took -2, urn:t -3, the type -4.
    EXPECT_EQ(0xFFFCu, parsed.nodes[0].kind);
    EXPECT_EQ("urn:t:configType", nameOf(parsed.frame, 0xFFFC, 2));
}

TEST(TextParser, EmptyContentTurnsATypedElementBackIntoALeaf) {
    // The type makes a container; an empty content is a value of length 0,
    // which a container takes by becoming a leaf again.
    Parsed parsed =
        parse(std::string("<node xmlns:xsi=\"") + XsiUri + "\" xsi:type=\"configType\"></node>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(0u, parsed.nodes[0].kind);
    EXPECT_EQ(z(""), parsed.nodes[0].value);
}

TEST(TextParser, XsiTypeBoundToAnotherUriAddsTheTypeAttribute) {
    Parsed parsed = parse("<node xmlns:xsi=\"urn:other\" xsi:type=\"t\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(2u, parsed.nodes.size());
    EXPECT_EQ(Structure, parsed.nodes[0].kind);
    EXPECT_EQ(105, parsed.nodes[1].id);
    EXPECT_EQ(0u, parsed.nodes[1].kind);
    EXPECT_EQ(z("t"), parsed.nodes[1].value);
}

TEST(TextParser, PlainTypeUnderSchemaInstanceDefaultNamespaceFails) {
    EXPECT_EQ(-1, resultOf(std::string("<node xmlns=\"") + XsiUri + "\" type=\"t\"/>"));
}

TEST(TextParser, PlainTypeUnderAnotherDefaultNamespaceComesAfterOtherAttributes) {
    Parsed parsed = parse("<node xmlns=\"urn:d\" type=\"t\" id=\"i\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(3u, parsed.nodes.size());
    EXPECT_EQ(0xFFFEu, parsed.nodes[0].ns);
    EXPECT_EQ(102, parsed.nodes[1].id);
    EXPECT_EQ(105, parsed.nodes[2].id);
    EXPECT_EQ(z("t"), parsed.nodes[2].value);
}

TEST(TextParser, PlainTypeWithoutDefaultNamespaceIsAnAttribute) {
    Parsed parsed = parse("<node type=\"t\" id=\"i\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(3u, parsed.nodes.size());
    EXPECT_EQ(105, parsed.nodes[1].id);
    EXPECT_EQ(102, parsed.nodes[2].id);
}

TEST(TextParser, IgnoredAttributeBehindXmlnsIsPushedAsDefaultNamespace) {
    Parsed parsed = parse("<node xmlns=\"urn:u\" p:q=\"urn:v\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(0xFFFDu, parsed.nodes[0].ns);
    EXPECT_EQ("urn:v", nameOf(parsed.frame, 0xFFFD, 1));
}

TEST(TextParser, IgnoredAttributeAheadOfXmlnsIsDropped) {
    Parsed parsed = parse("<node p:q=\"urn:v\" xmlns=\"urn:u\"/>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(0xFFFEu, parsed.nodes[0].ns);
    EXPECT_EQ("urn:u", nameOf(parsed.frame, 0xFFFE, 1));
    EXPECT_EQ("?", nameOf(parsed.frame, 0xFFFD, 1));
}

TEST(TextParser, ElementThatPushedTwicePopsOnce) {
    Parsed parsed = parse("<packet><node xmlns=\"urn:u\" p:q=\"urn:v\"/><item/></packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(3u, parsed.nodes.size());
    EXPECT_EQ(0u, parsed.nodes[0].ns);
    EXPECT_EQ(0xFFFDu, parsed.nodes[1].ns);
    EXPECT_EQ(0xFFFEu, parsed.nodes[2].ns); // urn:u stayed on the stack
}

TEST(TextParser, DefaultNamespaceReachesDescendantsOnly) {
    Parsed parsed = parse("<packet><node xmlns=\"urn:u\"><item/></node><item/></packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(4u, parsed.nodes.size());
    EXPECT_EQ(0xFFFEu, parsed.nodes[1].ns);
    EXPECT_EQ(0xFFFEu, parsed.nodes[2].ns);
    EXPECT_EQ(0u, parsed.nodes[3].ns);
}

TEST(TextParser, NumericEntitiesInText) {
    Parsed parsed = parse("<node>&#65;&#x41;&#65abc;</node>");
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(z("AAA"), parsed.nodes.at(0).value);
}

TEST(TextParser, SurrogateReferenceGivesThreeBytes) {
    Parsed parsed = parse("<node>&#xD800;</node>");
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(z("\xED\xA0\x80"), parsed.nodes.at(0).value);
}

TEST(TextParser, ReferencePastTheLastCodePointFails) {
    EXPECT_EQ(-1, resultOf("<node>&#1114112;</node>"));
}

TEST(TextParser, EntityNamesAreCaseSensitive) {
    EXPECT_EQ(-1, resultOf("<node>&Lt;</node>"));
}

// Left open by the format: an attribute and an empty content. The empty value
// turns the container back into a leaf, and the attribute goes with it.
TEST(TextParser, AttributeAndEmptyContentLeaveALeafWithEmptyValue) {
    Parsed parsed = parse("<node id=\"1\"></node>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(1u, parsed.nodes.size());
    EXPECT_EQ(0u, parsed.nodes[0].kind);
    EXPECT_EQ(z(""), parsed.nodes[0].value);
}

TEST(TextParser, VersionAttributeSetsTheDocumentVersion) {
    Message message;
    ASSERT_EQ(0, message->fromText("<packet version=\"3.9.0\"/>"));
    int version = 0;
    ASSERT_EQ(0, message->getVersion(version));
    EXPECT_EQ(30900, version);
}

TEST(TextParser, FailureKeepsThePartlyBuiltDocument) {
    Message message;
    ASSERT_EQ(0, message->fromText("<packet><item>1</item></packet>"));
    EXPECT_EQ(-1, message->fromText("<node><item>2</item><item>&bad;</item></node>"));
    std::vector<NodeInfo> nodes = nodesOf(frameOf(*message));
    ASSERT_EQ(3u, nodes.size());
    EXPECT_EQ(NodeId, nodes[0].id);
    EXPECT_EQ(z("2"), nodes[1].value);
    EXPECT_EQ(Item, nodes[2].id);
    EXPECT_EQ(0u, nodes[2].size);
}

TEST(TextParser, FailureWithElementsOpenLeavesTheirSizesWhole) {
    // The parse stops at the input's end with three elements open: they hold
    // everything read so far, and their sizes say so, as in the whole text.
    std::string const whole = "<packet><node><name>x</name><node id=\"1\"><pid>1</pid>"
                              "<cpu>2</cpu></node></node></packet>";
    std::string const cut = whole.substr(0, whole.find("</node>"));
    Parsed const complete = parse(whole);
    Parsed const partial = parse(cut);
    ASSERT_EQ(0, complete.result);
    EXPECT_EQ(-1, partial.result);
    EXPECT_EQ(complete.frame, partial.frame);
}

TEST(TextParser, LongTextsGrowTheBufferAsTheirNodesDo) {
    // Values near and past the capacity, between short ones: each element is
    // appended with its value or in the two steps, to the same bytes.
    std::string text = "<packet>";
    for (int i = 0; i < 40; ++i) {
        text += "<node><name>" + std::string(static_cast<std::size_t>(i * 397 % 9000), 'v') +
                "</name><pid>" + std::to_string(i) + "</pid></node>";
    }
    text += "</packet>";
    Parsed const parsed = parse(text);
    ASSERT_EQ(0, parsed.result);
    std::vector<NodeInfo> const nodes = parsed.nodes;
    ASSERT_EQ(1u + 40u * 3u, nodes.size());
    for (int i = 0; i < 40; ++i) {
        NodeInfo const &name = nodes[static_cast<std::size_t>(2 + 3 * i)];
        EXPECT_EQ(z(std::string(static_cast<std::size_t>(i * 397 % 9000), 'v')), name.value);
        EXPECT_EQ(z(std::to_string(i)), nodes[static_cast<std::size_t>(3 + 3 * i)].value);
    }
}

TEST(TextParser, ReplacesTheWholeContentWithoutCursor) {
    Message message;
    ASSERT_EQ(0, message->create(nullptr));
    ASSERT_EQ(0, message->fromText("<node>7</node>"));
    std::vector<NodeInfo> nodes = nodesOf(frameOf(*message));
    ASSERT_EQ(1u, nodes.size());
    EXPECT_EQ(NodeId, nodes[0].id);
    EXPECT_EQ(z("7"), nodes[0].value);
}

TEST(TextParser, GraftsTheParsedTreeAtTheCursor) {
    Message message;
    ASSERT_EQ(0, message->create(nullptr));
    KVX::KVXMessageIterator *cursor = message->newIterator();
    ASSERT_NE(nullptr, cursor);
    ASSERT_EQ(0, message->fromText("<item>1</item>", cursor));
    ASSERT_EQ(0, message->fromText("<node><x>2</x></node>", cursor));
    delete cursor;
    std::string bytes = frameOf(*message);
    std::vector<NodeInfo> nodes = nodesOf(bytes);
    ASSERT_EQ(4u, nodes.size());
    EXPECT_EQ(Packet, nodes[0].id);
    EXPECT_EQ(Item, nodes[1].id);
    EXPECT_EQ(z("1"), nodes[1].value);
    EXPECT_EQ(NodeId, nodes[2].id);
    EXPECT_EQ(1, nodes[2].depth);
    EXPECT_EQ(2, nodes[3].depth);
    EXPECT_EQ("x", nameOf(bytes, nodes[3].id, 0));
    EXPECT_EQ(z("2"), nodes[3].value);
}

TEST(TextParser, FailedGraftLeavesThePartialDocumentInTheMessage) {
    Message message;
    ASSERT_EQ(0, message->create(nullptr));
    KVX::KVXMessageIterator *cursor = message->newIterator();
    ASSERT_NE(nullptr, cursor);
    EXPECT_EQ(-1, message->fromText("<node><item>&bad;</item></node>", cursor));
    // The cursor's document is gone; it must find its path stale and read
    // nothing freed (the sanitizer build checks that).
    std::string value;
    cursor->getValue(value, std::string("item"));
    delete cursor;
    std::vector<NodeInfo> nodes = nodesOf(frameOf(*message));
    ASSERT_EQ(2u, nodes.size());
    EXPECT_EQ(NodeId, nodes[0].id);
    EXPECT_EQ(Item, nodes[1].id);
}

TEST(TextParser, FailedGraftOnASharedMessageLeavesTheOtherIntact) {
    Message message;
    ASSERT_EQ(0, message->create(nullptr));
    ASSERT_EQ(0, message->fromText("<item>1</item>"));
    KVX::KVXMessage *twin = message->copy();
    ASSERT_NE(nullptr, twin);
    KVX::KVXMessageIterator *cursor = message->newIterator();
    EXPECT_EQ(-1, message->fromText("<node>&bad;</node>", cursor));
    delete cursor;
    std::vector<NodeInfo> kept = nodesOf(frameOf(*static_cast<KVX::KVXBinary *>(twin)));
    ASSERT_EQ(1u, kept.size());
    EXPECT_EQ(Item, kept[0].id);
    twin->destroy();
    std::vector<NodeInfo> partial = nodesOf(frameOf(*message));
    ASSERT_EQ(1u, partial.size());
    EXPECT_EQ(NodeId, partial[0].id);
}

// --- The unknown part, under both policy bits ---------------------------------

TEST(TextParser, UnprefixedNameGetsAnIdEvenWhenTheTableDoesNotRead) {
    // The element is made with a fresh dynamic id; whether the append then
    // reports the name as found is the id map's answer on such a table.
    Unknown unknown = parseUnknown("<a>1</a>", 0);
    ASSERT_LE(2u, unknown.nodes.size());
    EXPECT_EQ(-2, unknown.nodes[1].id);
    EXPECT_EQ(1, unknown.nodes[1].depth);
}

TEST(TextParser, UnknownElementWithTextIsKeptAsXmlFragment) {
    Unknown unknown = parseUnknown("  <x:a>t</x:a> tail", 0);
    EXPECT_EQ(0, unknown.result);
    ASSERT_EQ(2u, unknown.nodes.size());
    // The prefix's namespace went to the nearest ancestor with a node.
    EXPECT_EQ(201u, unknown.nodes[0].ns);
    EXPECT_EQ(0, unknown.nodes[1].id);
    EXPECT_EQ(Xml, unknown.nodes[1].kind);
    EXPECT_EQ(z("  <x:a>t</x:a>"), unknown.nodes[1].value);
}

TEST(TextParser, UnknownElementWithChildrenIsKeptThroughItsEndTag) {
    Unknown unknown = parseUnknown("<x:a><b>1</b><c/></x:a>!", 0);
    EXPECT_EQ(0, unknown.result);
    ASSERT_EQ(2u, unknown.nodes.size());
    EXPECT_EQ(Xml, unknown.nodes[1].kind);
    EXPECT_EQ(z("<x:a><b>1</b><c/></x:a>"), unknown.nodes[1].value);
}

TEST(TextParser, UnknownEmptyElementKeepsTheRestOfTheInput) {
    Unknown unknown = parseUnknown("<x:a/> rest", 0);
    EXPECT_EQ(0, unknown.result);
    ASSERT_EQ(2u, unknown.nodes.size());
    EXPECT_EQ(z("<x:a/> rest"), unknown.nodes[1].value);
}

TEST(TextParser, DropPolicyDropsUnknownElementWithContent) {
    Unknown text = parseUnknown("<x:a>t</x:a>", 1);
    EXPECT_EQ(0, text.result);
    EXPECT_EQ(1u, text.nodes.size());
    Unknown children = parseUnknown("<x:a><b/></x:a>", 1);
    EXPECT_EQ(0, children.result);
    EXPECT_EQ(1u, children.nodes.size());
}

TEST(TextParser, DropPolicyStillKeepsUnknownEmptyElement) {
    Unknown unknown = parseUnknown("<x:a/>", 1);
    EXPECT_EQ(0, unknown.result);
    ASSERT_EQ(2u, unknown.nodes.size());
    EXPECT_EQ(z("<x:a/>"), unknown.nodes[1].value);
}

TEST(TextParser, UnknownElementClosedAfterAttributesLeavesNoNode) {
    Unknown unknown = parseUnknown("<x:a id=\"1\"/>", 0);
    EXPECT_EQ(0, unknown.result);
    EXPECT_EQ(1u, unknown.nodes.size());
}

TEST(TextParser, FailPolicyRefusesUnknownElement) {
    Unknown unknown = parseUnknown("<x:a>t</x:a>", 2);
    EXPECT_EQ(-1, unknown.result);
    EXPECT_EQ(1u, unknown.nodes.size());
    EXPECT_EQ(-1, parseUnknown("<x:a>t</x:a>", 3).result);
}

TEST(TextParser, UnknownElementWithUndeclaredPrefixFails) {
    EXPECT_EQ(-1, parseUnknown("<y:a>t</y:a>", 0).result);
}

// --- The helpers on their own --------------------------------------------------

TEST(TextParser, XmlTypeFromTextNeedsAnAttributePrefix) {
    Message message;
    ASSERT_EQ(0, message->create(nullptr));
    TextParser parser(*message);
    KVX::BinaryPath path;
    path.entries.push_back(KVX::PathEntry{Packet, 8});
    TextParser::Scope scope;
    EXPECT_EQ(-1, parser.xmlTypeFromText(path, CharArray("t"), CharArray(), CharArray(), scope));
    EXPECT_EQ(-1,
              parser.xmlTypeFromText(path, CharArray("t"), CharArray(), CharArray("xsi"), scope));
}

TEST(TextParser, AttrFromTextAddsTypeAttributeAndLeavesThePath) {
    Message message;
    ASSERT_EQ(0, message->create(nullptr));
    TextParser parser(*message);
    KVX::BinaryPath path;
    path.entries.push_back(KVX::PathEntry{Packet, 8});
    EXPECT_EQ(0, parser.attrFromText(path, CharArray("v")));
    EXPECT_EQ(1u, path.entries.size());
    std::vector<NodeInfo> nodes = nodesOf(frameOf(*message));
    ASSERT_EQ(2u, nodes.size());
    EXPECT_EQ(105, nodes[1].id);
    EXPECT_EQ(0u, nodes[1].kind);
    EXPECT_EQ(z("v"), nodes[1].value);
}

TEST(TextParser, AttributeIdsInvertTheAttributeNames) {
    std::map<CharArray, int> const &ids = TextParser::AttributeIds;
    ASSERT_EQ(11u, ids.size());
    EXPECT_EQ(101, ids.at(CharArray("version")));
    EXPECT_EQ(102, ids.at(CharArray("id")));
    EXPECT_EQ(103, ids.at(CharArray("priority")));
    EXPECT_EQ(104, ids.at(CharArray("time")));
    EXPECT_EQ(105, ids.at(CharArray("type")));
    EXPECT_EQ(106, ids.at(CharArray("progress")));
    EXPECT_EQ(107, ids.at(CharArray("timeout")));
    EXPECT_EQ(108, ids.at(CharArray("timeout_limit")));
    EXPECT_EQ(109, ids.at(CharArray("uid")));
    EXPECT_EQ(110, ids.at(CharArray("log")));
    EXPECT_EQ(0, ids.at(CharArray("")));
}

// Safety: nothing the text form adds lets a frame length pass a signed 32-bit
// number; a value that would is refused with -1.
TEST(TextParser, LengthsNearInt32AreRefused) {
    using KVX::Internal::fitsTextLimit;
    using KVX::Internal::MaxTextLength;
    EXPECT_LT(MaxTextLength, static_cast<std::uint64_t>(INT_MAX));
    EXPECT_TRUE(fitsTextLimit(0, MaxTextLength));
    EXPECT_FALSE(fitsTextLimit(0, MaxTextLength + 1));
    EXPECT_FALSE(fitsTextLimit(8, MaxTextLength));
    EXPECT_TRUE(fitsTextLimit(8, MaxTextLength - 8));
    EXPECT_FALSE(fitsTextLimit(MaxTextLength + 1, 0));
    EXPECT_FALSE(fitsTextLimit(100, UINT64_MAX));
}

// Safety: the depth bound also holds where nothing is built, inside a skipped
// unknown part.
TEST(TextParser, DepthBoundHoldsInsideAnUnknownPart) {
    std::size_t const inner = KVX::Internal::MaxTextDepth - 1;
    std::string fits = "<x:a>" + nested(inner) + "</x:a>";
    Unknown kept = parseUnknown(fits.c_str(), 0);
    EXPECT_EQ(0, kept.result);
    ASSERT_EQ(2u, kept.nodes.size());
    EXPECT_EQ(z(fits), kept.nodes[1].value);
    std::string past = "<x:a>" + nested(inner + 1) + "</x:a>";
    EXPECT_EQ(-1, parseUnknown(past.c_str(), 0).result);
}

// Repeated names are answered from a cache in the parser. A type named like
// an element finds the element's alias taken, and the element keeps its id.
TEST(TextParser, TypeNamedLikeAnElementLeavesTheElementsId) {
    Parsed parsed = parse(std::string("<packet xmlns:xsi=\"") + XsiUri +
                          "\"><x>1</x><x>2</x><node xsi:type=\"x\"/><x>3</x><x>4</x></packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(6u, parsed.nodes.size());
    // The schema-instance URI took -2, x -3 and the type 0xFFFC (-4).
    EXPECT_EQ(-3, parsed.nodes[1].id);
    EXPECT_EQ(-3, parsed.nodes[2].id);
    EXPECT_EQ(0xFFFCu, parsed.nodes[3].kind);
    EXPECT_EQ(-3, parsed.nodes[4].id);
    EXPECT_EQ(-3, parsed.nodes[5].id);
    EXPECT_EQ(z("4"), parsed.nodes[5].value);
}

// A name whose alias names a type is found in the frame's table, newest entry
// first, so each namespace of that text declared in between gives the next
// element of that name the namespace's id: no cached id may hide that.
TEST(TextParser, NameFoundInTheTableFollowsNewerEntriesOfItsText) {
    Parsed parsed = parse(std::string("<packet xmlns:xsi=\"") + XsiUri +
                          "\"><node xsi:type=\"x\"/><node xmlns:p=\"x\"/><x>1</x>"
                          "<node xmlns:q=\"x\"/><x>2</x></packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(6u, parsed.nodes.size());
    // -2 the schema-instance URI, 0xFFFD the type, 0xFFFC and 0xFFFB the
    // namespaces of the text "x".
    EXPECT_EQ(0xFFFDu, parsed.nodes[1].kind);
    EXPECT_EQ(0xFFFC, parsed.nodes[3].id);
    EXPECT_EQ(0xFFFB, parsed.nodes[5].id);
}

TEST(TextParser, VocabularyNamesKeepTheirIdsWhenRepeated) {
    Parsed parsed = parse("<packet><node>1</node><node><node>2</node></node><node/></packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(5u, parsed.nodes.size());
    for (std::size_t i = 1; i < 5; ++i)
        EXPECT_EQ(NodeId, parsed.nodes[i].id);
    EXPECT_EQ(Packet, parsed.nodes[0].id);
}

// End tags are compared by words where the whole tag lies before the input's
// end, and byte by byte where it may not: both find the same tags.
TEST(TextParser, EndTagsAreFoundUpToTheLastByteOfTheInput) {
    std::string const name = "averyveryverylongname1"; // longer than two words
    Parsed whole = parse("<" + name + ">v</averyveryverylongname2></" + name + ">");
    EXPECT_EQ(0, whole.result);
    ASSERT_EQ(1u, whole.nodes.size());
    EXPECT_EQ(z("v</averyveryverylongname2>"), whole.nodes[0].value);
    EXPECT_EQ(-1, resultOf("<" + name + ">v</" + name));
    EXPECT_EQ(-1, resultOf("<" + name + ">v</averyveryverylongname"));
    EXPECT_EQ(-1, resultOf("<packet>v</packet"));
    EXPECT_EQ(0, resultOf("<packet>v</packet>"));
    EXPECT_EQ(0, resultOf("<packet><x>1</x></packet>"));
    EXPECT_EQ(-1, resultOf("<packet><x>1</x></packe"));
}

// --- Repeated elements: the quick path of the child loop --------------------
//
// The first element of a name goes the general way and caches the name; its
// later ones, plain "<name>text</name>" and "<name>" followed by a child, are
// appended in one short pass. Each text below repeats its shapes so that the
// second occurrence takes that pass (or must not), and the result is compared
// with the frame encoded by hand.

namespace {

constexpr int Data = 1307;
constexpr int IdElement = 1010;
constexpr int ValueElement = 1018;
constexpr int LongName = 1102; // "default_log_period", 18 characters

// The bytes of the node at `at`: its header and everything inside it.
std::string subtree(Parsed const &parsed, std::size_t at) {
    NodeInfo const &node = parsed.nodes.at(at);
    std::uint32_t const bytes = static_cast<std::uint32_t>(
        KVX::Internal::nodeSize(node.size, node.kind, KVX::Internal::FormatCurrent));
    return parsed.frame.substr(node.offset, bytes);
}

// <data><id>1</id><node><value>x</value></node></data>
Draft dataRecord(unsigned ns = 0) {
    return element(Data,
                   {leaf(IdElement, 0, z("1"), ns),
                    element(NodeId, {leaf(ValueElement, 0, z("x"), ns)}, Structure, ns)},
                   Structure, ns);
}

std::vector<Entry> dataTable() {
    return {{ValueElement, 0, "value"},
            {NodeId, 0, "node"},
            {IdElement, 0, "id"},
            {Data, 0, "data"},
            {Packet, 0, "packet"}};
}

// A value of `length` characters, none repeated within 16.
std::string valueOf(std::size_t length) {
    std::string value;
    for (std::size_t i = 0; i < length; ++i)
        value.push_back("0123456789abcdefghijklmnopq"[i % 27]);
    return value;
}

} // namespace

TEST(TextParser, QuickRepeatedRecordsEqualTheFirstAndTheEncodedFrame) {
    std::string const record = "<data><id>1</id><node><value>x</value></node></data>";
    Parsed parsed = parse("<packet>" + record + record + record + "</packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(13u, parsed.nodes.size());
    EXPECT_EQ(subtree(parsed, 1), subtree(parsed, 5));
    EXPECT_EQ(subtree(parsed, 1), subtree(parsed, 9));
    EXPECT_EQ(48u, parsed.nodes[1].size);
    EXPECT_EQ(frame(element(Packet, {dataRecord(), dataRecord(), dataRecord()}), dataTable()),
              parsed.frame);
}

TEST(TextParser, QuickLeavesBetweenBlanksAndNewlines) {
    Parsed parsed = parse("<packet>\n  <id>1</id>\n  <id>22</id>\t<id> 3 </id>\r\n"
                          "  <data>\n    <id>4</id>\n  </data>\n  <data> <id>5</id> </data>\n"
                          "</packet>");
    EXPECT_EQ(0, parsed.result);
    Draft const expected =
        element(Packet, {leaf(IdElement, 0, z("1")), leaf(IdElement, 0, z("22")),
                         leaf(IdElement, 0, z(" 3 ")), element(Data, {leaf(IdElement, 0, z("4"))}),
                         element(Data, {leaf(IdElement, 0, z("5"))})});
    EXPECT_EQ(frame(expected, {{Data, 0, "data"}, {IdElement, 0, "id"}, {Packet, 0, "packet"}}),
              parsed.frame);
}

TEST(TextParser, QuickEmptyAndBlankValuesAreKeptAsWritten) {
    Parsed parsed =
        parse("<packet><id></id><id></id><id>  </id><id>  </id><id/><id/><id /></packet>");
    EXPECT_EQ(0, parsed.result);
    Draft const expected =
        element(Packet, {leaf(IdElement, 0, z("")), leaf(IdElement, 0, z("")),
                         leaf(IdElement, 0, z("  ")), leaf(IdElement, 0, z("  ")),
                         leaf(IdElement, 0, ""), leaf(IdElement, 0, ""), leaf(IdElement, 0, "")});
    EXPECT_EQ(frame(expected, {{IdElement, 0, "id"}, {Packet, 0, "packet"}}), parsed.frame);
}

// The short copies of a value: up to 3 bytes one by one, 4 to 7 and 8 to 16
// by two overlapping words, longer by memcpy.
TEST(TextParser, QuickValuesOfEveryShortCopyLength) {
    for (std::size_t length : {0u, 1u, 3u, 4u, 7u, 8u, 9u, 15u, 16u, 17u, 100u}) {
        std::string const value = valueOf(length);
        std::string const item = "<value>" + value + "</value>";
        Parsed parsed = parse("<packet>" + item + item + item + "</packet>");
        EXPECT_EQ(0, parsed.result) << length;
        ASSERT_EQ(4u, parsed.nodes.size()) << length;
        for (std::size_t i = 1; i < 4; ++i) {
            EXPECT_EQ(z(value), parsed.nodes[i].value) << length;
            EXPECT_EQ(length + 1, parsed.nodes[i].size) << length;
        }
        Draft const expected =
            element(Packet, {leaf(ValueElement, 0, z(value)), leaf(ValueElement, 0, z(value)),
                             leaf(ValueElement, 0, z(value))});
        EXPECT_EQ(frame(expected, {{ValueElement, 0, "value"}, {Packet, 0, "packet"}}),
                  parsed.frame)
            << length;
    }
}

TEST(TextParser, QuickNameOfSeventeenCharactersAndMoreRepeated) {
    std::string const name = "default_log_period";
    ASSERT_EQ(18u, name.size());
    std::string const item = "<" + name + ">5</" + name + ">";
    std::string const holder = "<" + name + "><id>7</id></" + name + ">";
    Parsed parsed = parse("<packet>" + item + item + holder + holder + "</packet>");
    EXPECT_EQ(0, parsed.result);
    Draft const expected = element(Packet, {leaf(LongName, 0, z("5")), leaf(LongName, 0, z("5")),
                                            element(LongName, {leaf(IdElement, 0, z("7"))}),
                                            element(LongName, {leaf(IdElement, 0, z("7"))})});
    EXPECT_EQ(frame(expected, {{IdElement, 0, "id"}, {LongName, 0, name}, {Packet, 0, "packet"}}),
              parsed.frame);
    // A name that differs from the cached one only in its middle or last
    // character is another name.
    Parsed other = parse("<packet>" + item +
                         "<default_log_periox>5</default_log_periox>"
                         "<default_lpg_period>5</default_lpg_period></packet>");
    EXPECT_EQ(0, other.result);
    ASSERT_EQ(4u, other.nodes.size());
    EXPECT_EQ(LongName, other.nodes[1].id);
    EXPECT_EQ(-2, other.nodes[2].id);
    EXPECT_EQ(-3, other.nodes[3].id);
    EXPECT_EQ("default_log_periox", nameOf(other.frame, -2, 0));
    EXPECT_EQ("default_lpg_period", nameOf(other.frame, -3, 0));
}

TEST(TextParser, QuickPathLeavesAnEntityToTheGeneralPath) {
    Parsed parsed = parse("<packet><id>a&amp;b</id><id>a&amp;b</id><id>&lt;</id><id>&lt;</id>"
                          "<id>x&#65;</id><id>x&#65;</id></packet>");
    EXPECT_EQ(0, parsed.result);
    Draft const expected =
        element(Packet, {leaf(IdElement, 0, z("a&b")), leaf(IdElement, 0, z("a&b")),
                         leaf(IdElement, 0, z("<")), leaf(IdElement, 0, z("<")),
                         leaf(IdElement, 0, z("xA")), leaf(IdElement, 0, z("xA"))});
    EXPECT_EQ(frame(expected, {{IdElement, 0, "id"}, {Packet, 0, "packet"}}), parsed.frame);
    // An unknown entity in the repeated leaf still fails the parse.
    EXPECT_EQ(-1, resultOf("<packet><id>1</id><id>&bogus;</id></packet>"));
}

TEST(TextParser, QuickPathLeavesAnAttributeToTheGeneralPath) {
    std::string const record = "<node priority=\"5\"><value>x</value></node>";
    Parsed parsed = parse("<packet>" + record + record + "<node><value>y</value></node></packet>");
    EXPECT_EQ(0, parsed.result);
    Draft const withAttribute =
        element(NodeId, {leaf(103, 0, z("5")), leaf(ValueElement, 0, z("x"))});
    Draft const expected = element(
        Packet, {withAttribute, withAttribute, element(NodeId, {leaf(ValueElement, 0, z("y"))})});
    EXPECT_EQ(
        frame(expected, {{ValueElement, 0, "value"}, {NodeId, 0, "node"}, {Packet, 0, "packet"}}),
        parsed.frame);
    // An attribute on a repeated leaf that has text is refused as ever.
    EXPECT_EQ(-1, resultOf("<packet><id>1</id><id priority=\"5\">1</id></packet>"));
}

TEST(TextParser, QuickPathLeavesCommentsBetweenSiblingsToTheGeneralPath) {
    Parsed parsed = parse("<packet><id>1</id><!-- c --><id>2</id><?pi x?><id>3</id>"
                          "<data><!-- first --><id>4</id></data><data><id>5</id><!----></data>"
                          "</packet>");
    EXPECT_EQ(0, parsed.result);
    Draft const expected =
        element(Packet, {leaf(IdElement, 0, z("1")), leaf(IdElement, 0, z("2")),
                         leaf(IdElement, 0, z("3")), element(Data, {leaf(IdElement, 0, z("4"))}),
                         element(Data, {leaf(IdElement, 0, z("5"))})});
    EXPECT_EQ(frame(expected, {{Data, 0, "data"}, {IdElement, 0, "id"}, {Packet, 0, "packet"}}),
              parsed.frame);
}

// Text in front of a child makes the element a leaf whose value holds the
// markup: "<node>x<id>1</id></node>" is one node, repeated or not.
TEST(TextParser, QuickPathLeavesTextBeforeAChildToTheGeneralPath) {
    Parsed parsed = parse("<packet><node><id>1</id></node><node>x<id>1</id></node>"
                          "<node>x<id>1</id></node><id>a<b</id><id>a<b</id></packet>");
    EXPECT_EQ(0, parsed.result);
    Draft const expected =
        element(Packet, {element(NodeId, {leaf(IdElement, 0, z("1"))}),
                         leaf(NodeId, 0, z("x<id>1</id>")), leaf(NodeId, 0, z("x<id>1</id>")),
                         leaf(IdElement, 0, z("a<b")), leaf(IdElement, 0, z("a<b"))});
    EXPECT_EQ(frame(expected, {{IdElement, 0, "id"}, {NodeId, 0, "node"}, {Packet, 0, "packet"}}),
              parsed.frame);
}

TEST(TextParser, QuickPathLeavesBlanksInsideTheStartTagToTheGeneralPath) {
    Parsed parsed = parse("<packet><id>1</id><id >2</id><data><id>3</id></data>"
                          "<data\n><id>4</id></data></packet>");
    EXPECT_EQ(0, parsed.result);
    Draft const expected = element(Packet, {leaf(IdElement, 0, z("1")), leaf(IdElement, 0, z("2")),
                                            element(Data, {leaf(IdElement, 0, z("3"))}),
                                            element(Data, {leaf(IdElement, 0, z("4"))})});
    EXPECT_EQ(frame(expected, {{Data, 0, "data"}, {IdElement, 0, "id"}, {Packet, 0, "packet"}}),
              parsed.frame);
}

// The namespace in force reaches the repeated elements, and ends with the
// element that declared it.
TEST(TextParser, QuickElementsTakeTheDefaultNamespaceInForce) {
    std::string const record = "<data><id>1</id><node><value>x</value></node></data>";
    Parsed parsed = parse("<packet xmlns=\"urn:a\">" + record + record + "</packet>");
    EXPECT_EQ(0, parsed.result);
    ASSERT_EQ(9u, parsed.nodes.size());
    for (NodeInfo const &node : parsed.nodes)
        EXPECT_EQ(0xFFFEu, node.ns) << node.offset;
    EXPECT_EQ(subtree(parsed, 1), subtree(parsed, 5));
    std::vector<Entry> table = dataTable();
    table.insert(table.end() - 1, Entry{0xFFFE, 1, "urn:a"});
    EXPECT_EQ(
        frame(element(Packet, {dataRecord(0xFFFE), dataRecord(0xFFFE)}, Structure, 0xFFFE), table),
        parsed.frame);

    Parsed scoped = parse("<packet><data xmlns=\"urn:a\"><id>1</id><node><value>x</value></node>"
                          "</data>" +
                          record + record + "</packet>");
    EXPECT_EQ(0, scoped.result);
    std::vector<Entry> scopedTable = dataTable();
    scopedTable.insert(scopedTable.begin() + 3, Entry{0xFFFE, 1, "urn:a"});
    EXPECT_EQ(frame(element(Packet, {dataRecord(0xFFFE), dataRecord(), dataRecord()}), scopedTable),
              scoped.frame);
}

TEST(TextParser, QuickPathLeavesPrefixedElementsToTheGeneralPath) {
    Parsed parsed = parse("<p:packet xmlns:p=\"urn:a\"><p:data><p:id>1</p:id></p:data>"
                          "<p:data><p:id>1</p:id></p:data><data><id>2</id></data>"
                          "<data><id>2</id></data></p:packet>");
    EXPECT_EQ(0, parsed.result);
    // Without a prefix and without a default namespace a node takes its
    // parent's namespace field, as every append does.
    Draft const prefixed = element(Data, {leaf(IdElement, 0, z("1"), 0xFFFE)}, Structure, 0xFFFE);
    Draft const plain = element(Data, {leaf(IdElement, 0, z("2"), 0xFFFE)}, Structure, 0xFFFE);
    Draft const expected = element(Packet, {prefixed, prefixed, plain, plain}, Structure, 0xFFFE);
    EXPECT_EQ(
        frame(
            expected,
            {{IdElement, 0, "id"}, {Data, 0, "data"}, {0xFFFE, 1, "urn:a"}, {Packet, 0, "packet"}}),
        parsed.frame);
}

// The quick path counts the depth as enter() does: a leaf at MaxTextDepth is
// read, one level deeper fails.
TEST(TextParser, QuickElementsNearTheDepthBound) {
    std::size_t const depth = KVX::Internal::MaxTextDepth;
    auto nestedLeaf = [](std::size_t levels) {
        std::string text;
        for (std::size_t i = 1; i < levels; ++i)
            text += "<node>";
        text += "<node>v</node>";
        for (std::size_t i = 1; i < levels; ++i)
            text += "</node>";
        return text;
    };
    Parsed deep = parse(nestedLeaf(depth));
    EXPECT_EQ(0, deep.result);
    ASSERT_EQ(depth, deep.nodes.size());
    for (std::size_t k = 0; k + 1 < depth; ++k) {
        NodeInfo const &node = deep.nodes[k];
        ASSERT_EQ(static_cast<int>(k), node.depth);
        ASSERT_EQ(8u + 16u * k, node.offset);
        ASSERT_EQ(Structure, node.kind);
        ASSERT_EQ(16u * (depth - 1 - k), node.size) << k;
    }
    EXPECT_EQ(z("v"), deep.nodes.back().value);
    EXPECT_EQ(0u, deep.nodes.back().kind);
    EXPECT_EQ(-1, resultOf(nestedLeaf(depth + 1)));
    // The same bound for an element that opens: a leaf of another name under
    // MaxTextDepth - 1 open elements is read, under MaxTextDepth it fails.
    auto openedTo = [](std::size_t levels) {
        std::string text;
        for (std::size_t i = 0; i < levels; ++i)
            text += "<node>";
        text += "<id>1</id>";
        for (std::size_t i = 0; i < levels; ++i)
            text += "</node>";
        return text;
    };
    Parsed opened = parse(openedTo(depth - 1));
    EXPECT_EQ(0, opened.result);
    ASSERT_EQ(depth, opened.nodes.size());
    EXPECT_EQ(IdElement, opened.nodes.back().id);
    EXPECT_EQ(z("1"), opened.nodes.back().value);
    EXPECT_EQ(-1, resultOf(openedTo(depth)));
}
