#include <cstdint>

#include "input.h"
#include "readers/particles.h"
#include "value_types.h"
#include "velmorapi/state_server.h"
#include "velmorhost/files.h"
#include "velmorhost/scene.h"

namespace Velmor::Tool {

namespace {

template <class T>
void append(API::PointChannel const& channel, std::size_t count, std::vector<double>& values) {
  auto const* const data = Host::pointData<T>(channel);
  if (data == nullptr) return;
  for (std::size_t n = 0; n < count; ++n) {
    for (int c = 0; c < Components<T>::count; ++c) {
      values.push_back(static_cast<double>(Components<T>::at(data[n], c)));
    }
  }
}

Particles::Attribute attributeOf(API::PointChannel const& channel, std::size_t count) {
  Particles::Attribute attribute;
  attribute.name = channel.name().str();
  attribute.integer = isInteger(channel.dataType());
  byType(channel.dataType(), [&](auto value) {
    attribute.components = Components<decltype(value)>::count;
    append<decltype(value)>(channel, count, attribute.values);
  });
  return attribute;
}

}  // namespace

Particles readVdbPoints(std::string const& path) {
  API::Runtime::CacheResource::LoadOptions load;
  load.voxels = false;
  API::Ref serverRef;
  auto const status = Host::readObject(path, "particles", load, Host::readOptions(), serverRef);
  if (!status.succeeded()) throw Failure(ExitCode::Input, path, status.message().str());
  API::StateServer const server(serverRef);
  API::Object const object(server.findObject("particles"));
  Particles particles;
  bool found = false;
  for (auto const& component : object.components()) {
    API::PointComponent const points{API::Ref(component)};
    if (!points.valid()) continue;
    if (found) {
      particles.skipped.push_back("points '" + points.name().str() + "': only the first are taken");
      continue;
    }
    found = true;
    auto const count = points.elementCount();
    auto const scale = static_cast<double>(API::Layout(points.layout()).voxelScale());
    auto const shift = origin(points);
    API::PointChannel const position(points.findChannel("position"));
    append<orlen::Math::vec<3, float>>(position, count, particles.positions);
    for (std::size_t n = 0; n < particles.positions.size(); ++n) {
      particles.positions[n] = particles.positions[n] * scale + shift[n % 3];
    }
    if (count == 0) continue;
    for (auto const& channel : points.channels()) {
      if (channel.name() == "position") continue;
      particles.attributes.push_back(attributeOf(API::PointChannel(API::Ref(channel)), count));
    }
  }
  if (!found) {
    throw Failure(ExitCode::Input, path, "holds grids of voxels, but no points");
  }
  return particles;
}

}  // namespace Velmor::Tool
