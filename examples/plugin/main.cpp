// What a plug-in does with a liquid: load it, look at the messages, mesh it.
//
//     surface-counts <cache folder> <query>
//     surface-counts caches/pool "name=liquid, frame=12"

#include <cstdio>

#include "processing/mesher.h"
#include "processing/surface.h"

namespace API = Velmor::API;
namespace Processing = Velmor::Processing;

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: surface-counts <cache folder> <query>\n");
    return 2;
  }
  Processing::SurfaceParameters parameters;
  parameters.cache_folder = argv[1];
  parameters.object = argv[2];
  parameters.point_component = "";  // a surface needs its voxels only

  // The surface has to outlive what is read from it: it owns the loaded graph.
  Processing::Surface const surface(parameters);
  for (auto const& warning : surface.status().warnings()) {
    std::fprintf(stderr, "warning: %s\n", warning.c_str());
  }
  if (!surface.status()) {
    std::fprintf(stderr, "error: %s\n", surface.status().error().c_str());
    return 1;
  }

  API::Array<orlen::Math::vec<3, float>> vertices;
  API::Array<orlen::Math::vec<3, int>> triangles;
  Processing::MarchingCubes(0).mesh(surface.distance(), vertices, triangles);
  std::printf("%zu vertices, %zu triangles\n", vertices.count(), triangles.count());
  return 0;
}
