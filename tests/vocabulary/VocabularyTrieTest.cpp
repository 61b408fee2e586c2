// Tests of the ternary search tree: the shape that insertion gives, lookups
// with their edge cases, release and deep copy of deep trees, and building a
// tree from a table (reserved rows, duplicate names).
#include "vocabulary/VocabularyTrie.h"

#include "AssertRecorder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using KVX::Internal::buildTrie;
using KVX::Internal::CharArray;
using KVX::Internal::trieCopy;
using KVX::Internal::trieFree;
using KVX::Internal::trieInsert;
using KVX::Internal::trieLookup;
using KVX::Internal::TrieNode;
using KVX::Internal::VocabularyTrie;

namespace {

// Owns a tree for the length of one test.
struct Tree {
    TrieNode *root = nullptr;
    Tree() = default;
    Tree(Tree const &) = delete;
    Tree &operator=(Tree const &) = delete;
    ~Tree() { trieFree(root); }
    bool insert(std::string const &key, int id) {
        return trieInsert(&root, key.data(), key.size(), id);
    }
    int find(CharArray const &key) const { return trieLookup(root, key); }
};

std::size_t countNodes(TrieNode const *root) {
    std::size_t count = 0;
    std::vector<TrieNode const *> pending;
    if (root != nullptr) {
        pending.push_back(root);
    }
    while (!pending.empty()) {
        TrieNode const *node = pending.back();
        pending.pop_back();
        ++count;
        for (TrieNode const *child : {node->lo, node->hi, node->eq}) {
            if (child != nullptr) {
                pending.push_back(child);
            }
        }
    }
    return count;
}

bool sameShape(TrieNode const *left, TrieNode const *right) {
    std::vector<std::pair<TrieNode const *, TrieNode const *>> pending{{left, right}};
    while (!pending.empty()) {
        auto const top = pending.back();
        pending.pop_back();
        if ((top.first == nullptr) != (top.second == nullptr)) {
            return false;
        }
        if (top.first == nullptr) {
            continue;
        }
        if (top.first == top.second || top.first->ch != top.second->ch ||
            (top.first->ch == 0 && top.first->id != top.second->id)) {
            return false;
        }
        pending.emplace_back(top.first->lo, top.second->lo);
        pending.emplace_back(top.first->hi, top.second->hi);
        pending.emplace_back(top.first->eq, top.second->eq);
    }
    return true;
}

} // namespace

TEST(VocabularyTrie, EmptyTreeFindsNothing) {
    EXPECT_EQ(0, trieLookup(nullptr, CharArray("a")));
    EXPECT_EQ(0, trieLookup(nullptr, CharArray("", 0)));
    VocabularyTrie const holder;
    EXPECT_EQ(nullptr, holder.root);
    EXPECT_EQ(0, holder.find(CharArray("a")));
}

TEST(VocabularyTrie, KeyOfNCharactersEndsInChainOfNPlusOneNodes) {
    Tree tree;
    ASSERT_TRUE(tree.insert("abc", 42));
    EXPECT_EQ(4u, countNodes(tree.root));
    TrieNode const *node = tree.root;
    for (char expected : {'a', 'b', 'c'}) {
        ASSERT_NE(nullptr, node);
        EXPECT_EQ(expected, node->ch);
        EXPECT_EQ(0, node->id);
        EXPECT_EQ(nullptr, node->lo);
        EXPECT_EQ(nullptr, node->hi);
        node = node->eq;
    }
    ASSERT_NE(nullptr, node);
    EXPECT_EQ(0, node->ch);
    EXPECT_EQ(42, node->id);
    EXPECT_EQ(nullptr, node->eq);
    EXPECT_EQ(42, tree.find(CharArray("abc")));
}

TEST(VocabularyTrie, SharedPrefixAddsOnlyTheRest) {
    Tree tree;
    ASSERT_TRUE(tree.insert("abc", 1));
    ASSERT_TRUE(tree.insert("abd", 2));
    EXPECT_EQ(6u, countNodes(tree.root));
    // 'd' is greater than 'c', so it hangs on the hi link of the 'c' node.
    TrieNode const *c = tree.root->eq->eq;
    ASSERT_NE(nullptr, c->hi);
    EXPECT_EQ('d', c->hi->ch);
    EXPECT_EQ(1, tree.find(CharArray("abc")));
    EXPECT_EQ(2, tree.find(CharArray("abd")));
}

TEST(VocabularyTrie, LowerCharactersGoLoAndHigherGoHi) {
    Tree tree;
    tree.insert("m", 1);
    tree.insert("a", 2);
    tree.insert("z", 3);
    ASSERT_NE(nullptr, tree.root->lo);
    ASSERT_NE(nullptr, tree.root->hi);
    EXPECT_EQ('m', tree.root->ch);
    EXPECT_EQ('a', tree.root->lo->ch);
    EXPECT_EQ('z', tree.root->hi->ch);
}

