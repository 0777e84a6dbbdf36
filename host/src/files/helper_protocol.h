#pragma once

/// What the library and its helper program agree on. The helper is started once,
/// with the process number of its parent as its only argument and a packet socket
/// as descriptor 3. It forks a worker for each message on the socket, because
/// loading its libraries takes longer than reading a small file, and ends when none
/// came for a while. With the message come a memory file with the packed request,
/// which the worker fills with the image; a pipe for what it prints; the folder
/// that relative paths start from; and a packet socket on which the helper reports
/// the worker's end, as `waitpid` tells it. A worker whose report nobody waits for
/// any more is killed.
namespace Velmor::Host::Files::Helper {

inline constexpr char const* program = "velmor-vdb-reader";
inline constexpr int requests = 3;

/// Which of the descriptors of a message is which.
enum Part { Memory, Output, Folder, Report };

// Exit codes.
inline constexpr int done = 0;          ///< the image is complete, though it may tell of a failure
inline constexpr int badRequest = 64;   ///< started by hand, or by another version
inline constexpr int outOfMemory = 65;  ///< not even room for the failure

}  // namespace Velmor::Host::Files::Helper
