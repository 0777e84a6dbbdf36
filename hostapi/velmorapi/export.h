#pragma once

/// Marks a declaration as part of a shared library's interface. Everything
/// else is built with hidden visibility.
#if defined(_WIN32)
#define VELMOR_EXPORT
#else
#define VELMOR_EXPORT __attribute__((visibility("default")))
#endif
