#pragma once

#include <openvdb/openvdb.h>

/// What a tree can do through its base class pulls in most of OpenVDB's templates,
/// in every source that makes a grid. OpenVDB's library has all of it already, for
/// the types of its own; so nothing of it is made here once more.
#define VELMOR_TREE_IS_IN_OPENVDB(Root)                                                           \
  extern template openvdb::TreeBase::Ptr openvdb::tree::Tree<Root>::copy() const;                 \
  extern template bool openvdb::tree::Tree<Root>::evalLeafBoundingBox(openvdb::CoordBBox&) const; \
  extern template bool openvdb::tree::Tree<Root>::evalActiveVoxelBoundingBox(openvdb::CoordBBox&) \
      const;                                                                                      \
  extern template bool openvdb::tree::Tree<Root>::evalActiveVoxelDim(openvdb::Coord&) const;      \
  extern template bool openvdb::tree::Tree<Root>::evalLeafDim(openvdb::Coord&) const;             \
  extern template void openvdb::tree::Tree<Root>::readTopology(std::istream&, bool);              \
  extern template void openvdb::tree::Tree<Root>::writeTopology(std::ostream&, bool) const;       \
  extern template void openvdb::tree::Tree<Root>::readBuffers(std::istream&, bool);               \
  extern template void openvdb::tree::Tree<Root>::readBuffers(std::istream&,                      \
                                                              openvdb::CoordBBox const&, bool);   \
  extern template void openvdb::tree::Tree<Root>::readNonresidentBuffers() const;                 \
  extern template void openvdb::tree::Tree<Root>::writeBuffers(std::ostream&, bool) const;        \
  extern template void openvdb::tree::Tree<Root>::print(std::ostream&, int) const;                \
  extern template openvdb::Index32 openvdb::tree::Tree<Root>::leafCount() const;                  \
  extern template std::vector<openvdb::Index32> openvdb::tree::Tree<Root>::nodeCount() const;     \
  extern template openvdb::Index32 openvdb::tree::Tree<Root>::nonLeafCount() const;               \
  extern template openvdb::Index64 openvdb::tree::Tree<Root>::activeLeafVoxelCount() const;       \
  extern template openvdb::Index64 openvdb::tree::Tree<Root>::inactiveLeafVoxelCount() const;     \
  extern template openvdb::Index64 openvdb::tree::Tree<Root>::activeVoxelCount() const;           \
  extern template openvdb::Index64 openvdb::tree::Tree<Root>::inactiveVoxelCount() const;         \
  extern template openvdb::Index64 openvdb::tree::Tree<Root>::activeTileCount() const;            \
  extern template openvdb::Index64 openvdb::tree::Tree<Root>::memUsage() const;                   \
  extern template void openvdb::tree::Tree<Root>::clipUnallocatedNodes();                         \
  extern template openvdb::Index32 openvdb::tree::Tree<Root>::unallocatedLeafCount() const;       \
  extern template openvdb::Metadata::Ptr openvdb::tree::Tree<Root>::getBackgroundValue() const;   \
  extern template void openvdb::tree::Tree<Root>::getIndexRange(openvdb::CoordBBox&) const

VELMOR_TREE_IS_IN_OPENVDB(openvdb::BoolTree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::DoubleTree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::FloatTree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Int32Tree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Int64Tree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::MaskTree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Vec3DTree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Vec3ITree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Vec3STree::RootNodeType);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::points::PointDataTree::RootNodeType);

#undef VELMOR_TREE_IS_IN_OPENVDB

namespace Velmor::Host::Files {

/// Voxels along an axis of a leaf node of OpenVDB's own trees.
constexpr int leafEdge = static_cast<int>(openvdb::FloatTree::LeafNodeType::DIM);

}  // namespace Velmor::Host::Files
