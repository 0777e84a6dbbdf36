#pragma once

#include <array>

namespace Velmor::Host::Files {

/// The open files that go with a request; -1 for one that did not arrive.
using Descriptors = std::array<int, 4>;

/// Hands open files to the process at the other end of a packet socket; false
/// if there is none any more.
bool sendDescriptors(int socket, Descriptors const& files);

/// Waits for open files; false if nobody can send any more. They are the caller's
/// to close, and are closed where another program is executed.
bool receiveDescriptors(int socket, Descriptors& files);

}  // namespace Velmor::Host::Files
