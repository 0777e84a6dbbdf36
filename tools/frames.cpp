#include "frames.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string_view>

#include "failure.h"

namespace Velmor::Tool {

namespace {

constexpr std::size_t kMostFrames = 1000000;

// Takes a number with its sign off the text.
bool takeNumber(std::string_view& text, int& value) {
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool take(std::string_view& text, char c) {
  if (text.empty() || text.front() != c) return false;
  text.remove_prefix(1);
  return true;
}

std::string padded(int frame, std::size_t digits) {
  auto text = std::to_string(frame < 0 ? -std::int64_t{frame} : std::int64_t{frame});
  if (text.size() < digits) text.insert(0, digits - text.size(), '0');
  return frame < 0 ? "-" + text : text;
}

}  // namespace

std::vector<int> parseFrames(std::string const& text) {
  auto const fail = [&text](std::string const& why) {
    throw Failure(ExitCode::Usage, "",
                  "--frames: '" + text + "' " + why + "; write 1-48, 1-48x2 or 1,5,9-12");
  };
  std::vector<int> frames;
  std::set<int> known;
  std::string_view rest = text;
  do {
    int first = 0, last = 0, step = 1;
    if (!takeNumber(rest, first)) fail("is no list of frames");
    last = first;
    if (take(rest, '-')) {
      if (!takeNumber(rest, last)) fail("is no list of frames");
      if (take(rest, 'x') && (!takeNumber(rest, step) || step < 1)) {
        fail("has a step that is no number above 0");
      }
    }
    if (!rest.empty() && rest.front() != ',') fail("is no list of frames");
    std::int64_t const way = last < first ? -1 : 1;
    std::int64_t const count = (std::int64_t{last} - first) * way / step + 1;
    if (static_cast<std::uint64_t>(count) + frames.size() > kMostFrames) {
      fail("means more than a million frames");
    }
    for (std::int64_t n = 0; n < count; ++n) {
      auto const frame = static_cast<int>(first + way * n * step);
      if (known.insert(frame).second) frames.push_back(frame);
    }
  } while (take(rest, ','));
  return frames;
}

FramePattern::FramePattern(std::string path) {
  auto const slash = path.rfind('/');
  auto const name = slash == std::string::npos ? 0 : slash + 1;
  if (auto const last = path.rfind('#'); last != std::string::npos && last >= name) {
    auto first = last;
    while (first > name && path[first - 1] == '#') --first;
    before_ = path.substr(0, first);
    after_ = path.substr(last + 1);
    digits_ = last - first + 1;
    return;
  }
  for (auto at = path.rfind('%'); at != std::string::npos && at >= name;
       at = at == 0 ? std::string::npos : path.rfind('%', at - 1)) {
    auto end = at + 1;
    while (end < path.size() && path[end] >= '0' && path[end] <= '9') ++end;
    if (end == path.size() || path[end] != 'd' || end - at > 4) continue;
    std::size_t width = 0;
    std::from_chars(path.data() + at + 1, path.data() + end, width);
    before_ = path.substr(0, at);
    after_ = path.substr(end + 1);
    digits_ = std::clamp<std::size_t>(width, 1, 64);
    return;
  }
  before_ = std::move(path);
}

std::string FramePattern::path(int frame) const {
  return numbered() ? before_ + padded(frame, digits_) + after_ : before_;
}

std::vector<std::pair<int, std::string>> FramePattern::find() const {
  auto const slash = before_.rfind('/');
  auto const folder = slash == std::string::npos ? std::string(".") : before_.substr(0, slash + 1);
  auto const stem = slash == std::string::npos ? before_ : before_.substr(slash + 1);
  auto* const entries = opendir(folder.c_str());
  if (entries == nullptr) throw Failure(ExitCode::Input, folder, std::strerror(errno));
  std::vector<std::pair<int, std::string>> found;
  while (auto const* entry = readdir(entries)) {
    std::string_view name = entry->d_name;
    if (name.size() <= stem.size() + after_.size() || !name.starts_with(stem) ||
        !name.ends_with(after_)) {
      continue;
    }
    auto digits = name.substr(stem.size(), name.size() - stem.size() - after_.size());
    int frame = 0;
    // Only what the pattern itself would write: 7 and 0007 must not both be frame 7.
    if (takeNumber(digits, frame) && digits.empty() &&
        name.substr(stem.size(), name.size() - stem.size() - after_.size()) ==
            padded(frame, digits_)) {
      found.emplace_back(frame, (slash == std::string::npos ? "" : folder) + std::string(name));
    }
  }
  closedir(entries);
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace Velmor::Tool
