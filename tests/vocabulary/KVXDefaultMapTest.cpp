// Tests of the vocabulary lookups by name and by id: found and not-found
// results, reserved rows, the empty key, keys that end early, and the joint
// element-or-namespace operations.
#include <kvx/KVXDefaultMap.h>

#include "vocabulary/NamespaceBase.h"
#include "vocabulary/VocabularyTables.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

using KVX::KVXDefaultMap;
using KVX::Internal::CharArray;

static_assert(std::has_virtual_destructor<KVXDefaultMap>::value,
              "the destructor is the one virtual operation");
static_assert(std::is_copy_constructible<KVXDefaultMap>::value, "copyable");
static_assert(std::is_copy_assignable<KVXDefaultMap>::value, "assignable");

namespace {

std::string const Host = "http://www.kvx.org";
std::string const OlderFamily = Host + "/webservices/kva/3.0.3/";
std::string const NewerFamily = Host + "/webservices/kvx/4.0.0/";

// The row's text, for rows known to be non-empty.
std::string text(CharArray const &row) {
    return std::string(row.data, row.length);
}

// True for a not-found row: empty with a non-null empty string as data.
bool isNotFoundRow(CharArray const &row) {
    return row.length == 0 && row.data != nullptr && row.data[0] == '\0';
}

// True for a reserved row: empty with a null data pointer.
bool isReservedRow(CharArray const &row) {
    return row.length == 0 && row.data == nullptr;
}

} // namespace

TEST(KVXDefaultMap, ObjectsConstructCopyAndDestroy) {
    std::unique_ptr<KVXDefaultMap> map(new KVXDefaultMap());
    KVXDefaultMap copy(*map);
    copy = *map;
    EXPECT_EQ(1001, copy.findElem(CharArray("alerts")));
    map.reset();
}

TEST(KVXDefaultMap, FindElemFirstName) {
    EXPECT_EQ(1001, KVXDefaultMap::findElem("alerts"));
}

TEST(KVXDefaultMap, FindElemLastNameOfFirstRun) {
    EXPECT_EQ(2179, KVXDefaultMap::findElem("statistics"));
}

TEST(KVXDefaultMap, FindElemFirstNameOfSecondRun) {
    EXPECT_EQ(2182, KVXDefaultMap::findElem("net_device_id"));
}

TEST(KVXDefaultMap, FindElemLastName) {
    EXPECT_EQ(2304, KVXDefaultMap::findElem("list_ids"));
}

TEST(KVXDefaultMap, FindElemIsCaseSensitive) {
    EXPECT_EQ(0, KVXDefaultMap::findElem("Alerts"));
    EXPECT_EQ(0, KVXDefaultMap::findElem("ALERTS"));
}

TEST(KVXDefaultMap, FindElemOfPrefixName) {
    EXPECT_EQ(1003, KVXDefaultMap::findElem("alert"));
}

TEST(KVXDefaultMap, FindElemOfPrefixOfNamesOnly) {
    EXPECT_EQ(0, KVXDefaultMap::findElem("aler"));
}

TEST(KVXDefaultMap, FindElemOfNameWithExtraCharacter) {
    EXPECT_EQ(0, KVXDefaultMap::findElem("alertsx"));
}

TEST(KVXDefaultMap, LengthEndsKeyInsideStoredName) {
    EXPECT_EQ(1003, KVXDefaultMap::findElem(CharArray("alerts", 5)));
}

TEST(KVXDefaultMap, NulInsideKeyEndsIt) {
    char const key[] = "alerts\0garbage";
    EXPECT_EQ(1001, KVXDefaultMap::findElem(CharArray(key, sizeof(key) - 1)));
}

TEST(KVXDefaultMap, NameInsideLargerBufferIsFoundWhereItStands) {
    char const buffer[] = {'<', 'a', 'l', 'e', 'r', 't', 's', '>'};
    EXPECT_EQ(1001, KVXDefaultMap::findElem(CharArray(buffer + 1, 6)));
}

TEST(KVXDefaultMap, EmptyKeyFindsFirstReservedElementRow) {
    EXPECT_EQ(2180, KVXDefaultMap::findElem(CharArray("", 0)));
}

TEST(KVXDefaultMap, EmptyKeyFindsFirstReservedNamespaceRow) {
    EXPECT_EQ(251, KVXDefaultMap::findNS(CharArray("", 0)));
}

