#pragma once

#include <utility>

#include "velmorapi/export.h"
#include "velmorapi/string.h"

namespace Velmor::API {

/// The outcome of a host operation: success, or a failure with the host's own
/// words for it.
class VELMOR_EXPORT Status {
 public:
  Status() = default;
  static Status failure(String message) {
    Status status;
    status.failed_ = true;
    status.message_ = std::move(message);
    return status;
  }
  bool succeeded() const noexcept { return !failed_; }
  String const& message() const noexcept { return message_; }

 private:
  bool failed_ = false;
  String message_;
};

}  // namespace Velmor::API
