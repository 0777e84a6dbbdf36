#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace Velmor::Test {

/// Runs a check in a child process without root's rights. Empty if it held.
inline std::string withoutRights(std::function<std::string()> const& check) {
  int ends[2];
  if (::pipe(ends) != 0) return "no pipe";
  ::pid_t const child = ::fork();
  if (child == 0) {
    std::string text = "cannot become another user";
    if (::getuid() != 0 || (::setgid(65534) == 0 && ::setuid(65534) == 0)) text = check();
    auto const written = ::write(ends[1], text.data(), text.size());
    ::_exit(written == static_cast<::ssize_t>(text.size()) ? 0 : 1);
  }
  ::close(ends[1]);
  std::string text;
  char buffer[512];
  for (::ssize_t n = 0; (n = ::read(ends[0], buffer, sizeof(buffer))) > 0;)
    text.append(buffer, static_cast<std::size_t>(n));
  ::close(ends[0]);
  int state = 0;
  ::waitpid(child, &state, 0);
  return WIFEXITED(state) && WEXITSTATUS(state) == 0 ? text : "the child died: " + text;
}

}  // namespace Velmor::Test
