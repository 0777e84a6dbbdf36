#include "tools/level_sets.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>

#include "mesh.h"
#include "processing/mesher.h"
#include "surface_input.h"
#include "velmorhost/scene.h"

namespace Velmor::Test {

namespace {

using Float3 = orlen::Math::vec<3, float>;

std::vector<std::string> levelSetNames(API::Object const& object) {
  std::vector<std::string> names;
  for (auto const& component : object.components()) {
    API::VoxelComponent const voxels = component;
    for (auto const& channel : voxels.channels()) {
      if (channel.dataType() == API::DataType::Float &&
          Host::fieldClass(channel) == Host::FieldClass::LevelSet) {
        names.push_back(voxels.name().str() + "/" + channel.name().str());
      }
    }
  }
  return names;
}

bool finite(Float3 const& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

std::size_t duplicatesIn(API::Array<Float3> const& points) {
  std::vector<std::array<float, 3>> sorted;
  for (auto const& p : points) sorted.push_back({p.x, p.y, p.z});
  std::sort(sorted.begin(), sorted.end());
  return static_cast<std::size_t>(sorted.end() - std::unique(sorted.begin(), sorted.end()));
}

// To first order: the value over the length of the gradient. What is no number is
// infinitely far away.
double farthestFromZero(API::VoxelChannel const& distance, API::Array<Float3> const& points) {
  API::VoxelSampler const sampler =
      distance.createSampler(API::VoxelSamplerQBSplineType, API::SamplerSpace::World);
  auto const voxel = static_cast<double>(API::Layout(distance.layout()).voxelScale());
  double farthest = 0;
  for (auto const& p : points) {
    Float3 gradient;
    auto const value = static_cast<double>(sampler.sampleGradient<float>(p, gradient));
    auto const length = std::hypot(static_cast<double>(gradient.x), static_cast<double>(gradient.y),
                                   static_cast<double>(gradient.z));
    if (value == 0) continue;
    auto const away = std::abs(value) / (length * voxel);
    farthest = std::max(farthest, std::isnan(away) ? HUGE_VAL : away);
  }
  return farthest;
}

LevelSetResult meshOne(Tool::Session& session, Tool::Input const& input,
                       Tool::Selection const& selection, std::string const& channel) {
  LevelSetResult result;
  result.channel = channel;
  try {
    auto const loaded =
        Tool::loadSurface(session, input, selection, channel, Host::DistanceMode::Auto);
    auto const& distance = loaded.surface->distance();
    result.mode = distance.dictionary().value<API::String>("distance_mode").str();
    result.reason = distance.dictionary().value<API::String>("distance_reason").str();
    Tool::Mesh mesh;
    Processing::MarchingCubes(0).mesh(distance, mesh.vertices, mesh.triangles);
    Tool::dropDegenerate(mesh);
    result.vertices = mesh.vertices.count();
    result.triangles = mesh.triangles.count();
    result.openEdges = Tool::openEdges(mesh);
    result.duplicates = duplicatesIn(mesh.vertices);
    result.notFinite = static_cast<std::size_t>(std::count_if(
        mesh.vertices.begin(), mesh.vertices.end(), [](Float3 const& p) { return !finite(p); }));
    result.farthest = farthestFromZero(distance, mesh.vertices);
  } catch (Tool::Failure const& failure) {
    result.error = failure.what();
  }
  return result;
}

}  // namespace

std::vector<std::string> vdbFiles(std::string const& folder) {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  std::error_code error;
  for (fs::recursive_directory_iterator at(folder, error), end; !error && at != end;
       at.increment(error)) {
    if (at->path().extension() == ".vdb") {
      files.push_back(fs::relative(at->path(), folder).string());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<LevelSetResult> meshLevelSets(std::string const& file) {
  std::vector<LevelSetResult> results;
  Tool::CommonOptions options;
  options.quiet = true;
  Tool::Session session(options);
  try {
    Tool::Input const input(file);
    auto const selection = input.select({file, "", std::nullopt});
    for (auto const& name : levelSetNames(input.load(selection))) {
      results.push_back(meshOne(session, input, selection, name));
    }
  } catch (Tool::Failure const&) {
    // What cannot be read holds no level set.
  }
  return results;
}

}  // namespace Velmor::Test
