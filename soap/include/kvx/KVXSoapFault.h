// KVXSoapFault and its SOAP 1.1 and 1.2 classes: envelopes whose body is a fault, rebuilt from
// code, fault string and detail at every toText(). A fault owns its strings; text it hands out is a
// C heap block that the caller frees. Not synchronised: one fault belongs to one thread at a time.
#ifndef KVX_KVXSOAPFAULT_H
#define KVX_KVXSOAPFAULT_H

#include <kvx/KVXDefs.h>
#include <kvx/KVXSoapEnvelope.h>

#include <string>

namespace KVX {

// An envelope whose body is a fault. Abstract: the layout of the fault is the version class's.
class KVX_EXPORT KVXSoapFault : public KVXSoapEnvelope {
public:
    enum Code {
        CodeVersionMismatch = 0, // "VersionMismatch" in both versions
        CodeMustUnderstand = 1,  // "MustUnderstand" in both versions
        CodeClient = 2,          // "Client" in SOAP 1.1, "Sender" in SOAP 1.2
        CodeServer = 3           // "Server" in SOAP 1.1, "Receiver" in SOAP 1.2
    };

    // Sets soapURI to `uri`, code and faultString as given; header, body and detail stay empty.
    KVXSoapFault(std::string const &uri, Code faultCode, std::string const &reason);

    KVXSoapFault(KVXSoapFault const &other);
    KVXSoapFault &operator=(KVXSoapFault const &other);

    ~KVXSoapFault() override;

    // Replaces body with the fault element of the version and returns the whole envelope as text
    // (malloc'ed, 0-terminated, for the caller to free()). header stays and is written when it is
    // not empty. Can be called repeatedly.
    char *toText() override = 0;

    // A new KVXSoapFault11 for SoapVersion11, a new KVXSoapFault12 for SoapVersion12, which the
    // caller deletes; null for any other version.
    static KVXSoapFault *createSoapFault(SoapVersion version, Code faultCode,
                                         std::string const &reason);

    // The fault code.
    Code code;
    // Text of the fault string (1.1) or reason (1.2), written as it stands, unescaped.
    std::string faultString;
    // Content of the fault's detail element; empty for no detail element.
    std::string detail;

protected:
    // The name of `faultCode` behind the "soap:" prefix. Here only the names both versions share:
    // "VersionMismatch", "MustUnderstand", and empty for CodeClient and CodeServer.
    virtual std::string faultCodeToString(Code faultCode) const;
};

// A SOAP 1.1 fault: faultcode, faultstring and an optional detail.
class KVX_EXPORT KVXSoapFault11 : public KVXSoapFault {
public:
    // A fault in the SOAP 1.1 envelope namespace.
    KVXSoapFault11(Code faultCode, std::string const &reason);

    KVXSoapFault11(KVXSoapFault11 const &other);
    KVXSoapFault11 &operator=(KVXSoapFault11 const &other);

    ~KVXSoapFault11() override;

    char *toText() override;

protected:
    // The shared names, else "Client" and "Server". Requires: `faultCode` is one of Code's values.
    std::string faultCodeToString(Code faultCode) const override;
};

// A SOAP 1.2 fault: Code/Value, Reason/Text and an optional detail. The detail element is written
// unqualified as "detail", as for SOAP 1.1.
class KVX_EXPORT KVXSoapFault12 : public KVXSoapFault {
public:
    // A fault in the SOAP 1.2 envelope namespace.
    KVXSoapFault12(Code faultCode, std::string const &reason);

    KVXSoapFault12(KVXSoapFault12 const &other);
    KVXSoapFault12 &operator=(KVXSoapFault12 const &other);

    ~KVXSoapFault12() override;

    char *toText() override;

protected:
    // The shared names, else "Sender" and "Receiver". Requires: `faultCode` is one of Code's
    // values.
    std::string faultCodeToString(Code faultCode) const override;
};

} // namespace KVX

#endif // KVX_KVXSOAPFAULT_H
