#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "velmorhost/settings.h"

namespace Velmor::Test {

/// Collects what the host reports while it lives, instead of having it printed.
class MessageLog {
 public:
  MessageLog() {
    Host::setMessageHandler([this](Host::Severity severity, std::string const& text) {
      std::lock_guard const lock(mutex_);
      messages_.emplace_back(severity, text);
    });
  }
  MessageLog(MessageLog const&) = delete;
  MessageLog& operator=(MessageLog const&) = delete;
  ~MessageLog() { Host::setMessageHandler(nullptr); }

  std::vector<std::string> texts(Host::Severity severity) const {
    std::lock_guard const lock(mutex_);
    std::vector<std::string> texts;
    for (auto const& [s, text] : messages_)
      if (s == severity) texts.push_back(text);
    return texts;
  }
  std::vector<std::string> errors() const { return texts(Host::Severity::Error); }
  std::vector<std::string> warnings() const { return texts(Host::Severity::Warning); }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<Host::Severity, std::string>> messages_;
};

}  // namespace Velmor::Test
