#include "velmorapi/level_set.h"

#include "velmorhost/settings.h"

namespace Velmor::API {

Status createLevelSet(LevelSetOptions const&, PointComponent const&, Array<String> const&,
                      VoxelComponent const&, String const&, VoxelComponent const&,
                      Array<String> const&) {
  if (Host::mustFail(Host::Call::CreateLevelSet)) {
    return Status::failure("level set creation failed on request");
  }
  return Status::failure("not available");
}

}  // namespace Velmor::API
