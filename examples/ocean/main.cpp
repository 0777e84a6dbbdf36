// Draws cross-sections of oceans: velmor-ocean-pictures FOLDER
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>

#include "output.h"
#include "processing/extend_filter.h"
#include "support/ocean_scenes.h"
#include "writers/image_writer.h"

namespace {

using namespace Velmor;
using Colour = std::array<double, 3>;

Colour blend(Colour const& a, Colour const& b, double share) {
  Colour c{};
  for (std::size_t i = 0; i < 3; ++i) c[i] = a[i] + (b[i] - a[i]) * share;
  return c;
}

/// Values of a channel at any voxel position, linear between voxel centres of
/// one depth, and constant in cells that have no tile.
class Field {
 public:
  explicit Field(API::Channel const& channel)
      : channel_(channel), accessor_(API::Layout(channel.layout()).tileAccessor()) {}

  bool hasLeaf(double x, double y, double z) const {
    return accessor_.tile(cell(x), cell(y), cell(z), 7).index().depth == 7;
  }

  double at(double x, double y, double z) const {
    double sum = 0;
    double const fx = x - 0.5 - std::floor(x - 0.5), fy = y - 0.5 - std::floor(y - 0.5),
                 fz = z - 0.5 - std::floor(z - 0.5);
    for (int corner = 0; corner < 8; ++corner) {
      int const i = corner & 1, j = corner >> 1 & 1, k = corner >> 2;
      double const weight =
          (i != 0 ? fx : 1 - fx) * (j != 0 ? fy : 1 - fy) * (k != 0 ? fz : 1 - fz);
      if (weight > 0)
        sum += weight * voxel(cell(x - 0.5) + i, cell(y - 0.5) + j, cell(z - 0.5) + k);
    }
    return sum;
  }

 private:
  static int cell(double x) { return static_cast<int>(std::floor(x)); }

  double voxel(int x, int y, int z) const {
    auto const tile = accessor_.tile(x, y, z, 7);
    auto const data = channel_.tileData<float>(tile.index());
    int const edge = tile.info().extent / 5;
    auto const& o = tile.coord();
    return data.data[data.offset((x - o.i) / edge, (y - o.j) / edge, (z - o.k) / edge)];
  }

  API::Channel channel_;
  API::TileAccessor accessor_;
};

/// What a picture shows: a rectangle of a plane, in voxels.
struct Frame {
  double left, right, bottom, top;
  int pixelsPerVoxel;
};

void draw(std::string const& path, Frame const& frame,
          std::function<Colour(double across, double up)> const& colourAt) {
  Render::Image image;
  image.width = static_cast<int>((frame.right - frame.left) * frame.pixelsPerVoxel);
  image.height = static_cast<int>((frame.top - frame.bottom) * frame.pixelsPerVoxel);
  for (int row = 0; row < image.height; ++row) {
    for (int column = 0; column < image.width; ++column) {
      auto const colour = colourAt(frame.left + (column + 0.5) / frame.pixelsPerVoxel,
                                   frame.top - (row + 0.5) / frame.pixelsPerVoxel);
      for (double const c : colour) image.rgba.push_back(static_cast<float>(c));
      image.rgba.push_back(1.f);
    }
  }
  Tool::OutputFile out(path);
  Tool::writePng(image, out);
  out.commit();
  std::printf("%s\n", path.c_str());
}

/// A section z = 0.5 through an ocean: water blue, lines at whole voxels of
/// distance, cells without leaf tiles paler; the liquid's own surface orange.
void drawSection(std::string const& path, Frame const& frame, API::Channel const& ocean,
                 Test::Field const& liquid) {
  Field const field(ocean);
  double const z = 0.5;
  double const pixel = 1. / frame.pixelsPerVoxel;
  draw(path, frame, [&](double x, double y) {
    double const value = field.at(x, y, z);
    Colour colour = value < 0 ? Colour{0.05, 0.25, 0.6} : Colour{0.85, 0.92, 0.97};
    auto const crosses = [&](auto const& function, double step) {
      auto const level = [&](double px, double py) {
        double const v = function(px, py);
        return step > 0 ? std::floor(v / step) : (v < 0 ? -1. : 0.);
      };
      return level(x, y) != level(x + pixel, y) || level(x, y) != level(x, y + pixel);
    };
    auto const oceanAt = [&](double px, double py) { return field.at(px, py, z); };
    if (field.hasLeaf(x, y, z)) {
      if (crosses(oceanAt, 1.))
        colour = blend(colour, value < 0 ? Colour{1, 1, 1} : Colour{0, 0, 0}, 0.15);
    } else {
      colour = blend(colour, {0.5, 0.5, 0.5}, 0.35);
    }
    auto const liquidAt = [&](double px, double py) { return liquid(px, py, z); };
    if (crosses(liquidAt, 0.)) colour = {0.9, 0.3, 0.};
    if (crosses(oceanAt, 0.)) colour = {0., 0., 0.};
    return colour;
  });
}

/// The mask in a plane: 0 dark, 1 bright; grey where there are no leaf tiles.
Colour maskColour(double m) {
  if (m >= 1.) return {1., 0.95, 0.75};
  return blend({0.03, 0.03, 0.12}, {0.9, 0.35, 0.2}, m);
}

constexpr float level = 0.3f;
constexpr float size = 200.f;

void extend(Test::Scene const& scene, float radius, char const* mask) {
  Processing::ExtendFilter(level, {0.f, 0.f}, {size, size}, radius, mask)
      .filter(scene.distance, scene.distance);
}

void drawAll(std::string const& folder) {
  {
    auto const scene = Test::wavyPool(double{level});
    extend(scene, 12.f, "mask");
    drawSection(folder + "/ocean-pool.png", {-105, 105, -24, 12, 6}, scene.distance,
                [](double x, double y, double z) {
                  return Test::pool(x, y, z, double{level} + Test::waveHeight(x, z));
                });
    API::Channel const mask(scene.volume.findChannel("mask"));
    Field const field(mask);
    auto const colourAt = [&](double x, double y, double z) {
      return field.hasLeaf(x, y, z) ? maskColour(field.at(x, y, z)) : Colour{0.35, 0.35, 0.35};
    };
    draw(folder + "/ocean-mask-above.png", {-105, 105, -105, 105, 4},
         [&](double x, double z) { return colourAt(x, 1.5, z); });
    draw(folder + "/ocean-mask-section.png", {-105, 105, -24, 12, 6},
         [&](double x, double y) { return colourAt(x, y, 0.5); });
  }
  struct Hull {
    char const* name;
    double halfX, halfZ, draft;
  };
  for (auto const& hull : {Hull{"small", 15, 12, 8}, Hull{"large", 50, 50, 30}}) {
    auto const scene = Test::poolWithHull(hull.halfX, hull.halfZ, hull.draft, double{level});
    extend(scene, 0.f, "");
    drawSection(folder + "/ocean-hull-" + hull.name + ".png", {-105, 105, -48, 12, 6},
                scene.distance, [&](double x, double y, double z) {
                  return std::max(Test::pool(x, y, z, double{level}),
                                  -Test::hull(x, y, z, hull.halfX, hull.halfZ, hull.draft));
                });
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || argv[1][0] == '-') {
    std::fputs("usage: velmor-ocean-pictures FOLDER\n", stderr);
    return 2;
  }
  try {
    drawAll(argv[1]);
  } catch (std::exception const& e) {
    std::fprintf(stderr, "velmor-ocean-pictures: %s\n", e.what());
    return 1;
  }
  return 0;
}
