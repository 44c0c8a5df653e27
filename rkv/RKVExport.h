// RKV_EXPORT marks what the shared library exports: the public classes (their members, type
// information and virtual tables) and free functions of the public headers. The library is built
// with hidden visibility by default, so everything else, rkv::internal above all, stays inside.
// scripts/annotate-exports.py adds the mark to the public headers and checks that none lacks it.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define RKV_EXPORT __attribute__((visibility("default")))
// Keeps a member or nested class of an exported class inside the library (its implementation
// types, constructors taking internal types).
#define RKV_HIDDEN __attribute__((visibility("hidden")))
#else
#define RKV_EXPORT
#define RKV_HIDDEN
#endif
