// Tests of the namespace URI table: its size and reserved row, every id both
// ways, the shared scheme and host, the two path families, and URIs at fixed ids.
#include "vocabulary/VocabularyTables.h"

#include "vocabulary/NamespaceBase.h"
#include <kvx/KVXDefaultMap.h>

#include "TableChecks.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

using KVX::KVXDefaultMap;
using KVX::Internal::CharArray;
using namespace KVX::Internal;

namespace {

CharArray const &byId(int id) {
    return KVXDefaultMap::findNSID(id);
}
int byName(CharArray const &name) {
    return KVXDefaultMap::findNS(name);
}

std::string const OlderFamily = "http://www.kvx.org/webservices/kva/3.0.3/";
std::string const NewerFamily = "http://www.kvx.org/webservices/kvx/4.0.0/";

std::string uriOf(int id) {
    CharArray const &row = byId(id);
    return std::string(row.data, row.length);
}

} // namespace

TEST(NamespaceTable, IdRangeAndRowCount) {
    EXPECT_EQ(201, NamespaceFirstId);
    EXPECT_EQ(311, NamespaceLastId);
    EXPECT_EQ(111, NamespaceRowCount);
    EXPECT_EQ(111u, sizeof(NamespaceTable) / sizeof(NamespaceTable[0]));
}

TEST(NamespaceTable, ReservedRowIs251) {
    EXPECT_EQ((std::set<int>{251}), nullRows(NamespaceFirstId, NamespaceLastId, byId));
}

TEST(NamespaceTable, EveryIdRoundTrips) {
    std::vector<std::string> const names =
        walkTable(NamespaceFirstId, NamespaceLastId, {251}, byId, byName);
    EXPECT_EQ(110u, names.size());
    EXPECT_EQ(110u, std::set<std::string>(names.begin(), names.end()).size());
}

TEST(NamespaceTable, SchemeAndHostAreFixed) {
    EXPECT_STREQ("http://www.kvx.org", NamespaceHost);
    EXPECT_EQ(18u, NamespaceHostLength);
    EXPECT_STREQ("http://www.kvx.org", KVX_NAMESPACE_HOST);
}

TEST(NamespaceTable, IdsUpTo260AreOfOlderFamily) {
    for (int id = 201; id <= 260; ++id) {
        if (id == 251) {
            continue;
        }
        std::string const uri = uriOf(id);
        EXPECT_EQ(OlderFamily, uri.substr(0, OlderFamily.size())) << id;
        EXPECT_EQ(std::string::npos, uri.find('/', OlderFamily.size())) << id;
        EXPECT_LT(OlderFamily.size(), uri.size()) << id;
    }
}

TEST(NamespaceTable, IdsFrom261AreOfNewerFamily) {
    for (int id = 261; id <= 311; ++id) {
        std::string const uri = uriOf(id);
        EXPECT_EQ(NewerFamily, uri.substr(0, NewerFamily.size())) << id;
        EXPECT_EQ(std::string::npos, uri.find('/', NewerFamily.size())) << id;
        EXPECT_LT(NewerFamily.size(), uri.size()) << id;
    }
}

TEST(NamespaceTable, UrisAtFixedIds) {
    EXPECT_EQ(OlderFamily + "alerts", uriOf(201));
    EXPECT_EQ(OlderFamily + "kvagenttypes", uriOf(204));
    EXPECT_EQ(OlderFamily + "fwm", uriOf(209));
    EXPECT_EQ(OlderFamily + "kvagentprotocol", uriOf(226));
    EXPECT_EQ(OlderFamily + "core_types", uriOf(248));
    EXPECT_EQ(OlderFamily + "director", uriOf(250));
    EXPECT_EQ(OlderFamily + "operators", uriOf(252));
    EXPECT_EQ(OlderFamily + "elemen", uriOf(255));
    EXPECT_EQ(OlderFamily + "pkgm", uriOf(260));
    EXPECT_EQ(NewerFamily + "snapshotm", uriOf(261));
    EXPECT_EQ(NewerFamily + "types", uriOf(292));
    EXPECT_EQ(NewerFamily + "infrastructurem", uriOf(301));
    EXPECT_EQ(NewerFamily + "policym", uriOf(309));
    EXPECT_EQ(NewerFamily + "sample_manager", uriOf(311));
}
