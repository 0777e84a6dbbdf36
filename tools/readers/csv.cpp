#include <charconv>
#include <string_view>

#include "failure.h"
#include "readers/table.h"

namespace Velmor::Tool {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  auto const first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view unquoted(std::string_view text) {
  text = trimmed(text);
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text = text.substr(1, text.size() - 2);
  }
  return text;
}

// The separator that the header uses; a blank stands for any number of them.
char separatorOf(std::string_view header) {
  for (char c : {',', ';', '\t'}) {
    if (header.find(c) != std::string_view::npos) return c;
  }
  return ' ';
}

template <class Take>
void splitLine(std::string_view line, char separator, Take const& take) {
  if (separator == ' ') {
    while (!(line = trimmed(line)).empty()) {
      auto const end = std::min(line.find_first_of(kBlanks), line.size());
      take(line.substr(0, end));
      line.remove_prefix(end);
    }
    return;
  }
  for (;;) {
    auto const end = line.find(separator);
    take(line.substr(0, end));
    if (end == std::string_view::npos) return;
    line.remove_prefix(end + 1);
  }
}

}  // namespace

Table readCsv(std::string const& path) {
  auto const bytes = readFile(path);
  std::string_view rest(bytes.data(), bytes.size());
  if (rest.substr(0, 3) == "\xEF\xBB\xBF") rest.remove_prefix(3);
  std::size_t number = 0;
  auto const nextLine = [&](std::string_view& line) {
    while (!rest.empty()) {
      auto const end = rest.find('\n');
      line = trimmed(rest.substr(0, end));
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
      ++number;
      if (!line.empty() && line.front() != '#') return true;
    }
    return false;
  };
  auto const fail = [&](std::string const& text) {
    throw Failure(ExitCode::Input, path, "line " + std::to_string(number) + ": " + text);
  };

  Table table;
  std::string_view line;
  if (!nextLine(line)) throw Failure(ExitCode::Input, path, "no header line");
  char const separator = separatorOf(line);
  splitLine(line, separator, [&](std::string_view name) {
    table.columns.push_back({std::string(unquoted(name)), false, false, {}});
  });
  while (nextLine(line)) {
    table.lines.push_back(number);
    std::size_t at = 0;
    splitLine(line, separator, [&](std::string_view text) {
      text = unquoted(text);
      if (at == table.columns.size()) fail("more values than the header has names");
      double value = 0.;
      if (!text.empty() && text.front() == '+') text.remove_prefix(1);
      auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
      if (error != std::errc() || end != text.data() + text.size()) {
        fail(std::string("'").append(text).append("' is no number"));
      }
      table.columns[at++].values.push_back(value);
    });
    if (at < table.columns.size()) {
      fail(std::to_string(at) + " values where the header has " +
           std::to_string(table.columns.size()) + " names");
    }
  }
  return table;
}

}  // namespace Velmor::Tool
