#include "files/descriptor_message.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace Velmor::Host::Files {

namespace {

/// A message of one byte, since open files cannot travel alone.
struct Message {
  char byte = 0;
  iovec part{&byte, 1};
  alignas(cmsghdr) std::byte control[CMSG_SPACE(sizeof(Descriptors))] = {};
  msghdr head{};

  Message() {
    head.msg_iov = &part;
    head.msg_iovlen = 1;
    head.msg_control = control;
    head.msg_controllen = sizeof control;
  }
  Message(Message const&) = delete;
  Message& operator=(Message const&) = delete;
};

}  // namespace

bool sendDescriptors(int socket, Descriptors const& files) {
  Message message;
  auto* const control = CMSG_FIRSTHDR(&message.head);
  control->cmsg_level = SOL_SOCKET;
  control->cmsg_type = SCM_RIGHTS;
  control->cmsg_len = CMSG_LEN(sizeof files);
  std::memcpy(CMSG_DATA(control), files.data(), sizeof files);
  for (;;) {
    if (::sendmsg(socket, &message.head, MSG_NOSIGNAL) == 1) return true;
    if (errno != EINTR) return false;
  }
}

bool receiveDescriptors(int socket, Descriptors& files) {
  Message message;
  files.fill(-1);
  for (;;) {
    auto const got = ::recvmsg(socket, &message.head, MSG_CMSG_CLOEXEC);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    auto const* const control = CMSG_FIRSTHDR(&message.head);
    if (control != nullptr && control->cmsg_type == SCM_RIGHTS) {
      // Fewer may arrive where this process has too many files open.
      std::memcpy(files.data(), CMSG_DATA(control), control->cmsg_len - CMSG_LEN(0));
    }
    return true;
  }
}

}  // namespace Velmor::Host::Files
