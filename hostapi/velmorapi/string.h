#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <utility>

#include "velmorapi/array.h"
#include "velmorapi/export.h"

namespace Velmor::API {

/// A text in bytes (UTF-8 by convention) with value semantics. A null
/// `char const*` makes an empty text.
class VELMOR_EXPORT String {
 public:
  String() = default;
  String(char const* text) : text_(text != nullptr ? text : "") {}
  String(std::string text) : text_(std::move(text)) {}

  char const* c_str() const noexcept { return text_.c_str(); }
  std::string const& str() const noexcept { return text_; }
  bool empty() const noexcept { return text_.empty(); }
  std::size_t size() const noexcept { return text_.size(); }

  /// The pieces between the occurrences of `separator`, empty pieces kept, so
  /// that there is always one piece more than separators. An empty separator
  /// gives the whole text as one piece.
  Array<String> split(String const& separator) const {
    Array<String> pieces;
    std::size_t from = 0;
    if (!separator.empty()) {
      for (auto at = text_.find(separator.text_); at != std::string::npos;
           at = text_.find(separator.text_, from)) {
        pieces.add(String(text_.substr(from, at - from)));
        from = at + separator.text_.size();
      }
    }
    pieces.add(String(text_.substr(from)));
    return pieces;
  }
  Array<String> split(char separator) const { return split(String(std::string(1, separator))); }

  String& operator+=(String const& other) {
    text_ += other.text_;
    return *this;
  }
  friend String operator+(String const& a, String const& b) { return String(a.text_ + b.text_); }
  friend bool operator==(String const& a, String const& b) { return a.text_ == b.text_; }
  friend bool operator!=(String const& a, String const& b) { return a.text_ != b.text_; }
  friend bool operator<(String const& a, String const& b) { return a.text_ < b.text_; }
  friend std::ostream& operator<<(std::ostream& out, String const& s) { return out << s.text_; }

 private:
  std::string text_;
};

}  // namespace Velmor::API
