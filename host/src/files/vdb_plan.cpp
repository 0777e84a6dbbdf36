#include "files/vdb_plan.h"

#include <algorithm>
#include <cmath>

namespace Velmor::Host::Files {

namespace {

/// Programs that keep transforms in single precision are off by this much.
constexpr double roundingOfTransforms = 1e-6;

}  // namespace

bool Placement::fits(Placement const& other) const noexcept {
  // Beyond rounding in the program that wrote them, over the widest tree.
  if (std::abs(voxelSize - other.voxelSize) > 1e-9 * voxelSize) return false;
  for (int a = 0; a < 3; ++a) {
    if (std::abs(translation[a] - other.translation[a]) > 1e-5 * voxelSize) return false;
  }
  return true;
}

std::optional<Placement> placementOf(openvdb::math::Transform const& transform,
                                     std::string& reason) {
  if (!transform.isLinear()) {
    reason = "its transform is not linear";
    return std::nullopt;
  }
  auto const matrix = transform.baseMap()->getAffineMap()->getMat4();
  double largest = 0;
  for (int n = 0; n < 9; ++n) largest = std::max(largest, std::abs(matrix(n / 3, n % 3)));
  for (int n = 0; n < 9; ++n) {
    // First of all: what is turned has another diagonal as well.
    auto const offDiagonal = n / 3 == n % 3 ? 0.0 : std::abs(matrix(n / 3, n % 3));
    if (offDiagonal <= roundingOfTransforms * largest) continue;
    reason = "its transform is rotated or sheared";
    return std::nullopt;
  }
  Placement placement;
  placement.voxelSize = matrix(0, 0);
  if (!std::isfinite(placement.voxelSize) || !(placement.voxelSize > 0) ||
      !(static_cast<float>(placement.voxelSize) > 0) ||
      !std::isfinite(static_cast<float>(placement.voxelSize))) {
    reason = "its voxel size is not a positive number";
    return std::nullopt;
  }
  for (int axis = 0; axis < 3; ++axis) {
    placement.translation[axis] = matrix(3, axis);
    if (!std::isfinite(static_cast<float>(matrix(3, axis)))) {
      reason = "its translation is not finite";
      return std::nullopt;
    }
    auto const difference = std::abs(matrix(axis, axis) - placement.voxelSize);
    if (!(difference <= roundingOfTransforms * placement.voxelSize)) {
      reason = "its voxels are not cubes";
      return std::nullopt;
    }
  }
  return placement;
}

bool usableName(std::string const& name) {
  return !name.empty() && name.find('/') == std::string::npos;
}

bool Plan::used(std::string const& name) const {
  return std::any_of(components.begin(), components.end(),
                     [&](ComponentPlan const& c) { return c.name == name; }) ||
         std::find(reserved_.begin(), reserved_.end(), name) != reserved_.end();
}

std::string Plan::freeName(std::string const& wanted) const {
  if (!used(wanted)) return wanted;
  for (int n = 2;; ++n) {
    if (auto name = wanted + "-" + std::to_string(n); !used(name)) return name;
  }
}

std::size_t Plan::voxels(Placement const& placement, std::string const& stated) {
  auto const named = usableName(stated);
  for (std::size_t c = 0; c < components.size(); ++c) {
    auto const& plan = components[c];
    if (plan.kind == ComponentKind::Voxels && plan.placement.fits(placement) &&
        (!named || plan.name == stated)) {
      return c;
    }
  }
  auto const clash = std::any_of(components.begin(), components.end(),
                                 [&](ComponentPlan const& c) { return c.name == stated; });
  components.push_back(
      {ComponentKind::Voxels, named && !clash ? stated : freeName("volume"), {}, placement, {}});
  return components.size() - 1;
}

std::size_t Plan::points(Placement const& placement, std::string const& stated,
                         std::string const& grid) {
  auto const clash = std::any_of(components.begin(), components.end(),
                                 [&](ComponentPlan const& c) { return c.name == stated; });
  auto name = stated;
  if (!usableName(stated) || clash) {
    name = !used("particle") || !usableName(grid) ? freeName("particle") : freeName(grid);
  }
  components.push_back({ComponentKind::Points, std::move(name), grid, placement, {}});
  return components.size() - 1;
}

std::string Plan::channelName(std::size_t component, std::string const& wanted) {
  auto base = wanted.empty() ? std::string(unnamed) : wanted;
  std::replace(base.begin(), base.end(), '/', '_');
  auto& taken = components[component].taken;
  auto name = base;
  for (int n = 2; std::find(taken.begin(), taken.end(), name) != taken.end(); ++n) {
    name = base + "-" + std::to_string(n);
  }
  taken.push_back(name);
  return name;
}

void Plan::objectOrigin(double (&origin)[3]) const {
  auto first = std::find_if(components.begin(), components.end(),
                            [](ComponentPlan const& c) { return c.kind == ComponentKind::Voxels; });
  if (first == components.end()) first = components.begin();
  for (int a = 0; a < 3; ++a) {
    origin[a] = first == components.end()
                    ? 0.0
                    : first->placement.translation[a] - 0.5 * first->placement.voxelSize;
  }
}

}  // namespace Velmor::Host::Files
