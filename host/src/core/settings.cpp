#include "velmorhost/settings.h"

#include <tbb/info.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <iostream>
#include <mutex>

namespace Velmor::Host {

namespace {

constexpr std::size_t callCount = static_cast<std::size_t>(Call::Traverse) + 1;

struct Failures {
  std::int64_t skip = 0;
  std::int64_t count = 0;
};

struct Settings {
  std::mutex mutex;
  LayoutSettings layout;
  std::array<Failures, callCount> failures;
  std::atomic<bool> anyFailure = false;  // keeps the usual case free of the lock
  std::atomic<int> threads = 0;
  std::recursive_mutex messageMutex;  // what a handler calls may report in turn
  MessageHandler handler;
};

// Never destroyed: handles that live in static storage may outlast it otherwise.
Settings& settings() {
  static auto& instance = *new Settings;
  return instance;
}

void print(Severity severity, std::string const& text) {
  if (severity == Severity::Note) return;
  std::string line = severity == Severity::Warning ? "warning: " : "error: ";
  line += text;
  line += '\n';
  std::cerr << line << std::flush;
}

}  // namespace

void setLayoutSettings(LayoutSettings const& layout) {
  std::lock_guard const lock(settings().mutex);
  settings().layout = layout;
  settings().layout.depth = std::clamp(layout.depth, 1, 7);
}

LayoutSettings layoutSettings() {
  std::lock_guard const lock(settings().mutex);
  return settings().layout;
}

void setThreadCount(int count) { settings().threads = std::max(count, 0); }

int threadCount() {
  int const count = settings().threads;
  return count > 0 ? count : std::max(tbb::info::default_concurrency(), 1);
}

void failCalls(Call call, int count, int skip) {
  auto const index = static_cast<std::size_t>(call);
  if (index >= callCount) return;
  std::lock_guard const lock(settings().mutex);
  settings().failures[index] = {std::max(skip, 0), std::max(count, 0)};
  settings().anyFailure = true;
}

void clearFailures() {
  std::lock_guard const lock(settings().mutex);
  settings().failures = {};
  settings().anyFailure = false;
}

bool mustFail(Call call) {
  auto const index = static_cast<std::size_t>(call);
  if (!settings().anyFailure || index >= callCount) return false;
  std::lock_guard const lock(settings().mutex);
  auto& failures = settings().failures[index];
  if (failures.count == 0) return false;
  if (failures.skip > 0) {
    --failures.skip;
    return false;
  }
  --failures.count;
  return true;
}

void setMessageHandler(MessageHandler handler) {
  std::lock_guard const lock(settings().messageMutex);
  settings().handler = std::move(handler);
}

void report(Severity severity, std::string const& text) {
  std::lock_guard const lock(settings().messageMutex);
  if (auto const handler = settings().handler) {  // a copy: it may replace itself
    handler(severity, text);
  } else {
    print(severity, text);
  }
}

}  // namespace Velmor::Host
