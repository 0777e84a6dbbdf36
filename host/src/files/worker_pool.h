#pragma once

namespace Velmor::Host::Files {

/// Forks a worker for each request that arrives on a socket, until nobody can
/// send one any more, or none comes for `idleMilliseconds` while no worker is at
/// work. `work` runs in the worker, with the memory file as its
/// argument and with no other file open but the standard ones; what it returns
/// is the worker's exit code.
void serveRequests(int requests, int idleMilliseconds, int (*work)(int memory));

}  // namespace Velmor::Host::Files
