#include "frame_runner.h"

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <limits>
#include <locale>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

#include "names.h"
#include "progress.h"
#include "stopwatch.h"
#include "velmorhost/settings.h"

namespace Velmor::Tool {

namespace {

// A value of /proc in bytes, such as "VmHWM:" of a process; 0 if there is none.
double memoryOf(char const* file, std::string const& key) {
  std::ifstream in(file);
  for (std::string word; in >> word;) {
    double kilobytes = 0.;
    if (word == key && in >> kilobytes) return kilobytes * 1024.;
  }
  return 0.;
}

// What the process may still take before it starts to hurt.
double freeMemory() {
  double room = memoryOf("/proc/meminfo", "MemAvailable:");
  if (room == 0.) return std::numeric_limits<double>::infinity();
  double limit = 0., used = 0.;
  std::ifstream most("/sys/fs/cgroup/memory.max"), now("/sys/fs/cgroup/memory.current");
  if (most >> limit && now >> used) room = std::min(room, limit - used);
  return room;
}

class Runner {
 public:
  Runner(Session& session, std::string const& label, std::vector<int> const& frames,
         SequenceOptions const& options, std::string const& subject,
         std::function<bool(int)> const& exists, std::function<void(FrameOutcome&)> const& work,
         bool numbered)
      : options_(options),
        subject_(subject),
        exists_(exists),
        work_(work),
        outcomes_(frames.size()),
        progress_(session, label),
        lines_(!session.options().quiet && isatty(STDERR_FILENO) == 0),
        numbered_(numbered) {
    for (std::size_t f = 0; f < frames.size(); ++f) outcomes_[f].frame = frames[f];
  }

  std::vector<FrameOutcome> run() {
    auto const base = memoryOf("/proc/self/status", "VmRSS:");
    limit_ = base + 0.75 * freeMemory();
    base_ = base;
    std::size_t next = 0;
    // Alone, until one has been made: it shows what frames need.
    while (next < outcomes_.size() && need_ == 0.) {
      bool const made = runOne(outcomes_[next++]);
      if (made) need_ = std::max(1., memoryOf("/proc/self/status", "VmHWM:") - base_);
    }
    auto const threads = std::max(1, Host::threadCount());
    auto const jobs = std::min<std::size_t>(
        outcomes_.size() - next,
        static_cast<std::size_t>(options_.jobs > 0 ? options_.jobs : std::min(threads, 4)));
    next_ = next;
    std::vector<std::thread> workers;
    for (std::size_t j = 1; j < jobs; ++j) workers.emplace_back([this] { takeFrames(); });
    takeFrames();
    for (auto& worker : workers) worker.join();
    return std::move(outcomes_);
  }

 private:
  void takeFrames() {
    for (;;) {
      std::unique_lock lock(mutex_);
      room_.wait(lock, [this] {
        return next_ == outcomes_.size() || running_ == 0 ||
               base_ + need_ * static_cast<double>(running_ + 1) <= limit_;
      });
      if (next_ == outcomes_.size()) return;
      auto& outcome = outcomes_[next_++];
      ++running_;
      lock.unlock();
      runOne(outcome);
      lock.lock();
      --running_;
      // The peak of all of them together, shared out, is what one needs at most.
      need_ = std::max(need_, (memoryOf("/proc/self/status", "VmHWM:") - base_) /
                                  static_cast<double>(running_ + 1));
      lock.unlock();
      room_.notify_all();
    }
  }

  // Whether the frame was made.
  bool runOne(FrameOutcome& outcome) {
    Stopwatch watch;
    std::optional<Failure> failure;
    try {
      outcome.skipped = options_.skipExisting && exists_(outcome.frame);
      if (!outcome.skipped) work_(outcome);
    } catch (...) {
      failure.emplace(currentFailure(subject_));
    }
    outcome.seconds = watch.lap();
    if (failure) {
      outcome.error = failure->words();
      outcome.code = failure->code();
      outcome.report = Json();
    }
    std::lock_guard const lock(mutex_);
    progress_.clear();
    auto const frame = numbered_ ? "frame " + std::to_string(outcome.frame) + ": " : "";
    if (failure) {
      print(Failure(failure->code(), failure->subject(), frame + failure->what()));
    } else if (lines_) {
      std::ostringstream text;
      text.imbue(std::locale::classic());
      text << frame;
      if (outcome.skipped) {
        text << "exists already\n";
      } else {
        text << outcome.line << std::fixed << std::setprecision(2) << ", " << outcome.seconds
             << " s\n";
      }
      std::fputs(text.str().c_str(), stderr);
    }
    progress_.show(static_cast<double>(++done_) / static_cast<double>(outcomes_.size()));
    return !failure && !outcome.skipped;
  }

