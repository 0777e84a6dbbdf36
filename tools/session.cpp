#include "session.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

#include "velmorhost/settings.h"

namespace Velmor::Tool {

namespace {

// One write per message, so that lines of several processes do not mix.
void say(std::string const& text) {
  auto const line = text + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

void print(Failure const& failure) { say("velmor: " + failure.words()); }

Json failureDocument(Failure const& failure, std::vector<std::string> const& warnings) {
  return {{"state", "failed"}, {"error", failure.words()}, {"warnings", warnings}};
}

std::string printed(Json const& document) {
  // File names are bytes; what is no UTF-8 must not spoil the document.
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Failure currentFailure(std::string const& subject) {
  try {
    throw;
  } catch (Failure const& e) {
    return e;
  } catch (std::bad_alloc const&) {
    return Failure(ExitCode::Other, subject, "not enough memory");
  } catch (std::exception const& e) {
    return Failure(ExitCode::Other, subject, e.what());
  }
}

Session::Session(CommonOptions const& options) : options_(options) {
  Host::setThreadCount(options.threads);
  if (options.threads > 0) {
    threads_.emplace(tbb::global_control::max_allowed_parallelism,
                     static_cast<std::size_t>(options.threads));
  }
  Host::setMessageHandler([this](Host::Severity severity, std::string const& text) {
    switch (severity) {
      case Host::Severity::Note:
        note(text);
        break;
      case Host::Severity::Warning:
        warn(text);
        break;
      case Host::Severity::Error:
        hostError(text);
        break;
    }
  });
}

Session::~Session() { Host::setMessageHandler(nullptr); }

void Session::note(std::string const& text) {
  std::lock_guard const lock(mutex_);
  if (!options_.quiet && firstTime(text)) say("velmor: note: " + text);
}

void Session::hostError(std::string const& text) {
  std::lock_guard const lock(mutex_);
  // The error that ends the verb may say less than this.
  if (std::find(warnings_.begin(), warnings_.end(), text) == warnings_.end()) {
    warnings_.push_back(text);
  }
  if (firstTime(text)) say("velmor: " + text);
}

void Session::warn(std::string const& text) {
  std::lock_guard const lock(mutex_);
  if (std::find(warnings_.begin(), warnings_.end(), text) == warnings_.end()) {
    warnings_.push_back(text);
  }
  // What was not said may have to be said as an error yet.
  if (!options_.quiet && firstTime(text)) say("velmor: warning: " + text);
}

void Session::error(Failure const& failure) {
  print(failure);
  fail(failure.code(), failure.words());
}

void Session::fail(ExitCode code, std::string const& words) {
  if (code_ == ExitCode::Success) code_ = code;
  if (firstError_.empty()) firstError_ = words;
}

void Session::end(Failure const& failure) noexcept {
  try {
    print(failure);
    if (options_.json && !reported_) write(printed(failureDocument(failure, warnings_)));
  } catch (...) {
    // The exit code says so, whatever became of the words.
  }
}

void Session::check(Processing::Status const& status, std::string const& subject, ExitCode code) {
  for (auto const& text : status.warnings()) warn(subject + ": " + text.str());
  if (!status) throw Failure(code, subject, status.error().str());
}

void Session::report(Json document, std::string const& text) {
  reported_ = true;
  std::string out;
  if (options_.json) {
    if (!firstError_.empty()) document["error"] = firstError_;
    document["warnings"] = warnings_;
    out = printed(document);
  } else if (!options_.quiet) {
    out = text;
  }
  write(out);
}

void Session::write(std::string const& out) {
  auto* const stream = reportToError_ ? stderr : stdout;
  if (std::fwrite(out.data(), 1, out.size(), stream) != out.size() || std::fflush(stream) != 0) {
    throw Failure(ExitCode::Output, reportToError_ ? "standard error" : "standard output",
                  std::strerror(errno));
  }
}

}  // namespace Velmor::Tool
