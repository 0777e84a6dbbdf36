#include "processing/surface.h"

#include <cmath>
#include <limits>

#include "processing/bounds.h"
#include "processing/extend_filter.h"
#include "processing/pointwise_filters.h"
#include "processing/smooth_filter.h"
#include "processing/stencil_filters.h"
#include "shapes/candidates.h"
#include "shapes/level_set.h"
#include "shapes/parameter_lines.h"
#include "velmorapi/object_model.h"
#include "velmorapi/state_server.h"

namespace Velmor::Processing {

namespace {

bool isOn(float amount) { return std::abs(amount) > std::numeric_limits<float>::epsilon(); }

// Values that name nothing print as nothing.
char const* nameOf(SurfaceParameters::RenderComponent component) {
  switch (component) {
    case SurfaceParameters::Volume:
      return "Volume";
    case SurfaceParameters::Particle:
      return "Particle";
  }
  return "";
}

char const* nameOf(SurfaceParameters::SmoothMode mode) {
  switch (mode) {
    case SurfaceParameters::Laplacian:
      return "Laplacian";
    case SurfaceParameters::Curvature:
      return "Curvature";
  }
  return "";
}

/// Moves and smooths the surface in place, in this order whatever the order of the fields.
void reshape(SurfaceParameters const& p, API::VoxelChannel const& distance) {
  if (isOn(p.dilate)) DilateFilter<float>(p.dilate).filter(distance, distance);
  if (p.smooth > 0.f && p.smooth_iterations > 0) {
    SmoothFilter<float>(static_cast<SmoothFilter<float>::Mode>(p.smooth_mode),
                        static_cast<unsigned int>(p.smooth_iterations), p.smooth)
        .filter(distance, distance);
  }
  if (isOn(p.erode)) ErodeFilter<float>(p.erode).filter(distance, distance);
}

/// Blends the liquid into the ocean, and extends its texture coordinates over it.
void extendIntoOcean(SurfaceParameters const& p, API::VoxelChannel const& distance,
                     API::VoxelComponent const& voxels, Status& status) {
  auto const& dimension = p.ocean_blending_dimension;
  ExtendFilter const ocean(p.ocean_blending_height, p.ocean_blending_center, dimension,
                           p.ocean_blending_radius, p.ocean_blending_out_channel);
  ocean.filter(distance, distance);
  if (!p.enable_ocean_blending_uvs || !(dimension.x > 0.f) || !(dimension.y > 0.f)) return;
  API::VoxelChannel const uv(voxels.findChannel(p.uv_channel));
  if (uv.valid()) {
    ocean.uvs(uv);
  } else {
    writeInvalidChannel(status.warn(), "uv", p.uv_channel, voxels);
  }
}

/// Makes a float channel beside the distance and fills it from it.
void derive(Filter const& filter, char const* name, API::VoxelChannel const& distance,
            API::VoxelComponent const& voxels) {
  API::StateServer const server(API::ObjectModel::stateServer(voxels.stateID()));
  API::VoxelChannel const channel(server.createChannel(voxels, API::DataType::Float, name));
  channel.setBackgroundValue(0.f);
  filter.filter(distance, channel);
}

}  // namespace

SurfaceParameters::SurfaceParameters()
    : render_component(Volume),
      distance_channel("distance"),
      levelset_resolution_factor(1.f),
      levelset_droplet_reveal_factor(3.f),
      levelset_surface_radius(1.4f),
      levelset_droplet_radius(1.2f),
      levelset_max_volume_of_holes_to_close(0.f),
      dilate(0.f),
      smooth(0.f),
      smooth_mode(Laplacian),
      smooth_iterations(1),
      erode(0.f),
      enable_ocean_blending(false),
      ocean_blending_height(0.f),
      ocean_blending_center(0.f, 0.f),
      ocean_blending_dimension(10.f, 10.f),
      ocean_blending_radius(1.f),
      enable_ocean_blending_uvs(true),
      compute_laplacian(false),
      compute_curvature(false) {}

SurfaceParameters::SurfaceParameters(SurfaceParameters const&) = default;
SurfaceParameters::SurfaceParameters(SurfaceParameters&& other)
    : SurfaceParameters(static_cast<SurfaceParameters const&>(other)) {}
SurfaceParameters& SurfaceParameters::operator=(SurfaceParameters const&) = default;
SurfaceParameters::~SurfaceParameters() = default;

API::String SurfaceParameters::str() const {
  Stream out;
  out << ShapeParameters::str();
  writeParameter(out, "distance_channel", distance_channel);
  writeParameter(out, "render_component", nameOf(render_component));
  writeParameter(out, "levelset_droplet_reveal_factor", levelset_droplet_reveal_factor);
  writeParameter(out, "levelset_surface_radius", levelset_surface_radius);
  writeParameter(out, "levelset_droplet_radius", levelset_droplet_radius);
  writeParameter(out, "levelset_resolution_factor", levelset_resolution_factor);
  writeParameter(out, "levelset_max_volume_of_holes_to_close",
                 levelset_max_volume_of_holes_to_close);
  writeParameter(out, "dilate", dilate);
  writeParameter(out, "erode", erode);
  writeParameter(out, "smooth", smooth);
  writeParameter(out, "smooth_mode", nameOf(smooth_mode));
  writeParameter(out, "smooth_iterations", smooth_iterations);
  writeParameter(out, "enable_ocean_blending", enable_ocean_blending);
  writeParameter(out, "ocean_blending_height", ocean_blending_height);
  writeParameter(out, "ocean_blending_center", ocean_blending_center);
  writeParameter(out, "ocean_blending_dimension", ocean_blending_dimension);
  writeParameter(out, "ocean_blending_radius", ocean_blending_radius);
  writeParameter(out, "ocean_blending_out_channel", ocean_blending_out_channel);
  writeParameter(out, "enable_ocean_blending_uvs", enable_ocean_blending_uvs);
  return out.str();
}

Surface::Surface(SurfaceParameters const& parameters) : Shape(parameters) {
  if (!status_) return;
  // Amounts are lengths of the cache, so its voxel size is restored meanwhile.
  scale(1.f / parameters.space_scale);

  auto name = parameters.distance_channel;
  if (parameters.render_component == SurfaceParameters::Particle) {
    buildLevelSet(parameters, points_, voxels_, status_);
    if (!status_) return;
    name = builtDistanceName;
  }
  if (!voxels_.valid()) {
    status_.fail() << "Invalid voxel component.";
    return;
  }
  distance_ = voxels_.findChannel(name);
  if (!isFloatChannel(distance_)) {
    writeInvalidChannel(status_.fail(), "distance", name, voxels_);
    return;
  }

  reshape(parameters, distance_);
  if (parameters.enable_ocean_blending) extendIntoOcean(parameters, distance_, voxels_, status_);
  if (parameters.compute_laplacian) {
    derive(LaplacianFilter<float>(), "laplacian", distance_, voxels_);
  }
  if (parameters.compute_curvature) {
    derive(CurvatureFilter<float>(), "curvature", distance_, voxels_);
  }

  if (isOn(parameters.space_scale - 1.f)) {
    scale(parameters.space_scale);
    ScaleFilter<float>(parameters.space_scale).filter(distance_, distance_);
  }
  accel_ = createAccelLayout(distance_);
}

Surface::Surface(Surface const&) = default;
Surface& Surface::operator=(Surface const&) = default;
Surface::~Surface() = default;

API::VoxelChannel const& Surface::distance() const { return distance_; }
API::Layout const& Surface::accel() const { return accel_; }

}  // namespace Velmor::Processing
