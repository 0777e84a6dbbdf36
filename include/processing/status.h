#pragma once

#include <cstddef>
#include <string>

#include "velmorapi/array.h"
#include "velmorapi/export.h"
#include "velmorapi/math.h"
#include "velmorapi/string.h"

namespace Velmor::Processing {

/// A text that is written piece by piece.
///
/// Copies and assigned streams share one text: what is written to either is
/// read from both. They may be destroyed in any order and on different threads;
/// writing and reading are not synchronised. Nothing throws: if memory runs out
/// while a stream is made it stays empty and takes nothing, and if it runs out
/// later the text ends there.
class VELMOR_EXPORT Stream {
 public:
  Stream();
  Stream(Stream const& other);
  Stream& operator=(Stream const& other);
  ~Stream();

  /// Appends to the text: texts and characters as they are, a null text as
  /// nothing, numbers as a standard stream writes them by default (integers in
  /// decimal, floats with six significant digits) whatever the global locale, a
  /// vector as its components separated by blanks, a box as
  /// "min=x y z max=x y z".
  Stream& operator<<(char const* text);
  Stream& operator<<(API::String const& text);
  Stream& operator<<(std::string const& text);
  Stream& operator<<(char value);
  Stream& operator<<(int value);
  Stream& operator<<(unsigned int value);
  Stream& operator<<(long value);
  Stream& operator<<(unsigned long value);
  Stream& operator<<(long long value);
  Stream& operator<<(unsigned long long value);
  Stream& operator<<(float value);
  Stream& operator<<(double value);
  Stream& operator<<(orlen::Math::vec<2, float> const& value);
  Stream& operator<<(orlen::Math::vec<3, float> const& value);
  Stream& operator<<(orlen::Math::bbox<orlen::Math::vec<3, float>> const& value);

  /// The text so far; empty if there is no memory for it.
  API::String str() const;

 private:
  friend class Status;
  class VELMOR_LOCAL Impl;
  explicit Stream(std::nullptr_t) noexcept : impl_(nullptr) {}

  Impl* impl_;
};

/// The outcome of an operation of several steps: at most one error text and any
/// number of warnings.
///
/// Assignment makes both statuses handles to the messages of the assigned one;
/// there is no copy construction. The messages live as long as a handle. A
/// status is not synchronised: one operation fills it on one thread. Nothing
/// throws; without memory messages are lost and the status stays good.
class VELMOR_EXPORT Status {
 public:
  Status();
  Status(Status const&) = delete;
  Status& operator=(Status const& other);
  ~Status();

  /// The one error text, to be appended to; the same stream at every call.
  Stream& fail();
  /// A new, empty warning text. Rely on the reference until the next `warn()` only.
  Stream& warn();

  /// Good until the error text holds a character: `fail()` alone and warnings
  /// do not count.
  operator bool() const;
  /// The error text so far.
  API::String error() const;
  /// One text per `warn()`, in order, empty ones included.
  API::Array<API::String> warnings() const;

 private:
  class VELMOR_LOCAL Impl;
  Impl* impl_;
};

}  // namespace Velmor::Processing
