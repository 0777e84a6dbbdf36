#include <algorithm>
#include <string_view>
#include <utility>

#include "readers/bytes.h"
#include "readers/particles.h"

namespace Velmor::Tool {

Particles readXyz(std::string const& path) {
  auto const bytes = readFile(path);
  std::string_view rest(bytes.data(), bytes.size());
  std::size_t number = 0;
  auto const fail = [&](std::string const& text) {
    throw Failure(ExitCode::Input, path, "line " + std::to_string(number) + ": " + text);
  };
  auto const nextLine = [&] {
    auto const line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    ++number;
    return line;
  };

  Particles particles;
  bool first = true, extra = false;
  std::string words;
  while (!rest.empty()) {
    words = nextLine();
    for (char& c : words) {
      if (c == ',' || c == ';') c = ' ';
    }
    std::string_view line = words;
    auto const word = takeWord(line);
    if (word.empty() || word.front() == '#') continue;
    double value = 0.;
    if (std::exchange(first, false) && takeWord(line).empty()) {
      // Molecules: a count, then a comment.
      std::uint64_t count = 0;
      if (!parseCount(word, count)) fail("neither three numbers nor a count");
      nextLine();
      continue;
    }
    line = words;
    auto ahead = line;
    if (!parseNumber(takeWord(ahead), value)) line = ahead;  // the name of an element
    for (int axis = 0; axis < 3; ++axis) {
      auto const text = takeWord(line);
      if (!parseNumber(text, value)) {
        fail(text.empty() ? "fewer than three numbers" : quoted(text) + " is no number");
      }
      particles.positions.push_back(value);
    }
    extra = extra || !takeWord(line).empty();
  }
  if (extra) particles.skipped.emplace_back("columns behind the third, which have no names");
  return particles;
}

}  // namespace Velmor::Tool
