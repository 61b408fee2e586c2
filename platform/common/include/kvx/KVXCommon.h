// KVXCommon: assertion, number and time texts, Base64, case-insensitive
// comparison and file opening shared by the KVX family of libraries.
// Stateless apart from the assertion handler, which is a process-wide setting.
// All functions may be called from any thread; setAssertHandler is not synchronised.
#ifndef KVX_KVXCOMMON_H
#define KVX_KVXCOMMON_H

#include <kvx/KVXDefs.h>

#include <cstdio>
#include <string>

namespace KVX {

// Called by KVX_ASSERT with the failed expression, the file and the line.
typedef void (*AssertHandler)(char const *expression, char const *file, int line);

// Installs `handler` (null restores the default) and returns the previous one.
// The default handler prints one line to stderr and calls abort(). A handler
// that returns lets execution go on after the assertion.
KVX_EXPORT AssertHandler setAssertHandler(AssertHandler handler);

// Reports a failed assertion through the installed handler.
KVX_EXPORT void assertFailed(char const *expression, char const *file, int line);

// Plain signed decimal.
KVX_EXPORT std::string intToStr(int value);
KVX_EXPORT std::string longlongToStr(__int64 value);

// Shortest text that reads back to the same double.
KVX_EXPORT std::string doubleToStr(double value);

// `t` is seconds since 1970-01-01 UTC. Text "YYYY-MM-DDThh:mm:ssZ"; empty for a
// time before 1970 or after the year 9999.
KVX_EXPORT std::string time2str(__int64 t);

// `zone` is minutes east of UTC (-1439..1439). Local wall time of that zone
// followed by "+hh:mm" or "-hh:mm"; empty when time or zone is out of range.
KVX_EXPORT std::string time2strZone(__int64 t, int zone);

// Reads both forms above back exactly; anything else gives -1. The second form
// stores the zone in minutes east of UTC (0 for the "Z" form).
KVX_EXPORT __int64 str2time(char const *text);
KVX_EXPORT __int64 str2time(char const *text, int &zone);

// Case-insensitive (ASCII) comparison of at most `n` characters; n < 0
// compares the whole strings. Negative, 0 or positive as strcmp.
KVX_EXPORT int compareNoCase(std::string const &a, std::string const &b, int n);

// open() and fopen() for UTF-8 paths. The flag 0x8000 asks for binary mode and
// changes nothing on POSIX.
KVX_EXPORT int openU(char const *path, int flags, int mode);
KVX_EXPORT FILE *fopenU(char const *path, char const *mode);

namespace Base64 {

// RFC 4648 standard alphabet with padding, no line breaks.
KVX_EXPORT std::string encode(char const *data, int length);

// Decodes `length` characters of `text` into `*out` (replacing its content).
// Returns 0, or -1 on a character outside the alphabet or a bad length.
KVX_EXPORT int decode(char const *text, int length, std::string *out);

} // namespace Base64

} // namespace KVX

// Asserts a condition that only a programming fault can break.
#define KVX_ASSERT(cond)                                                                           \
    ((cond) ? static_cast<void>(0) : ::KVX::assertFailed(#cond, __FILE__, __LINE__))

#endif // KVX_KVXCOMMON_H
