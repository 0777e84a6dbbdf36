#pragma once

#include <sys/types.h>

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
};

struct RunOptions {
  std::optional<std::size_t> fileSizeLimit{};  ///< bytes that a file may have: a full disk
  std::optional<uid_t> user{};                 ///< run as this one; only root may
  std::string standardOutput{};                ///< a file to write it into, not captured then
  double seconds = 120;
};

/// Runs the built command with these arguments and waits for it.
Run runCommand(std::vector<std::string> const& arguments, RunOptions const& options = {});

/// Starts the command and kills it (not to be caught) once `when` is true.
/// Returns false if it ended before.
bool killCommandWhen(std::vector<std::string> const& arguments, std::function<bool()> const& when);

/// The whole content of a file.
std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& content);
/// The names in a folder, hidden ones included, sorted.
std::vector<std::string> namesIn(std::string const& folder);

}  // namespace Velmor::Test
