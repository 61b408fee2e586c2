// State of a KVXSoapConverter between and during conversions: the SOAP version
// of the last request, the last fault (owned), and the whole request text,
// searched without regard to case. Owned by one converter, one thread.
#ifndef KVX_SOAP_KVXSOAPCONVERTERSTATE_H
#define KVX_SOAP_KVXSOAPCONVERTERSTATE_H

#include <kvx/KVXSoapEnvelope.h>
#include <kvx/KVXSoapFault.h>

namespace KVX {

struct KVXSoapConverterState {
    KVXSoapConverterState() : version(SoapVersion11), fault(nullptr) {}
    ~KVXSoapConverterState() { delete fault; }
    KVXSoapConverterState(KVXSoapConverterState const &) = delete;
    KVXSoapConverterState &operator=(KVXSoapConverterState const &) = delete;

    SoapVersion version;
    KVXSoapFault *fault;
    istring documentText;
};

} // namespace KVX

#endif // KVX_SOAP_KVXSOAPCONVERTERSTATE_H
