#include "files/temp_name.h"

#include <signal.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace Velmor::Host {

namespace {

namespace fs = std::filesystem;

std::string hex(std::uint64_t value) {
  std::array<char, 17> text{};
  auto const end = std::to_chars(text.data(), text.data() + text.size(), value, 16).ptr;
  return {text.data(), end};
}

/// This machine in eight hex digits at most: on a shared folder the processes
/// of others cannot be looked up.
std::string machine() {
  char name[256] = {};
  ::gethostname(name, sizeof name - 1);
  std::uint32_t hash = 2166136261u;
  for (char const* c = name; *c != 0; ++c) {
    hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619u;
  }
  return hex(hash);
}

std::uint64_t randomNumber() {
  std::uint64_t number = 0;
  if (::getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
    static std::uint64_t count = 0;
    number = ++count;
  }
  return number;
}

fs::path folderOf(std::string const& path) {
  auto const folder = fs::path(path).parent_path();
  return folder.empty() ? fs::path(".") : folder;
}

}  // namespace

std::string tempNameBeside(std::string const& path) {
  auto const name = std::string(tempPrefix) + machine() + "-" + std::to_string(::getpid()) + "-" +
                    hex(randomNumber());
  return (folderOf(path) / name).string();
}

void sweepTempFiles(std::string const& path) {
  auto const ours = std::string(tempPrefix) + machine() + "-";
  std::error_code error;
  for (fs::directory_iterator at(folderOf(path), error), end; !error && at != end;
       at.increment(error)) {
    auto const name = at->path().filename().string();
    if (!name.starts_with(ours)) continue;
    auto const* const first = name.data() + ours.size();
    pid_t process = 0;
    auto const [rest, problem] = std::from_chars(first, name.data() + name.size(), process);
    if (problem != std::errc() || process <= 0 || rest == name.data() + name.size() ||
        *rest != '-') {
      continue;
    }
    if (::kill(process, 0) == 0 || errno != ESRCH) continue;
    std::error_code ignored;
    fs::remove(at->path(), ignored);
  }
}

}  // namespace Velmor::Host
