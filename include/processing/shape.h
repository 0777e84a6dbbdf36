#pragma once

#include "processing/status.h"
#include "velmorapi/component.h"

namespace Velmor::Processing {

/// What every shape is made from. Fields are named as the keys that `str()` prints.
///
/// A plain value: read it from as many threads as you like. Moving copies, the
/// source stays intact.
struct VELMOR_EXPORT ShapeParameters {
  ShapeParameters();
  ShapeParameters(ShapeParameters const& other);
  ShapeParameters(ShapeParameters&& other);
  ShapeParameters& operator=(ShapeParameters const& other);
  virtual ~ShapeParameters();

  /// The fields for a person to read: a newline, then for each a line of four
  /// blanks, the key, " = " and the value. Each channel name has a line of its
  /// own behind eight blanks. The names of the two components are left out.
  virtual API::String str() const;

  /// Folder that holds the cache files, or one file. Empty by default. All that is
  /// loaded is in the world of the cache, where voxel 0 lies at 0: the embedded
  /// host keeps where a file's own transform would move it in the dictionary of
  /// its components, as "origin" (three floats), to be added by whoever places
  /// the shape in a scene.
  API::String cache_folder;
  /// Query text that names the object and the frame, such as "name=liquid,
  /// frame=12". Empty by default, which is no valid query.
  API::String object;
  /// Component to take the points from, "particle" by default. Empty: no points
  /// are looked up.
  API::String point_component;
  /// Component to take the voxels from, "volume" by default. Empty: no voxels
  /// are looked up.
  API::String voxel_component;
  /// Carried for the caller and printed: loading always brings all channels.
  API::Array<API::String> channels;
  /// Base name of the velocities, "velocity" by default: the vector channels of
  /// this name and the float channels with "_u", "_v", "_w" behind it.
  API::String velocity_channel;
  /// Texture coordinates that a `Surface` extends over its ocean, "uv" by default.
  API::String uv_channel;
  /// Factor on velocities, 1 by default.
  float velocity_scale;
  /// Factor on the world size, 1 by default: on all velocities, and on the voxel
  /// size of the voxels or, only without voxels, of the points. Points beside
  /// voxels keep their places. 0 is not refused: velocities and the voxel size
  /// become 0, and a `Surface`, which divides by it, has a voxel size that is 0
  /// or no number, and no surface.
  float space_scale;
  /// Frames per second of the cache, 24 by default. Velocities become world
  /// units per frame; 0 makes each component infinite, or no number if it is 0.
  float fps;
  /// Whether to load only what lies in `clip_bbox`; false by default.
  bool clip;
  /// In world units of the cache, before `space_scale`; (-1, -1, -1) to (1, 1, 1)
  /// by default.
  orlen::Math::bbox<orlen::Math::vec<3, float>> clip_bbox;
};

/// One object of one cached frame, loaded through the host. The base of
/// `Points`, `Surface` and `Volume`.
///
/// Construction always completes: `status()` says what went wrong, and what
/// could not be loaded is an invalid handle. All velocities are multiplied by
/// space_scale * velocity_scale / fps, and the voxel scale by space_scale: that
/// of the voxels or, only without voxels, of the points. All on data of the
/// shape's own: two shapes made from the same files share nothing.
///
/// A shape removes the active graph on its folder and the temporary folder that
/// its loading used when it is destroyed, even a graph that the client had
/// opened on that folder before. Copies name the same graph and folder and share
/// the messages and the data: the first one destroyed removes graph and folder,
/// the others stay usable. Assigning over a shape makes it such a copy: it no
/// longer names its own graph and folder, which nothing removes then, unless
/// another copy of what it was does. Making and destroying shapes changes the host's
/// registry of graphs, which is safe on several threads; copies share channels,
/// so only reading them is.
class VELMOR_EXPORT Shape {
 public:
  Shape(Shape const& other);
  Shape& operator=(Shape const& other);
  virtual ~Shape();

  /// The error, if any, and the warnings of construction.
  Status const& status() const;
  /// Invalid if there is no such component, none was asked for, or loading failed.
  API::PointComponent const& points() const;
  /// Invalid if there is no such component, none was asked for, or loading failed.
  API::VoxelComponent const& voxels() const;

  /// The world box that the leaf tiles of the voxels cover, as `computeBBox`
  /// gives it: inverted without tiles and without voxels.
  virtual orlen::Math::bbox<orlen::Math::vec<3, float>> bbox() const;

 protected:
  /// Loads the object; see `status()` for the outcome.
  explicit Shape(ShapeParameters const& parameters);
  /// Multiplies the voxel scale of the voxels' layout by `s`, or of the points'
  /// layout if there are no voxels. Never of both.
  void scale(float s);

  Status status_;
  API::PointComponent points_;
  API::VoxelComponent voxels_;
  API::String activeGraphName_;
  API::String tempFolder_;
};

}  // namespace Velmor::Processing
