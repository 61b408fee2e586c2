// Ternary search tree operations: lookup, insertion, release and deep copy.
// The nodes belong to whoever holds the root; nothing here keeps state.
// Lookups only read; insertion, release and copy need the tree to themselves.
#include "vocabulary/VocabularyTrie.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace KVX {
namespace Internal {

namespace {

// TrieNode::block values.
constexpr unsigned char Alone = 0;     // allocated by itself
constexpr unsigned char BlockHead = 1; // first node of a block (new[])
constexpr unsigned char BlockPart = 2; // freed with its block's first node

// Walks a key one character at a time without needing a terminator: the
// character past `length` reads as 0, and so does any NUL inside the key, which
// is why a NUL ends a key early.
class KeyWalk {
public:
    KeyWalk(char const *keyData, unsigned long long keyLength)
        : text(keyData != nullptr ? keyData : ""), length(keyLength), index(0),
          current(keyLength != 0 ? static_cast<signed char>(text[0]) : 0) {}

    signed char ch() const { return current; }

    void advance() {
        ++index;
        current = index < length ? static_cast<signed char>(text[index]) : 0;
    }

private:
    // A null key reads as "": its first character is a NUL, so the walk stops
    // there even when the caller gave a non-zero length.
    char const *text;
    unsigned long long length;
    unsigned long long index;
    signed char current;
};

} // namespace

int trieLookup(TrieNode const *node, CharArray const &key) {
    KeyWalk walk(key.data, key.length);
    while (node != nullptr) {
        signed char const c = walk.ch();
        if (node->ch != c) {
            node = node->ch > c ? node->lo : node->hi;
        } else if (c == 0) {
            return node->id;
        } else {
            node = node->eq;
            walk.advance();
        }
    }
    return 0;
}

bool trieInsert(TrieNode **link, char const *data, unsigned long long length, int id) {
    KeyWalk walk(data, length);
    while (*link != nullptr) {
        TrieNode *node = *link;
        signed char const c = walk.ch();
        if (node->ch != c) {
            link = node->ch > c ? &node->lo : &node->hi;
        } else if (c == 0) {
            return false;
        } else {
            link = &node->eq;
            walk.advance();
        }
    }
    // The rest of the key becomes a chain down `eq`, ending in the NUL node that
    // holds the id. The chain is one allocation, which spares a long key (a
    // namespace URI) one allocation per character; it is linked in whole, so a
    // failed allocation leaves a valid tree that merely lacks this key.
    std::size_t count = 1;
    for (KeyWalk rest = walk; rest.ch() != 0; rest.advance())
        ++count;
    TrieNode *const chain = new TrieNode[count]();
    for (std::size_t index = 0; index < count; ++index) {
        TrieNode &node = chain[index];
        node.ch = walk.ch();
        node.block = index == 0 ? BlockHead : BlockPart;
        node.eq = index + 1 < count ? &chain[index + 1] : nullptr;
        walk.advance();
    }
    chain[count - 1].id = id;
    *link = chain;
    return true;
}

void trieFree(TrieNode *node) {
    // Rotations turn the tree into a list along `hi` as it is consumed: a node
    // with a `lo` child is rotated under it, and a node whose `lo` is empty
    // hands its `eq` subtree to `lo` first. Every rotation puts one more node on
    // the `hi` spine for good, so the work is linear and no stack is needed,
    // however deep a long key made the tree. A block is freed once its nodes
    // are all consumed: its first node waits in a list threaded through `lo`.
    TrieNode *blocks = nullptr;
    while (node != nullptr) {
        if (node->lo == nullptr && node->eq != nullptr) {
            node->lo = node->eq;
            node->eq = nullptr;
        }
        if (node->lo != nullptr) {
            TrieNode *const lower = node->lo;
            node->lo = lower->hi;
            lower->hi = node;
            node = lower;
        } else {
            TrieNode *const next = node->hi;
            if (node->block == BlockHead) {
                node->lo = blocks;
                blocks = node;
            } else if (node->block == Alone) {
                delete node;
            }
            node = next;
        }
    }
    while (blocks != nullptr) {
        TrieNode *const next = blocks->lo;
        delete[] blocks;
        blocks = next;
    }
}

TrieNode *trieCopy(TrieNode const *root) {
    if (root == nullptr) {
        return nullptr;
    }
    TrieNode *const copy = new TrieNode{root->ch, Alone, root->id, nullptr, nullptr, nullptr};
    try {
        // Pairs of a source node and its copy whose links are still to be copied.
        // Each copied child is linked in before it is queued, so the copy is a
        // valid tree at every step and can be freed if memory runs out.
        std::vector<std::pair<TrieNode const *, TrieNode *>> pending;
        pending.emplace_back(root, copy);
        while (!pending.empty()) {
            std::pair<TrieNode const *, TrieNode *> const top = pending.back();
            pending.pop_back();
            TrieNode const *const source = top.first;
            TrieNode *const target = top.second;
            TrieNode *TrieNode::*const links[] = {&TrieNode::lo, &TrieNode::hi, &TrieNode::eq};
            for (TrieNode *TrieNode::*link : links) {
                TrieNode const *const child = source->*link;
                if (child != nullptr) {
                    target->*link =
                        new TrieNode{child->ch, Alone, child->id, nullptr, nullptr, nullptr};
                    pending.emplace_back(child, target->*link);
                }
            }
        }
    } catch (...) {
        trieFree(copy);
        throw;
    }
    return copy;
}

} // namespace Internal
} // namespace KVX
