#include <optional>
#include <string>
#include <string_view>

#include "readers/bytes.h"
#include "readers/particles.h"

namespace Velmor::Tool {

namespace {

std::string decoded(std::string_view name) {
  // Writers put what would end a word as %20 and the like.
  std::string result;
  for (std::size_t i = 0; i < name.size(); ++i) {
    unsigned value = 0;
    if (name[i] == '%' && i + 2 < name.size() &&
        std::from_chars(name.data() + i + 1, name.data() + i + 3, value, 16).ptr ==
            name.data() + i + 3) {
      result += static_cast<char>(value);
      i += 2;
    } else {
      result += name[i];
    }
  }
  return result;
}

class VtkReader {
 public:
  explicit VtkReader(std::string const& path)
      : path_(path), bytes_(readFile(path)), rest_(bytes_.data(), bytes_.size()) {}

  Particles run() {
    takeLine();
    takeLine();
    auto line = takeLine();
    auto const form = takeWord(line);
    if (form != "ASCII" && form != "BINARY") fail("neither ASCII nor BINARY in its third line");
    ascii_ = form == "ASCII";
    for (;;) {
      skipSpace();
      if (rest_.empty()) break;
      auto words = takeLine();
      auto const keyword = takeWord(words);
      readSection(keyword, words);
    }
    if (!hasPoints_) fail("it holds no points of their own ('POINTS')");
    return std::move(result_);
  }

 private:
  void readSection(std::string_view keyword, std::string_view words) {
    if (keyword == "DATASET") {
      auto const kind = takeWord(words);
      if (kind != "POLYDATA" && kind != "UNSTRUCTURED_GRID") {
        fail("a data set of kind " + quoted(kind) + " is no set of particles");
      }
    } else if (keyword == "POINTS") {
      if (hasPoints_) fail("two lists of points");
      points_ = count(words);
      auto const type = typeOf(takeWord(words));
      read(points_, 3, type, &result_.positions);
      hasPoints_ = true;
    } else if (keyword == "VERTICES" || keyword == "LINES" || keyword == "POLYGONS" ||
               keyword == "TRIANGLE_STRIPS" || keyword == "CELLS") {
      auto const cells = count(words), size = count(words);
      skipSpace();
      if (rest_.substr(0, 7) == "OFFSETS") {
        auto line = takeLine();
        takeWord(line);
        read(cells, 1, typeOf(takeWord(line)), nullptr);
        skipSpace();
        line = takeLine();
        if (takeWord(line) != "CONNECTIVITY") fail("OFFSETS without CONNECTIVITY");
        read(size, 1, typeOf(takeWord(line)), nullptr);
      } else {
        read(size, 1, Number::Int32, nullptr);
      }
    } else if (keyword == "CELL_TYPES") {
      read(count(words), 1, Number::Int32, nullptr);
    } else if (keyword == "POINT_DATA" || keyword == "CELL_DATA") {
      elements_ = count(words);
      ofPoints_ = keyword == "POINT_DATA";
      if (ofPoints_ && (!hasPoints_ || elements_ != points_)) {
        fail("POINT_DATA for " + std::to_string(elements_) + " points, but there are " +
             std::to_string(points_));
      }
    } else if (keyword == "METADATA") {
      while (!rest_.empty()) {
        auto line = takeLine();
        if (takeWord(line).empty()) break;
      }
    } else if (keyword == "FIELD") {
      takeWord(words);
      auto const arrays = count(words);
      for (std::uint64_t n = 0; n < arrays; ++n) readFieldArray();
    } else {
      readAttribute(keyword, words);
    }
  }

  void readFieldArray() {
    skipSpace();
    auto line = takeLine();
    // Information on the array before can stand between two.
    for (auto ahead = line; takeWord(ahead) == "METADATA"; ahead = line) {
      readSection("METADATA", {});
      skipSpace();
      line = takeLine();
    }
    auto const name = decoded(takeWord(line));
    auto const components = count(line), tuples = count(line);
    auto const type = takeWord(line);
    if (type == "string" || type == "bit") {
      fail("array '" + name + "' holds values of type " + quoted(type) + ", which cannot be read");
    }
    keep(name, components, tuples, typeOf(type));
  }

