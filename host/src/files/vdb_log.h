#pragma once

#include <string>
#include <vector>

namespace Velmor::Host::Files {

/// Starts OpenVDB and takes over its log, which would print to standard output.
/// Safe to call often and from several threads.
void startVdb();

/// Collects what OpenVDB logs on this thread while it lives. Nothing of it is
/// printed; what it logs on other threads is dropped.
class VdbLog {
 public:
  VdbLog();
  VdbLog(VdbLog const&) = delete;
  VdbLog& operator=(VdbLog const&) = delete;
  ~VdbLog();
  std::vector<std::string> take();

 private:
  std::vector<std::string> lines_;
  std::vector<std::string>* previous_;
};

}  // namespace Velmor::Host::Files
