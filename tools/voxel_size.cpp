#include "voxel_size.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

namespace Velmor::Tool {

namespace {

using Point = std::array<double, 3>;

// A balanced tree over points, the middle of each range being its node; ranges
// are halved along the axes in turn (Bentley, "Multidimensional Binary Search
// Trees Used for Associative Searching", CACM 1975).
class NearestNeighbours {
 public:
  explicit NearestNeighbours(std::vector<Point> points) : points_(std::move(points)) {
    arrange(0, points_.size(), 0);
  }

  /// Distance from a point of the set to the nearest other place.
  double distance(std::size_t point) const {
    double best = std::numeric_limits<double>::infinity();
    search(0, points_.size(), 0, points_[point], best);
    return std::sqrt(best);
  }

 private:
  void arrange(std::size_t from, std::size_t to, std::size_t axis) {
    if (to - from < 2) return;
    auto const middle = from + (to - from) / 2;
    auto const at = [this](std::size_t i) {
      return points_.begin() + static_cast<std::ptrdiff_t>(i);
    };
    std::nth_element(at(from), at(middle), at(to),
                     [axis](Point const& a, Point const& b) { return a[axis] < b[axis]; });
    arrange(from, middle, (axis + 1) % 3);
    arrange(middle + 1, to, (axis + 1) % 3);
  }

  void search(std::size_t from, std::size_t to, std::size_t axis, Point const& p,
              double& best) const {
    if (from >= to) return;
    auto const middle = from + (to - from) / 2;
    auto const& node = points_[middle];
    double square = 0.;
    for (std::size_t a = 0; a < 3; ++a) square += (node[a] - p[a]) * (node[a] - p[a]);
    if (square > 0.) best = std::min(best, square);
    double const side = p[axis] - node[axis];
    auto const next = (axis + 1) % 3;
    bool const low = side < 0.;
    search(low ? from : middle + 1, low ? middle : to, next, p, best);
    // The other side may hold something nearer; at equal coordinates it may too.
    if (side * side <= best) search(low ? middle + 1 : from, low ? to : middle, next, p, best);
  }

  std::vector<Point> points_;
};

// Particles per voxel inside the body, or 0 where there is no inside.
double countInside(std::vector<Point> const& points, double size) {
  struct Voxel {
    std::array<std::int64_t, 3> at;
    std::size_t count;
  };
  std::vector<Voxel> voxels;
  voxels.reserve(points.size());
  for (auto const& p : points) {
    Voxel voxel{{}, 1};
    for (std::size_t a = 0; a < 3; ++a) {
      double const cell = std::floor(p[a] / size);
      if (!(std::abs(cell) < 1e15)) return 0.;
      voxel.at[a] = static_cast<std::int64_t>(cell);
    }
    voxels.push_back(voxel);
  }
  auto const less = [](Voxel const& a, Voxel const& b) { return a.at < b.at; };
  std::sort(voxels.begin(), voxels.end(), less);
  std::size_t kept = 0;
  for (std::size_t v = 1; v < voxels.size(); ++v) {
    if (voxels[v].at == voxels[kept].at) {
      ++voxels[kept].count;
    } else {
      voxels[++kept] = voxels[v];
    }
  }
  voxels.resize(std::min(voxels.size(), kept + 1));
  std::size_t inside = 0, particles = 0;
  for (auto const& voxel : voxels) {
    bool enclosed = true;
    for (std::size_t n = 0; n < 6 && enclosed; ++n) {
      Voxel neighbour = voxel;
      neighbour.at[n / 2] += n % 2 == 0 ? 1 : -1;
      enclosed = std::binary_search(voxels.begin(), voxels.end(), neighbour, less);
    }
    if (!enclosed) continue;
    ++inside;
    particles += voxel.count;
  }
  // A handful may be chance.
  if (inside < 8) return 0.;
  return static_cast<double>(particles) / static_cast<double>(inside);
}

}  // namespace

double measureVoxelSize(std::vector<double> const& positions) {
  std::vector<Point> points(positions.size() / 3);
  for (std::size_t p = 0; p < points.size(); ++p) {
    points[p] = {positions[3 * p], positions[3 * p + 1], positions[3 * p + 2]};
  }
  std::sort(points.begin(), points.end());
  points.erase(std::unique(points.begin(), points.end()), points.end());
  if (points.size() < 2) return 0.;

  NearestNeighbours const neighbours(points);
  constexpr std::size_t samples = 4000;
  auto const step = std::max<std::size_t>(1, points.size() / samples);
  std::vector<double> distances;
  for (std::size_t p = 0; p < points.size(); p += step) distances.push_back(neighbours.distance(p));
  auto const middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
  std::nth_element(distances.begin(), middle, distances.end());
  double const guess = 2. * *middle;
  // Squares of the distance of neighbouring doubles can underflow.
  if (!(guess > 0.) || !std::isfinite(guess)) return 0.;

  for (double const start : {1., 1.5, 2.}) {
    double size = start * guess;
    double inside = 0.;
    for (int round = 0; round < 4; ++round) {
      inside = countInside(points, size);
      if (inside == 0.) break;
      size *= std::cbrt(8. / inside);
    }
    // Particles drawn at random lie up to twice as loose as their neighbours suggest.
    if (inside != 0. && size > 0.5 * guess && size < 2.5 * guess) return size;
  }
  return guess;
}

}  // namespace Velmor::Tool
