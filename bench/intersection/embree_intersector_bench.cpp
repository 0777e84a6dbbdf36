#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>

#include <memory>

#include "intersection/sphere_rays.h"
#include "processing/mesher.h"

namespace {

using namespace Velmor;
using Bench::CameraRay;
using Bench::Counts;
using Scene = std::shared_ptr<RTCSceneTy>;

// The triangles around all rays' common goal; the tree over them is built here,
// outside what is measured.
Scene trianglesOf(API::VoxelChannel const& distance) {
  API::Array<orlen::Math::vec<3, float>> points;
  API::Array<orlen::Math::vec<3, int>> triangles;
  Processing::MarchingCubes(0).mesh(distance, points, triangles);

  std::shared_ptr<RTCDeviceTy> const device(rtcNewDevice("threads=1"), rtcReleaseDevice);
  Scene scene(rtcNewScene(device.get()), rtcReleaseScene);
  rtcSetSceneBuildQuality(scene.get(), RTC_BUILD_QUALITY_HIGH);
  std::shared_ptr<RTCGeometryTy> const mesh(
      rtcNewGeometry(device.get(), RTC_GEOMETRY_TYPE_TRIANGLE), rtcReleaseGeometry);
  auto* const corners = static_cast<float*>(rtcSetNewGeometryBuffer(
      mesh.get(), RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), points.count()));
  for (std::size_t i = 0; i < points.count(); ++i) {
    for (int a = 0; a < 3; ++a) corners[3 * i + static_cast<std::size_t>(a)] = points[i][a];
  }
  auto* const indices = static_cast<unsigned*>(
      rtcSetNewGeometryBuffer(mesh.get(), RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                              3 * sizeof(unsigned), triangles.count()));
  for (std::size_t i = 0; i < triangles.count(); ++i) {
    for (int a = 0; a < 3; ++a) {
      indices[3 * i + static_cast<std::size_t>(a)] = static_cast<unsigned>(triangles[i][a]);
    }
  }
  rtcCommitGeometry(mesh.get());
  rtcAttachGeometry(scene.get(), mesh.get());
  rtcCommitScene(scene.get());
  return scene;
}

// Ray by ray, with the triangle's normal: a mesh of the same surface is what a
// renderer would trace instead.
void embreeTriangles(benchmark::State& state) {
  Scene const scene = trianglesOf(Bench::sphere().distance);
  Bench::measureRays(state, [&](CameraRay const& ray, Counts& counts) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit query{};
    query.ray.org_x = ray.origin.x;
    query.ray.org_y = ray.origin.y;
    query.ray.org_z = ray.origin.z;
    query.ray.dir_x = ray.direction.x;
    query.ray.dir_y = ray.direction.y;
    query.ray.dir_z = ray.direction.z;
    query.ray.tfar = 1e9f;
    query.ray.mask = ~0u;
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    query.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene.get(), &context, &query);
    if (query.hit.geomID == RTC_INVALID_GEOMETRY_ID) return;
    ++counts.spans;
    counts.length += double{query.ray.tfar} + double{query.hit.Ng_x} * 1e-9;
  });
}
BENCHMARK(embreeTriangles)->Unit(benchmark::kMillisecond);

}  // namespace