  void readAttribute(std::string_view keyword, std::string_view words) {
    auto const name = decoded(takeWord(words));
    if (keyword == "SCALARS") {
      auto const type = typeOf(takeWord(words));
      auto const more = takeWord(words);
      std::uint64_t components = 1;
      if (!more.empty() && !parseCount(more, components)) fail("malformed SCALARS");
      skipSpace();
      if (rest_.substr(0, 12) == "LOOKUP_TABLE") takeLine();
      keep(name, components, elements_, type);
    } else if (keyword == "VECTORS" || keyword == "NORMALS") {
      keep(name, 3, elements_, typeOf(takeWord(words)));
    } else if (keyword == "TENSORS" || keyword == "TENSORS6") {
      keep(name, keyword == "TENSORS" ? 9 : 6, elements_, typeOf(takeWord(words)));
    } else if (keyword == "TEXTURE_COORDINATES") {
      auto const components = count(words);
      keep(name, components, elements_, typeOf(takeWord(words)));
    } else if (keyword == "COLOR_SCALARS") {
      keep(name, count(words), elements_, ascii_ ? Number::Float : Number::UInt8);
    } else if (keyword == "LOOKUP_TABLE") {
      read(count(words), 4, ascii_ ? Number::Float : Number::UInt8, nullptr);
    } else if (keyword == "GLOBAL_IDS" || keyword == "PEDIGREE_IDS") {
      keep(name, 1, elements_, typeOf(takeWord(words)));
    } else {
      fail("unknown keyword " + quoted(keyword));
    }
  }

  // Reads an array of the current kind of elements; keeps it if it belongs to the points.
  void keep(std::string const& name, std::uint64_t components, std::uint64_t tuples, Number type) {
    if (!ofPoints_ || components < 1 || components > 3 || tuples != points_) {
      read(tuples, components, type, nullptr);
      if (ofPoints_) result_.skipped.push_back("array '" + name + "': not 1 to 3 values per point");
      return;
    }
    Particles::Attribute attribute{name, static_cast<int>(components), isInteger(type), {}};
    read(tuples, components, type, &attribute.values);
    result_.attributes.push_back(std::move(attribute));
  }

  // Reads tuples * components numbers, into nothing if `values` is null.
  void read(std::uint64_t tuples, std::uint64_t components, Number type,
            std::vector<double>* values) {
    // Each number takes at least a byte; the counts must not be believed before.
    if (components != 0 && tuples > rest_.size() / components) tooShort();
    auto const total = static_cast<std::size_t>(tuples * components);
    auto const size = sizeOf(type);
    if (values != nullptr) {
      if (!ascii_ && total > rest_.size() / size) tooShort();
      values->reserve(total);
    }
    if (ascii_) {
      for (std::size_t n = 0; n < total; ++n) {
        auto const word = takeWord(rest_);
        double value = 0.;
        if (word.empty()) tooShort();
        if (!parseNumber(word, value)) fail(quoted(word) + " is no number");
        if (values != nullptr) values->push_back(value);
      }
      return;
    }
    if (total > rest_.size() / size) tooShort();
    if (values != nullptr) {
      for (std::size_t n = 0; n < total; ++n) {
        values->push_back(loadNumber(rest_.data() + n * size, type, true));
      }
    }
    rest_.remove_prefix(total * size);
  }

  Number typeOf(std::string_view name) const {
    struct Entry {
      std::string_view name;
      Number type;
    };
    // Identifiers are written with 32 bits whatever they have in memory.
    static constexpr std::array<Entry, 15> entries{{{"float", Number::Float},
                                                    {"double", Number::Double},
                                                    {"int", Number::Int32},
                                                    {"unsigned_int", Number::UInt32},
                                                    {"char", Number::Int8},
                                                    {"signed_char", Number::Int8},
                                                    {"unsigned_char", Number::UInt8},
                                                    {"short", Number::Int16},
                                                    {"unsigned_short", Number::UInt16},
                                                    {"long", Number::Int64},
                                                    {"unsigned_long", Number::UInt64},
                                                    {"vtkIdType", Number::Int32},
                                                    {"vtkidtype", Number::Int32},
                                                    {"vtktypeint64", Number::Int64},
                                                    {"vtktypeuint64", Number::UInt64}}};
    for (auto const& entry : entries) {
      if (entry.name == name) return entry.type;
    }
    fail("unknown type " + quoted(name));
  }

  std::uint64_t count(std::string_view& words) const {
    std::uint64_t value = 0;
    auto const word = takeWord(words);
    if (!parseCount(word, value)) fail(quoted(word) + " is no count");
    return value;
  }

  std::string_view takeLine() {
    auto const line = rest_.substr(0, rest_.find('\n'));
    rest_.remove_prefix(std::min(rest_.size(), line.size() + 1));
    return line;
  }

  void skipSpace() {
    auto const start = rest_.find_first_not_of(kSpace);
    rest_.remove_prefix(start == std::string_view::npos ? rest_.size() : start);
  }

  [[noreturn]] void tooShort() const { fail("the file is too short for the values it announces"); }
  [[noreturn]] void fail(std::string const& text) const {
    throw Failure(ExitCode::Input, path_, text);
  }

  std::string const& path_;
  std::vector<char> const bytes_;
  std::string_view rest_;
  bool ascii_ = true, hasPoints_ = false, ofPoints_ = false;
  std::uint64_t points_ = 0, elements_ = 0;
  Particles result_;
};

}  // namespace

Particles readVtk(std::string const& path) { return VtkReader(path).run(); }

}  // namespace Velmor::Tool
