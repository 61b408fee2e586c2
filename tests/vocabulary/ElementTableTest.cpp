// Tests of the element name table: its size and reserved rows, every id both
// ways, and names at fixed ids.
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
    return KVXDefaultMap::findElemID(id);
}
int byName(CharArray const &name) {
    return KVXDefaultMap::findElem(name);
}

std::string nameOf(int id) {
    CharArray const &row = byId(id);
    return std::string(row.data, row.length);
}

} // namespace

TEST(ElementTable, IdRangeAndRowCount) {
    EXPECT_EQ(1001, ElementFirstId);
    EXPECT_EQ(2304, ElementLastId);
    EXPECT_EQ(1304, ElementRowCount);
    EXPECT_EQ(1304u, sizeof(ElementTable) / sizeof(ElementTable[0]));
}

TEST(ElementTable, ReservedRowsAre2180And2181) {
    EXPECT_EQ((std::set<int>{2180, 2181}), nullRows(ElementFirstId, ElementLastId, byId));
    EXPECT_EQ(nullptr, ElementTable[2180 - 1001].data);
    EXPECT_EQ(0u, ElementTable[2181 - 1001].length);
}

TEST(ElementTable, EveryIdRoundTrips) {
    std::vector<std::string> const names =
        walkTable(ElementFirstId, ElementLastId, {2180, 2181}, byId, byName);
    EXPECT_EQ(1302u, names.size());
}

TEST(ElementTable, NamesAreDistinct) {
    std::vector<std::string> const names =
        walkTable(ElementFirstId, ElementLastId, {2180, 2181}, byId, byName);
    EXPECT_EQ(1302u, std::set<std::string>(names.begin(), names.end()).size());
}

TEST(ElementTable, NamesUseLowerCaseLettersDigitsAndUnderscores) {
    for (int id = ElementFirstId; id <= ElementLastId; ++id) {
        CharArray const &row = byId(id);
        for (unsigned long long index = 0; index < row.length; ++index) {
            char const c = row.data[index];
            EXPECT_TRUE((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_')
                << id << " " << nameOf(id);
        }
    }
}

TEST(ElementTable, NamesAtFixedIds) {
    EXPECT_EQ("alerts", nameOf(1001));
    EXPECT_EQ("veid", nameOf(1002));
    EXPECT_EQ("alert", nameOf(1003));
    EXPECT_EQ("id", nameOf(1010));
    EXPECT_EQ("restore", nameOf(1011));
    EXPECT_EQ("get_node_id", nameOf(1020));
    EXPECT_EQ("service", nameOf(1100));
    EXPECT_EQ("analize", nameOf(1220));
    EXPECT_EQ("mail_tempate_list", nameOf(1333));
    EXPECT_EQ("hxpc_config", nameOf(1500));
    EXPECT_EQ("serializer_id", nameOf(1771));
    EXPECT_EQ("task_info", nameOf(2000));
    EXPECT_EQ("weekday_of_month", nameOf(2101));
    EXPECT_EQ("statistics", nameOf(2179));
    EXPECT_EQ("net_device_id", nameOf(2182));
    EXPECT_EQ("sample", nameOf(2291));
    EXPECT_EQ("escape_char", nameOf(2301));
    EXPECT_EQ("list_ids", nameOf(2304));
}

TEST(ElementTable, NamesAtFixedIdsFindTheirIds) {
    EXPECT_EQ(1220, byName("analize"));
    EXPECT_EQ(1333, byName("mail_tempate_list"));
    EXPECT_EQ(1334, byName("mail_template"));
    EXPECT_EQ(1325, byName("mail_template_list"));
    EXPECT_EQ(2302, byName("update_file_share_status"));
}