TEST(VocabularyTrie, CharactersCompareAsSigned) {
    Tree tree;
    tree.insert("a", 1);
    tree.insert("\x80", 2);
    // 0x80 is -128 as a signed character, so it lies below 'a'.
    ASSERT_NE(nullptr, tree.root->lo);
    EXPECT_EQ(nullptr, tree.root->hi);
    EXPECT_EQ(-128, tree.root->lo->ch);
    EXPECT_EQ(2, tree.find(CharArray("\x80")));
}

TEST(VocabularyTrie, DuplicateInsertReportsFalseAndChangesNothing) {
    Tree tree;
    ASSERT_TRUE(tree.insert("alert", 7));
    std::size_t const nodes = countNodes(tree.root);
    EXPECT_FALSE(tree.insert("alert", 8));
    EXPECT_EQ(nodes, countNodes(tree.root));
    EXPECT_EQ(7, tree.find(CharArray("alert")));
}

TEST(VocabularyTrie, PrefixKeysAreDistinct) {
    Tree tree;
    tree.insert("alerts", 1001);
    tree.insert("alert", 1003);
    EXPECT_EQ(1001, tree.find(CharArray("alerts")));
    EXPECT_EQ(1003, tree.find(CharArray("alert")));
    EXPECT_EQ(0, tree.find(CharArray("aler")));
    EXPECT_EQ(0, tree.find(CharArray("alertsx")));
}

TEST(VocabularyTrie, LengthEndsKeyInsideLongerText) {
    Tree tree;
    tree.insert("alerts", 1001);
    tree.insert("alert", 1003);
    EXPECT_EQ(1003, tree.find(CharArray("alerts", 5)));
    EXPECT_EQ(1001, tree.find(CharArray(&"xalertsy"[1], 6)));
}

TEST(VocabularyTrie, NulInsideKeyEndsItOnLookup) {
    Tree tree;
    tree.insert("ab", 5);
    EXPECT_EQ(5, tree.find(CharArray("ab\0cd", 5)));
}

TEST(VocabularyTrie, NulInsideKeyEndsItOnInsert) {
    Tree tree;
    ASSERT_TRUE(trieInsert(&tree.root, "ab\0cd", 5, 9));
    EXPECT_EQ(3u, countNodes(tree.root));
    EXPECT_EQ(9, tree.find(CharArray("ab")));
    EXPECT_FALSE(trieInsert(&tree.root, "ab", 2, 10));
}

TEST(VocabularyTrie, EmptyKeyIsAKeyOfItsOwn) {
    Tree tree;
    EXPECT_EQ(0, tree.find(CharArray("", 0)));
    ASSERT_TRUE(tree.insert("", 11));
    EXPECT_EQ(1u, countNodes(tree.root));
    EXPECT_EQ(0, tree.root->ch);
    EXPECT_EQ(11, tree.find(CharArray("", 0)));
    EXPECT_EQ(11, tree.find(CharArray("abc", 0)));
    EXPECT_FALSE(tree.insert("", 12));
}

TEST(VocabularyTrie, NullKeyReadsAsEmptyString) {
    Tree tree;
    ASSERT_TRUE(trieInsert(&tree.root, nullptr, 0, 13));
    EXPECT_EQ(13, tree.find(CharArray()));
    // The length of a null key is kept, but the empty string ends it at once.
    EXPECT_EQ(13, tree.find(CharArray(nullptr, 4)));
    EXPECT_FALSE(trieInsert(&tree.root, nullptr, 3, 14));
}

TEST(VocabularyTrie, HolderInsertsAndFinds) {
    VocabularyTrie holder;
    EXPECT_TRUE(holder.insert(CharArray("node"), 1008));
    EXPECT_FALSE(holder.insert(CharArray("node"), 1009));
    EXPECT_EQ(1008, holder.find(CharArray("node")));
    EXPECT_EQ(0, holder.find(CharArray("nod")));
    trieFree(holder.root);
}

TEST(VocabularyTrie, FreeAcceptsNull) {
    trieFree(nullptr);
    EXPECT_EQ(nullptr, trieCopy(nullptr));
}

TEST(VocabularyTrie, VeryLongKeyIsInsertedFoundCopiedAndFreed) {
    // A key this long makes the tree as deep as the key; nothing may recurse.
    std::string const key(200000, 'k');
    Tree tree;
    ASSERT_TRUE(tree.insert(key, 77));
    EXPECT_EQ(key.size() + 1, countNodes(tree.root));
    EXPECT_EQ(77, tree.find(CharArray(key)));
    TrieNode *copy = trieCopy(tree.root);
    EXPECT_EQ(77, trieLookup(copy, CharArray(key)));
    EXPECT_TRUE(sameShape(tree.root, copy));
    trieFree(copy);
}

