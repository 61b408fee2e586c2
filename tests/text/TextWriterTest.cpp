// Tests of the XML writer on frames built byte by byte: the node rules, value
// kinds, escaping, attribute order, prefixes and their declarations, the
// version switch, the quirks it keeps, and its refusal of damaged or too deep
// frames.
#include "text/TextWriter.h"

#include "binary/WireFormat.h"
#include "tests/text/TextTestSupport.h"
#include "text/TextLimits.h"

#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <gtest/gtest.h>

#include <string>

using namespace TextTest;
using KVX::Internal::CharArray;
using KVX::Internal::TextWriter;

namespace {

char const Decl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
char const Xsi[] = " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"";

constexpr int Packet = 1398;
constexpr int NodeId = 1008;
constexpr int Value = 1018;
constexpr int Name = 1026;
constexpr int Version = 1223;
constexpr int Data = 1307;
constexpr int Origin = 1337;
constexpr int Target = 1401;
constexpr int Item = 1809;

std::string z(std::string const &text) {
    return text + std::string(1, '\0');
}

std::string bytes32(std::int32_t value) {
    std::string out(4, '\0');
    KVX::Internal::store32(&out[0], static_cast<std::uint32_t>(value));
    return out;
}
std::string bytes64(std::int64_t value) {
    std::string out(8, '\0');
    KVX::Internal::store64(&out[0], static_cast<std::uint64_t>(value));
    return out;
}
std::string bytesDouble(double value) {
    std::string out(8, '\0');
    KVX::Internal::storeDouble(&out[0], value);
    return out;
}

std::vector<Entry> const Names = {
    {Packet, 0, "packet"}, {NodeId, 0, "node"},     {Value, 0, "value"},
    {Name, 0, "name"},     {Version, 0, "version"}, {Data, 0, "data"},
    {Origin, 0, "origin"}, {Target, 0, "target"},   {Item, 0, "item"},
};

std::vector<Entry> with(std::vector<Entry> more) {
    std::vector<Entry> all = Names;
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

// The text of a loaded frame through the message's public interface.
std::string write(std::string const &bytes, int version = 40500, std::string const &base = "",
                  bool *wasNull = nullptr) {
    Message message;
    EXPECT_EQ(0, message->init(bytes.data(), static_cast<int>(bytes.size())));
    KVX::KVXMessage &plain = *message;
    return take(plain.toText(nullptr, base, version), wasNull);
}

bool writesNull(std::string const &bytes, int version = 40500) {
    bool wasNull = false;
    write(bytes, version, "", &wasNull);
    return wasNull;
}

// A chain of `depth` nested "node" elements; the innermost has no value.
std::string deepFrame(std::size_t depth) {
    using namespace KVX::Internal;
    std::string out(8 + 16 * depth, '\0');
    for (std::size_t k = 0; k < depth; ++k) {
        char *at = &out[8 + 16 * k];
        bool inner = k + 1 == depth;
        store32(at, NodeId);
        store16(at + 4, inner ? 0 : 50);
        store32(at + 8, inner ? 0 : static_cast<std::uint32_t>(16 * (depth - 1 - k)));
    }
    std::string table = frame(leaf(NodeId, 0, ""), {{NodeId, 0, "node"}}).substr(24);
    out += table;
    store32(&out[0], FrameMagic);
    store32(&out[4], (FormatCurrent << FormatShift) | static_cast<std::uint32_t>(table.size()));
    return out;
}

} // namespace

TEST(TextWriter, AttributeNamesFollowTheirRows) {
    std::map<int, CharArray> const &names = TextWriter::AttributeNames;
    ASSERT_EQ(11u, names.size());
    int const order[] = {101, 102, 103, 104, 105, 106, 110, 107, 108, 109, 0};
    char const *const text[] = {"version", "id",      "priority",      "time", "type", "progress",
                                "log",     "timeout", "timeout_limit", "uid",  ""};
    for (std::size_t i = 0; i < 11; ++i) {
        EXPECT_EQ(order[i], KVX::Internal::AttributeRows[i].id);
        EXPECT_EQ(std::string(text[i]), KVX::Internal::AttributeRows[i].name.str());
        EXPECT_EQ(std::string(text[i]), names.at(order[i]).str());
    }
}

TEST(TextWriter, EscapeReplacesAmpersandAndAngleBracketsOnly) {
    EXPECT_EQ("a&amp;b&lt;c&gt;d\"e'f", TextWriter::escape("a&b<c>d\"e'f"));
    EXPECT_EQ("&amp;amp;", TextWriter::escape("&amp;"));
    EXPECT_EQ("", TextWriter::escape(""));
}

TEST(TextWriter, AttributesAreWrittenInReverseOrderOfTheirNodes) {
    std::string bytes = frame(
        element(Packet, {leaf(102, 2, z("a")), leaf(104, 6, z("2020-01-01T00:00:00Z"))}), Names);
    EXPECT_EQ(std::string(Decl) + "<packet" + Xsi +
                  " time=\"2020-01-01T00:00:00Z\" id=\"a\">\n</packet>\n",
              write(bytes));
}

TEST(TextWriter, EachValueKindIsWrittenByItsRule) {
    std::string bytes =
        frame(element(Packet, {leaf(NodeId, 1, bytes32(42)), leaf(Value, 3, bytes64(-5000000000LL)),
                               leaf(Name, 4, bytesDouble(2.5)), leaf(Data, 5, z("hi")),
                               leaf(Origin, 6, z("2020-01-02T03:04:05+01:00")),
                               leaf(Target, 2, z("a&b<c>d\"e'f")), leaf(Item, 0, z("x>y")),
                               leaf(Item, 0, ""), leaf(Item, 2, z("")),
                               leaf(0, 51, z("<raw a='1'>&</raw>")), element(NodeId, {}),
                               leaf(NodeId, 7, "zz")}),
              Names);
    EXPECT_EQ(std::string(Decl) + "<packet" + Xsi + ">\n" +
                  "<node>42</node>\n"
                  "<value>-5000000000</value>\n"
                  "<name>2.5</name>\n"
                  "<data>aGk=</data>\n"
                  "<origin>2020-01-02T03:04:05+01:00</origin>\n"
                  "<target>a&amp;b&lt;c&gt;d\"e'f</target>\n"
                  "<item>x&gt;y</item>\n"
                  "<item/>\n"
                  "<item></item>\n"
                  "<raw a='1'>&</raw>\n"
                  "<node/>\n"
                  "<node></node>\n"
                  "</packet>\n",
              write(bytes));
}

TEST(TextWriter, TimeIsNotEscaped) {
    std::string bytes = frame(element(Packet, {leaf(Origin, 6, z("a&b"))}), Names);
    EXPECT_EQ(std::string(Decl) + "<packet" + Xsi + ">\n<origin>a&b</origin>\n</packet>\n",
              write(bytes));
}

TEST(TextWriter, PrefixesInOrderOfFirstUseDeclaredAtTheRootInKeyOrder) {
    std::string bytes = frame(element(Packet, {leaf(NodeId, 2, z("1"), 0xFFFE),
                                               element(Item, {leaf(NodeId, 2, z("2"), 0xFFFD)}),
                                               leaf(NodeId, 0, "", 0xFFFE)}),
                              with({{65534, 1, "urn:bb"}, {65533, 1, "urn:a"}}));
    // urn:bb is met first (ns1) but is the longer key, so it stands first.
    EXPECT_EQ(std::string(Decl) + "<packet xmlns:ns1=\"urn:bb\" xmlns:ns2=\"urn:a\"" + Xsi + ">\n" +
                  "<ns1:node>1</ns1:node>\n"
                  "<item>\n<ns2:node>2</ns2:node>\n</item>\n"
                  "<ns1:node/>\n"
                  "</packet>\n",
              write(bytes));
}

TEST(TextWriter, TypeTakesItsOwnPrefixOrTheElements) {
    std::string bytes =
        frame(element(Packet, {element(NodeId, {}, 0xFFFD, 0xFFFE), element(Item, {}, 115, 0xFFFE),
                               element(NodeId, {}, 115)}),
              with({{65534, 1, "urn:e"}, {65533, 2, "urn:t:T"}}));
    EXPECT_EQ(std::string(Decl) + "<packet xmlns:ns2=\"urn:t\" xmlns:ns1=\"urn:e\"" + Xsi + ">\n" +
                  "<ns1:node xsi:type=\"ns2:T\"/>\n"
                  "<ns1:item xsi:type=\"ns1:configType\"/>\n"
                  "<node xsi:type=\"configType\"/>\n"
                  "</packet>\n",
              write(bytes));
}

TEST(TextWriter, BelowVersion40000NoNamespaceNoTypeNoXmlns) {
    std::string bytes =
        frame(element(Packet, {element(NodeId, {}, 0xFFFD, 0xFFFE), element(Item, {}, 115, 0xFFFE),
                               leaf(NodeId, 2, z("1"), 0xFFFE)}),
              with({{65534, 1, "urn:e"}, {65533, 2, "urn:t:T"}}));
    EXPECT_EQ(std::string(Decl) + "<packet>\n<node/>\n<item/>\n<node>1</node>\n</packet>\n",
              write(bytes, 39999));
}

TEST(TextWriter, Version40000IsWrittenAs40500) {
    std::string bytes =
        frame(element(Packet, {leaf(NodeId, 2, z("1"), 0xFFFE)}), with({{65534, 1, "urn:e"}}));
    EXPECT_EQ(write(bytes, 40500), write(bytes, 40000));
}

TEST(TextWriter, RootNamedVersionTakesDeclarationsInsideTheXmlDeclaration) {
    std::string bytes = frame(leaf(Version, 2, z("1")), Names);
    EXPECT_EQ(std::string("<?xml version") + Xsi +
                  "=\"1.0\" encoding=\"UTF-8\"?><version>1</version>\n",
              write(bytes));
    EXPECT_EQ(std::string("<version") + Xsi + ">1</version>\n", write(bytes, 40500, "base/"));
}

TEST(TextWriter, NamespaceBaseDropsTheXmlDeclarationButNotXsiForTheWholeMessage) {
    std::string bytes = frame(element(Packet, {leaf(NodeId, 2, z("1"))}), Names);
    EXPECT_EQ(std::string("<packet") + Xsi + ">\n<node>1</node>\n</packet>\n",
              write(bytes, 40500, "http://host/webservices/kvx/4.5/"));
}

TEST(TextWriter, CursorWithNamespaceBaseWritesNoXsiDeclaration) {
    std::string bytes =
        frame(element(Packet, {leaf(NodeId, 2, z("1"), 0xFFFE)}), with({{65534, 1, "urn:e"}}));
    Message message;
    ASSERT_EQ(0, message->init(bytes.data(), static_cast<int>(bytes.size())));
    KVX::KVXMessageIterator *cursor = message->newIterator();
    ASSERT_NE(nullptr, cursor);
    KVX::KVXMessage &plain = *message;
    EXPECT_EQ("<packet xmlns:ns1=\"urn:e\">\n<ns1:node>1</ns1:node>\n</packet>\n",
              take(plain.toText(cursor, "base/", 40500)));
    EXPECT_EQ(std::string(Decl) + "<packet xmlns:ns1=\"urn:e\"" + Xsi +
                  ">\n<ns1:node>1</ns1:node>\n</packet>\n",
              take(plain.toText(cursor, "", 40500)));
    ASSERT_EQ(0, cursor->firstChild());
    EXPECT_EQ(std::string(Decl) + "<ns1:node xmlns:ns1=\"urn:e\"" + Xsi + ">1</ns1:node>\n",
              take(message->toText(cursor, std::string())));
    delete cursor;
}

TEST(TextWriter, TypedEmptyElementIsAnEmptyTagWithItsType) {
    std::string bytes = frame(element(NodeId, {}, 115), Names);
    EXPECT_EQ(std::string(Decl) + "<node" + Xsi + " xsi:type=\"configType\"/>\n", write(bytes));
}

TEST(TextWriter, QuoteInAttributeValueIsWrittenAsItStands) {
    std::string bytes = frame(element(Packet, {leaf(102, 2, z("a\"b<&"))}), Names);
    EXPECT_EQ(std::string(Decl) + "<packet" + Xsi + " id=\"a\"b&lt;&amp;\">\n</packet>\n",
              write(bytes));
}

TEST(TextWriter, AttributeOfIdZeroIsNamedInvalidTag) {
    std::string bytes = frame(element(Packet, {leaf(0, 0, z("v"))}), Names);
    EXPECT_EQ(std::string(Decl) + "<packet" + Xsi + " INVALID_TAG=\"v\">\n</packet>\n",
              write(bytes));
}

TEST(TextWriter, ElementWithoutNameIsNamedInvalidTag) {
    std::string bytes = frame(element(Packet, {leaf(-7, 2, z("v"))}), Names);
    EXPECT_EQ(std::string(Decl) + "<packet" + Xsi + ">\n<INVALID_TAG>v</INVALID_TAG>\n</packet>\n",
              write(bytes));
}

TEST(TextWriter, AttributeStartNodeGoesAheadOfTheDeclarationBelow40000) {
    std::string bytes = frame(leaf(102, 2, z("x")), Names);
    EXPECT_EQ(std::string(" id=\"x\"") + Decl, write(bytes, 39999));
    EXPECT_TRUE(writesNull(bytes, 40500));
}

TEST(TextWriter, UnknownAttributeIdFails) {
    std::string bytes = frame(element(Packet, {leaf(150, 2, z("x"))}), Names);
    EXPECT_TRUE(writesNull(bytes));
    EXPECT_TRUE(writesNull(bytes, 39999));
}

TEST(TextWriter, MessageWithoutRootGivesNull) {
    Message blank;
    KVX::KVXMessage &plain = *blank;
    EXPECT_EQ(nullptr, plain.toText(nullptr, "", 40500));
    std::string empty = frame(element(Packet, {}), Names, true);
    EXPECT_TRUE(writesNull(empty));
}

// Safety: a child that passes its parent's end is refused before it is read.
TEST(TextWriter, ChildPassingItsParentFails) {
    std::string bytes = frame(element(Packet, {leaf(NodeId, 2, z("0123456789abcdefghi"))}), Names);
    // The root claims 16 bytes of children; its one child takes 32.
    std::uint32_t rootSize = KVX::Internal::load32(&bytes[16]);
    ASSERT_EQ(32u, rootSize);
    KVX::Internal::store32(&bytes[16], 16);
    // Move the name table up to the new end of the root.
    bytes.erase(8 + 16 + 16, 16);
    EXPECT_TRUE(writesNull(bytes));
    EXPECT_TRUE(writesNull(bytes, 39999));
}

// Safety: a container whose size is no whole number of children ends in the
// middle of a header, which is refused.
TEST(TextWriter, ContainerEndingInsideAChildHeaderFails) {
    std::string bytes = frame(element(Packet, {leaf(NodeId, 2, z("1"))}), Names);
    KVX::Internal::store32(&bytes[16], 8);
    bytes.erase(8 + 16 + 8, 8);
    EXPECT_TRUE(writesNull(bytes));
}

// Safety: the writer walks with an explicit stack and stops at MaxTextDepth.
TEST(TextWriter, DepthUpToTheBoundWritesAndOnePastFails) {
    std::size_t const depth = KVX::Internal::MaxTextDepth;
    std::string expected = std::string(Decl) + "<node" + Xsi + ">\n";
    for (std::size_t i = 2; i < depth; ++i)
        expected += "<node>\n";
    expected += "<node/>\n";
    for (std::size_t i = 1; i < depth; ++i)
        expected += "</node>\n";
    EXPECT_EQ(expected, write(deepFrame(depth)));
    EXPECT_TRUE(writesNull(deepFrame(depth + 1)));
    EXPECT_TRUE(writesNull(deepFrame(depth + 1), 39999));
}

TEST(TextWriter, SubtreeOfAChildEndsWithThatChild) {
    std::string bytes =
        frame(element(Packet, {leaf(NodeId, 2, z("1")), leaf(Item, 2, z("2"))}), Names);
    Message message;
    ASSERT_EQ(0, message->init(bytes.data(), static_cast<int>(bytes.size())));
    KVX::KVXMessageIterator *cursor = message->newIterator();
    ASSERT_EQ(0, cursor->firstChild());
    // The subtree text of the first child only: its size moves the offset.
    EXPECT_EQ(std::string(Decl) + "<node" + Xsi + ">1</node>\n",
              take(message->toText(cursor, std::string())));
    delete cursor;
}

TEST(TextWriter, RootNamedXmlTakesDeclarationsInsideTheXmlDeclaration) {
    std::string bytes = frame(leaf(-2, 2, z("v")), {{-2, 0, "xml"}});
    EXPECT_EQ(std::string("<?xml") + Xsi + " version=\"1.0\" encoding=\"UTF-8\"?><xml>v</xml>\n",
              write(bytes));
}

// Safety: a number kind whose size is shorter than the number reads the bytes
// its node has and zeros for the rest, never the next node.
TEST(TextWriter, ShortNumberValueReadsOnlyItsNode) {
    std::string bytes = frame(element(Packet, {leaf(Value, 3, std::string("\x05\0\0\0", 4)),
                                               leaf(Item, 4, std::string("\0\0", 2))}),
                              Names);
    EXPECT_EQ(std::string(Decl) + "<packet" + Xsi + ">\n<value>5</value>\n<item>0</item>\n" +
                  "</packet>\n",
              write(bytes));
}

// Safety: an attribute node with children has no start tag to hold them; such
// a frame is refused rather than written into the middle of other text.
TEST(TextWriter, AttributeWithChildrenFails) {
    std::string bytes = frame(element(Packet, {element(102, {leaf(NodeId, 2, z("1"))})}), Names);
    EXPECT_TRUE(writesNull(bytes));
    std::string empty = frame(element(Packet, {element(102, {})}), Names);
    EXPECT_EQ(std::string(Decl) + "<packet" + Xsi + " id=\"\">\n</packet>\n", write(empty));
}
