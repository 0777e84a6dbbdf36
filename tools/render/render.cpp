#include "render/render.h"

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>

#include "processing/intersector.h"
#include "processing/sampler.h"
#include "render/fog_tracer.h"
#include "render/spheres.h"

namespace Velmor::Render {

namespace {

struct Colour {
  double r = 0., g = 0., b = 0., a = 0.;
};

Colour operator+(Colour const& x, Colour const& y) {
  return {x.r + y.r, x.g + y.g, x.b + y.b, x.a + y.a};
}
Colour operator*(Colour const& x, double s) { return {x.r * s, x.g * s, x.b * s, x.a * s}; }

struct Shot {
  Colour colour;
  bool found = false;
  double t = 0.;
};

// The n-th of `count` places in a pixel, spread evenly (the additive recurrence
// of the plastic number); the centre for one.
Vec3d placeInPixel(int n, int count) {
  if (count == 1) return {0.5, 0.5, 0.};
  double const x = 0.5 + 0.7548776662466927 * n, y = 0.5 + 0.5698402909980532 * n;
  return {x - std::floor(x), y - std::floor(y), 0.};
}

Colour matte(Vec3d const& normal, Camera const& camera) {
  // A key light over the left shoulder of the camera, a faint sky, and a rim
  // that keeps silhouettes apart.
  Vec3d const key = normalized(camera.backward() + camera.up() * 0.9 - camera.right() * 0.6);
  double const facing = dot(normal, camera.backward());
  double const lambert = std::max(0., dot(normal, key));
  double const sky = 0.5 + 0.5 * normal.y;
  double const shine =
      std::pow(std::max(0., dot(normal, normalized(key + camera.backward()))), 60.);
  double const rim = 0.15 * std::pow(1. - std::clamp(std::abs(facing), 0., 1.), 3.);
  auto const channel = [&](double albedo) {
    return albedo * (0.10 + 0.22 * sky + 0.75 * lambert) + 0.25 * shine + rim;
  };
  return {channel(0.20), channel(0.45), channel(0.65), 1.};
}

Colour shade(Hit const& hit, Camera const& camera, Shading shading) {
  Vec3d const n = toDouble(hit.normal);
  if (shading == Shading::Normal) return {0.5 + 0.5 * n.x, 0.5 + 0.5 * n.y, 0.5 + 0.5 * n.z, 1.};
  // A camera inside sees the surface from behind.
  return matte(dot(n, camera.backward()) < -0.9 ? n * -1. : n, camera);
}

// Runs `shoot(tracer, origin, direction)` for all rays of the image.
template <class Tracer, class Shoot>
Image castRays(Tracer const& prototype, Camera const& camera, Settings const& settings,
               Progress const& progress, Shoot const& shoot) {
  Image image;
  image.width = settings.width;
  image.height = settings.height;
  auto const pixels =
      static_cast<std::size_t>(settings.width) * static_cast<std::size_t>(settings.height);
  bool const wantsColour = settings.shading != Shading::Depth;
  if (wantsColour) {
    image.rgba.resize(pixels * 4);
  } else {
    image.depth.resize(pixels);
  }
  double const aspect = static_cast<double>(settings.width) / settings.height;
  tbb::enumerable_thread_specific<Tracer> tracers([&prototype] { return Tracer(prototype); });
  std::atomic<int> rowsDone{0};
  std::mutex reporting;
  tbb::parallel_for(tbb::blocked_range<int>(0, settings.height, 4), [&](auto const& rows) {
    Tracer& tracer = tracers.local();
    for (int y = rows.begin(); y < rows.end(); ++y) {
      for (int x = 0; x < settings.width; ++x) {
        Colour sum;
        double depth = 0.;
        int hits = 0;
        for (int s = 0; s < settings.samples; ++s) {
          Vec3d const place = placeInPixel(s, settings.samples);
          Shot const shot = shoot(tracer, camera.eye(),
                                  camera.direction((x + place.x) / settings.width,
                                                   (y + place.y) / settings.height, aspect));
          sum = sum + shot.colour;
          if (shot.found) {
            depth += shot.t;
            ++hits;
          }
        }
        auto const at = static_cast<std::size_t>(y) * static_cast<std::size_t>(settings.width) +
                        static_cast<std::size_t>(x);
        if (wantsColour) {
          sum = sum * (1. / settings.samples);
          image.rgba[4 * at] = static_cast<float>(sum.r);
          image.rgba[4 * at + 1] = static_cast<float>(sum.g);
          image.rgba[4 * at + 2] = static_cast<float>(sum.b);
          image.rgba[4 * at + 3] = static_cast<float>(sum.a);
        } else if (hits > 0) {
          image.depth[at] = static_cast<float>(depth / hits);
        }
      }
      // Each row, for a hundred of them may be one piece, and take minutes.
      int const done = ++rowsDone;
      if (progress) {
        std::lock_guard const lock(reporting);
        progress(static_cast<double>(done) / settings.height);
      }
    }
  });
  return image;
}

// A picture of what a tracer's rays hit first.
template <class Tracer>
Image castHits(Tracer const& prototype, Camera const& camera, Settings const& settings,
               Progress const& progress) {
  return castRays(prototype, camera, settings, progress,
                  [&](Tracer& tracer, Vec3d const& origin, Vec3d const& direction) {
                    Shot shot;
                    Hit const hit = tracer.trace(origin, direction);
                    if (!hit.found) return shot;
                    shot.found = true;
                    shot.t = hit.t;
                    shot.colour = shade(hit, camera, settings.shading);
                    return shot;
                  });
}

}  // namespace

Image renderSurface(API::VoxelChannel const& distance, API::Layout const& accel,
                    Camera const& camera, Settings const& settings, Progress const& progress) {
  return castHits(SurfaceTracer(distance, accel), camera, settings, progress);
}

Image renderSpheres(API::PointComponent const& points, double radius, Camera const& camera,
                    Settings const& settings, Progress const& progress) {
  return castHits(SphereTracer(points, radius), camera, settings, progress);
}

Image renderFog(API::VoxelChannel const& density, Camera const& camera, Settings const& settings,
                Progress const& progress) {
  Vec3d const light = normalized(camera.up() + camera.backward() * 0.3 - camera.right() * 0.7);
  FogTracer const prototype(density, light);
  return castRays(prototype, camera, settings, progress,
                  [](FogTracer& tracer, Vec3d const& origin, Vec3d const& direction) {
                    Shot shot;
                    Fog const fog = tracer.trace(origin, direction);
                    shot.found = fog.where >= 0.;
                    shot.t = std::max(0., fog.where);
                    shot.colour = {fog.light, fog.light, fog.light, fog.alpha};
                    return shot;
                  });
}

}  // namespace Velmor::Render
