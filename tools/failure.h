#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace Velmor::Tool {

/// What the command returns to the shell; `--help` lists them.
enum class ExitCode : int {
  Success = 0,
  Other = 1,   ///< anything that is none of the following
  Usage = 2,   ///< wrong usage
  Input = 3,   ///< input unreadable, or without what was asked for
  Open = 4,    ///< the mesh was written, but is not closed
  Output = 5,  ///< output not writable
  Frames = 6,  ///< frames of a sequence failed, one, some or all; the others were written
};

/// Ends a verb. Printed as "velmor: <subject>: <text>", where the subject is
/// the file or folder that the text is about; without one, "velmor: <text>".
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, std::string subject, std::string const& text)
      : std::runtime_error(text), code_(code), subject_(std::move(subject)) {}
  ExitCode code() const noexcept { return code_; }
  std::string const& subject() const noexcept { return subject_; }
  /// Subject and text as they are printed, without "velmor: ".
  std::string words() const { return (subject_.empty() ? "" : subject_ + ": ") + what(); }

 private:
  ExitCode code_;
  std::string subject_;
};

}  // namespace Velmor::Tool
