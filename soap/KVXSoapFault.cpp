// SOAP faults: the code names and the fault bodies of SOAP 1.1 and 1.2. Writes only the fault's
// own strings and the malloc'ed text it hands out. Not synchronised.
#include <kvx/KVXSoapFault.h>

#include "soap/SoapNamespaces.h"

#include <kvx/KVXCommon.h>

namespace KVX {

namespace {

// A code's name as one SOAP version writes it: the name both versions share,
// else the version's own word for the client and the server code.
std::string versionCodeName(std::string name, KVXSoapFault::Code faultCode, char const *client,
                            char const *server) {
    if (name.empty()) {
        if (faultCode == KVXSoapFault::CodeClient)
            name = client;
        else if (faultCode == KVXSoapFault::CodeServer)
            name = server;
    }
    // Empty only for a value outside Code: the caller stored a number that is no fault code.
    KVX_ASSERT(!name.empty());
    return name;
}

// The optional detail element of both versions' fault bodies.
void appendDetail(std::string &body, std::string const &detail) {
    if (detail.empty())
        return;
    body.append("<detail>\n");
    body.append(detail);
    body.append("</detail>\n");
}

} // namespace

KVXSoapFault::KVXSoapFault(std::string const &uri, Code faultCode, std::string const &reason)
    : KVXSoapEnvelope(uri), code(faultCode), faultString(reason) {}

KVXSoapFault::KVXSoapFault(KVXSoapFault const &other) = default;

KVXSoapFault &KVXSoapFault::operator=(KVXSoapFault const &other) = default;

KVXSoapFault::~KVXSoapFault() = default;

KVXSoapFault *KVXSoapFault::createSoapFault(SoapVersion version, Code faultCode,
                                            std::string const &reason) {
    switch (version) {
    case SoapVersion11:
        return new KVXSoapFault11(faultCode, reason);
    case SoapVersion12:
        return new KVXSoapFault12(faultCode, reason);
    default:
        return nullptr;
    }
}

// Only the names that both versions share; the version classes name the rest.
std::string KVXSoapFault::faultCodeToString(Code faultCode) const {
    switch (faultCode) {
    case CodeVersionMismatch:
        return "VersionMismatch";
    case CodeMustUnderstand:
        return "MustUnderstand";
    default:
        return std::string();
    }
}

// --- SOAP 1.1 ------------------------------------------------------------------------------------

KVXSoapFault11::KVXSoapFault11(Code faultCode, std::string const &reason)
    : KVXSoapFault(Internal::Soap11EnvelopeNamespace, faultCode, reason) {}

KVXSoapFault11::KVXSoapFault11(KVXSoapFault11 const &other) = default;

KVXSoapFault11 &KVXSoapFault11::operator=(KVXSoapFault11 const &other) = default;

KVXSoapFault11::~KVXSoapFault11() = default;

std::string KVXSoapFault11::faultCodeToString(Code faultCode) const {
    return versionCodeName(KVXSoapFault::faultCodeToString(faultCode), faultCode, "Client",
                           "Server");
}

char *KVXSoapFault11::toText() {
    // The body is rebuilt from the fields each time, so repeated calls give the same text.
    body.assign("<soap:Fault>\n");
    body.append("<faultcode>soap:");
    body.append(faultCodeToString(code));
    body.append("</faultcode>\n");
    body.append("<faultstring>");
    body.append(faultString);
    body.append("</faultstring>\n");
    appendDetail(body, detail);
    body.append("</soap:Fault>\n");
    return assembly();
}

// --- SOAP 1.2 ------------------------------------------------------------------------------------

KVXSoapFault12::KVXSoapFault12(Code faultCode, std::string const &reason)
    : KVXSoapFault(Internal::Soap12EnvelopeNamespace, faultCode, reason) {}

KVXSoapFault12::KVXSoapFault12(KVXSoapFault12 const &other) = default;

KVXSoapFault12 &KVXSoapFault12::operator=(KVXSoapFault12 const &other) = default;

KVXSoapFault12::~KVXSoapFault12() = default;

std::string KVXSoapFault12::faultCodeToString(Code faultCode) const {
    return versionCodeName(KVXSoapFault::faultCodeToString(faultCode), faultCode, "Sender",
                           "Receiver");
}

char *KVXSoapFault12::toText() {
    body.assign("<soap:Fault>\n");
    body.append("<soap:Code>\n<soap:Value>soap:");
    body.append(faultCodeToString(code));
    body.append("</soap:Value>\n</soap:Code>\n");
    body.append("<soap:Reason>\n<soap:Text>");
    body.append(faultString);
    body.append("</soap:Text>\n</soap:Reason>\n");
    // The detail element stays the unqualified "detail" of SOAP 1.1 rather than SOAP 1.2's
    // soap:Detail; the agent's fault responses have always carried it under that name.
    appendDetail(body, detail);
    body.append("</soap:Fault>\n");
    return assembly();
}

} // namespace KVX
