#pragma once

#include "velmorapi/array.h"
#include "velmorapi/export.h"
#include "velmorapi/math.h"
#include "velmorapi/string.h"

namespace Velmor::Processing {

/// A text that is written piece by piece. Copies share one text, and may be
/// destroyed on different threads; writing is not synchronised. If memory runs
/// out while a stream is made, it stays empty and takes nothing.
class VELMOR_EXPORT Stream {
 public:
  Stream();
  Stream(Stream const& other);
  Stream& operator=(Stream const& other);
  ~Stream();

  /// Appends to the text, numbers as a standard stream in the classic locale
  /// writes them (six significant digits), a box as "min=x y z max=x y z", a
  /// vector as its components between blanks.
  Stream& operator<<(char const* text);
  Stream& operator<<(API::String const& text);
  Stream& operator<<(std::string const& text);
  Stream& operator<<(char value);
  Stream& operator<<(int value);
  Stream& operator<<(unsigned int value);
  Stream& operator<<(long value);
  Stream& operator<<(unsigned long value);
  Stream& operator<<(float value);
  Stream& operator<<(double value);
  Stream& operator<<(orlen::Math::vec<2, float> const& value);
  Stream& operator<<(orlen::Math::vec<3, float> const& value);
  Stream& operator<<(orlen::Math::bbox<orlen::Math::vec<3, float>> const& value);

  /// The text so far.
  API::String str() const;

 private:
  class Impl;
  Impl* impl_ = nullptr;
};

/// The outcome of an operation of several steps: at most one error text and any
/// number of warnings. Assignment shares the messages; there is no copy
/// construction. Filled on one thread.
class VELMOR_EXPORT Status {
 public:
  Status();
  Status(Status const&) = delete;
  Status& operator=(Status const& other);
  ~Status();

  /// The one error text, to be appended to. A status is good until it holds a character.
  Stream& fail();
  /// A new warning text; the reference is good until the next `warn()`.
  Stream& warn();

  operator bool() const;
  API::String error() const;
  /// One text per `warn()`, in order, empty ones included.
  API::Array<API::String> warnings() const;

 private:
  class Impl;
  Impl* impl_ = nullptr;
};

}  // namespace Velmor::Processing
