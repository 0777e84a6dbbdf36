#pragma once

#include <optional>
#include <string>
#include <vector>

#include "files/image.h"
#include "files/vdb_grids.h"

namespace Velmor::Host::Files {

/// A uniform scale and a translation.
struct Placement {
  double voxelSize = 1;
  double translation[3] = {0, 0, 0};
  /// Whether grids so placed can share one component.
  bool fits(Placement const& other) const noexcept;
};

/// The placement of a transform, or the reason why it has none.
std::optional<Placement> placementOf(openvdb::math::Transform const& transform,
                                     std::string& reason);

/// A component that grids of a file go into.
struct ComponentPlan {
  ComponentKind kind = ComponentKind::Voxels;
  std::string name;
  std::string gridName;
  Placement placement;
  std::vector<std::string> taken;  ///< channel names
  std::string tiles{};             ///< a list of tiles beside those of the values
};

/// Sorts the grids of one file into components and gives them names.
class Plan {
 public:
  /// The channel of a grid without a name.
  static constexpr char const* unnamed = "unnamed";

  /// The component of a voxel grid: the one that the file names, else the first
  /// with the same placement, else a new one ("volume", "volume-2", ...).
  std::size_t voxels(Placement const& placement, std::string const& stated);
  /// The component of a point grid, always a new one: as the file names it, else
  /// "particle", else the grid's name.
  std::size_t points(Placement const& placement, std::string const& stated,
                     std::string const& grid);
  /// A name for a channel that no other in the component has.
  std::string channelName(std::size_t component, std::string const& wanted);

  /// Component names that files state must be known before any is invented.
  void reserve(std::string const& stated) { reserved_.push_back(stated); }

  /// World position of our position 0, exactly: of the first voxel component,
  /// else of the first one.
  void objectOrigin(double (&origin)[3]) const;

  std::vector<ComponentPlan> components;

 private:
  std::string freeName(std::string const& wanted) const;
  bool used(std::string const& name) const;
  std::vector<std::string> reserved_;
};

/// Whether a text can be the name of a component or channel.
bool usableName(std::string const& name);

}  // namespace Velmor::Host::Files
