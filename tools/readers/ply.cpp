#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <sstream>
#include <string_view>

#include "failure.h"
#include "readers/bytes.h"
#include "readers/table.h"

namespace Velmor::Tool {

namespace {

std::optional<Number> typeOf(std::string_view name) {
  struct Entry {
    std::string_view name;
    Number type;
  };
  static constexpr std::array<Entry, 16> entries{{{"char", Number::Int8},
                                                  {"int8", Number::Int8},
                                                  {"uchar", Number::UInt8},
                                                  {"uint8", Number::UInt8},
                                                  {"short", Number::Int16},
                                                  {"int16", Number::Int16},
                                                  {"ushort", Number::UInt16},
                                                  {"uint16", Number::UInt16},
                                                  {"int", Number::Int32},
                                                  {"int32", Number::Int32},
                                                  {"uint", Number::UInt32},
                                                  {"uint32", Number::UInt32},
                                                  {"float", Number::Float},
                                                  {"float32", Number::Float},
                                                  {"double", Number::Double},
                                                  {"float64", Number::Double}}};
  for (auto const& entry : entries) {
    if (entry.name == name) return entry.type;
  }
  return std::nullopt;
}

struct Property {
  std::string name;
  Number type = Number::Float;
  std::optional<Number> count{};  // of a list
};

struct Element {
  std::string name;
  std::uint64_t count = 0;
  std::vector<Property> properties;
};

// Hands out the numbers of the body one by one.
class Body {
 public:
  enum class Form { Ascii, Little, Big };
  Body(std::string const& path, std::string_view bytes, Form form)
      : path_(path), rest_(bytes), form_(form) {}

  double next(Number type) {
    if (form_ == Form::Ascii) return nextWord();
    std::size_t const size = sizeOf(type);
    if (rest_.size() < size) ended();
    auto const value = loadNumber(rest_.data(), type, form_ == Form::Big);
    rest_.remove_prefix(size);
    return value;
  }

  void skip(Property const& property) {
    if (!property.count) {
      next(property.type);
      return;
    }
    double const count = next(*property.count);
    if (!(count >= 0.)) throw Failure(ExitCode::Input, path_, "a list of negative length");
    // NOLINTNEXTLINE(clang-analyzer-security.FloatLoopCounter): so far only doubles count
    for (double n = 0.; n < count; ++n) next(property.type);
  }

  /// Whether so many of an element can still follow: a list may be empty, and a
  /// word takes two bytes with what parts it from the next.
  bool canHold(Element const& element) const {
    std::size_t least = 0;
    for (auto const& property : element.properties) {
      least += form_ == Form::Ascii ? 2 : sizeOf(property.count.value_or(property.type));
    }
    auto const left = rest_.size() + (form_ == Form::Ascii ? 1 : 0);
    return element.count == 0 || (least > 0 && element.count <= left / least);
  }

 private:
  double nextWord() {
    auto const word = takeWord(rest_);
    if (word.empty()) ended();
    double value = 0.;
    if (!parseNumber(word, value)) {
      throw Failure(ExitCode::Input, path_, quoted(word) + " is no number");
    }
    return value;
  }

  [[noreturn]] void ended() const {
    throw Failure(ExitCode::Input, path_, "the file ends before its last vertex");
  }

  std::string const& path_;
  std::string_view rest_;
  Form form_;
};

struct Header {
  Body::Form form = Body::Form::Ascii;
  std::vector<Element> elements;
};

Header readHeader(std::string const& path, std::string_view& rest) {
  auto const fail = [&path](std::string const& text) {
    throw Failure(ExitCode::Input, path, text);
  };
  Header header;
  bool first = true, hasFormat = false;
  for (;;) {
    auto const end = rest.find('\n');
    if (end == std::string_view::npos) fail(first ? "no PLY file" : "the header has no end");
    std::string line(rest.substr(0, end));
    rest.remove_prefix(end + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (first) {
      if (line != "ply") fail("no PLY file");
      first = false;
      continue;
    }
    std::istringstream words(line);
    std::string keyword;
    words >> keyword;
    if (keyword == "end_header") break;
    if (keyword == "format") {
      std::string form;
      words >> form;
      if (form == "ascii") {
        header.form = Body::Form::Ascii;
      } else if (form == "binary_little_endian") {
        header.form = Body::Form::Little;
      } else if (form == "binary_big_endian") {
        header.form = Body::Form::Big;
      } else {
        fail("unknown format '" + form + "'");
      }
      hasFormat = true;
    } else if (keyword == "element") {
      Element element;
      if (!(words >> element.name >> element.count)) fail("malformed line '" + line + "'");
      header.elements.push_back(element);
    } else if (keyword == "property") {
      if (header.elements.empty()) fail("a property before any element");
      Property property;
      std::string type;
      words >> type;
      if (type == "list") {
        std::string count;
        words >> count >> type;
        property.count = typeOf(count);
        if (!property.count) fail("unknown type '" + count + "'");
      }
      auto const known = typeOf(type);
      if (!known) fail("unknown type '" + type + "'");
      property.type = *known;
      if (!(words >> property.name)) fail("malformed line '" + line + "'");
      header.elements.back().properties.push_back(property);
    } else if (!keyword.empty() && keyword != "comment" && keyword != "obj_info") {
      fail("unknown keyword '" + keyword + "'");
    }
  }
  if (!hasFormat) fail("no format line");
  return header;
}

}  // namespace

Table readPly(std::string const& path) {
  auto const bytes = readFile(path);
  std::string_view rest(bytes.data(), bytes.size());
  Header const header = readHeader(path, rest);
  Body body(path, rest, header.form);
  for (auto const& element : header.elements) {
    // A count that the file cannot hold must not be believed.
    if (!body.canHold(element)) {
      throw Failure(ExitCode::Input, path,
                    "the file is too short for " + std::to_string(element.count) + " of '" +
                        element.name + "'");
    }
    if (element.name != "vertex") {
      for (std::uint64_t n = 0; n < element.count; ++n) {
        for (auto const& property : element.properties) body.skip(property);
      }
      continue;
    }
    Table table;
    std::vector<std::size_t> columnOf(element.properties.size(),
                                      std::numeric_limits<std::size_t>::max());
    for (std::size_t p = 0; p < element.properties.size(); ++p) {
      auto const& property = element.properties[p];
      if (property.count) continue;
      columnOf[p] = table.columns.size();
      table.columns.push_back(
          {property.name, isInteger(property.type), property.type == Number::Float, {}});
      table.columns.back().values.reserve(static_cast<std::size_t>(element.count));
    }
    for (std::uint64_t n = 0; n < element.count; ++n) {
      for (std::size_t p = 0; p < element.properties.size(); ++p) {
        if (columnOf[p] == std::numeric_limits<std::size_t>::max()) {
          body.skip(element.properties[p]);
        } else {
          table.columns[columnOf[p]].values.push_back(body.next(element.properties[p].type));
        }
      }
    }
    return table;
  }
  throw Failure(ExitCode::Input, path, "no element 'vertex'");
}

}  // namespace Velmor::Tool
