#include <cstdio>
#include <iostream>
#include <new>

#include "core/banner_text.h"
#include "core/build_info.h"

namespace Velmor::Processing {

namespace {

// Runs while the module is loaded, where nothing may be thrown.
bool printBanner() noexcept {
  bool const requested = mustPrint("KESTRIL_DUMP_VERSION_INFO", fileno(stderr));
  try {
    if (requested) std::cerr << bannerLine(buildInfo) << std::endl;
  } catch (std::bad_alloc const&) {
  }
  return requested;
}

// Kept for whoever looks at the module in a debugger.
[[maybe_unused]] bool const bannerPrinted = printBanner();

}  // namespace

}  // namespace Velmor::Processing
