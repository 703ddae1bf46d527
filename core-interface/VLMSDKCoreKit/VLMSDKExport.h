#pragma once

/// @file
/// What the SDK's shared libraries export. They are built with hidden visibility: only declarations between
/// `VLMSDK_API_BEGIN` and `VLMSDK_API_END` (the public headers' declarations) are part of their interface
/// and of its guarded ABI; everything else stays inside the library that defines it.

/// Opens the public declarations of a header: they are exported from a shared library.
#define VLMSDK_API_BEGIN _Pragma("GCC visibility push(default)")
/// Closes what `VLMSDK_API_BEGIN` opened.
#define VLMSDK_API_END _Pragma("GCC visibility pop")

/// Marks a private unit that the project's own tests, benchmarks and fuzzers reach: exported only from a
/// build that builds them (VLMSDK_EXPORT_INTERNALS), never from a library built to ship.
#if defined(VLMSDK_EXPORT_INTERNALS)
#define VLMSDK_INTERNAL __attribute__((visibility("default")))
#else
#define VLMSDK_INTERNAL
#endif
