// The process-wide assertion handler behind KVX_ASSERT.
// The handler pointer is atomic so that a report racing an installation sees
// either the old or the new handler, never a torn value.
#include <kvx/KVXCommon.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace KVX {

namespace {

void defaultAssertHandler(char const *expression, char const *file, int line) {
    std::fprintf(stderr, "KVX_ASSERT failed: %s (%s:%d)\n", expression, file, line);
    std::fflush(stderr);
    std::abort();
}

std::atomic<AssertHandler> currentHandler{&defaultAssertHandler};

} // namespace

AssertHandler setAssertHandler(AssertHandler handler) {
    return currentHandler.exchange(handler != nullptr ? handler : &defaultAssertHandler);
}

void assertFailed(char const *expression, char const *file, int line) {
    currentHandler.load()(expression != nullptr ? expression : "?", file != nullptr ? file : "?",
                          line);
}

} // namespace KVX
