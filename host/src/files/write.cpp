#include <tbb/task_arena.h>

#include "files/output_file.h"
#include "files/vdb_write.h"
#include "velmorhost/files.h"
#include "velmorhost/settings.h"

namespace Velmor::Host {

API::Status writeObject(API::Object const& object, std::string const& path,
                        API::VRC::Compression compression) {
  if (!object.valid()) {
    return API::Status::failure("Could not write '" + path + "': there is no object");
  }
  std::string problem;
  try {
    tbb::task_arena arena(threadCount());
    problem = Files::writeFile(path, [&](std::ostream& out) {
      arena.execute([&] { Files::writeVdb(object, compression, out); });
    });
  } catch (std::exception const& error) {
    problem = error.what();
  }
  if (problem.empty()) return {};
  return API::Status::failure("Could not write '" + path + "': " + problem);
}

}  // namespace Velmor::Host
