#include "tools/run.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace Velmor::Test {

namespace {

// Output goes into memory files: no pipe can fill up.
class Captured {
 public:
  Captured() : file_(memfd_create("captured", MFD_CLOEXEC)) {}
  ~Captured() { close(file_); }
  Captured(Captured const&) = delete;
  Captured& operator=(Captured const&) = delete;
  int file() const { return file_; }
  std::string text() const {
    std::string all;
    char part[4096];
    lseek(file_, 0, SEEK_SET);
    for (ssize_t n; (n = read(file_, part, sizeof part)) > 0;) {
      all.append(part, static_cast<std::size_t>(n));
    }
    return all;
  }

 private:
  int file_;
};

pid_t start(std::vector<std::string> const& arguments, RunOptions const& options, int out,
            int err) {
  std::vector<char*> argv;
  std::string program = VELMOR_COMMAND;
  argv.push_back(program.data());
  auto copies = arguments;
  for (auto& argument : copies) argv.push_back(argument.data());
  argv.push_back(nullptr);
  auto const child = fork();
  if (child != 0) return child;
  // Between fork and exec only calls that are safe there.
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  if (options.fileSizeLimit) {
    rlimit const limit{*options.fileSizeLimit, *options.fileSizeLimit};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  if (options.user && (setgid(*options.user) != 0 || setuid(*options.user) != 0)) _exit(126);
  execv(program.c_str(), argv.data());
  _exit(127);
}

}  // namespace

Run runCommand(std::vector<std::string> const& arguments, RunOptions const& options) {
  Captured const out, err;
  int output = out.file();
  if (!options.standardOutput.empty()) {
    output = open(options.standardOutput.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  }
  auto const child = start(arguments, options, output, err.file());
  if (output != out.file()) close(output);
  auto const end =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
  int state = 0;
  rusage used{};
  while (wait4(child, &state, WNOHANG, &used) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      kill(child, SIGKILL);
      waitpid(child, &state, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  Run run;
  if (WIFEXITED(state)) run.exit = WEXITSTATUS(state);
  if (WIFSIGNALED(state)) run.signal = WTERMSIG(state);
  run.peakMemory = static_cast<std::size_t>(used.ru_maxrss) * 1024;
  run.out = out.text();
  run.err = err.text();
  return run;
}

bool killCommandWhen(std::vector<std::string> const& arguments, std::function<bool()> const& when,
                     int signal) {
  Captured const out, err;
  auto const child = start(arguments, {}, out.file(), err.file());
  int state = 0;
  while (waitpid(child, &state, WNOHANG) == 0) {
    if (!when()) continue;
    kill(child, signal);
    waitpid(child, &state, 0);
    break;
  }
  return WIFSIGNALED(state) && WTERMSIG(state) == signal;
}

std::string readFile(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(std::string const& path, std::string const& content) {
  std::ofstream file(path, std::ios::binary);
  file << content;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

std::vector<std::string> namesIn(std::string const& folder) {
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace Velmor::Test
