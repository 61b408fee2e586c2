// The three fixed vocabulary tables (element names, namespace URIs, complex type
// names) and their id ranges. The row of id N is at index N minus the first id;
// a reserved row has a null `data` and a `length` of 0. Constant data,
// initialised at compile time, so readable from any thread at any time.
#ifndef KVX_VOCABULARY_VOCABULARYTABLES_H
#define KVX_VOCABULARY_VOCABULARYTABLES_H

#include <kvx/CharArray.h>

#include <cstddef>

namespace KVX {
namespace Internal {

// Element ids 1001..2304; 2180 and 2181 are reserved.
inline constexpr int ElementFirstId = 1001;
inline constexpr int ElementLastId = 2304;
inline constexpr int ElementRowCount = ElementLastId - ElementFirstId + 1; // 1,304

// Namespace ids 201..311; 251 is reserved.
inline constexpr int NamespaceFirstId = 201;
inline constexpr int NamespaceLastId = 311;
inline constexpr int NamespaceRowCount = NamespaceLastId - NamespaceFirstId + 1; // 111

// Type ids 101..389; 367, 372 and 378 are reserved.
inline constexpr int TypeFirstId = 101;
inline constexpr int TypeLastId = 389;
inline constexpr int TypeRowCount = TypeLastId - TypeFirstId + 1; // 289

extern CharArray const ElementTable[ElementRowCount];
extern CharArray const NamespaceTable[NamespaceRowCount];
extern CharArray const TypeTable[TypeRowCount];

// A table row over a string literal; the length comes from the literal's size,
// so no row costs a strlen at load.
template <std::size_t N> constexpr CharArray tableRow(char const (&text)[N]) {
    return CharArray(text, N - 1);
}

} // namespace Internal
} // namespace KVX

#endif // KVX_VOCABULARY_VOCABULARYTABLES_H
