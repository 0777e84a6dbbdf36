#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Splash {

using Vec = std::array<float, 3>;

/// A block of water that falls into a tank and hits a pillar: position-based
/// fluids (Macklin and Mueller, "Position Based Fluids", SIGGRAPH 2013). Every
/// sum runs in the order of the particles, so the result does not depend on the
/// number of threads. Metres and seconds, y up.
class Fluid {
 public:
  Fluid();

  /// Moves on by `seconds`, in `substeps` equal steps.
  void advance(float seconds, int substeps);

  std::vector<Vec> const& positions() const { return positions_; }
  std::vector<Vec> const& velocities() const { return velocities_; }
  /// Relative to water at rest.
  std::vector<float> const& densities() const { return densities_; }
  /// Whether so few others are around a particle that it flies by itself.
  bool isDroplet(std::size_t particle) const { return counts_[particle] < 12; }

  static constexpr float spacing = 0.04f;

 private:
  static constexpr std::size_t most = 96;  // neighbours that are looked at

  void step(float dt);
  void findNeighbours();
  void solve();
  void smoothVelocities();

  std::vector<Vec> positions_, velocities_, predicted_, corrections_;
  std::vector<float> densities_, lambdas_;
  std::vector<std::uint32_t> counts_, neighbours_;
  float restDensity_ = 1.f;
};

}  // namespace Splash