TEST(KVXDefaultMap, EmptyKeyFindsFirstReservedTypeRow) {
    EXPECT_EQ(367, KVXDefaultMap::findType(CharArray("", 0)));
}

TEST(KVXDefaultMap, EmptyKeyFindsReservedElementRowInEitherTable) {
    EXPECT_EQ(2180, KVXDefaultMap::findElemOrNSStr(CharArray("", 0)));
}

TEST(KVXDefaultMap, KeyOfLengthZeroIsEmptyWhateverItsData) {
    EXPECT_EQ(2180, KVXDefaultMap::findElem(CharArray("alerts", 0)));
}

TEST(KVXDefaultMap, NullKeyReadsAsEmptyString) {
    EXPECT_EQ(2180, KVXDefaultMap::findElem(CharArray()));
    EXPECT_EQ(251, KVXDefaultMap::findNS(CharArray()));
    EXPECT_EQ(367, KVXDefaultMap::findType(CharArray()));
}

TEST(KVXDefaultMap, NullKeyKeepsLengthButEndsAtOnce) {
    EXPECT_EQ(2180, KVXDefaultMap::findElem(CharArray(nullptr, 6)));
}

TEST(KVXDefaultMap, FindElemIdOfZeroIsNotFoundRow) {
    EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findElemID(0)));
}

TEST(KVXDefaultMap, FindElemIdBelowFirstIdIsNotFoundRow) {
    EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findElemID(1000)));
}

TEST(KVXDefaultMap, FindElemIdPastLastIdIsNotFoundRow) {
    EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findElemID(2305)));
}

TEST(KVXDefaultMap, NegativeAndExtremeIdsAreNotFound) {
    for (int id : {-1, -2, -1001, INT_MIN, INT_MAX, INT_MIN + 1001}) {
        EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findElemID(id))) << id;
        EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findNSID(id))) << id;
        EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findTypeID(id))) << id;
    }
}

TEST(KVXDefaultMap, FindElemIdOfReservedIdIsReservedRow) {
    EXPECT_TRUE(isReservedRow(KVXDefaultMap::findElemID(2180)));
    EXPECT_TRUE(isReservedRow(KVXDefaultMap::findElemID(2181)));
}

TEST(KVXDefaultMap, FindNsIdOfReservedIdIsReservedRow) {
    EXPECT_TRUE(isReservedRow(KVXDefaultMap::findNSID(251)));
}

TEST(KVXDefaultMap, FindTypeIdOfReservedIdsIsReservedRow) {
    EXPECT_TRUE(isReservedRow(KVXDefaultMap::findTypeID(367)));
    EXPECT_TRUE(isReservedRow(KVXDefaultMap::findTypeID(372)));
    EXPECT_TRUE(isReservedRow(KVXDefaultMap::findTypeID(378)));
}

TEST(KVXDefaultMap, EachTableHasItsOwnNotFoundRow) {
    CharArray const *element = &KVXDefaultMap::findElemID(0);
    CharArray const *ns = &KVXDefaultMap::findNSID(0);
    CharArray const *type = &KVXDefaultMap::findTypeID(0);
    EXPECT_NE(element, ns);
    EXPECT_NE(element, type);
    EXPECT_NE(ns, type);
    EXPECT_EQ(element, &KVXDefaultMap::findElemID(2305));
    EXPECT_EQ(ns, &KVXDefaultMap::findNSID(312));
    EXPECT_EQ(type, &KVXDefaultMap::findTypeID(390));
}

TEST(KVXDefaultMap, IdLookupReturnsTableRowItself) {
    EXPECT_EQ(&KVX::Internal::ElementTable[0], &KVXDefaultMap::findElemID(1001));
    EXPECT_EQ(&KVX::Internal::NamespaceTable[110], &KVXDefaultMap::findNSID(311));
    EXPECT_EQ(&KVX::Internal::TypeTable[288], &KVXDefaultMap::findTypeID(389));
}

TEST(KVXDefaultMap, FindElemIdGivesName) {
    EXPECT_EQ("alerts", text(KVXDefaultMap::findElemID(1001)));
    EXPECT_EQ("alert", text(KVXDefaultMap::findElemID(1003)));
    EXPECT_EQ("statistics", text(KVXDefaultMap::findElemID(2179)));
    EXPECT_EQ("list_ids", text(KVXDefaultMap::findElemID(2304)));
}

