// Ternary search tree from names to ids: the structure behind the vocabulary's
// lookups of keys that end early (empty, null or holding a NUL). Nodes are
// allocated with `new` (the nodes that one insertion adds, as one block) and
// owned by whoever holds the root; the fixed trees are built once and then
// only read, which is safe from any number of threads. A tree that is being
// changed is for one thread at a time.
#ifndef KVX_VOCABULARY_VOCABULARYTRIE_H
#define KVX_VOCABULARY_VOCABULARYTRIE_H

#include <kvx/CharArray.h>
#include <kvx/KVXCommon.h>

#include <cstdint>
#include <limits>

namespace KVX {
namespace Internal {

struct TrieNode {
    signed char ch; // character tested here; 0 marks the end of a key
    // How the node was allocated, for trieFree: 0 alone, 1 first of a block
    // made by one insertion (new[]), 2 inside such a block.
    unsigned char block;
    int id;       // id of the key that ends here; meaningful only where ch is 0
    TrieNode *lo; // subtree for characters less than ch
    TrieNode *hi; // subtree for characters greater than ch
    TrieNode *eq; // subtree for the next character of the key, when ch matched
};

// The id stored under `key`, or 0 when the tree does not hold it. Characters
// compare as signed values; a NUL inside the key ends it, and a null `data` is
// read as the empty string (its length is kept). `root` may be null.
// Never allocates.
int trieLookup(TrieNode const *root, CharArray const &key);

// Stores `id` under the key of `length` characters at `data` (a NUL inside ends
// the key; a null `data` is read as the empty string). Returns false and changes
// nothing when the key is present already, else true. A key of n characters
// adds at most n + 1 nodes. Requires: `root` points at the root link (which may
// hold null). Throws std::bad_alloc when a node cannot be allocated; the tree
// stays valid.
bool trieInsert(TrieNode **root, char const *data, unsigned long long length, int id);

// Deletes every node of the tree at `root` (null is allowed). Uses no recursion
// and no extra memory, whatever the tree's depth.
void trieFree(TrieNode *root);

// A deep copy of the tree at `root`, or null for a null `root`. The copy has
// the same shape and is owned by the caller (release it with trieFree). Uses an
// explicit stack, never recursion. Throws std::bad_alloc when memory runs out,
// after freeing the part already copied.
TrieNode *trieCopy(TrieNode const *root);

// Holder of one tree: a pointer to its root, null while the tree is empty.
struct VocabularyTrie {
    TrieNode *root = nullptr;

    // trieLookup on this tree.
    int find(CharArray const &key) const { return trieLookup(root, key); }

    // trieInsert on this tree.
    bool insert(CharArray const &key, int id) {
        return trieInsert(&root, key.data, key.length, id);
    }
};

// Inserts every row of `table` in order, the row at index i under the id
// `firstId` + i. Reserved rows (null `data`, length 0) go in as the empty key,
// so the first of them wins it. `Counter` is the unsigned type that walks the
// table; it must be able to hold `rowCount`.
// Requires: the names of `table` are distinct; a duplicate name trips
// KVX_ASSERT, and building goes on behind it.
template <typename Counter>
void buildTrie(VocabularyTrie &trie, CharArray const *table, Counter rowCount, int firstId) {
    static_assert(std::numeric_limits<Counter>::is_integer &&
                      !std::numeric_limits<Counter>::is_signed,
                  "the table counter is an unsigned integer");
    for (Counter index = 0; index < rowCount; ++index) {
        CharArray const &row = table[index];
        if (!trie.insert(row, firstId + static_cast<int>(index))) {
            // Only the second and later reserved rows may meet a key already
            // present: a non-empty row here is a name listed twice in the table.
            KVX_ASSERT(row.length == 0);
        }
    }
}

} // namespace Internal
} // namespace KVX

#endif // KVX_VOCABULARY_VOCABULARYTRIE_H
