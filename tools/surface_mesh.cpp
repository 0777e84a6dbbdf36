#include "surface_mesh.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <locale>
#include <set>
#include <sstream>

#include "channel_stats.h"
#include "input.h"
#include "names.h"
#include "output.h"
#include "processing/mesher.h"
#include "processing/sampler.h"
#include "value_types.h"
#include "velmorhost/scene.h"
#include "writers/mesh_writer.h"

namespace Velmor::Tool {

namespace {

using Vec3f = orlen::Math::vec<3, float>;

// Calls `visit(sampler, vertex)` for all vertices, each worker with its own sampler.
template <class Visit>
void eachVertex(Processing::Sampler const& sampler, std::size_t count, Visit const& visit) {
  using oneapi::tbb::blocked_range;
  oneapi::tbb::parallel_for(blocked_range<std::size_t>(0, count, 1024),
                            [&](blocked_range<std::size_t> const& range) {
                              Processing::Sampler const own(sampler);
                              for (auto v = range.begin(); v != range.end(); ++v) visit(own, v);
                            });
}

std::size_t at(std::int32_t v) { return static_cast<std::size_t>(v); }

// Where the field is flat or broken: the mean of the triangles around, weighed by
// their area.
void fillNormals(Mesh& mesh) {
  std::vector<Vec3f> sums(mesh.normals.size(), Vec3f(0.f, 0.f, 0.f));
  for (auto const& t : mesh.triangles) {
    auto const& a = mesh.vertices[at(t[0])];
    auto const u = mesh.vertices[at(t[1])] - a, w = mesh.vertices[at(t[2])] - a;
    Vec3f const n(u.y * w.z - u.z * w.y, u.z * w.x - u.x * w.z, u.x * w.y - u.y * w.x);
    for (int c = 0; c < 3; ++c) sums[at(t[c])] = sums[at(t[c])] + n;
  }
  for (std::size_t v = 0; v < mesh.normals.size(); ++v) {
    auto& n = mesh.normals[v];
    if (n.x != 0.f || n.y != 0.f || n.z != 0.f) continue;
    float const length = std::hypot(sums[v].x, sums[v].y, sums[v].z);
    n = length > 0.f && std::isfinite(length) ? sums[v] * (1.f / length) : Vec3f(0.f, 1.f, 0.f);
  }
}

void addNormals(Processing::Surface const& surface, Mesh& mesh) {
  mesh.normals.assign(mesh.vertices.count(), Vec3f(0.f, 0.f, 0.f));
  eachVertex(Processing::Sampler(surface.distance()), mesh.vertices.count(),
             [&mesh](Processing::Sampler const& field, std::size_t v) {
               Vec3f gradient(0.f, 0.f, 0.f);
               field.sampleGradient(mesh.vertices[v], gradient);
               float const length = std::hypot(gradient.x, gradient.y, gradient.z);
               if (length > 0.f && std::isfinite(length)) {
                 mesh.normals[v] = gradient * (1.f / length);
               }
             });
  fillNormals(mesh);
}

void addAttribute(Processing::Surface const& surface, std::string const& name, Mesh& mesh,
                  std::string const& subject) {
  Processing::Sampler const sampler(surface.voxels(), name);
  if (!sampler.valid()) {
    std::vector<std::string> names;
    for (auto const& channel : surface.voxels().channels()) names.push_back(channel.name().str());
    throw Failure(ExitCode::Input, subject,
                  "--attributes: no channel '" + name + "'; there is " + quotedList(names, "none") +
                      didYouMean(name, names));
  }
  auto const type = sampler.dataType();
  VertexValues values;
  values.name = name;
  values.components = static_cast<int>(API::componentsOf(type));
  values.integer = isInteger(type);
  auto const count = at(values.components);
  values.words.resize(count * mesh.vertices.count());
  eachVertex(sampler, mesh.vertices.count(), [&](Processing::Sampler const& field, std::size_t v) {
    Processing::Sample sample;
    field.sample(mesh.vertices[v], sample);
    std::copy_n(sample.words, count, values.words.begin() + static_cast<std::ptrdiff_t>(v * count));
  });
  mesh.attributes.push_back(std::move(values));
}

}  // namespace

void addMeshContent(CLI::App& verb, MeshContent& content) {
  verb.add_option("--subdivisions", content.subdivisions,
                  "Cuts each voxel into N + 1 cells per axis")
      ->check(CLI::Range(0, 63))
      ->type_name("N");
  verb.add_option("--attributes", content.attributes,
                  "Channels to write onto the vertices, such as velocity,uv: .ply holds all, .obj "
                  "texture coordinates in 'uv'")
      ->type_name("NAMES");
  verb.add_flag("--normals", content.normals, "Write normals onto the vertices (.ply, .obj)");
}

SurfaceMesh meshOf(Processing::Surface const& surface, std::array<double, 3> const& origin,
                   MeshContent const& content, std::string const& subject) {
  SurfaceMesh result;
  auto& mesh = result.mesh;
  mesh.voxelSize = API::Layout(surface.voxels().layout()).voxelScale();
  mesh.origin = origin;
  Processing::MarchingCubes(content.subdivisions)
      .mesh(surface.distance(), mesh.vertices, mesh.triangles);
  result.degenerate = dropDegenerate(mesh);
  result.open = openEdges(mesh);
  if (content.normals) addNormals(surface, mesh);
  std::istringstream names(content.attributes);
  std::set<std::string> known;
  for (std::string name; std::getline(names, name, ',');) {
    if (!name.empty() && known.insert(name).second) addAttribute(surface, name, mesh, subject);
  }
  return result;
}

std::string whyNoSurface(API::VoxelChannel const& distance) {
  auto const stats = voxelStats(distance);
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "'" << distance.name().str() << "' crosses zero nowhere: ";
  if (stats.min.empty() || stats.min[0] > stats.max[0]) {
    text << (stats.active > 0 ? "its active voxels hold no numbers" : "it has no active voxel");
  } else {
    text << "its active voxels hold " << std::setprecision(6) << stats.min[0] << " to "
         << stats.max[0];
  }
  if (Host::fieldClass(distance) == Host::FieldClass::FogVolume) {
    text << "; it is a fog volume and no distance";
  }
  return text.str();
}

void writeMesh(Session& session, Mesh const& mesh, std::string const& path) {
  auto const& format = meshFormat(path);
  auto const holds = [&](std::string const& what) {
    session.warn(path + ": " + format.name + " holds " + what);
  };
  if (needsDoubles(mesh) && !format.doubles) {
    holds("floats only; this far from the origin they are coarser than a thousandth of a voxel");
  }
  if (!mesh.normals.empty() && !format.normals) holds("no normals of vertices");
  bool const texture = format.uv && textureOf(mesh) != nullptr;
  if (!format.attributes && mesh.attributes.size() > (texture ? 1u : 0u)) {
    holds(format.uv ? "no attributes but 'uv' (two floats)" : "no attributes");
  }
  OutputFile out(path);
  format.write(mesh, out);
  out.commit();
}

}  // namespace Velmor::Tool
