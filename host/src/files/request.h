#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "files/tree_shape.h"
#include "velmorhost/files.h"

namespace Velmor::Host::Files {

/// All that the decoding side needs to know about a load.
struct ReadRequest {
  std::string path;
  std::vector<std::string> channels;  ///< empty: all
  bool clip = false;
  float clipMin[3] = {0, 0, 0}, clipMax[3] = {0, 0, 0};  ///< cache world units
  bool points = true, voxels = true;
  DistanceMode distance = DistanceMode::Keep;
  std::string distanceChannel, messagesAbout;
  std::uint64_t memoryLimit = 0;
  std::int32_t threads = 1;
  TreeShape shape;
};

/// A request as bytes, for the helper, and back; false if they are damaged.
std::string pack(ReadRequest const& request);
bool unpack(std::string_view bytes, ReadRequest& request);

/// What a request needs that does not fit into its memory, for a message.
std::string tooMuch(ReadRequest const& request);

}  // namespace Velmor::Host::Files
