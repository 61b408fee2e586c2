// SOAP envelope: the version map, assembly of a response and the text-search parser of a request.
// Reads only the caller's 0-terminated text and writes only its own strings and the malloc'ed
// block it hands out. Not synchronised; soapVersions is immutable after static initialisation.
#include <kvx/KVXSoapEnvelope.h>

#include "soap/SoapNamespaces.h"
#include "vocabulary/VocabularyConstants.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace KVX {

std::map<std::string, SoapVersion> const soapVersions = {
    {"", SoapVersionNone},                               // no namespace
    {Internal::Soap11EnvelopeNamespace, SoapVersion11},  // SOAP 1.1
    {Internal::Soap12EnvelopeNamespace, SoapVersion12}}; // SOAP 1.2

namespace {

// Joins `pieces` into one C heap block with a terminating 0: the form in which every SOAP text
// leaves the library. Measured first, so the text is written once. Null when memory runs out.
char *mallocJoin(std::initializer_list<std::string_view> pieces) {
    std::size_t length = 0;
    for (std::string_view const &piece : pieces)
        length += piece.size();
    char *const text = static_cast<char *>(std::malloc(length + 1));
    if (text == nullptr)
        return nullptr;
    char *to = text;
    for (std::string_view const &piece : pieces) {
        if (!piece.empty())
            std::memcpy(to, piece.data(), piece.size());
        to += piece.size();
    }
    *to = '\0';
    return text;
}

// `head`, the prefix and `tail`: one of the tags that the parser searches for.
istring tagOf(istring_view head, istring_view prefix, istring_view tail) {
    istring tag;
    tag.reserve(head.size() + prefix.size() + tail.size());
    tag.append(head.data(), head.size());
    tag.append(prefix.data(), prefix.size());
    tag.append(tail.data(), tail.size());
    return tag;
}

std::string_view viewOf(Internal::CharArray const &text) {
    return std::string_view(text.data, static_cast<std::size_t>(text.length));
}

} // namespace

KVXSoapEnvelope::KVXSoapEnvelope(std::string const &uri) : soapURI(uri) {}

KVXSoapEnvelope::KVXSoapEnvelope(KVXSoapEnvelope const &other) = default;

KVXSoapEnvelope &KVXSoapEnvelope::operator=(KVXSoapEnvelope const &other) = default;

KVXSoapEnvelope::~KVXSoapEnvelope() = default;

char *KVXSoapEnvelope::toText() {
    return assembly();
}

char *KVXSoapEnvelope::assembly() {
    bool const withHeader = !header.empty();
    // The document ends at the closing tag; callers paste it into their own output.
    return mallocJoin({"<soap:Envelope xmlns:soap=\"", soapURI, "\" xmlns:xsd=\"",
                       viewOf(Internal::XsdNamespace), "\" xmlns:xsi=\"",
                       viewOf(Internal::XsiNamespace), "\">\n", withHeader ? "<soap:Header>\n" : "",
                       header, withHeader ? "</soap:Header>\n" : "", "<soap:Body>\n", body,
                       "</soap:Body>\n</soap:Envelope>"});
}

// Plain text search on purpose: the envelope's content is passed through to the converter, never
// parsed here. Each step is one linear search of a case-insensitive view of `text`, so positions in
// the view are positions in `text`, and the pieces keep the case they have in the request.
KVXSoapEnvelope *KVXSoapEnvelope::fromText(char const *text) {
    if (text == nullptr)
        return nullptr;
    istring_view const doc(text, std::strlen(text));

    // The name must be followed by exactly one blank: a tag without attributes is not an envelope
    // this reader can take the namespace from.
    istring_view::size_type const name = doc.find(":envelope ");
    if (name == istring_view::npos)
        return nullptr;
    istring_view::size_type const open = doc.rfind('<', name);
    if (open == istring_view::npos)
        return nullptr;
    istring_view::size_type const prefixStart = open + 1;
    istring_view const prefix = doc.substr(prefixStart, name - prefixStart);

    istring_view::size_type const declared = doc.find(tagOf("xmlns:", prefix, ""), prefixStart);
    if (declared == istring_view::npos)
        return nullptr;
    // Only the first declaration of the prefix counts, and its value must be in double quotes.
    istring_view::size_type const quote1 = doc.find('"', declared);
    if (quote1 == istring_view::npos)
        return nullptr;
    istring_view::size_type const quote2 = doc.find('"', quote1 + 1);
    if (quote2 == istring_view::npos)
        return nullptr;

    KVXSoapEnvelope *envelope =
        new KVXSoapEnvelope(std::string(text + quote1 + 1, quote2 - quote1 - 1));

    // The header is optional. A header start without a closing tag (a self-closed header, say)
    // gives no header text, but the body search still starts from there.
    istring_view::size_type pos = quote1 + 1;
    istring_view::size_type const headerStart = doc.find(tagOf("<", prefix, ":Header"), pos);
    if (headerStart != istring_view::npos) {
        pos = headerStart;
        istring const headerClose = tagOf("</", prefix, ":Header>");
        istring_view::size_type const headerEnd = doc.find(headerClose, pos);
        if (headerEnd != istring_view::npos)
            envelope->header.assign(text + pos, headerEnd + headerClose.size() - pos);
    }

    istring_view::size_type const bodyStart = doc.find(tagOf("<", prefix, ":Body"), pos);
    if (bodyStart == istring_view::npos) {
        delete envelope;
        return nullptr;
    }
    istring const bodyClose = tagOf("</", prefix, ":Body");
    istring_view::size_type const bodyEnd = doc.find(bodyClose, bodyStart);
    if (bodyEnd == istring_view::npos) {
        delete envelope;
        return nullptr;
    }
    // One character behind the closing name, the '>' of a well-formed document. When the text
    // ends right behind the name there is no such character and the body ends with the name.
    istring_view::size_type const bodyStop = bodyEnd + bodyClose.size() + 1;
    istring_view::size_type const bodyLength =
        (bodyStop <= doc.size() ? bodyStop : doc.size()) - bodyStart;
    envelope->body.assign(text + bodyStart, bodyLength);
    return envelope;
}

} // namespace KVX
