#include <algorithm>
#include <cstring>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>

#include "readers/bytes.h"
#include "readers/gzip.h"
#include "readers/particles.h"

namespace Velmor::Tool {

namespace {

// The bytes that a text or a raw block stands for, in order.
class Bytes {
 public:
  Bytes(std::string_view text, bool base64) : rest_(text), base64_(base64) {}

  bool take(char* to, std::size_t size) {
    if (!base64_) {
      if (rest_.size() < size) return false;
      std::memcpy(to, rest_.data(), size);
      rest_.remove_prefix(size);
      return true;
    }
    for (std::size_t n = 0; n < size; ++n) {
      if (at_ == filled_ && !takeQuantum()) return false;
      to[n] = quantum_[at_++];
    }
    return true;
  }
  /// More bytes than can follow.
  std::uint64_t most() const { return rest_.size() + 3; }

 private:
  static int digit(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
  }

  // Four letters give three bytes. Padding ends a piece, not the text: headers
  // are encoded by themselves.
  bool takeQuantum() {
    std::array<int, 4> digits{};
    int count = 0, padding = 0;
    while (count + padding < 4) {
      if (rest_.empty()) return false;
      char const c = rest_.front();
      rest_.remove_prefix(1);
      if (kSpace.find(c) != std::string_view::npos) continue;
      if (c == '=') {
        ++padding;
        continue;
      }
      int const value = digit(c);
      if (value < 0 || padding > 0) return false;
      digits[static_cast<std::size_t>(count++)] = value;
    }
    if (padding > 2) return false;
    unsigned bits = 0;
    for (int const d : digits) bits = bits << 6 | static_cast<unsigned>(d);
    for (unsigned n = 0; n < 3; ++n) quantum_[n] = static_cast<char>(bits >> (16 - 8 * n) & 0xFF);
    at_ = 0;
    filled_ = static_cast<std::size_t>(3 - padding);
    return true;
  }

  std::string_view rest_;
  bool base64_;
  std::array<char, 3> quantum_{};
  std::size_t at_ = 0, filled_ = 0;
};

class XmlReader {
 public:
  explicit XmlReader(std::string const& path) : path_(path), bytes_(readFile(path)) {}

  Particles run() {
    parse();
    auto const root = document_.child("VTKFile");
    if (!root) fail("no element 'VTKFile'");
    std::string const kind = root.attribute("type").value();
    if (kind != "UnstructuredGrid" && kind != "PolyData") {
      fail("a VTK file of type '" + kind +
           "' holds no particles; read are UnstructuredGrid and PolyData");
    }
    bigEndian_ = std::string_view(root.attribute("byte_order").value()) == "BigEndian";
    wideHeader_ = std::string_view(root.attribute("header_type").value()) == "UInt64";
    std::string const compressor = root.attribute("compressor").value();
    compressed_ = !compressor.empty();
    if (compressed_ && compressor != "vtkZLibDataCompressor") {
      fail("packed with '" + compressor + "'; only vtkZLibDataCompressor can be read");
    }
    bool first = true;
    for (auto const& piece : root.child(kind.c_str()).children("Piece")) {
      readPiece(piece, first);
      first = false;
    }
    return std::move(result_);
  }

 private:
  // Appended raw data are no XML: the text before them is parsed by itself.
  void parse() {
    std::string_view text(bytes_.data(), bytes_.size());
    std::string_view const opening = "<AppendedData";
    std::string head;
    if (auto const at = text.find(opening); at != std::string_view::npos) {
      auto const end = text.find('>', at);
      if (end == std::string_view::npos) fail("element 'AppendedData' has no end");
      head = std::string(text.substr(0, end + 1)) + "</AppendedData></VTKFile>";
      auto const mark = text.find('_', end);
      if (mark == std::string_view::npos) fail("the appended data do not begin with '_'");
      appended_ = text.substr(mark + 1);
      text = head;
    }
    auto const parsed = document_.load_buffer(text.data(), text.size());
    if (!parsed) fail("no well-formed XML: " + std::string(parsed.description()));
    appendedBase64_ =
        std::string_view(
            document_.child("VTKFile").child("AppendedData").attribute("encoding").value()) ==
        "base64";
    // What follows the data would be taken for letters.
    if (appendedBase64_) appended_ = appended_.substr(0, appended_.find('<'));
  }

