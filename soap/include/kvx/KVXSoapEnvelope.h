// KVXSoapEnvelope: a SOAP envelope as three strings (namespace URI, header text, body text), cut
// out of a request by plain text search and pasted together for a response. Also the SOAP
// versions, their URI map and the case-insensitive string on which all SOAP text search runs.
// An envelope owns its strings; text it hands out is a C heap block that the caller frees.
// Not synchronised: one envelope belongs to one thread at a time; soapVersions is read-only.
#ifndef KVX_KVXSOAPENVELOPE_H
#define KVX_KVXSOAPENVELOPE_H

#include <kvx/KVXDefs.h>

#include <cctype>
#include <cstddef>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

namespace KVX {

enum SoapVersion {
    SoapVersionNone = 0, // no or unknown envelope namespace
    SoapVersion11 = 1,   // SOAP 1.1, http://schemas.xmlsoap.org/soap/envelope/
    SoapVersion12 = 2    // SOAP 1.2, http://www.w3.org/2003/05/soap-envelope
};

// Envelope namespace URI to SOAP version, three rows: "" gives SoapVersionNone, the SOAP 1.1 URI
// SoapVersion11, the SOAP 1.2 URI SoapVersion12. Ordered by plain byte-wise std::less, so the
// lookup is case-sensitive. Filled during static initialisation, read-only afterwards.
extern KVX_EXPORT std::map<std::string, SoapVersion> const soapVersions;

// Character traits of a string that ignores case: characters compare equal, or less, by toupper
// of each. Copying, moving, assigning and lengths are those of plain characters, so find and
// rfind on such a string match without regard to case while the text keeps its own case.
//
// The case is folded as toupper folds it in the "C" locale, the one the library runs its text
// in: 'a' to 'z' become 'A' to 'Z' and every other byte stays. The fold is inline arithmetic and
// the search for one character runs memchr on its two cases, since all SOAP text search passes
// through here character by character.
struct ignorecase_traits : public std::char_traits<char> {
    static int upper(char c) {
        unsigned const u = static_cast<unsigned char>(c);
        return static_cast<int>(u - 'a' < 26u ? u - ('a' - 'A') : u);
    }

    static bool eq(char a, char b) { return upper(a) == upper(b); }

    static bool lt(char a, char b) { return upper(a) < upper(b); }

    static int compare(char const *a, char const *b, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            int ua = upper(a[i]);
            int ub = upper(b[i]);
            if (ua != ub)
                return ua < ub ? -1 : 1;
        }
        return 0;
    }

    static char const *find(char const *s, std::size_t n, char const &c) {
        if (n == 0)
            return nullptr;
        int const up = upper(c);
        int const low = up - 'A' < 26 && up >= 'A' ? up + ('a' - 'A') : up;
        char const *const first = static_cast<char const *>(std::memchr(s, up, n));
        if (low == up)
            return first;
        // The other case only ahead of the first match of this one.
        std::size_t const before = first != nullptr ? static_cast<std::size_t>(first - s) : n;
        char const *const other = static_cast<char const *>(std::memchr(s, low, before));
        return other != nullptr ? other : first;
    }
};

// The case-insensitive string of all SOAP text search.
typedef std::basic_string<char, ignorecase_traits> istring;
// A case-insensitive view: the same search over text that is not copied.
typedef std::basic_string_view<char, ignorecase_traits> istring_view;

class KVX_EXPORT KVXSoapEnvelope {
public:
    // Sets soapURI to `uri`; header and body stay empty.
    KVXSoapEnvelope(std::string const &uri);

    KVXSoapEnvelope(KVXSoapEnvelope const &other);
    KVXSoapEnvelope &operator=(KVXSoapEnvelope const &other);

    virtual ~KVXSoapEnvelope();

    // The whole envelope as text, as assembly() builds it. Leaves the fields as they are (a fault
    // first rebuilds body, see KVXSoapFault). The result is a malloc'ed, 0-terminated block that
    // the caller releases with free(); null only when memory runs out.
    virtual char *toText();

    // Parses `text` by plain case-insensitive search: the first "<prefix:Envelope " (with one blank
    // behind the name, so an envelope tag without attributes is refused), the URI of the first
    // "xmlns:prefix" behind it, then optionally a whole "<prefix:Header ...</prefix:Header>"
    // element and a whole "<prefix:Body ...</prefix:Body>" element (the body including one
    // character behind the closing name). Names after the prefix match without regard to case; URI,
    // header and body keep the case of the text. Returns a new envelope that the caller deletes, or
    // null when `text` is null or the envelope tag, its namespace declaration or the body is not
    // found. Nothing is validated or unescaped.
    static KVXSoapEnvelope *fromText(char const *text);

    // The envelope's namespace URI.
    std::string soapURI;
    // The whole header element as text, or empty for none.
    std::string header;
    // The body's content for a response; the whole body element for a parsed request.
    std::string body;

protected:
    // Pastes the document together: envelope start tag with prefix "soap" and the soap, xsd and
    // xsi namespaces, a line feed, a header element only when header is not empty, then the body
    // element around body; no line feed behind the closing envelope tag. Text is copied as it
    // stands. Returns a malloc'ed, 0-terminated block for the caller to free(); null only when
    // memory runs out.
    virtual char *assembly();
};

} // namespace KVX

#endif // KVX_KVXSOAPENVELOPE_H
