// libFuzzer entry point for a SOAP request: soapToKvxmsg, genReply, kvxmsgToSoap in SOAP 1.1
// and 1.2. The work is in FuzzTargets.h, shared with the regression tests; an input that trips
// KVX_ASSERT is stopped there and does not count as a finding.
#include "fuzz/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size) {
    KVX::Fuzz::runGuarded([&] { KVX::Fuzz::runSoap(data, size); });
    return 0;
}
