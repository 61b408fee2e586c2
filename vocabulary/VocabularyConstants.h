// The fixed names that stand beside the vocabulary tables: the placeholder for a
// node without a name, the XML attribute names the text form tests, and the two
// XML Schema namespace URIs. Constant data over string literals; readable from
// any thread at any time. None of them is a table row or a lookup result.
#ifndef KVX_VOCABULARY_VOCABULARYCONSTANTS_H
#define KVX_VOCABULARY_VOCABULARYCONSTANTS_H

#include <kvx/CharArray.h>

namespace KVX {
namespace Internal {

// Name written in text for a node that has no name.
inline constexpr CharArray InvalidTag("INVALID_TAG", sizeof("INVALID_TAG") - 1);

// The namespace declaration attribute.
inline constexpr CharArray XmlnsName("xmlns", sizeof("xmlns") - 1);

// Local name of the schema-instance type attribute.
inline constexpr CharArray TypeName("type", sizeof("type") - 1);

// The XML Schema instance namespace URI.
inline constexpr CharArray XsiNamespace("http://www.w3.org/2001/XMLSchema-instance",
                                        sizeof("http://www.w3.org/2001/XMLSchema-instance") - 1);

// The XML Schema namespace URI.
inline constexpr CharArray XsdNamespace("http://www.w3.org/2001/XMLSchema",
                                        sizeof("http://www.w3.org/2001/XMLSchema") - 1);

} // namespace Internal
} // namespace KVX

#endif // KVX_VOCABULARY_VOCABULARYCONSTANTS_H
