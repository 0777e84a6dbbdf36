#include "render/spheres.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "render/ray_box.h"
#include "velmorapi/layout.h"
#include "velmorhost/scene.h"

namespace Velmor::Render {

namespace {

constexpr double farAway = std::numeric_limits<double>::max();

std::vector<Vec3d> centresOf(API::PointComponent const& points) {
  std::vector<Vec3d> centres;
  auto const* const at = Host::pointData<Vec3f>(API::PointChannel(points.findChannel("position")));
  if (at == nullptr) return centres;
  double const voxel = API::Layout(points.layout()).voxelScale();
  for (std::size_t p = 0; p < points.elementCount(); ++p) {
    Vec3d const centre = toDouble(at[p]) * voxel;
    if (std::isfinite(centre.x + centre.y + centre.z)) centres.push_back(centre);
  }
  return centres;
}

Box boxAround(Vec3d const* first, Vec3d const* last, double reach) {
  Box box{{farAway, farAway, farAway}, {-farAway, -farAway, -farAway}};
  for (; first != last; ++first) {
    for (int a = 0; a < 3; ++a) {
      box.min[a] = std::min(box.min[a], (*first)[a] - reach);
      box.max[a] = std::max(box.max[a], (*first)[a] + reach);
    }
  }
  return box;
}

// Where the ray meets the sphere in front of its origin, or `farAway`.
double meet(Vec3d const& centre, double radius, Vec3d const& origin, Vec3d const& direction) {
  Vec3d const to = centre - origin;
  double const along = dot(to, direction);
  // The distance of the ray from the centre, not the difference of two squares
  // that are alike where the eye is far away.
  Vec3d const aside = to - direction * along;
  double const half = radius * radius - dot(aside, aside);
  if (!(half >= 0.)) return farAway;
  double const root = std::sqrt(half);
  if (along - root > 0.) return along - root;
  return along + root > 0. ? along + root : farAway;
}

}  // namespace

Box reachOf(API::PointComponent const& points, double radius) {
  auto const centres = centresOf(points);
  return boxAround(centres.data(), centres.data() + centres.size(),
                   radius * API::Layout(points.layout()).voxelScale());
}

std::size_t sphereCount(API::PointComponent const& points) { return centresOf(points).size(); }

// A binary tree of boxes, each half of a node's spheres on one side of the median.
struct SphereTracer::Tree {
  struct Node {
    Box box;
    std::uint32_t first, last;  // its spheres
    std::uint32_t right = 0;    // the second child, the first one follows; 0 for leaves
  };
  std::vector<Vec3d> centres;
  std::vector<Node> nodes;
  double radius = 0.;

  void build(std::uint32_t first, std::uint32_t last) {
    constexpr std::uint32_t few = 4;
    auto const self = nodes.size();
    nodes.push_back(
        {boxAround(&centres[first], &centres[first] + (last - first), radius), first, last});
    if (last - first <= few) return;
    Vec3d const size = nodes[self].box.max - nodes[self].box.min;
    int const axis = size.x >= size.y && size.x >= size.z ? 0 : (size.y >= size.z ? 1 : 2);
    auto const middle = first + (last - first) / 2;
    auto const at = [this](std::uint32_t n) { return centres.begin() + n; };
    std::nth_element(at(first), at(middle), at(last),
                     [axis](Vec3d const& a, Vec3d const& b) { return a[axis] < b[axis]; });
    build(first, middle);
    nodes[self].right = static_cast<std::uint32_t>(nodes.size());
    build(middle, last);
  }
};

SphereTracer::SphereTracer(API::PointComponent const& points, double radius) {
  auto const tree = std::make_shared<Tree>();
  tree->centres = centresOf(points);
  tree->radius = radius * API::Layout(points.layout()).voxelScale();
  if (!tree->centres.empty()) tree->build(0, static_cast<std::uint32_t>(tree->centres.size()));
  tree_ = tree;
}

Hit SphereTracer::trace(Vec3d const& origin, Vec3d const& direction) const {
  Hit hit;
  bool const finite = std::isfinite(origin.x + origin.y + origin.z) &&
                      std::isfinite(direction.x + direction.y + direction.z);
  if (!finite || tree_->nodes.empty()) return hit;
  BoxRay const ray(origin, direction);
  double nearest = farAway;
  Vec3d centre;
  struct Open {
    std::uint32_t node;
    double entry;
  };
  // Halving 2^32 spheres ends after 32 steps, each of which leaves one node behind.
  std::array<Open, 64> open;
  std::size_t count = 0;
  auto const visit = [&](std::uint32_t node, double entry) {
    if (entry < nearest) open[count++] = {node, entry};
  };
  visit(0, ray.entry(tree_->nodes[0].box, farAway));
  while (count > 0) {
    auto const [index, entered] = open[--count];
    if (entered >= nearest) continue;
    auto const& node = tree_->nodes[index];
    if (node.right != 0) {
      double const left = ray.entry(tree_->nodes[index + 1].box, nearest);
      double const right = ray.entry(tree_->nodes[node.right].box, nearest);
      // The last one in is the first one out: what the nearer box holds hides much
      // of the farther one.
      if (left <= right) {
        visit(node.right, right);
        visit(index + 1, left);
      } else {
        visit(index + 1, left);
        visit(node.right, right);
      }
      continue;
    }
    for (auto s = node.first; s < node.last; ++s) {
      double const t = meet(tree_->centres[s], tree_->radius, origin, direction);
      if (t >= nearest) continue;
      nearest = t;
      centre = tree_->centres[s];
    }
  }
  if (nearest == farAway) return hit;
  hit.found = true;
  hit.t = nearest;
  hit.normal = toFloat((origin + direction * nearest - centre) * (1. / tree_->radius));
  return hit;
}

}  // namespace Velmor::Render
