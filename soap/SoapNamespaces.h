// The two SOAP envelope namespace URIs that the bridge writes and recognises. Constants only, no
// state; shared by the envelope, the faults and the converter of this folder. The XML Schema URIs
// live with the vocabulary's constants.
#ifndef KVX_SOAP_SOAPNAMESPACES_H
#define KVX_SOAP_SOAPNAMESPACES_H

namespace KVX {
namespace Internal {

// Envelope namespace of SOAP 1.1.
inline constexpr char Soap11EnvelopeNamespace[] = "http://schemas.xmlsoap.org/soap/envelope/";

// Envelope namespace of SOAP 1.2.
inline constexpr char Soap12EnvelopeNamespace[] = "http://www.w3.org/2003/05/soap-envelope";

} // namespace Internal
} // namespace KVX

#endif // KVX_SOAP_SOAPNAMESPACES_H
