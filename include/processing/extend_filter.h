#pragma once

#include "processing/filter.h"
#include "velmorapi/string.h"

namespace Velmor::Processing {

/// Blends a liquid into a flat ocean: joins its level set with the plane
/// y = height over a rectangle, except where the liquid holds the water back.
///
/// All lengths are world units (voxel position times voxel scale), y is up, and
/// the level set is a float channel, negative inside the liquid. Tiles are added
/// over the rectangle, one tile width below the plane to one above. Which
/// voxels of the leaf tiles belong to the ocean is found by a flood: in every
/// column of tiles it rises from the lowest leaf to the first liquid or five
/// voxels above the plane, and from there spreads below the plane through all
/// that is not liquid. The mask channel is 1 there, falls off to 0 over `radius`
/// around the flooded border, and is 0 elsewhere. A dry hull stays dry if no
/// opening leads into it.
///
/// Limits: a voxel centre that lies between the liquid's level and the plane
/// all around lets the flood run over the liquid; coarse cells of depth 6 at
/// the background value count as open water, also deep inside a hull. Uses none
/// of its own traversal settings.
class VELMOR_EXPORT ExtendFilter : public Filter {
 public:
  /// `center` and `dimension` are the x and z of the rectangle. A `radius` of
  /// 0 or less (or NaN) leaves the mask without falloff. `outChannel` names the
  /// mask channel that is made and kept; if empty, one named "oceanTmp" is made
  /// and removed. A box with a bound that is not finite, or lies further out than
  /// an int counts voxels, adds no tiles; nothing checks that there is memory for
  /// those of a large one.
  ExtendFilter(float height, orlen::Math::vec<2, float> const& center,
               orlen::Math::vec<2, float> const& dimension, float radius,
               API::String const& outChannel);
  ExtendFilter(ExtendFilter const& other);
  /// Moves are copies: `other` stays as it is.
  ExtendFilter(ExtendFilter&& other);
  ExtendFilter& operator=(ExtendFilter const& other);
  ExtendFilter& operator=(ExtendFilter&& other);
  ~ExtendFilter() override;

  /// Writes the joined level set of `src` to `dst`, which may be `src`. The
  /// flood takes place in the values that `dst` holds on entry: for the same
  /// result as in place, another channel must start as a copy of `src`.
  ///
  /// In place, the component has a channel "tmp" meanwhile. Channels of `src`'s
  /// component that had this name or the mask's before are lost. Reports nothing;
  /// if a channel cannot be made the steps that need it are void, and so is all of
  /// it on a layout whose tiles are not 1 to 5 voxels wide. Not while another
  /// thread works on the component.
  void filter(API::Channel src, API::Channel dst) const override;

  /// Fills the leaf tiles of a two-component float channel with the position in
  /// the rectangle, (0, 0) at its lower and (1, 1) at its upper corner, going on
  /// evenly outside. A voxel has the position of its lower corner. A channel of
  /// another type is left alone. Not while another thread works on the channel.
  void uvs(API::Channel const& uv) const;

 private:
  float height_;
  orlen::Math::vec<2, float> center_;
  orlen::Math::vec<2, float> dimension_;
  float radius_;
  API::String outChannel_;
};

}  // namespace Velmor::Processing
