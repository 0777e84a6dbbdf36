#include <cstdio>
#include <iostream>

#include "core/banner_text.h"
#include "core/build_info.h"

namespace Velmor::Processing {

namespace {

// Runs while the module is loaded, where nothing may be thrown.
bool printBanner() noexcept {
  bool const requested = mustPrint("KESTRIL_DUMP_VERSION_INFO", fileno(stderr));
  try {
    if (requested) std::cerr << bannerLine(buildInfo) << std::endl;
  } catch (...) {
    // Also a program's own choice: `std::cerr` may be set to throw where it cannot write.
  }
  return requested;
}

// Kept for whoever looks at the module in a debugger: nothing in it is read, and
// the compiler would leave it out.
[[gnu::used]] bool bannerPrinted = printBanner();

}  // namespace

}  // namespace Velmor::Processing