TEST(VocabularyTrie, NestedPrefixKeysAreCopiedAndFreed) {
    // "k", "kk", "kkk", ...: the rest of each longer key hangs on the hi link of
    // the shorter key's NUL node, so the tree is as deep as the longest key.
    Tree tree;
    std::string key;
    for (int index = 1; index <= 3000; ++index) {
        key.push_back('k');
        ASSERT_TRUE(tree.insert(key, index));
    }
    EXPECT_EQ(6000u, countNodes(tree.root));
    EXPECT_EQ(1, tree.find(CharArray("k")));
    EXPECT_EQ(3000, tree.find(CharArray(key)));
    EXPECT_EQ(0, tree.find(CharArray(key + "k")));
    Tree copy;
    copy.root = trieCopy(tree.root);
    EXPECT_TRUE(sameShape(tree.root, copy.root));
    EXPECT_EQ(1500, copy.find(CharArray(key.data(), 1500)));
}

TEST(VocabularyTrie, CopyIsDeepWithSameShapeAndIds) {
    Tree tree;
    std::vector<std::string> const keys = {"type", "time", "alerts", "alert", "", "veid", "t"};
    for (std::size_t index = 0; index < keys.size(); ++index) {
        ASSERT_TRUE(tree.insert(keys[index], static_cast<int>(index) + 1));
    }
    Tree copy;
    copy.root = trieCopy(tree.root);
    EXPECT_TRUE(sameShape(tree.root, copy.root));
    EXPECT_EQ(countNodes(tree.root), countNodes(copy.root));
    for (std::size_t index = 0; index < keys.size(); ++index) {
        EXPECT_EQ(static_cast<int>(index) + 1, copy.find(CharArray(keys[index])));
    }
    // The copy shares no node: a change of one leaves the other as it was.
    ASSERT_TRUE(tree.insert("timer", 50));
    EXPECT_EQ(0, copy.find(CharArray("timer")));
    ASSERT_TRUE(copy.insert("typo", 60));
    EXPECT_EQ(0, tree.find(CharArray("typo")));
}

TEST(VocabularyTrie, BuildInsertsRowsInTableOrder) {
    CharArray const table[] = {CharArray("m"), CharArray("a"), CharArray("z")};
    VocabularyTrie trie;
    buildTrie(trie, table, std::uint16_t{3}, 10);
    ASSERT_NE(nullptr, trie.root);
    EXPECT_EQ('m', trie.root->ch);
    EXPECT_EQ(10, trie.find(CharArray("m")));
    EXPECT_EQ(11, trie.find(CharArray("a")));
    EXPECT_EQ(12, trie.find(CharArray("z")));
    trieFree(trie.root);
}

TEST(VocabularyTrie, BuildGivesEmptyKeyToFirstReservedRow) {
    AssertRecorder recorder;
    CharArray const table[] = {CharArray("x"), CharArray(), CharArray("y"), CharArray(),
                               CharArray()};
    VocabularyTrie trie;
    buildTrie(trie, table, std::uint8_t{5}, 1);
    EXPECT_EQ(0, recorder.fired());
    EXPECT_EQ(2, trie.find(CharArray("", 0)));
    EXPECT_EQ(1, trie.find(CharArray("x")));
    EXPECT_EQ(3, trie.find(CharArray("y")));
    trieFree(trie.root);
}

TEST(VocabularyTrie, BuildAssertsOnDuplicateNameAndGoesOn) {
    AssertRecorder recorder;
    CharArray const table[] = {CharArray("a"), CharArray("b"), CharArray("a"), CharArray("c")};
    VocabularyTrie trie;
    buildTrie(trie, table, std::uint16_t{4}, 100);
    EXPECT_EQ(1, recorder.fired());
    EXPECT_EQ("row.length == 0", recorder.lastExpression());
    EXPECT_EQ(100, trie.find(CharArray("a")));
    EXPECT_EQ(101, trie.find(CharArray("b")));
    EXPECT_EQ(103, trie.find(CharArray("c")));
    trieFree(trie.root);
}

TEST(VocabularyTrie, BuildWith8BitCounterWalksAllRows) {
    std::vector<std::string> names;
    for (int index = 0; index < 255; ++index) {
        names.push_back("n" + std::to_string(index));
    }
    std::vector<CharArray> table;
    for (std::string const &name : names) {
        table.emplace_back(name);
    }
    VocabularyTrie trie;
    buildTrie(trie, table.data(), std::uint8_t{255}, 201);
    EXPECT_EQ(201, trie.find(CharArray("n0")));
    EXPECT_EQ(455, trie.find(CharArray("n254")));
    trieFree(trie.root);
}
