// SOAP envelope: the version map, assembly of a response and the text-search parser of a request.
// Reads only the caller's 0-terminated text and writes only its own strings and the malloc'ed
// block it hands out. Not synchronised; soapVersions is immutable after static initialisation.
#include <kvx/KVXSoapEnvelope.h>

#include "soap/SoapNamespaces.h"
#include "vocabulary/VocabularyConstants.h"

#include <cstdlib>
#include <cstring>

namespace KVX {

std::map<std::string, SoapVersion> const soapVersions = {
    {"", SoapVersionNone},                               // no namespace
    {Internal::Soap11EnvelopeNamespace, SoapVersion11},  // SOAP 1.1
    {Internal::Soap12EnvelopeNamespace, SoapVersion12}}; // SOAP 1.2

namespace {

// Copies `text` into a C heap block with a terminating 0: the form in which every SOAP text leaves
// the library.
char *mallocCopy(std::string const &text) {
    char *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy == nullptr)
        return nullptr;
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
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
    std::string text;
    text.reserve(soapURI.size() + header.size() + body.size() + 256);
    text.append("<soap:Envelope xmlns:soap=\"");
    text.append(soapURI);
    text.append("\" xmlns:xsd=\"");
    text.append(Internal::XsdNamespace.data,
                static_cast<std::size_t>(Internal::XsdNamespace.length));
    text.append("\" xmlns:xsi=\"");
    text.append(Internal::XsiNamespace.data,
                static_cast<std::size_t>(Internal::XsiNamespace.length));
    text.append("\">\n");
    if (!header.empty()) {
        text.append("<soap:Header>\n");
        text.append(header);
        text.append("</soap:Header>\n");
    }
    text.append("<soap:Body>\n");
    text.append(body);
    // The document ends at the closing tag; callers paste it into their own output.
    text.append("</soap:Body>\n</soap:Envelope>");
    return mallocCopy(text);
}

// Plain text search on purpose: the envelope's content is passed through to the converter, never
// parsed here. Each step is one linear search of the case-insensitive copy, and positions in the
// copy are positions in `text`, so the pieces keep the case they have in the request.
KVXSoapEnvelope *KVXSoapEnvelope::fromText(char const *text) {
    if (text == nullptr)
        return nullptr;
    istring const doc(text);

    // The name must be followed by exactly one blank: a tag without attributes is not an envelope
    // this reader can take the namespace from.
    istring::size_type const name = doc.find(":envelope ");
    if (name == istring::npos)
        return nullptr;
    istring::size_type const open = doc.rfind('<', name);
    if (open == istring::npos)
        return nullptr;
    istring::size_type const prefixStart = open + 1;
    istring const prefix = doc.substr(prefixStart, name - prefixStart);

    istring const declaration = istring("xmlns:") + prefix;
    istring::size_type const declared = doc.find(declaration, prefixStart);
    if (declared == istring::npos)
        return nullptr;
    // Only the first declaration of the prefix counts, and its value must be in double quotes.
    istring::size_type const quote1 = doc.find('"', declared);
    if (quote1 == istring::npos)
        return nullptr;
    istring::size_type const quote2 = doc.find('"', quote1 + 1);
    if (quote2 == istring::npos)
        return nullptr;

    KVXSoapEnvelope *envelope =
        new KVXSoapEnvelope(std::string(text + quote1 + 1, quote2 - quote1 - 1));

    // The header is optional. A header start without a closing tag (a self-closed header, say)
    // gives no header text, but the body search still starts from there.
    istring::size_type pos = quote1 + 1;
    istring::size_type const headerStart = doc.find(istring("<") + prefix + ":Header", pos);
    if (headerStart != istring::npos) {
        pos = headerStart;
        istring const headerClose = istring("</") + prefix + ":Header>";
        istring::size_type const headerEnd = doc.find(headerClose, pos);
        if (headerEnd != istring::npos)
            envelope->header.assign(text + pos, headerEnd + headerClose.size() - pos);
    }

    istring::size_type const bodyStart = doc.find(istring("<") + prefix + ":Body", pos);
    if (bodyStart == istring::npos) {
        delete envelope;
        return nullptr;
    }
    istring const bodyClose = istring("</") + prefix + ":Body";
    istring::size_type const bodyEnd = doc.find(bodyClose, bodyStart);
    if (bodyEnd == istring::npos) {
        delete envelope;
        return nullptr;
    }
    // One character behind the closing name, the '>' of a well-formed document. When the text
    // ends right behind the name there is no such character and the body ends with the name.
    istring::size_type const bodyStop = bodyEnd + bodyClose.size() + 1;
    istring::size_type const bodyLength =
        (bodyStop <= doc.size() ? bodyStop : doc.size()) - bodyStart;
    envelope->body.assign(text + bodyStart, bodyLength);
    return envelope;
}

} // namespace KVX
