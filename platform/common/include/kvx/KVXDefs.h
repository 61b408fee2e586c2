// Definitions shared by every public header of the KVX family: the export
// macro and the 64-bit integer spelling that the family's interfaces use.
// Header only; no state.
#ifndef KVX_KVXDEFS_H
#define KVX_KVXDEFS_H

#if defined(_WIN32)
#define KVX_EXPORT __declspec(dllexport)
#else
#define KVX_EXPORT __attribute__((visibility("default")))
#endif

// The family's interfaces are written with `__int64` and `unsigned __int64`.
// A typedef cannot follow `unsigned`, so where the compiler does not know the
// word already it is a macro for `long long`.
#if !defined(_MSC_VER) && !defined(__int64)
#define __int64 long long
#endif

#endif // KVX_KVXDEFS_H