TEST(KVXDefaultMap, FindElemOrNsIdOfFirstNamespace) {
    CharArray const &row = KVXDefaultMap::findElemOrNSID(201);
    EXPECT_EQ(OlderFamily + "alerts", text(row));
    EXPECT_EQ(&KVXDefaultMap::findNSID(201), &row);
}

TEST(KVXDefaultMap, FindElemOrNsIdOfFirstElement) {
    EXPECT_EQ("alerts", text(KVXDefaultMap::findElemOrNSID(1001)));
}

TEST(KVXDefaultMap, FindElemOrNsIdOfReservedElementGivesNamespaceNotFoundRow) {
    CharArray const &row = KVXDefaultMap::findElemOrNSID(2180);
    EXPECT_TRUE(isNotFoundRow(row));
    EXPECT_EQ(&KVXDefaultMap::findNSID(0), &row);
}

TEST(KVXDefaultMap, FindElemOrNsIdDoesNotSearchTypes) {
    CharArray const &row = KVXDefaultMap::findElemOrNSID(101);
    EXPECT_EQ(0u, row.length);
    EXPECT_EQ(&KVXDefaultMap::findNSID(0), &row);
}

TEST(KVXDefaultMap, FindElemOrNsIdOfReservedNamespaceGivesReservedRow) {
    EXPECT_TRUE(isReservedRow(KVXDefaultMap::findElemOrNSID(251)));
}

TEST(KVXDefaultMap, FindElemOrNsStrFindsElementsAndNamespaces) {
    EXPECT_EQ(1001, KVXDefaultMap::findElemOrNSStr("alerts"));
    EXPECT_EQ(261, KVXDefaultMap::findElemOrNSStr(CharArray(NewerFamily + "snapshotm")));
    EXPECT_EQ(0, KVXDefaultMap::findElemOrNSStr("alertmType"));
    EXPECT_EQ(0, KVXDefaultMap::findElemOrNSStr("nothing_here"));
}

TEST(KVXDefaultMap, NoNamespaceUriIsAnElementName) {
    for (int id = KVX::Internal::NamespaceFirstId; id <= KVX::Internal::NamespaceLastId; ++id) {
        CharArray const &row = KVXDefaultMap::findNSID(id);
        if (row.length == 0) {
            continue;
        }
        EXPECT_EQ(0, KVXDefaultMap::findElem(row)) << id;
        EXPECT_EQ(id, KVXDefaultMap::findElemOrNSStr(row)) << id;
    }
}

TEST(KVXDefaultMap, FindTypeFirstAndLast) {
    EXPECT_EQ(101, KVXDefaultMap::findType("alertmType"));
    EXPECT_EQ(389, KVXDefaultMap::findType("validationType"));
}

TEST(KVXDefaultMap, TablesAreSearchedSeparately) {
    EXPECT_EQ(0, KVXDefaultMap::findType("alerts"));
    EXPECT_EQ(0, KVXDefaultMap::findElem("alertmType"));
    EXPECT_EQ(0, KVXDefaultMap::findNS("alerts"));
    EXPECT_EQ(0, KVXDefaultMap::findElem(CharArray(OlderFamily + "alerts")));
}

TEST(KVXDefaultMap, FindTypeIdOutOfRangeIsNotFoundRow) {
    EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findTypeID(100)));
    EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findTypeID(390)));
}

TEST(KVXDefaultMap, FindNsIdOutOfRangeIsNotFoundRow) {
    EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findNSID(200)));
    EXPECT_TRUE(isNotFoundRow(KVXDefaultMap::findNSID(312)));
}

TEST(KVXDefaultMap, FindNsMatchesWholeUri) {
    std::string const uri = OlderFamily + "kvagenttypes";
    EXPECT_EQ(204, KVXDefaultMap::findNS(CharArray(uri)));
}

TEST(KVXDefaultMap, FindNsOfUriWithTrailingSlashIsNotFound) {
    std::string const uri = OlderFamily + "kvagenttypes/";
    EXPECT_EQ(0, KVXDefaultMap::findNS(CharArray(uri)));
}

