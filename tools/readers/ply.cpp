#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <string_view>

#include "failure.h"
#include "readers/table.h"

namespace Velmor::Tool {

namespace {

enum class Type { None, Int8, UInt8, Int16, UInt16, Int32, UInt32, Float, Double };

Type typeOf(std::string_view name) {
  struct Entry {
    std::string_view name;
    Type type;
  };
  static constexpr std::array<Entry, 16> entries{{{"char", Type::Int8},
                                                  {"int8", Type::Int8},
                                                  {"uchar", Type::UInt8},
                                                  {"uint8", Type::UInt8},
                                                  {"short", Type::Int16},
                                                  {"int16", Type::Int16},
                                                  {"ushort", Type::UInt16},
                                                  {"uint16", Type::UInt16},
                                                  {"int", Type::Int32},
                                                  {"int32", Type::Int32},
                                                  {"uint", Type::UInt32},
                                                  {"uint32", Type::UInt32},
                                                  {"float", Type::Float},
                                                  {"float32", Type::Float},
                                                  {"double", Type::Double},
                                                  {"float64", Type::Double}}};
  for (auto const& entry : entries) {
    if (entry.name == name) return entry.type;
  }
  return Type::None;
}

std::size_t sizeOf(Type type) {
  switch (type) {
    case Type::Int8:
    case Type::UInt8:
      return 1;
    case Type::Int16:
    case Type::UInt16:
      return 2;
    case Type::Int32:
    case Type::UInt32:
    case Type::Float:
      return 4;
    case Type::Double:
      return 8;
    case Type::None:
      break;
  }
  return 0;
}

struct Property {
  std::string name;
  Type type = Type::None;
  Type count = Type::None;  // of a list
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

  double next(Type type) {
    if (form_ == Form::Ascii) return nextWord();
    std::array<char, 8> raw{};
    std::size_t const size = sizeOf(type);
    if (rest_.size() < size) ended();
    std::memcpy(raw.data(), rest_.data(), size);
    rest_.remove_prefix(size);
    if ((form_ == Form::Big) == (std::endian::native == std::endian::little)) {
      std::reverse(raw.begin(), raw.begin() + static_cast<std::ptrdiff_t>(size));
    }
    switch (type) {
      case Type::Int8:
        return read<std::int8_t>(raw);
      case Type::UInt8:
        return read<std::uint8_t>(raw);
      case Type::Int16:
        return read<std::int16_t>(raw);
      case Type::UInt16:
        return read<std::uint16_t>(raw);
      case Type::Int32:
        return read<std::int32_t>(raw);
      case Type::UInt32:
        return read<std::uint32_t>(raw);
      case Type::Float:
        return read<float>(raw);
      case Type::Double:
        return read<double>(raw);
      case Type::None:
        break;
    }
    return 0.;
  }

  void skip(Property const& property) {
    if (property.count == Type::None) {
      next(property.type);
      return;
    }
    double const count = next(property.count);
    if (!(count >= 0.)) throw Failure(ExitCode::Input, path_, "a list of negative length");
    for (double n = 0.; n < count; ++n) next(property.type);
  }

  /// Values that can still follow at most: each takes at least a byte.
  std::size_t left() const { return rest_.size(); }

 private:
  template <class T>
  static double read(std::array<char, 8> const& raw) {
    T value;
    std::memcpy(&value, raw.data(), sizeof(T));
    return static_cast<double>(value);
  }

  double nextWord() {
    auto const start = rest_.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) ended();
    rest_.remove_prefix(start);
    auto const word = rest_.substr(0, rest_.find_first_of(" \t\r\n"));
    rest_.remove_prefix(word.size());
    double value = 0.;
    auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size()) {
      throw Failure(ExitCode::Input, path_, "'" + std::string(word) + "' is no number");
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
        if (property.count == Type::None) fail("unknown type '" + count + "'");
      }
      property.type = typeOf(type);
      if (property.type == Type::None) fail("unknown type '" + type + "'");
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
    if (element.count > 0 && (element.properties.empty() || element.count > body.left())) {
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
      if (property.count != Type::None) continue;
      columnOf[p] = table.columns.size();
      bool const floating = property.type == Type::Float || property.type == Type::Double;
      table.columns.push_back({property.name, !floating, property.type == Type::Float, {}});
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
