#pragma once

#include <nanovdb/util/GridHandle.h>
#include <nanovdb/util/OpenToNanoVDB.h>

#include "support/openvdb_grid.h"

namespace Velmor::Bench {

/// An OpenVDB grid of type `Grid` packed for NanoVDB. The handle owns it.
template <class Grid>
nanovdb::GridHandle<nanovdb::HostBuffer> packed(Grid const& grid) {
  return nanovdb::openToNanoVDB(grid, nanovdb::StatsMode::Default, nanovdb::ChecksumMode::Disable);
}

}  // namespace Velmor::Bench
