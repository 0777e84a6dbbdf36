#include <cstdint>

#include "input.h"
#include "readers/particles.h"
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
    if constexpr (std::is_arithmetic_v<T>) {
      values.push_back(static_cast<double>(data[n]));
    } else {
      for (int c = 0; c < T::size; ++c) values.push_back(static_cast<double>(data[n][c]));
    }
  }
}

Particles::Attribute attributeOf(API::PointChannel const& channel, std::size_t count) {
  using orlen::Math::vec;
  Particles::Attribute attribute;
  attribute.name = channel.name().str();
  switch (channel.dataType()) {
    case API::DataType::Float:
      append<float>(channel, count, attribute.values);
      break;
    case API::DataType::Float2:
      append<vec<2, float>>(channel, count, attribute.values);
      attribute.components = 2;
      break;
    case API::DataType::Float3:
      append<vec<3, float>>(channel, count, attribute.values);
      attribute.components = 3;
      break;
    case API::DataType::Int:
      append<int>(channel, count, attribute.values);
      attribute.integer = true;
      break;
    case API::DataType::Int2:
      append<vec<2, int>>(channel, count, attribute.values);
      attribute.components = 2;
      attribute.integer = true;
      break;
    case API::DataType::Int3:
      append<vec<3, int>>(channel, count, attribute.values);
      attribute.components = 3;
      attribute.integer = true;
      break;
    case API::DataType::None:
      break;
  }
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
