// Tests of the fixed names beside the vocabulary tables: their exact texts, and
// that none of them is found by a lookup.
#include "vocabulary/VocabularyConstants.h"

#include <kvx/KVXDefaultMap.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using KVX::KVXDefaultMap;
using namespace KVX::Internal;

namespace {

std::string text(CharArray const &view) {
    return std::string(view.data, view.length);
}

} // namespace

TEST(VocabularyConstants, Texts) {
    EXPECT_EQ("INVALID_TAG", text(InvalidTag));
    EXPECT_EQ("xmlns", text(XmlnsName));
    EXPECT_EQ("type", text(TypeName));
    EXPECT_EQ("http://www.w3.org/2001/XMLSchema-instance", text(XsiNamespace));
    EXPECT_EQ("http://www.w3.org/2001/XMLSchema", text(XsdNamespace));
}

TEST(VocabularyConstants, LengthsExcludeTerminator) {
    EXPECT_EQ(11u, InvalidTag.length);
    EXPECT_EQ(5u, XmlnsName.length);
    EXPECT_EQ(4u, TypeName.length);
    EXPECT_EQ(41u, XsiNamespace.length);
    EXPECT_EQ(32u, XsdNamespace.length);
    EXPECT_EQ('\0', InvalidTag.data[InvalidTag.length]);
}

TEST(VocabularyConstants, InvalidTagIsNoLookupResult) {
    EXPECT_EQ(0, KVXDefaultMap::findElem(InvalidTag));
    EXPECT_EQ(0, KVXDefaultMap::findNS(InvalidTag));
    EXPECT_EQ(0, KVXDefaultMap::findType(InvalidTag));
}

TEST(VocabularyConstants, SchemaNamespacesAreNotInTheVocabulary) {
    EXPECT_EQ(0, KVXDefaultMap::findNS(XsiNamespace));
    EXPECT_EQ(0, KVXDefaultMap::findNS(XsdNamespace));
}

TEST(VocabularyConstants, TypeIsAnElementName) {
    // "type" is both the schema-instance attribute's local name and element 1007.
    EXPECT_EQ(1007, KVXDefaultMap::findElem(TypeName));
}
