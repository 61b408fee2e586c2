// Tests of the XML reader's scanner: its character classes, the skip of
// blanks, the comparison of texts by words, the end-tag check near the input's
// end, and the name and text scans on both their sixteen-at-a-time part and
// their byte loop. Inputs near the end lie in heap buffers of their exact size.
#include "text/TextScan.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using KVX::Internal::CharArray;
using namespace KVX::Internal;

namespace {

// A text and its NUL in a heap buffer of exactly that size, so that
// AddressSanitizer reports any read behind the NUL.
class Input {
public:
    explicit Input(std::string const &text)
        : bytes(new char[text.size() + 1]), length(text.size()) {
        std::memcpy(bytes.get(), text.data(), text.size());
        bytes[length] = '\0';
    }
    char const *begin() const { return bytes.get(); }
    char const *end() const { return bytes.get() + length; } // the NUL
    char const *at(std::size_t offset) const { return bytes.get() + offset; }

private:
    std::unique_ptr<char[]> bytes;
    std::size_t length;
};

// A copy of `text` without a NUL, in a heap buffer of exactly its size.
std::unique_ptr<char[]> exactCopy(std::string const &text) {
    std::unique_ptr<char[]> copy(new char[text.size() + (text.empty() ? 1 : 0)]);
    std::memcpy(copy.get(), text.data(), text.size());
    return copy;
}

bool isBlank(unsigned char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool endsName(unsigned char c) {
    return isBlank(c) || c == '>' || c == '/' || c == '\0';
}

bool stopsText(unsigned char c) {
    return c == '<' || c == '&' || c == '\0';
}

bool isControl(unsigned char c) {
    return c < 0x20 || c == 0x7F;
}

// The first character at or behind `text` that ends a name, byte by byte.
char const *firstNameEnd(char const *text) {
    while (!endsName(static_cast<unsigned char>(*text)))
        ++text;
    return text;
}

// What quickNameEnd promises: a character that may end a name, none of the
// NameEnd characters before it, and where it is '>' that is the first one.
void expectNameEndPromise(char const *text, char const *inputEnd, std::string const &label) {
    char const *const found = quickNameEnd(text, inputEnd);
    char const *const exact = firstNameEnd(text);
    ASSERT_LE(found, exact) << label;
    unsigned char const c = static_cast<unsigned char>(*found);
    EXPECT_TRUE(endsName(c) || isControl(c)) << label;
    if (c == '>') {
        EXPECT_EQ(exact, found) << label;
    }
    if (found != exact) {
        EXPECT_TRUE(isControl(c) && !endsName(c)) << label;
    }
}

} // namespace

// --- Character classes --------------------------------------------------------

TEST(TextScan, SpaceIsTheFourBlanksOnly) {
    for (int i = 0; i < 256; ++i) {
        char const c = static_cast<char>(i);
        EXPECT_EQ(isBlank(static_cast<unsigned char>(i)), isSpace(c)) << i;
        EXPECT_EQ(isBlank(static_cast<unsigned char>(i)), inClass(c, Space)) << i;
    }
    EXPECT_TRUE(isSpace(' '));
    EXPECT_TRUE(isSpace('\t'));
    EXPECT_TRUE(isSpace('\n'));
    EXPECT_TRUE(isSpace('\r'));
    EXPECT_FALSE(isSpace('\0'));
    EXPECT_FALSE(isSpace('\x01'));
    EXPECT_FALSE(isSpace('\v'));
    EXPECT_FALSE(isSpace('\f'));
    EXPECT_FALSE(isSpace('\x1F'));
    EXPECT_FALSE(isSpace('\x7F'));
    EXPECT_FALSE(isSpace('\x85'));
    EXPECT_FALSE(isSpace('\xA0'));
}

TEST(TextScan, NameEndAndTextStopClasses) {
    for (int i = 0; i < 256; ++i) {
        unsigned char const u = static_cast<unsigned char>(i);
        char const c = static_cast<char>(i);
        EXPECT_EQ(endsName(u), inClass(c, NameEnd)) << i;
        EXPECT_EQ(stopsText(u), inClass(c, TextStop)) << i;
        EXPECT_EQ(endsName(u) || stopsText(u), inClass(c, Space | NameEnd | TextStop)) << i;
    }
    EXPECT_TRUE(inClass('<', NameEnd | TextStop));
    EXPECT_FALSE(inClass('<', Space | NameEnd));
    EXPECT_TRUE(inClass('\0', NameEnd));
    EXPECT_TRUE(inClass('\0', TextStop));
    EXPECT_FALSE(inClass('\0', Space));
    EXPECT_FALSE(inClass('\v', Space | NameEnd | TextStop));
    EXPECT_FALSE(inClass('a', Space | NameEnd | TextStop));
}

// --- Blanks -------------------------------------------------------------------

TEST(TextScan, AfterSpaceSkipsTheFourBlanks) {
    Input const mixed(" \t\r\n \t\nx y");
    EXPECT_EQ(mixed.at(7), afterSpace(mixed.begin()));
    EXPECT_EQ(mixed.at(9), afterSpace(mixed.at(8)));

    Input const none("x ");
    EXPECT_EQ(none.begin(), afterSpace(none.begin()));

    Input const onlyBlanks("  \t\n\r");
    EXPECT_EQ(onlyBlanks.end(), afterSpace(onlyBlanks.begin()));

    Input const empty("");
    EXPECT_EQ(empty.end(), afterSpace(empty.begin()));

    Input const others(" \v \f \x01 \xA0");
    EXPECT_EQ(others.at(1), afterSpace(others.begin()));
    EXPECT_EQ(others.at(3), afterSpace(others.at(2)));
    EXPECT_EQ(others.at(5), afterSpace(others.at(4)));
    EXPECT_EQ(others.at(7), afterSpace(others.at(6)));
}

TEST(TextScan, SkipSpaceMovesThePointer) {
    Input const input("   <a>");
    char const *text = input.begin();
    skipSpace(text);
    EXPECT_EQ(input.at(3), text);
    skipSpace(text);
    EXPECT_EQ(input.at(3), text);
}

// --- Comparison of texts --------------------------------------------------------

TEST(TextScan, SameTextForLengthsZeroToForty) {
    for (std::size_t length = 0; length <= 40; ++length) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i)
            text += static_cast<char>('A' + (i * 7) % 58);
        std::unique_ptr<char[]> const a = exactCopy(text);
        std::unique_ptr<char[]> const b = exactCopy(text);
        EXPECT_TRUE(sameText(a.get(), b.get(), length)) << length;
        if (length == 0)
            continue;

