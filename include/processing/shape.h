#pragma once

#include "processing/status.h"
#include "velmorapi/component.h"

namespace Velmor::Processing {

/// What every shape is made from. Fields are named as the keys that `str()` prints.
struct VELMOR_EXPORT ShapeParameters {
  ShapeParameters();
  ShapeParameters(ShapeParameters const& other);
  ShapeParameters(ShapeParameters&& other);
  ShapeParameters& operator=(ShapeParameters const& other);
  virtual ~ShapeParameters();

  /// The fields as lines of four blanks, key, " = " and value, after a newline.
  virtual API::String str() const;

  API::String cache_folder;          ///< folder of the cache files, or one file
  API::String object;                ///< query text, such as "name=liquid, frame=12"
  API::String point_component;       ///< empty: no points are looked up
  API::String voxel_component;       ///< empty: no voxels are looked up
  API::Array<API::String> channels;  ///< printed; all channels are loaded
  API::String velocity_channel;
  API::String uv_channel;
  float velocity_scale;
  float space_scale;  ///< factor on the world size
  float fps;
  bool clip;                                                ///< load only what lies in `clip_bbox`
  orlen::Math::bbox<orlen::Math::vec<3, float>> clip_bbox;  ///< world units of the cache
};

/// One object of one cached frame, loaded through the host. Construction always
/// completes; `status()` says what went wrong, and what could not be loaded is
/// an invalid handle.
///
/// A shape owns the active graph and the temporary folder that its loading
/// opened and removes both when it is destroyed. Copies name the same graph and
/// folder and share the messages: the first destroyed removes them for all.
class VELMOR_EXPORT Shape {
 public:
  Shape(Shape const& other);
  Shape& operator=(Shape const& other);
  virtual ~Shape();

  Status const& status() const;
  API::PointComponent const& points() const;
  API::VoxelComponent const& voxels() const;

  /// The world box of the voxel layout's leaf tiles; inverted without voxels.
  virtual orlen::Math::bbox<orlen::Math::vec<3, float>> bbox() const;

 protected:
  explicit Shape(ShapeParameters const& parameters);
  /// Multiplies the voxel scale of the voxels' layout, or if there is none of
  /// the points' layout, by `s`.
  void scale(float s);

  Status status_;
  API::PointComponent points_;
  API::VoxelComponent voxels_;
  API::String activeGraphName_;
  API::String tempFolder_;
};

}  // namespace Velmor::Processing
