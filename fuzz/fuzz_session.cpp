// libFuzzer entry point for a session id: every reader of KVXSessionID.
// The work is in FuzzTargets.h, shared with the regression tests; an input that
// trips KVX_ASSERT is stopped there and does not count as a finding.
#include "fuzz/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size) {
    KVX::Fuzz::runGuarded([&] { KVX::Fuzz::runSession(data, size); });
    return 0;
}
