#pragma once

#include <sys/types.h>

#include <csignal>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Velmor::Test {

/// What became of a run of the command.
struct Run {
  int exit = -1;   ///< its exit code, -1 if a signal ended it
  int signal = 0;  ///< that signal; SIGKILL where it took longer than the limit
  std::string out, err;
  std::size_t peakMemory = 0;  ///< bytes that it held at most
};

struct RunOptions {
  std::optional<std::size_t> fileSizeLimit{};  ///< bytes that a file may have: a full disk
  std::optional<uid_t> user{};                 ///< run as this one; only root may
  std::string standardOutput{};                ///< a file to write it into, not captured then
  double seconds = 120;
};

/// Runs the built command with these arguments and waits for it.
Run runCommand(std::vector<std::string> const& arguments, RunOptions const& options = {});

/// Starts the command and sends it a signal once `when` is true. Returns whether
/// that ended it.
bool killCommandWhen(std::vector<std::string> const& arguments, std::function<bool()> const& when,
                     int signal = SIGKILL);

/// The whole content of a file.
std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& content);
/// The names in a folder, hidden ones included, sorted.
std::vector<std::string> namesIn(std::string const& folder);

}  // namespace Velmor::Test