  SequenceOptions const& options_;
  std::string const& subject_;
  std::function<bool(int)> const& exists_;
  std::function<void(FrameOutcome&)> const& work_;
  std::vector<FrameOutcome> outcomes_;
  Progress progress_;
  bool lines_, numbered_;

  std::mutex mutex_;
  std::condition_variable room_;
  std::size_t next_ = 0, running_ = 0, done_ = 0;
  double base_ = 0., need_ = 0., limit_ = 0.;  // bytes
};

}  // namespace

void addSequence(CLI::App& verb, SequenceOptions& options) {
  verb.add_option("--jobs", options.jobs,
                  "Frames at the same time, as far as memory allows; if left out one per thread, "
                  "at most 4")
      ->check(CLI::Range(1, 1024))
      ->type_name("N");
  verb.add_flag("--skip-existing", options.skipExisting, "Leave frames alone whose outputs exist");
}

std::vector<FrameOutcome> runFrames(Session& session, std::string const& label,
                                    std::vector<int> const& frames, SequenceOptions const& options,
                                    std::string const& subject,
                                    std::function<bool(int)> const& exists,
                                    std::function<void(FrameOutcome&)> const& work, bool numbered) {
  return Runner(session, label, frames, options, subject, exists, work, numbered).run();
}

namespace {

std::vector<int> failedFrames(std::vector<FrameOutcome> const& outcomes) {
  std::vector<int> failed;
  for (auto const& outcome : outcomes) {
    if (!outcome.error.empty()) failed.push_back(outcome.frame);
  }
  std::sort(failed.begin(), failed.end());
  return failed;
}

}  // namespace

void reportFrames(std::vector<FrameOutcome> const& outcomes, Json& report) {
  auto& list = report["frames"] = Json::array();
  for (auto const& outcome : outcomes) {
    Json frame;
    frame["frame"] = outcome.frame;
    frame["state"] = outcome.skipped ? "skipped" : outcome.error.empty() ? "made" : "failed";
    if (!outcome.error.empty()) frame["error"] = outcome.error;
    if (outcome.report.is_object()) frame.update(outcome.report);
    frame["seconds"] = outcome.seconds;
    list.push_back(std::move(frame));
  }
  report["failed_frames"] = failedFrames(outcomes);
}

std::string summaryOf(std::vector<FrameOutcome> const& outcomes) {
  auto const failed = failedFrames(outcomes);
  auto const skipped = static_cast<std::size_t>(std::count_if(
      outcomes.begin(), outcomes.end(), [](FrameOutcome const& o) { return o.skipped; }));
  std::string text = std::to_string(outcomes.size()) +
                     (outcomes.size() == 1 ? " frame: " : " frames: ") +
                     std::to_string(outcomes.size() - skipped - failed.size()) + " made";
  if (skipped > 0) text += ", " + std::to_string(skipped) + " skipped";
  if (!failed.empty()) {
    text += ", " + std::to_string(failed.size()) + " failed (" + frameList(failed) + ")";
  }
  return text;
}

void finishSequence(Session& session, std::vector<FrameOutcome> const& outcomes,
                    std::string const& subject) {
  auto const failed = failedFrames(outcomes);
  if (failed.empty()) return;
  session.error(Failure(ExitCode::Frames, subject,
                        std::to_string(failed.size()) + " of " + std::to_string(outcomes.size()) +
                            " frames failed: " + frameList(failed)));
}

}  // namespace Velmor::Tool
