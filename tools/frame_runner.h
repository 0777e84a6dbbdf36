#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "session.h"

namespace Velmor::Tool {

/// What became of one frame.
struct FrameOutcome {
  int frame = 0;
  bool skipped = false;
  std::string error;                  ///< empty if all went well
  ExitCode code = ExitCode::Success;  ///< of the error
  std::string line;                   ///< for people: what was made, without the frame's number
  Json report;  ///< for machines; the runner adds "frame", "state" and "seconds"
  double seconds = 0.;
};

/// How a sequence is worked through.
struct SequenceOptions {
  int jobs = 0;  ///< frames at the same time; 0: as many as threads, at most 4
  bool skipExisting = false;
};

/// Adds --jobs and --skip-existing to a verb.
void addSequence(CLI::App& verb, SequenceOptions& options);

/// Works on frames, several at a time, as far as memory allows: the first frame
/// runs alone and shows what a frame needs; another one starts only while all of
/// them together stay below three quarters of the memory that was free before.
///
/// `exists` says whether a frame's outputs are all there (asked only with
/// --skip-existing), `work` makes them and fills `line` and `report`; it is called
/// from several threads. A `Failure` that it throws ends its frame only: it is
/// printed, and listed by `finishSequence`. With a terminal a bar shows how far
/// the work is, else each finished frame has a line on standard error; neither
/// with --quiet. The outcomes are in the order of `frames`. Where `numbered` is
/// false the only frame stands for a file that has no number, and none is said.
std::vector<FrameOutcome> runFrames(Session& session, std::string const& label,
                                    std::vector<int> const& frames, SequenceOptions const& options,
                                    std::string const& subject,
                                    std::function<bool(int)> const& exists,
                                    std::function<void(FrameOutcome&)> const& work,
                                    bool numbered = true);

/// Adds the frames and their numbers to a report.
void reportFrames(std::vector<FrameOutcome> const& outcomes, Json& report);
/// "48 frames: 45 made, 2 skipped, 1 failed (7)".
std::string summaryOf(std::vector<FrameOutcome> const& outcomes);
/// Ends the verb with the code `Frames` if a frame failed.
void finishSequence(Session& session, std::vector<FrameOutcome> const& outcomes,
                    std::string const& subject);

}  // namespace Velmor::Tool
