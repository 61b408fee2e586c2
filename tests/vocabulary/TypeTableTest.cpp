// Tests of the complex type name table: its size and reserved rows, every id
// both ways, the common suffix, and names at fixed ids around the reserved rows.
#include "vocabulary/VocabularyTables.h"

#include <kvx/KVXDefaultMap.h>

#include "TableChecks.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using KVX::KVXDefaultMap;
using KVX::Internal::CharArray;
using namespace KVX::Internal;

namespace {

CharArray const &byId(int id) {
    return KVXDefaultMap::findTypeID(id);
}
int byName(CharArray const &name) {
    return KVXDefaultMap::findType(name);
}

std::string nameOf(int id) {
    CharArray const &row = byId(id);
    return std::string(row.data, row.length);
}

} // namespace

TEST(TypeTable, IdRangeAndRowCount) {
    EXPECT_EQ(101, TypeFirstId);
    EXPECT_EQ(389, TypeLastId);
    EXPECT_EQ(289, TypeRowCount);
    EXPECT_EQ(289u, sizeof(TypeTable) / sizeof(TypeTable[0]));
}

TEST(TypeTable, ReservedRowsAre367And372And378) {
    EXPECT_EQ((std::set<int>{367, 372, 378}), nullRows(TypeFirstId, TypeLastId, byId));
}

TEST(TypeTable, EveryIdRoundTrips) {
    std::vector<std::string> const names =
        walkTable(TypeFirstId, TypeLastId, {367, 372, 378}, byId, byName);
    EXPECT_EQ(286u, names.size());
    EXPECT_EQ(286u, std::set<std::string>(names.begin(), names.end()).size());
}

TEST(TypeTable, EveryNameEndsInType) {
    for (int id = TypeFirstId; id <= TypeLastId; ++id) {
        std::string const name = nameOf(id);
        if (name.empty()) {
            continue;
        }
        ASSERT_LT(4u, name.size()) << id;
        EXPECT_EQ("Type", name.substr(name.size() - 4)) << id;
    }
}

TEST(TypeTable, NamesAtFixedIds) {
    EXPECT_EQ("alertmType", nameOf(101));
    EXPECT_EQ("restore_optionsType", nameOf(108));
    EXPECT_EQ("cloneoptionsType", nameOf(214));
    EXPECT_EQ("clone_optionsType", nameOf(275));
    EXPECT_EQ("compress_perf_dataType", nameOf(343));
    EXPECT_EQ("compressperfdataType", nameOf(344));
    EXPECT_EQ("logical_expr_listType", nameOf(366));
    EXPECT_EQ("nodeType", nameOf(368));
    EXPECT_EQ("folderattributesType", nameOf(370));
    EXPECT_EQ("management_nodeType", nameOf(371));
    EXPECT_EQ("disk_image_libraryType", nameOf(373));
    EXPECT_EQ("policy_ruleType", nameOf(377));
    EXPECT_EQ("policymType", nameOf(379));
    EXPECT_EQ("sample_managerType", nameOf(386));
    EXPECT_EQ("folder_attributesType", nameOf(387));
    EXPECT_EQ("validationType", nameOf(389));
}
