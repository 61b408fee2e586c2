// An outside program that includes the installed headers and calls into the
// installed libraries. Exits 0 when every check holds.
#include <kvx/KVXCommon.h>
#include <kvx/KVXCore.h>

#if __has_include(<kvx/kvx.h>)
#include <kvx/kvx.h>
#define KVX_CONSUMER_HAS_UMBRELLA 1
#else
#define KVX_CONSUMER_HAS_UMBRELLA 0
#endif

#include <cstdio>
#include <string>

namespace {

int failures = 0;

void check(bool ok, char const *what) {
    if (!ok) {
        std::fprintf(stderr, "consumer check failed: %s\n", what);
        ++failures;
    }
}

} // namespace

int main() {
    // Code written against the family's interfaces spells 64-bit integers this way.
    __int64 big = -9000000000LL;
    unsigned __int64 unsignedBig = 18000000000ULL;
    check(sizeof(big) == 8 && sizeof(unsignedBig) == 8, "__int64 is 64 bits wide");

    check(KVX::intToStr(-42) == "-42", "intToStr(-42)");
    check(KVX::longlongToStr(big) == "-9000000000", "longlongToStr");
    check(KVX::time2str(0) == "1970-01-01T00:00:00Z", "time2str(0)");

    std::string id;
    KVX::generateID(id);
    check(id.size() == 32 && id.find_first_not_of("0123456789abcdef") == std::string::npos,
          "generateID gives 32 lower-case hex digits");

    std::printf("consumer: id %s, umbrella header %s\n", id.c_str(),
                KVX_CONSUMER_HAS_UMBRELLA ? "included" : "not installed");
    return failures == 0 ? 0 : 1;
}
