// Tests of an id map's alias table: keys read as the vocabulary reads them (up
// to a NUL, null as empty), the first id of a key staying, growth past many
// keys, clearing for the next document, and copies that own their keys.
#include "binary/AliasTable.h"

#include <gtest/gtest.h>

#include <string>

using KVX::Internal::AliasTable;
using KVX::Internal::CharArray;

TEST(AliasTable, EmptyTableFindsNothing) {
    AliasTable table;
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(table.find(CharArray("packet")), 0);
    EXPECT_EQ(table.find(CharArray("", 0)), 0);
    EXPECT_EQ(table.find(CharArray(nullptr, 0)), 0);
}

TEST(AliasTable, FindsWhatWasInserted) {
    AliasTable table;
    EXPECT_TRUE(table.insert(CharArray("urn:a"), -2));
    EXPECT_TRUE(table.insert(CharArray("urn:b"), 0xFFFD));
    EXPECT_EQ(table.size(), 2u);
    EXPECT_EQ(table.find(CharArray("urn:a")), -2);
    EXPECT_EQ(table.find(CharArray("urn:b")), 0xFFFD);
    // Same first character, other keys: prefixes and extensions miss.
    EXPECT_EQ(table.find(CharArray("urn:")), 0);
    EXPECT_EQ(table.find(CharArray("urn:ab")), 0);
    EXPECT_EQ(table.find(CharArray("x")), 0);
}

TEST(AliasTable, FirstIdOfAKeyStays) {
    AliasTable table;
    EXPECT_TRUE(table.insert(CharArray("node"), -5));
    EXPECT_FALSE(table.insert(CharArray("node"), -6));
    EXPECT_EQ(table.find(CharArray("node")), -5);
    EXPECT_EQ(table.size(), 1u);
}

TEST(AliasTable, NulInsideAKeyEndsIt) {
    AliasTable table;
    EXPECT_TRUE(table.insert("ab\0cd", 5, 9));
    EXPECT_EQ(table.find(CharArray("ab")), 9);
    EXPECT_EQ(table.find(CharArray("ab\0zz", 5)), 9);
    EXPECT_FALSE(table.insert("ab", 2, 10));
    EXPECT_EQ(table.find(CharArray("abcd")), 0);
}

TEST(AliasTable, NullAndEmptyKeysAreOneKey) {
    AliasTable table;
    EXPECT_TRUE(table.insert(nullptr, 3, 13));
    EXPECT_EQ(table.find(CharArray("", 0)), 13);
    EXPECT_EQ(table.find(CharArray(nullptr, 7)), 13);
    EXPECT_EQ(table.find(CharArray("\0x", 2)), 13);
    EXPECT_FALSE(table.insert("", 0, 14));
}

TEST(AliasTable, KeyUnderIdZeroIsHeldAndBlocksLaterIds) {
    AliasTable table;
    EXPECT_TRUE(table.insert(CharArray("zero"), 0));
    EXPECT_FALSE(table.empty());
    EXPECT_EQ(table.find(CharArray("zero")), 0);
    EXPECT_FALSE(table.insert(CharArray("zero"), -2));
}

TEST(AliasTable, ManyKeysAreAllFound) {
    AliasTable table;
    for (int i = 0; i < 3000; ++i)
        ASSERT_TRUE(table.insert(CharArray("name" + std::to_string(i)), -2 - i));
    EXPECT_EQ(table.size(), 3000u);
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(table.find(CharArray("name" + std::to_string(i))), -2 - i);
    EXPECT_EQ(table.find(CharArray("name3000")), 0);
}

TEST(AliasTable, ClearEmptiesAndTableIsReusable) {
    AliasTable table;
    EXPECT_TRUE(table.insert(CharArray("http://www.w3.org/2001/XMLSchema-instance"), 0xFFFE));
    EXPECT_TRUE(table.insert(CharArray("other"), -3));
    table.clear();
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(table.find(CharArray("http://www.w3.org/2001/XMLSchema-instance")), 0);
    EXPECT_EQ(table.find(CharArray("other")), 0);
    EXPECT_TRUE(table.insert(CharArray("other"), -7));
    EXPECT_EQ(table.find(CharArray("other")), -7);
    // A large table is given back whole and still works afterwards.
    for (int i = 0; i < 2000; ++i)
        ASSERT_TRUE(table.insert(CharArray("k" + std::to_string(i)), i + 1));
    table.clear();
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(table.find(CharArray("k5")), 0);
    EXPECT_TRUE(table.insert(CharArray("k5"), 55));
    EXPECT_EQ(table.find(CharArray("k5")), 55);
}

TEST(AliasTable, CopyOwnsItsKeys) {
    AliasTable table;
    std::string key = "temporary";
    EXPECT_TRUE(table.insert(CharArray(key), -4));
    key.assign("overwritten");
    EXPECT_EQ(table.find(CharArray("temporary")), -4);
    AliasTable copy(table);
    table.clear();
    EXPECT_EQ(copy.find(CharArray("temporary")), -4);
    EXPECT_EQ(table.find(CharArray("temporary")), 0);
}