        std::vector<std::size_t> const positions = {0, length / 2, length - 1};
        for (std::size_t at : positions) {
            std::string other = text;
            other[at] = static_cast<char>(other[at] ^ 0x20);
            std::unique_ptr<char[]> const c = exactCopy(other);
            EXPECT_FALSE(sameText(a.get(), c.get(), length)) << length << " at " << at;
            EXPECT_FALSE(sameText(c.get(), a.get(), length)) << length << " at " << at;
        }
        // Every position, by the high bit alone.
        for (std::size_t at = 0; at < length; ++at) {
            std::string other = text;
            other[at] = static_cast<char>(other[at] ^ 0x80);
            std::unique_ptr<char[]> const c = exactCopy(other);
            EXPECT_FALSE(sameText(a.get(), c.get(), length)) << length << " at " << at;
        }
        // Equal texts at unaligned addresses.
        std::unique_ptr<char[]> const shifted = exactCopy("xyz" + text);
        EXPECT_TRUE(sameText(shifted.get() + 3, a.get(), length)) << length;
    }
}

TEST(TextScan, SameTextComparesOnlyTheGivenLength) {
    EXPECT_TRUE(sameText("abcdefghijklmnopqrstuvwxyz", "abcdefghijklmnopqrstuvwxyZ", 25));
    EXPECT_FALSE(sameText("abcdefghijklmnopqrstuvwxyz", "abcdefghijklmnopqrstuvwxyZ", 26));
    EXPECT_TRUE(sameText("ab", "ac", 1));
    EXPECT_TRUE(sameText("x", "y", 0));
    EXPECT_TRUE(sameText(std::string("a\0b", 3).c_str(), std::string("a\0b", 3).c_str(), 3));
}

// --- End tags -----------------------------------------------------------------

TEST(TextScan, AtEndTagMatchesTheWholeName) {
    std::unique_ptr<char[]> const nameBytes = exactCopy("name");
    CharArray const name(nameBytes.get(), 4);
    struct Case {
        char const *text;
        bool expected;
    };
    Case const cases[] = {
        {"</name>", true},   {"</name> and more text behind the tag", true},
        {"</nam>", false},   {"</nam> and more text behind the tag", false},
        {"</namex>", false}, {"</namex> and more text behind the tag", false},
        {"<name>", false},   {"<name> and more text behind the tag", false},
        {"</Name>", false},  {"</name >", false},
        {"</name/>", false}, {"<//name>", false},
        {"x</name>", false}, {"", false},
        {"<", false},        {"</", false},
        {"</n", false},      {"</nam", false},
        {"</name", false},   {"</namex", false},
        {"</name>\0", true},
    };
    for (Case const &c : cases) {
        Input const input(c.text);
        EXPECT_EQ(c.expected, atEndTag(input.begin(), name, input.end())) << c.text;
    }
}

