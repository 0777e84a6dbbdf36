#pragma once

#include "levelset/field.h"

namespace Velmor::Host {

/// Brings every voxel that the surface crosses to within a voxel of it.
///
/// A mesher takes a voxel for a cell if its distance is at most a voxel, and
/// samples its corners, each of which is the mean of the eight voxels around. In
/// a distance whose surface bends little, the cells taken are all that have
/// corners of both signs. Where something is hardly two voxels thick they are
/// not: the middle of a droplet may lie 1.13 voxels deep, the voxels around it all
/// but outside, and the mesh would miss a cell. Such voxels get a distance of
/// just under a voxel, and those around them too if that crosses them. No sign
/// changes, so the surface stays in its cells.
///
/// For a field that `redistance` made.
void keepCrossedCells(Field& field);

}  // namespace Velmor::Host
