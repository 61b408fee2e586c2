// Test helper: checks shared by the three vocabulary table tests. Each walks a
// table id by id, both ways through KVXDefaultMap.
#ifndef KVX_TESTS_VOCABULARY_TABLECHECKS_H
#define KVX_TESTS_VOCABULARY_TABLECHECKS_H

#include <kvx/CharArray.h>

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

// Walks ids `firstId`..`lastId` through `byId` and `byName`: a reserved id must
// give a row with null data and length 0, every other id a NUL-terminated name
// that `byName` maps back to the same id. Returns the names in id order.
template <typename ById, typename ByName>
std::vector<std::string> walkTable(int firstId, int lastId, std::set<int> const &reserved,
                                   ById byId, ByName byName) {
    std::vector<std::string> names;
    for (int id = firstId; id <= lastId; ++id) {
        KVX::Internal::CharArray const &row = byId(id);
        if (reserved.count(id) != 0) {
            EXPECT_EQ(nullptr, row.data) << id;
            EXPECT_EQ(0u, row.length) << id;
            continue;
        }
        EXPECT_NE(nullptr, row.data) << id;
        EXPECT_NE(0u, row.length) << id;
        if (row.data == nullptr || row.length == 0) {
            continue;
        }
        EXPECT_EQ(row.length, std::strlen(row.data)) << id;
        EXPECT_EQ(id, byName(row)) << id << " " << row.data;
        // A copy of the text finds the same id: the match is on characters.
        std::string const copy(row.data, row.length);
        EXPECT_EQ(id, byName(KVX::Internal::CharArray(copy))) << id;
        names.push_back(copy);
    }
    return names;
}

// The ids in `firstId`..`lastId` whose row has a null data pointer.
template <typename ById> std::set<int> nullRows(int firstId, int lastId, ById byId) {
    std::set<int> ids;
    for (int id = firstId; id <= lastId; ++id) {
        if (byId(id).data == nullptr) {
            ids.insert(id);
        }
    }
    return ids;
}

#endif // KVX_TESTS_VOCABULARY_TABLECHECKS_H