  void readPiece(pugi::xml_node const& piece, bool first) {
    std::uint64_t points = 0;
    if (!parseCount(piece.attribute("NumberOfPoints").value(), points)) {
      fail("a piece without 'NumberOfPoints'");
    }
    auto const before = result_.count();
    auto const positions = piece.child("Points").child("DataArray");
    if (!positions && points > 0) fail("a piece without points");
    if (points > 0) {
      if (components(positions) != 3) fail("points of other than three components");
      readArray(positions, points, 3, result_.positions);
    }
    for (auto const& array : piece.child("PointData").children("DataArray")) {
      std::string const name = array.attribute("Name").value();
      auto const count = components(array);
      auto const type = std::string_view(array.attribute("type").value());
      if (count < 1 || count > 3 || type == "String") {
        if (first) result_.skipped.push_back("array '" + name + "': not 1 to 3 numbers per point");
        continue;
      }
      Particles::Attribute* attribute = nullptr;
      for (auto& known : result_.attributes) {
        if (known.name == name && known.components == static_cast<int>(count)) attribute = &known;
      }
      if (attribute == nullptr && !first) continue;  // not in all pieces
      if (attribute == nullptr) {
        result_.attributes.push_back({name, static_cast<int>(count), isInteger(typeOf(array)), {}});
        attribute = &result_.attributes.back();
      }
      if (attribute->values.size() != before * count) fail("array '" + name + "' comes twice");
      readArray(array, points, count, attribute->values);
    }
    // What a later piece lacks cannot be kept for the points before.
    for (std::size_t a = result_.attributes.size(); a-- > 0;) {
      auto const& attribute = result_.attributes[a];
      if (attribute.values.size() ==
          result_.count() * static_cast<std::size_t>(attribute.components))
        continue;
      result_.skipped.push_back("array '" + attribute.name + "': not in all pieces");
      result_.attributes.erase(result_.attributes.begin() + static_cast<std::ptrdiff_t>(a));
    }
  }

  std::uint64_t components(pugi::xml_node const& array) const {
    auto const text = std::string_view(array.attribute("NumberOfComponents").value());
    std::uint64_t count = 1;
    if (!text.empty() && !parseCount(text, count)) fail("a malformed 'NumberOfComponents'");
    return count;
  }

  Number typeOf(pugi::xml_node const& array) const {
    struct Entry {
      std::string_view name;
      Number type;
    };
    static constexpr std::array<Entry, 10> entries{{{"Int8", Number::Int8},
                                                    {"UInt8", Number::UInt8},
                                                    {"Int16", Number::Int16},
                                                    {"UInt16", Number::UInt16},
                                                    {"Int32", Number::Int32},
                                                    {"UInt32", Number::UInt32},
                                                    {"Int64", Number::Int64},
                                                    {"UInt64", Number::UInt64},
                                                    {"Float32", Number::Float},
                                                    {"Float64", Number::Double}}};
    std::string const name = array.attribute("type").value();
    for (auto const& entry : entries) {
      if (entry.name == name) return entry.type;
    }
    fail("unknown type '" + name + "'");
  }

  void readArray(pugi::xml_node const& array, std::uint64_t points, std::uint64_t count,
                 std::vector<double>& values) {
    name_ = array.attribute("Name").value();
    auto const type = typeOf(array);
    auto const format = std::string_view(array.attribute("format").value());
    // A count of values that the file cannot hold must not be believed.
    if (points > bytes_.size() * tightest / (count * sizeOf(type))) tooShort();
    auto const total = points * count;
    if (format == "ascii" || format.empty()) {
      std::string_view rest = array.child_value();
      if (total > (rest.size() + 1) / 2) tooShort();
      values.reserve(values.size() + static_cast<std::size_t>(total));
      for (std::uint64_t n = 0; n < total; ++n) {
        double value = 0.;
        auto const word = takeWord(rest);
        if (word.empty()) tooShort();
        if (!parseNumber(word, value)) damaged(quoted(word) + " is no number");
        values.push_back(value);
      }
      return;
    }
    std::vector<char> data;
    if (format == "binary") {
      std::string_view const text = array.child_value();
      data = decode(Bytes(text, true), total * sizeOf(type));
    } else if (format == "appended") {
      std::uint64_t offset = 0;
      if (!parseCount(array.attribute("offset").value(), offset) || offset > appended_.size()) {
        damaged("its offset lies outside the appended data");
      }
      data = decode(Bytes(appended_.substr(static_cast<std::size_t>(offset)), appendedBase64_),
                    total * sizeOf(type));
    } else {
      damaged("unknown format " + quoted(format));
    }
    values.reserve(values.size() + static_cast<std::size_t>(total));
    for (std::size_t at = 0; at < data.size(); at += sizeOf(type)) {
      values.push_back(loadNumber(data.data() + at, type, bigEndian_));
    }
  }

