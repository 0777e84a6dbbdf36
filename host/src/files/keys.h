#pragma once

/// The names under which files and dictionaries keep what the other side has
/// no place for.
namespace Velmor::Host::Files::Keys {

// In dictionaries.
inline constexpr char const* origin = "origin";         ///< object, component: world position of 0
inline constexpr char const* voxelSize = "voxel_size";  ///< component: double, the file's own
inline constexpr char const* translation[3] = {"translation_x", "translation_y", "translation_z"};
inline constexpr char const* gridName = "grid_name";  ///< channel, point component: in the file
inline constexpr char const* attributeName = "attribute_name";  ///< point channel: in the file
inline constexpr char const* distanceMode = "distance_mode";
inline constexpr char const* distanceFactor = "distance_factor";
inline constexpr char const* distanceReason = "distance_reason";

// In the metadata of grids.
inline constexpr char const* component = "velmor_component";  ///< name of the component
inline constexpr char const* type = "velmor_type";  ///< "float2", "int2": x and y of a vec3 grid
inline constexpr char const* float2 = "float2";
inline constexpr char const* int2 = "int2";
inline constexpr char const* background = "velmor_background";  ///< the channel's own, as bits
inline constexpr char const* coarse = "velmor_coarse";  ///< cells that the grid has no place for
inline constexpr char const* tiles = "velmor_tiles";    ///< tiles that the values do not show

inline constexpr char const* channelOf = "velmor_channel_";  ///< and a point attribute: its channel

// A point attribute.
inline constexpr char const* order = "velmor_order";  ///< place of each point in the state

}  // namespace Velmor::Host::Files::Keys
