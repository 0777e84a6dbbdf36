#pragma once

#include <oneapi/tbb/global_control.h>

#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "failure.h"
#include "processing/status.h"

namespace Velmor::Tool {

/// Keeps the order in which fields are added.
using Json = nlohmann::ordered_json;

/// Options that every verb has.
struct CommonOptions {
  int threads = 0;  ///< 0: all cores allowed to the process
  bool quiet = false;
  bool json = false;
};

/// One run of a verb: its messages and its report. While it lives, the host's
/// messages come here and all work keeps to the number of threads asked for.
class Session {
 public:
  explicit Session(CommonOptions const& options);
  ~Session();
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;

  CommonOptions const& options() const noexcept { return options_; }

  /// "velmor: note: ..." on standard error; not with --quiet. Notes, warnings and
  /// the host's errors are each said once: loading may look at a file twice.
  void note(std::string const& text);
  /// "velmor: warning: ..." on standard error; not with --quiet. The report
  /// holds all warnings under "warnings", and the host's errors.
  void warn(std::string const& text);
  /// Prints an error without ending the verb; `run` of the command then returns
  /// its code unless something worse comes.
  void error(Failure const& failure);
  /// The same for an error that has been printed already: its code and its words.
  void fail(ExitCode code, std::string const& words);
  /// Prints the error that ended the verb, and with --json a document that holds
  /// it unless the report has been printed. Throws nothing.
  void end(Failure const& failure) noexcept;
  /// Passes a status on: warnings as warnings, an error as a `Failure` with its
  /// text word for word. Warnings and the error are about `subject`.
  void check(Processing::Status const& status, std::string const& subject,
             ExitCode code = ExitCode::Input);

  /// Reports go to standard error from now on, because data goes to standard output.
  void reportToStandardError() noexcept { reportToError_ = true; }
  /// Prints the verb's report: `document` with --json, else `text` unless
  /// --quiet. The document gets the first error so far under "error" and the
  /// warnings. Throws `Failure` where it cannot be written.
  void report(Json document, std::string const& text);

  /// The code of the errors so far.
  ExitCode code() const noexcept { return code_; }

 private:
  void hostError(std::string const& text);
  void write(std::string const& text);
  bool firstTime(std::string const& text) { return said_.insert(text).second; }

  CommonOptions options_;
  std::mutex mutex_;  // the host may report from any thread
  std::vector<std::string> warnings_;
  std::set<std::string> said_;
  std::string firstError_;
  bool reportToError_ = false, reported_ = false;
  ExitCode code_ = ExitCode::Success;
  std::optional<tbb::global_control> threads_;
};

/// Prints a failure on standard error.
void print(Failure const& failure);

/// What a failure's document holds: "state" and "error", named as those of a frame
/// that failed, and "warnings".
Json failureDocument(Failure const& failure, std::vector<std::string> const& warnings);
/// A document as it is printed.
std::string printed(Json const& document);

/// The exception that is being handled. What is no `Failure` becomes one of code
/// `Other` about `subject`.
Failure currentFailure(std::string const& subject);

}  // namespace Velmor::Tool