TEST(TextScan, AtEndTagAtTheEndOfTheInput) {
    // Names on both sides of eight and sixteen characters, the tag ending at
    // the NUL and cut by it at every length.
    for (std::size_t length = 1; length <= 20; ++length) {
        std::string nameText;
        for (std::size_t i = 0; i < length; ++i)
            nameText += static_cast<char>('a' + i);
        std::unique_ptr<char[]> const nameBytes = exactCopy(nameText);
        CharArray const name(nameBytes.get(), length);
        std::string const tag = "</" + nameText + ">";

        Input const whole(tag);
        EXPECT_TRUE(atEndTag(whole.begin(), name, whole.end())) << tag;
        Input const followed(tag + "tail");
        EXPECT_TRUE(atEndTag(followed.begin(), name, followed.end())) << tag;
        Input const inText("text" + tag);
        EXPECT_TRUE(atEndTag(inText.at(4), name, inText.end())) << tag;

        for (std::size_t cut = 0; cut < tag.size(); ++cut) {
            Input const cutTag(tag.substr(0, cut));
            EXPECT_FALSE(atEndTag(cutTag.begin(), name, cutTag.end())) << tag << " cut " << cut;
        }

        std::string longer = tag;
        longer.insert(longer.size() - 1, "x");
        Input const longerTag(longer);
        EXPECT_FALSE(atEndTag(longerTag.begin(), name, longerTag.end())) << longer;

        std::string shorter = tag;
        shorter.erase(shorter.size() - 2, 1);
        Input const shorterTag(shorter);
        EXPECT_FALSE(atEndTag(shorterTag.begin(), name, shorterTag.end())) << shorter;

        std::string otherLast = tag;
        otherLast[otherLast.size() - 2] = 'Z';
        Input const otherTag(otherLast);
        EXPECT_FALSE(atEndTag(otherTag.begin(), name, otherTag.end())) << otherLast;

        std::string otherFirst = tag;
        otherFirst[2] = 'Z';
        Input const otherFirstTag(otherFirst + " more text behind it");
        EXPECT_FALSE(atEndTag(otherFirstTag.begin(), name, otherFirstTag.end())) << otherFirst;
    }
}

// --- Name scan ----------------------------------------------------------------

TEST(TextScan, QuickNameEndStopsAtEveryNameEndCharacter) {
    std::vector<std::size_t> const positions = {0, 1, 7, 15, 16, 17, 31, 32, 47};
    for (char stop : {' ', '\t', '\n', '\r', '>', '/'}) {
        for (std::size_t at : positions) {
            // Long: the character lies in the sixteen-at-a-time part.
            std::string text(100, 'a');
            text[at] = stop;
            text[at + 1] = '>';
            Input const input(text);
            EXPECT_EQ(input.at(at), quickNameEnd(input.begin(), input.end()))
                << int(stop) << " at " << at;

            // Short: the character is one of the last three before the NUL.
            std::string const near = std::string(at, 'a') + stop + "bc";
            Input const nearEnd(near);
            EXPECT_EQ(nearEnd.at(at), quickNameEnd(nearEnd.begin(), nearEnd.end()))
                << int(stop) << " near the end at " << at;
        }
    }
}

TEST(TextScan, QuickNameEndStopsAtTheNul) {
    for (std::size_t length = 0; length <= 48; ++length) {
        Input const input(std::string(length, 'a'));
        EXPECT_EQ(input.end(), quickNameEnd(input.begin(), input.end())) << length;
        if (length > 3) {
            EXPECT_EQ(input.end(), quickNameEnd(input.at(3), input.end())) << length;
        }
    }
    Input const high(std::string(40, '\xFF') + std::string(5, '\x80') + "~\x7F");
    EXPECT_EQ(high.end(), quickNameEnd(high.begin(), high.end()));
}

TEST(TextScan, QuickNameEndSkipsOtherPrintableAndHighBytes) {
    std::string text =
        "ns:element-name_1.x\xC3\xA9\xFF\x80~!\"#$%&'()*+,-.0123456789:;<=?@[\\]^`{|}";
    std::size_t const gt = text.size();
    text += ">rest";
    Input const input(text);
    EXPECT_EQ(input.at(gt), quickNameEnd(input.begin(), input.end()));
    EXPECT_EQ(input.at(gt), quickNameEnd(input.at(5), input.end()));
}

TEST(TextScan, QuickNameEndStopsAtControlCharactersSixteenAtATime) {
    for (char control : {'\x01', '\x0B', '\x0C', '\x1F'}) {
        for (std::size_t at : {0, 1, 15, 16, 17, 31}) {
            std::string text(100, 'a');
            text[at] = control;
            text[at + 5] = '>';
            Input const input(text);
            char const *const found = quickNameEnd(input.begin(), input.end());
#if defined(__SSE2__)
            EXPECT_EQ(input.at(at), found) << int(control) << " at " << at;
#else
            EXPECT_EQ(input.at(at + 5), found) << int(control) << " at " << at;
#endif
            // Not '>', so the quick path does not take the name.
            EXPECT_NE('>', *found) << int(control) << " at " << at;
        }
    }
}

