#include "names.h"

#include <algorithm>
#include <cstddef>

namespace Velmor::Tool {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// The restricted edit distance (optimal string alignment): three rows suffice,
// the oldest for swaps of neighbours.
std::size_t editDistance(std::string const& a, std::string const& b) {
  std::vector<std::size_t> older(b.size() + 1), old(b.size() + 1), row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    older.swap(old);
    old.swap(row);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      bool const same = lower(a[i - 1]) == lower(b[j - 1]);
      row[j] = std::min({old[j] + 1, row[j - 1] + 1, old[j - 1] + (same ? 0u : 1u)});
      if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) &&
          lower(a[i - 2]) == lower(b[j - 1])) {
        row[j] = std::min(row[j], older[j - 2] + 1);
      }
    }
  }
  return row[b.size()];
}

}  // namespace

std::string nearestName(std::string const& name, std::vector<std::string> const& candidates) {
  std::string best;
  std::size_t bestDistance = name.size() / 3 + 2;
  for (auto const& candidate : candidates) {
    auto const distance = editDistance(name, candidate);
    // What shares no letter is no misspelling.
    if (distance < bestDistance && distance < std::max(name.size(), candidate.size())) {
      best = candidate;
      bestDistance = distance;
    }
  }
  return best;
}

std::string didYouMean(std::string const& name, std::vector<std::string> const& candidates) {
  auto const nearest = nearestName(name, candidates);
  return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

std::string quotedList(std::vector<std::string> const& names, std::string const& none) {
  if (names.empty()) return none;
  std::string text;
  for (auto const& name : names) text += (text.empty() ? "'" : ", '") + name + "'";
  return text;
}

std::string frameList(std::vector<int> const& frames) {
  std::string text;
  for (std::size_t i = 0; i < frames.size();) {
    std::size_t end = i;
    while (end + 1 < frames.size() && frames[end + 1] - 1 == frames[end]) ++end;
    if (!text.empty()) text += ", ";
    text += std::to_string(frames[i]);
    if (end > i) {
      // Two neighbours read better as two numbers.
      text += end == i + 1 ? ", " : "..";
      text += std::to_string(frames[end]);
    }
    i = end + 1;
  }
  return text;
}

}  // namespace Velmor::Tool