  std::uint64_t takeHeader(Bytes& in) const {
    std::array<char, 8> raw{};
    if (!in.take(raw.data(), wideHeader_ ? 8 : 4)) tooShort();
    return wideHeader_ ? loadValue<std::uint64_t>(raw.data(), bigEndian_)
                       : loadValue<std::uint32_t>(raw.data(), bigEndian_);
  }

  std::vector<char> decode(Bytes in, std::uint64_t size) {
    auto const before = in.most();
    auto data = compressed_ ? inflate(in, size) : copy(in, size);
    // Arrays that all lie in one place would ask for more memory than any file is
    // large.
    read_ += before - in.most();
    if (read_ > bytes_.size()) damaged("it lies where others lie");
    return data;
  }

  std::vector<char> copy(Bytes& in, std::uint64_t size) const {
    if (takeHeader(in) < size || in.most() < size) tooShort();
    std::vector<char> data(static_cast<std::size_t>(size));
    if (!in.take(data.data(), data.size())) tooShort();
    return data;
  }

  std::vector<char> inflate(Bytes& in, std::uint64_t size) const {
    auto const blocks = takeHeader(in), blockSize = takeHeader(in), lastSize = takeHeader(in);
    if (blocks > in.most() / 4 || (blocks > 0 && blockSize == 0)) damaged("impossible blocks");
    struct Block {
      std::uint64_t packed, full;
    };
    std::vector<Block> all;
    std::uint64_t stored = 0, promised = 0;
    for (std::uint64_t b = 0; b < blocks; ++b) {
      // The size of the last block, if it is not a whole one.
      auto const full = b + 1 == blocks && lastSize != 0 ? lastSize : blockSize;
      all.push_back({takeHeader(in), full});
      if (all.back().packed > in.most()) tooShort();
      if (full > all.back().packed * tightest + 64) damaged("a block of impossible size");
      stored += all.back().packed;
      promised += full;
    }
    if (stored > in.most() || promised < size) tooShort();
    // Grows with what is there, not with what was promised.
    std::vector<char> data, packed;
    for (auto const& block : all) {
      if (data.size() == size) break;
      packed.resize(static_cast<std::size_t>(block.packed));
      if (!in.take(packed.data(), packed.size())) tooShort();
      auto const full = static_cast<std::size_t>(block.full);
      auto const out = std::make_unique_for_overwrite<char[]>(full);
      if (!inflateBlock(packed.data(), packed.size(), out.get(), full)) {
        damaged("a packed block is damaged");
      }
      data.insert(data.end(), out.get(),
                  out.get() + std::min(full, static_cast<std::size_t>(size) - data.size()));
    }
    return data;
  }

  [[noreturn]] void tooShort() const { damaged("fewer values than the points need"); }
  [[noreturn]] void damaged(std::string const& text) const {
    fail("array '" + name_ + "': " + text);
  }
  [[noreturn]] void fail(std::string const& text) const {
    throw Failure(ExitCode::Input, path_, text);
  }

  // Deflate packs no tighter.
  static constexpr std::uint64_t tightest = 1040;

  std::string const& path_;
  std::vector<char> const bytes_;
  std::uint64_t read_ = 0;  // bytes of arrays so far
  pugi::xml_document document_;
  std::string_view appended_;
  std::string name_;
  bool appendedBase64_ = false, bigEndian_ = false, wideHeader_ = false, compressed_ = false;
  Particles result_;
};

}  // namespace

Particles readVtkXml(std::string const& path) { return XmlReader(path).run(); }

}  // namespace Velmor::Tool
