#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "readers/table.h"

namespace Velmor::Tool {

/// What a file says about its particles. Doubles hold every float and every
/// integer of 32 bits exactly.
struct Particles {
  struct Attribute {
    std::string name;
    int components = 1;          ///< 1 to 3
    bool integer = false;        ///< the file declares integers
    std::vector<double> values;  ///< `components` for each particle
  };

  std::vector<double> positions;  ///< x, y, z of each particle, in world units
  std::vector<Attribute> attributes;
  std::vector<std::string> skipped;  ///< what could not be kept, with the reason

  std::size_t count() const { return positions.size() / 3; }
  Attribute const* find(std::string const& name) const;
};

/// Reads particles from a file of any known format; the content decides which,
/// the name only where the content cannot. Attributes have the names that the
/// rest of the system looks for, see `renameAttributes`. Throws a `Failure` of
/// code `Input` that names the file and says what is wrong with it, or what it is
/// if it holds no particles.
Particles readParticles(std::string const& path);

/// Gives the attributes "velocity", "density" and "droplet" these names where
/// files call them otherwise (v, vel, rho, ...), and velocities of two components
/// a third that is 0. Where several would fit the most usual name wins.
void renameAttributes(Particles& particles);

/// The particles of a table: x, y, z are the position; columns that differ in an
/// ending (_x _y _z, _0 _1 _2, x y z) or are named alike (nx ny nz, u v) become
/// one attribute. Throws where there are no positions.
Particles particlesOf(Table table, std::string const& path);

/// Legacy VTK: ascii or binary, point sets of any kind with their point data.
Particles readVtk(std::string const& path);
/// VTK XML of unstructured grids and polygonal data: ascii, base64 and appended
/// arrays, plain or deflated.
Particles readVtkXml(std::string const& path);
/// Classic binary geometry of version 5, plain or gzip.
Particles readBgeo(std::string const& path);
/// Lines of three or more numbers, with or without a count, a comment and the
/// names of elements.
Particles readXyz(std::string const& path);
/// All point grids of a cache file, through the host's reader.
Particles readVdbPoints(std::string const& path);

}  // namespace Velmor::Tool
