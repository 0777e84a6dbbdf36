#include "progress.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace Velmor::Tool {

Progress::Progress(Session const& session, std::string label)
    : label_(std::move(label)), visible_(!session.options().quiet && isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
  if (shown_ >= 0) std::fputs("\r\033[K", stderr);
}

void Progress::show(double done) {
  int const percent = static_cast<int>(done * 100.);
  if (!visible_ || percent <= shown_) return;
  shown_ = percent;
  std::fprintf(stderr, "\r%s %3d %%", label_.c_str(), percent);
}

}  // namespace Velmor::Tool
