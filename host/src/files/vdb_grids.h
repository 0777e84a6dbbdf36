#pragma once

#include <openvdb/openvdb.h>

/// What a tree can do through its base class pulls in most of OpenVDB's templates,
/// in every source that makes a grid. OpenVDB's library has all of it already, for
/// the types of its own; so nothing of it is made here once more.
#define VELMOR_TREE_IS_IN_OPENVDB(Tree)                                                   \
  extern template openvdb::TreeBase::Ptr Tree::copy() const;                              \
  extern template bool Tree::evalLeafBoundingBox(openvdb::CoordBBox&) const;              \
  extern template bool Tree::evalActiveVoxelBoundingBox(openvdb::CoordBBox&) const;       \
  extern template bool Tree::evalActiveVoxelDim(openvdb::Coord&) const;                   \
  extern template bool Tree::evalLeafDim(openvdb::Coord&) const;                          \
  extern template void Tree::readTopology(std::istream&, bool);                           \
  extern template void Tree::writeTopology(std::ostream&, bool) const;                    \
  extern template void Tree::readBuffers(std::istream&, bool);                            \
  extern template void Tree::readBuffers(std::istream&, openvdb::CoordBBox const&, bool); \
  extern template void Tree::readNonresidentBuffers() const;                              \
  extern template void Tree::writeBuffers(std::ostream&, bool) const;                     \
  extern template void Tree::print(std::ostream&, int) const;                             \
  extern template openvdb::Index32 Tree::leafCount() const;                               \
  extern template std::vector<openvdb::Index32> Tree::nodeCount() const;                  \
  extern template openvdb::Index32 Tree::nonLeafCount() const;                            \
  extern template openvdb::Index64 Tree::activeLeafVoxelCount() const;                    \
  extern template openvdb::Index64 Tree::inactiveLeafVoxelCount() const;                  \
  extern template openvdb::Index64 Tree::activeVoxelCount() const;                        \
  extern template openvdb::Index64 Tree::inactiveVoxelCount() const;                      \
  extern template openvdb::Index64 Tree::activeTileCount() const;                         \
  extern template openvdb::Index64 Tree::memUsage() const;                                \
  extern template void Tree::clipUnallocatedNodes();                                      \
  extern template openvdb::Index32 Tree::unallocatedLeafCount() const;                    \
  extern template openvdb::Metadata::Ptr Tree::getBackgroundValue() const;                \
  extern template void Tree::getIndexRange(openvdb::CoordBBox&) const

VELMOR_TREE_IS_IN_OPENVDB(openvdb::BoolTree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::DoubleTree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::FloatTree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Int32Tree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Int64Tree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::MaskTree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Vec3DTree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Vec3ITree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::Vec3STree);
VELMOR_TREE_IS_IN_OPENVDB(openvdb::points::PointDataTree);

#undef VELMOR_TREE_IS_IN_OPENVDB

namespace Velmor::Host::Files {

/// Voxels along an axis of a leaf node of OpenVDB's own trees.
constexpr int leafEdge = static_cast<int>(openvdb::FloatTree::LeafNodeType::DIM);

}  // namespace Velmor::Host::Files
