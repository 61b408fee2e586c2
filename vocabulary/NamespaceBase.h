// The scheme and host shared by every namespace URI of the vocabulary and by the
// namespace URIs of SOAP operations ("/webservices/kvx/" and a version behind it).
// Defined once here; constant data, readable from any thread at any time.
#ifndef KVX_VOCABULARY_NAMESPACEBASE_H
#define KVX_VOCABULARY_NAMESPACEBASE_H

// A string literal, so that table rows can be written as literal concatenations
// and keep their lengths known at compile time.
#define KVX_NAMESPACE_HOST "http://www.kvx.org"

namespace KVX {
namespace Internal {

// Scheme and host of every namespace URI, without a trailing slash.
inline constexpr char NamespaceHost[] = KVX_NAMESPACE_HOST;

// Number of characters of NamespaceHost.
inline constexpr unsigned long long NamespaceHostLength = sizeof(NamespaceHost) - 1;

} // namespace Internal
} // namespace KVX

#endif // KVX_VOCABULARY_NAMESPACEBASE_H
