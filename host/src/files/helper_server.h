#pragma once

#include <sys/types.h>

#include <mutex>
#include <string>

#include "files/descriptor_message.h"

namespace Velmor::Host::Files {

/// The helper program: started when it is first needed, and again when it is gone
/// or this process has become another user's. It ends with this process, which
/// waits for it: nothing is left behind where nobody takes in orphans. Any number
/// of threads.
class HelperServer {
 public:
  static HelperServer& instance();
  HelperServer() = default;
  HelperServer(HelperServer const&) = delete;
  HelperServer& operator=(HelperServer const&) = delete;
  ~HelperServer();

  /// Hands it a request; empty, or why that is not possible.
  std::string send(Descriptors const& request);

  /// Of a helper that took a request and gave no answer: what became of it.
  std::string end();

 private:
  std::string start();
  void stop() noexcept;

  std::mutex mutex_;
  int requests_ = -1;
  int server_ = -1;  // its process descriptor: a number may by now be somebody else's
  pid_t owner_ = 0;  // whose child it is; copies of this process only use it
  uid_t user_ = 0;
};

/// The helper program beside the library or where installations put it; empty
/// if it is nowhere.
std::string findHelper();

}  // namespace Velmor::Host::Files