TEST(TextScan, QuickNameEndPassesControlCharactersNearTheEnd) {
    // Fewer than sixteen bytes before the NUL: the byte loop, which stops at
    // NameEnd characters only.
    Input const input("ab\x01"
                      "cd>");
    EXPECT_EQ(input.at(5), quickNameEnd(input.begin(), input.end()));

    Input const tail(std::string(16, 'a') + "b\x01"
                                            "c>");
    EXPECT_EQ(tail.at(19), quickNameEnd(tail.begin(), tail.end()));
}

TEST(TextScan, QuickNameEndGivesGreaterThanOnlyWhenItEndsTheName) {
    // Every byte before a '>', long and near the end.
    for (int value = 1; value < 256; ++value) {
        char const c = static_cast<char>(value);
        for (std::size_t at : {0, 7, 15, 16, 17, 31}) {
            std::string text(64, 'a');
            text[at] = c;
            text[at + 2] = '>';
            Input const input(text);
            std::string const label = std::to_string(value) + " at " + std::to_string(at);
            expectNameEndPromise(input.begin(), input.end(), label);
            if (!isControl(static_cast<unsigned char>(value)) || endsName(value)) {
                EXPECT_EQ(firstNameEnd(input.begin()), quickNameEnd(input.begin(), input.end()))
                    << label;
            }

            std::string const near = std::string(at, 'a') + c + "b>";
            Input const nearEnd(near);
            expectNameEndPromise(nearEnd.begin(), nearEnd.end(), label + " near the end");
        }
    }
}

// --- Text scan ----------------------------------------------------------------

TEST(TextScan, TextStopFindsStopsSixteenAtATime) {
    for (char stop : {'<', '&'}) {
        for (std::size_t at : {0, 1, 15, 16, 17, 31, 32, 33, 47, 48}) {
            std::string text(100, 'a');
            text[at] = stop;
            text[at + 1] = stop == '<' ? '&' : '<';
            Input const input(text);
            EXPECT_EQ(input.at(at), textStop(input.begin(), input.end())) << stop << " at " << at;
            if (at > 3) {
                EXPECT_EQ(input.at(at), textStop(input.at(3), input.end()))
                    << stop << " from 3 at " << at;
            }
        }
    }
}

TEST(TextScan, TextStopFindsStopsInTheByteLoop) {
    for (char stop : {'<', '&'}) {
        // 40 bytes: two blocks of sixteen, then eight one at a time.
        for (std::size_t at = 32; at < 40; ++at) {
            std::string text(40, 'a');
            text[at] = stop;
            Input const input(text);
            EXPECT_EQ(input.at(at), textStop(input.begin(), input.end())) << stop << " at " << at;
        }
        // Fewer than sixteen bytes in all.
        for (std::size_t at : {0, 1, 7, 14}) {
            std::string text(15, 'a');
            text[at] = stop;
            Input const input(text);
            EXPECT_EQ(input.at(at), textStop(input.begin(), input.end()))
                << stop << " short at " << at;
        }
        // Started 3 bytes in: blocks at 3 and 19, the rest one at a time.
        for (std::size_t at : {35, 36, 39}) {
            std::string text(40, 'a');
            text[at] = stop;
            Input const input(text);
            EXPECT_EQ(input.at(at), textStop(input.at(3), input.end()))
                << stop << " from 3 at " << at;
        }
    }
}

TEST(TextScan, TextStopStopsAtTheNul) {
    for (std::size_t length : {0, 1, 15, 16, 17, 31, 32, 33, 47, 48, 100}) {
        Input const input(std::string(length, 'a'));
        EXPECT_EQ(input.end(), textStop(input.begin(), input.end())) << length;
        if (length > 3) {
            EXPECT_EQ(input.end(), textStop(input.at(3), input.end())) << length;
        }
    }
    // An embedded NUL stops the scan as well.
    std::string text(64, 'a');
    for (std::size_t at : {0, 15, 16, 17, 31, 32}) {
        std::string withNul = text;
        withNul[at] = '\0';
        Input const input(withNul);
        EXPECT_EQ(input.at(at), textStop(input.begin(), input.end())) << at;
    }
}

TEST(TextScan, TextStopPassesEveryOtherByte) {
    for (int value = 1; value < 256; ++value) {
        char const c = static_cast<char>(value);
        if (c == '<' || c == '&')
            continue;
        std::string text(50, c);
        text[20] = '&';
        Input const input(text);
        EXPECT_EQ(input.at(20), textStop(input.begin(), input.end())) << value;
        EXPECT_EQ(input.end(), textStop(input.at(21), input.end())) << value;
    }
}
