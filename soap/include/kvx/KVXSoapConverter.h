// KVXSoapConverter: turns a SOAP 1.1 or 1.2 request (text) into a packet, and
// a reply packet into a SOAP response or fault. SOAP is read by plain
// case-insensitive text search; only the pieces handed to the packet's text
// parser are parsed as XML. One converter serves one thread; it owns the last
// fault until its next conversion.
#ifndef KVX_KVXSOAPCONVERTER_H
#define KVX_KVXSOAPCONVERTER_H

#include <kvx/KVXDefs.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXSoapEnvelope.h>
#include <kvx/KVXSoapFault.h>

#include <string>

namespace KVX {

struct KVXSoapConverterState;

class KVX_EXPORT KVXSoapConverter {
public:
    KVXSoapConverter();
    // A converter owns its state alone, so it is not copied.
    KVXSoapConverter(KVXSoapConverter const &) = delete;
    KVXSoapConverter &operator=(KVXSoapConverter const &) = delete;
    virtual ~KVXSoapConverter();

    // Fills `message` (a new message: the header step creates or parses its
    // content) from a SOAP request. 0, or -1 with the reason in getFault().
    int soapToKvxmsg(char const *text, KVXMessage &message);
    // Writes a reply packet as a SOAP response, or as a fault when the packet
    // reports an error (still 0). -1 with `envelope` null and the reason in
    // getFault(). The `data` element of `message` is deleted by the call.
    // `envelope` belongs to the caller, who deletes it.
    int kvxmsgToSoap(KVXMessage &message, SoapVersion version, KVXSoapEnvelope *&envelope);
    // The SOAP version of the last request.
    SoapVersion getSoapVersion() const;
    // The last fault, or null. Valid until the next conversion or destruction.
    KVXSoapFault *getFault() const;

protected:
    // The SOAP header into the packet header (with an empty `cookie`).
    virtual int convertHeader(char const *header, KVXMessage &message);
    // The operation element into `data`, its name and namespace into `cookie`.
    virtual int convertBody(char const *body, KVXMessage &message);
    // Removes every " xmlns..." declaration with its quoted value.
    void removeNamespaces(istring &text);
    // The envelope namespace URI of a version; empty for none.
    std::string getSoapURIByVersion(SoapVersion version);

private:
    // Replaces the state's fault by a new one of the state's version.
    void setFault(KVXSoapFault::Code code, std::string const &words);
    // Resets version, fault and document text before a conversion.
    void resetState();

    KVXSoapConverterState *state;
};

} // namespace KVX

#endif // KVX_KVXSOAPCONVERTER_H
