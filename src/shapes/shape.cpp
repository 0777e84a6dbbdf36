#include "processing/shape.h"

#include "processing/bounds.h"
#include "shapes/loading.h"
#include "shapes/parameter_lines.h"
#include "velmorapi/file.h"
#include "velmorapi/object_model.h"

namespace Velmor::Processing {

ShapeParameters::ShapeParameters()
    : point_component("particle"),
      voxel_component("volume"),
      velocity_channel("velocity"),
      uv_channel("uv"),
      velocity_scale(1.f),
      space_scale(1.f),
      fps(24.f),
      clip(false),
      clip_bbox({-1.f, -1.f, -1.f}, {1.f, 1.f, 1.f}) {}

ShapeParameters::ShapeParameters(ShapeParameters const&) = default;
ShapeParameters::ShapeParameters(ShapeParameters&& other)
    : ShapeParameters(static_cast<ShapeParameters const&>(other)) {}
ShapeParameters& ShapeParameters::operator=(ShapeParameters const&) = default;
ShapeParameters::~ShapeParameters() = default;

API::String ShapeParameters::str() const {
  Stream out;
  out << "\n";
  writeParameter(out, "object", object);
  writeParameter(out, "cache_folder", cache_folder);
  out << "    channels = \n";
  for (auto const& channel : channels) out << "        " << channel << "\n";
  writeParameter(out, "velocity_channel", velocity_channel);
  writeParameter(out, "uv_channel", uv_channel);
  writeParameter(out, "velocity_scale", velocity_scale);
  writeParameter(out, "space_scale", space_scale);
  writeParameter(out, "fps", fps);
  writeParameter(out, "clip", clip);
  writeParameter(out, "clip_bbox", clip_bbox);
  return out.str();
}

Shape::Shape(ShapeParameters const& parameters) {
  auto const loaded = loadObject(parameters, status_);
  points_ = loaded.points;
  voxels_ = loaded.voxels;
  activeGraphName_ = loaded.activeGraphName;
  tempFolder_ = loaded.tempFolder;
  if (loaded.found) scale(parameters.space_scale);
}

// A status is not copy-constructible: it is made anew and then assigned, so that
// the copy reads and writes the messages of the original.
Shape::Shape(Shape const& other)
    : points_(other.points_),
      voxels_(other.voxels_),
      activeGraphName_(other.activeGraphName_),
      tempFolder_(other.tempFolder_) {
  status_ = other.status_;
}

Shape& Shape::operator=(Shape const&) = default;

Shape::~Shape() {
  if (!activeGraphName_.empty() && API::ObjectModel::activeGraph(activeGraphName_).valid()) {
    API::ObjectModel::removeActiveGraph(activeGraphName_);
  }
  if (!tempFolder_.empty()) API::File::deleteFolder(tempFolder_);
}

Status const& Shape::status() const { return status_; }
API::PointComponent const& Shape::points() const { return points_; }
API::VoxelComponent const& Shape::voxels() const { return voxels_; }

orlen::Math::bbox<orlen::Math::vec<3, float>> Shape::bbox() const {
  return computeBBox(voxels_.layout());
}

void Shape::scale(float s) {
  API::Layout layout(voxels_.layout());
  if (!layout.valid()) layout = points_.layout();
  layout.setVoxelScale(layout.voxelScale() * s);
}

}  // namespace Velmor::Processing
