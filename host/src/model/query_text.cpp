#include "model/query_text.h"

#include <charconv>
#include <utility>

#include "model/object_name.h"

namespace Velmor::Host {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

class Parser {
 public:
  explicit Parser(std::string_view text) : rest_(text) {}

  std::optional<QueryText> parse() {
    // One line: a name with a line break would break the query's description.
    if (rest_.find_first_of(std::string_view("\n\r\0", 3)) != rest_.npos) return {};
    skipBlanks();
    do {
      if (!readPair()) return {};
    } while (skipToNextPair());
    if (!rest_.empty()) return {};
    return std::move(query_);
  }

 private:
  void skipBlanks() {
    while (!rest_.empty() && isBlank(rest_.front())) rest_.remove_prefix(1);
  }

  bool skipToNextPair() {
    auto const before = rest_.size();
    skipBlanks();
    if (rest_.empty()) return false;
    if (rest_.front() == ',') {
      rest_.remove_prefix(1);
      skipBlanks();
      return true;
    }
    return rest_.size() < before;
  }

  bool readPair() {
    auto const equals = rest_.find('=');
    if (equals == rest_.npos) return false;
    auto const key = rest_.substr(0, equals);
    rest_.remove_prefix(equals + 1);
    std::string_view value;
    return readValue(value) && store(key, value);
  }

  bool readValue(std::string_view& value) {
    if (rest_.starts_with('"')) {
      auto const end = rest_.find('"', 1);
      if (end == rest_.npos) return false;
      value = rest_.substr(1, end - 1);
      rest_.remove_prefix(end + 1);
      return true;
    }
    value = rest_.substr(0, rest_.find_first_of(" \t,"));
    rest_.remove_prefix(value.size());
    return !value.empty() && value.find('"') == value.npos;
  }

  bool store(std::string_view key, std::string_view value) {
    if (key == "name") {
      query_.name = value;
      return once(hasName_) && queryCarries(value);
    }
    if (key == "graph") {
      query_.graph = value;
      return once(hasGraph_);
    }
    if (key == "frame") {
      auto const end = value.data() + value.size();
      auto const parsed = std::from_chars(value.data(), end, query_.frame);
      return once(hasFrame_) && parsed.ec == std::errc() && parsed.ptr == end;
    }
    return key == "type" && once(hasType_) && value == "object";
  }

  static bool once(bool& seen) { return !std::exchange(seen, true); }

  std::string_view rest_;
  QueryText query_;
  bool hasName_ = false, hasGraph_ = false, hasFrame_ = false, hasType_ = false;
};

}  // namespace

std::optional<QueryText> parseQuery(std::string_view text) { return Parser(text).parse(); }

}  // namespace Velmor::Host