TEST(KVXDefaultMap, FindNsOfLastSegmentAloneIsNotFound) {
    EXPECT_EQ(0, KVXDefaultMap::findNS("kvagenttypes"));
    EXPECT_EQ(0, KVXDefaultMap::findNS(CharArray("/webservices/kva/3.0.3/kvagenttypes")));
}

TEST(KVXDefaultMap, FindNsOfOtherSchemeIsNotFound) {
    EXPECT_EQ(0, KVXDefaultMap::findNS("https://www.kvx.org/webservices/kva/3.0.3/kvagenttypes"));
}

TEST(KVXDefaultMap, Id260IsLastOfOlderFamily) {
    EXPECT_EQ(OlderFamily + "pkgm", text(KVXDefaultMap::findNSID(260)));
    EXPECT_EQ(260, KVXDefaultMap::findNS(CharArray(OlderFamily + "pkgm")));
}

TEST(KVXDefaultMap, Id261IsFirstOfNewerFamily) {
    EXPECT_EQ(NewerFamily + "snapshotm", text(KVXDefaultMap::findNSID(261)));
    EXPECT_EQ(261, KVXDefaultMap::findNS(CharArray(NewerFamily + "snapshotm")));
}

TEST(KVXDefaultMap, SameSegmentInBothFamiliesIsTwoNamespaces) {
    EXPECT_EQ(250, KVXDefaultMap::findNS(CharArray(OlderFamily + "director")));
    EXPECT_EQ(293, KVXDefaultMap::findNS(CharArray(NewerFamily + "director")));
    EXPECT_EQ(246, KVXDefaultMap::findNS(CharArray(OlderFamily + "types")));
    EXPECT_EQ(292, KVXDefaultMap::findNS(CharArray(NewerFamily + "types")));
}

TEST(KVXDefaultMap, NearTwinsCompressPerfDataAreDistinct) {
    EXPECT_EQ(343, KVXDefaultMap::findType("compress_perf_dataType"));
    EXPECT_EQ(344, KVXDefaultMap::findType("compressperfdataType"));
    EXPECT_EQ("compress_perf_dataType", text(KVXDefaultMap::findTypeID(343)));
    EXPECT_EQ("compressperfdataType", text(KVXDefaultMap::findTypeID(344)));
}

TEST(KVXDefaultMap, NearTwinsFolderAttributesAreDistinct) {
    EXPECT_EQ(370, KVXDefaultMap::findType("folderattributesType"));
    EXPECT_EQ(387, KVXDefaultMap::findType("folder_attributesType"));
    EXPECT_EQ("folderattributesType", text(KVXDefaultMap::findTypeID(370)));
    EXPECT_EQ("folder_attributesType", text(KVXDefaultMap::findTypeID(387)));
}

TEST(KVXDefaultMap, NearTwinsCloneOptionsAreDistinct) {
    EXPECT_EQ(214, KVXDefaultMap::findType("cloneoptionsType"));
    EXPECT_EQ(275, KVXDefaultMap::findType("clone_optionsType"));
    EXPECT_EQ("cloneoptionsType", text(KVXDefaultMap::findTypeID(214)));
    EXPECT_EQ("clone_optionsType", text(KVXDefaultMap::findTypeID(275)));
}

TEST(KVXDefaultMap, SecondAndThirdReservedRowsOnlyByIdAndEmptyKeyGoesToFirst) {
    EXPECT_EQ(2180, KVXDefaultMap::findElem(CharArray("", 0)));
    EXPECT_NE(2181, KVXDefaultMap::findElem(CharArray("", 0)));
    EXPECT_NE(372, KVXDefaultMap::findType(CharArray("", 0)));
    EXPECT_NE(378, KVXDefaultMap::findType(CharArray("", 0)));
}

TEST(KVXDefaultMap, NamespaceIdsAndTypeIdsOverlapButAreReadApart) {
    EXPECT_EQ(OlderFamily + "alerts", text(KVXDefaultMap::findNSID(201)));
    EXPECT_EQ("restore_optionsType", text(KVXDefaultMap::findTypeID(108)));
    EXPECT_EQ("scsi_deviceType", text(KVXDefaultMap::findTypeID(303)));
    EXPECT_EQ(NewerFamily + "system", text(KVXDefaultMap::findNSID(298)));
    EXPECT_EQ(201, KVXDefaultMap::findNS(CharArray(OlderFamily + "alerts")));
}
