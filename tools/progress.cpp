#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Velmor::Tool {

Progress::Progress(Session const& session, std::string label)
    : label_(std::move(label)), visible_(!session.options().quiet && isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() { clear(); }

void Progress::clear() {
  if (shown_ >= 0) std::fputs("\r\033[K", stderr);
  shown_ = -1;
}

void Progress::show(double done) {
  int const percent = static_cast<int>(done * 100.);
  if (!visible_ || percent <= shown_) return;
  shown_ = percent;
  constexpr std::size_t width = 25;
  auto const filled = std::min(width, static_cast<std::size_t>(percent) * width / 100);
  auto const bar = std::string(filled, '#') + std::string(width - filled, '.');
  std::fprintf(stderr, "\r%s [%s] %3d %%", label_.c_str(), bar.c_str(), percent);
}

}  // namespace Velmor::Tool
