#pragma once

/// Marks a declaration as part of a shared library's interface. Everything
/// else is built with hidden visibility.
#if defined(_WIN32)
#define VELMOR_EXPORT
#define VELMOR_LOCAL
#else
#define VELMOR_EXPORT __attribute__((visibility("default")))
/// Takes a class nested in an exported one out of the interface again.
#define VELMOR_LOCAL __attribute__((visibility("hidden")))
#endif
