#pragma once

namespace Velmor::Test {

/// Whether a sanitizer watches, which slows loops down a lot: it looks at the
/// code, so a part of the files, rays or cells of a long test will do for it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

}  // namespace Velmor::Test
