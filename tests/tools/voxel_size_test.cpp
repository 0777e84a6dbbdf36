#include "voxel_size.h"

#include <gtest/gtest.h>

#include <random>

namespace Velmor::Tool {
namespace {

std::vector<double> lattice(int n, double spacing, double jitter) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> shift(-jitter * spacing, jitter * spacing);
  std::vector<double> positions;
  for (int i = 0; i < n * n * n; ++i) {
    for (int const at : {i % n, i / n % n, i / n / n})
      positions.push_back(spacing * at + shift(random));
  }
  return positions;
}

TEST(MeasureVoxelSize, IsTwiceTheSpacingOfALattice) {
  EXPECT_NEAR(measureVoxelSize(lattice(20, 0.1, 0.)), 0.2, 0.01);
  EXPECT_NEAR(measureVoxelSize(lattice(20, 3.5, 0.3)), 7., 0.2);
}

TEST(MeasureVoxelSize, HoldsEightOfParticlesDrawnAtRandom) {
  std::mt19937 random(2);
  std::uniform_real_distribution<double> place(0., 1.);
  std::vector<double> positions(3 * 27000);
  for (auto& x : positions) x = place(random);
  EXPECT_NEAR(measureVoxelSize(positions), 2. / 30., 0.004);
}

TEST(MeasureVoxelSize, IsNotMisledByCopiesOrStrays) {
  auto positions = lattice(16, 0.1, 0.2);
  auto const once = positions;
  positions.insert(positions.end(), once.begin(), once.end());
  positions.insert(positions.end(), {1e6, -1e6, 1e6});
  EXPECT_NEAR(measureVoxelSize(positions), 0.2, 0.01);
}

TEST(MeasureVoxelSize, TakesSheetsByTheirNeighbours) {
  std::vector<double> positions;
  for (int i = 0; i < 900; ++i)
    positions.insert(positions.end(), {0.1 * (i % 30), 0., 0.1 * (i / 30)});
  EXPECT_NEAR(measureVoxelSize(positions), 0.2, 1e-6);
}

TEST(MeasureVoxelSize, NeedsTwoPlaces) {
  EXPECT_EQ(measureVoxelSize({}), 0.);
  EXPECT_EQ(measureVoxelSize({1., 2., 3.}), 0.);
  EXPECT_EQ(measureVoxelSize({1., 2., 3., 1., 2., 3.}), 0.);
}

}  // namespace
}  // namespace Velmor::Tool
