// Draws a mesh: reads a binary PLY of triangles, writes a picture of it.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "output.h"
#include "render/render.h"
#include "writers/image_writer.h"

namespace {

using namespace Velmor;
using Vec = std::array<float, 3>;

Vec operator-(Vec const& a, Vec const& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
float dot(Vec const& a, Vec const& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec cross(Vec const& a, Vec const& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Vec unit(Vec const& a) {
  float const length = std::sqrt(dot(a, a));
  return length > 0 ? Vec{a[0] / length, a[1] / length, a[2] / length} : a;
}

struct Mesh {
  std::vector<Vec> vertices;
  std::vector<std::array<std::int32_t, 3>> triangles;
};

std::size_t countAfter(std::string const& header, std::string const& words) {
  auto const at = header.find(words);
  if (at == std::string::npos) throw std::runtime_error("no '" + words + "' in the header");
  return std::stoul(header.substr(at + words.size()));
}

// Only what `velmor mesh` writes.
Mesh readPly(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  std::string const bytes{std::istreambuf_iterator<char>(file), {}};
  std::string const end = "end_header\n";
  auto at = bytes.find(end);
  if (bytes.compare(0, 4, "ply\n") != 0 || at == std::string::npos) {
    throw std::runtime_error("not a PLY file");
  }
  auto const header = bytes.substr(0, at);
  if (header.find("binary_little_endian") == std::string::npos ||
      header.find("property float x") == std::string::npos) {
    throw std::runtime_error("not binary PLY with floats");
  }
  Mesh mesh;
  mesh.vertices.resize(countAfter(header, "element vertex "));
  mesh.triangles.resize(countAfter(header, "element face "));
  at += end.size();
  if (bytes.size() - at != mesh.vertices.size() * 12 + mesh.triangles.size() * 13) {
    throw std::runtime_error("not a mesh of triangles");
  }
  for (auto& v : mesh.vertices) {
    std::memcpy(v.data(), bytes.data() + at, 12);
    at += 12;
  }
  for (auto& t : mesh.triangles) {
    std::memcpy(t.data(), bytes.data() + at + 1, 12);
    at += 13;
    for (auto const v : t) {
      if (v < 0 || static_cast<std::size_t>(v) >= mesh.vertices.size()) {
        throw std::runtime_error("a triangle of unknown vertices");
      }
    }
  }
  return mesh;
}

// Means over the triangles around each vertex, weighed by area.
std::vector<Vec> vertexNormals(Mesh const& mesh) {
  std::vector<Vec> normals(mesh.vertices.size(), Vec{});
  auto const at = [](std::int32_t v) { return static_cast<std::size_t>(v); };
  for (auto const& t : mesh.triangles) {
    auto const& a = mesh.vertices[at(t[0])];
    auto const n = cross(mesh.vertices[at(t[1])] - a, mesh.vertices[at(t[2])] - a);
    for (auto const v : t) {
      for (std::size_t axis = 0; axis < 3; ++axis) normals[at(v)][axis] += n[axis];
    }
  }
  for (auto& n : normals) n = unit(n);
  return normals;
}

// Looks at a box from in front, above and a little to the side.
class Camera {
 public:
  Camera(Vec const& min, Vec const& max, int width, int height)
      : width_(static_cast<float>(width)),
        height_(static_cast<float>(height)),
        centreX_(0.5f * width_),
        centreY_(0.5f * height_) {
    Vec const centre{0.5f * (min[0] + max[0]), 0.5f * (min[1] + max[1]), 0.5f * (min[2] + max[2])};
    auto const size = max - min;
    float const radius = 0.5f * std::sqrt(dot(size, size));
    back_ = unit({0.35f, 0.55f, 1.f});
    right_ = unit(cross({0, 1, 0}, back_));
    up_ = cross(back_, right_);
    float const distance = 2.9f * radius;
    for (std::size_t axis = 0; axis < 3; ++axis) eye_[axis] = centre[axis] + distance * back_[axis];
    focal_ = 1.45f * height_;
  }
  // Pixel and distance along the view.
  Vec project(Vec const& p) const {
    auto const d = p - eye_;
    float const depth = -dot(d, back_);
    return {centreX_ + focal_ * dot(d, right_) / depth, centreY_ - focal_ * dot(d, up_) / depth,
            depth};
  }
  // Zooms and shifts until the points fill nine tenths of the picture.
  void fit(std::vector<Vec> const& points) {
    Vec low = project(points.front()), high = low;
    for (auto const& p : points) {
      auto const at = project(p);
      for (std::size_t axis = 0; axis < 2; ++axis) {
        low[axis] = std::min(low[axis], at[axis]);
        high[axis] = std::max(high[axis], at[axis]);
      }
    }
    float const zoom = 0.9f * std::min(width_ / (high[0] - low[0]), height_ / (high[1] - low[1]));
    centreX_ = 0.5f * width_ - zoom * (0.5f * (low[0] + high[0]) - centreX_);
    centreY_ = 0.5f * height_ - zoom * (0.5f * (low[1] + high[1]) - centreY_);
    focal_ *= zoom;
  }
  Vec const& eye() const { return eye_; }

 private:
  float width_, height_, centreX_, centreY_, focal_ = 1;
  Vec eye_{}, right_{}, up_{}, back_{};
};

// Water in daylight: sky on grazing faces, depth of colour on steep ones, a sun.
Vec shade(Vec const& point, Vec const& normal, Vec const& eye) {
  auto const view = unit(eye - point);
  float facing = dot(normal, view);
  Vec const n = facing < 0 ? Vec{-normal[0], -normal[1], -normal[2]} : normal;
  facing = std::abs(facing);
  static Vec const sun = unit({-0.5f, 0.8f, 0.35f});
  float const lit = std::max(0.f, dot(n, sun));
  auto const half = unit({sun[0] + view[0], sun[1] + view[1], sun[2] + view[2]});
  float const glint = std::pow(std::max(0.f, dot(n, half)), 90.f);
  float const sky = 0.04f + 0.96f * std::pow(1.f - facing, 5.f);
  float const up = 0.5f + 0.5f * n[1];
  Vec const body{0.015f + 0.05f * lit, 0.10f + 0.22f * lit, 0.17f + 0.28f * lit};
  Vec const above{0.45f, 0.60f, 0.75f};
  Vec colour{};
  for (std::size_t c = 0; c < 3; ++c) {
    colour[c] = body[c] * (0.5f + 0.5f * up) * (1.f - sky) + above[c] * up * sky + 0.8f * glint;
  }
  return colour;
}

class Canvas {
 public:
  Canvas(int width, int height)
      : width_(width),
        height_(height),
        depth_(pixels(), std::numeric_limits<float>::infinity()),
        colour_(pixels(), Vec{}) {}

  void draw(std::array<Vec, 3> const& corners, std::array<Vec, 3> const& colours) {
    auto const& [a, b, c] = corners;
    float const area = (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
    if (!(std::abs(area) > 0.f) || !(std::min({a[2], b[2], c[2]}) > 0.f)) return;
    int const x0 = clampTo(std::min({a[0], b[0], c[0]}), width_);
    int const x1 = clampTo(std::max({a[0], b[0], c[0]}) + 1.f, width_);
    int const y0 = clampTo(std::min({a[1], b[1], c[1]}), height_);
    int const y1 = clampTo(std::max({a[1], b[1], c[1]}) + 1.f, height_);
    for (int y = y0; y < y1; ++y) {
      for (int x = x0; x < x1; ++x) {
        float const px = static_cast<float>(x) + 0.5f, py = static_cast<float>(y) + 0.5f;
        float const u = ((px - a[0]) * (c[1] - a[1]) - (py - a[1]) * (c[0] - a[0])) / area;
        float const v = ((b[0] - a[0]) * (py - a[1]) - (b[1] - a[1]) * (px - a[0])) / area;
        if (u < 0.f || v < 0.f || u + v > 1.f) continue;
        // Triangles are about a pixel in size: affine weights are exact enough.
        float const depth = a[2] + u * (b[2] - a[2]) + v * (c[2] - a[2]);
        auto const pixel = static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                           static_cast<std::size_t>(x);
        if (depth >= depth_[pixel]) continue;
        depth_[pixel] = depth;
        for (std::size_t i = 0; i < 3; ++i) {
          colour_[pixel][i] = colours[0][i] + u * (colours[1][i] - colours[0][i]) +
                              v * (colours[2][i] - colours[0][i]);
        }
      }
    }
  }

  // Averages blocks of `factor` pixels squared over a bright background.
  Render::Image finish(int factor) const {
    Render::Image image;
    image.width = width_ / factor;
    image.height = height_ / factor;
    float const weight = 1.f / static_cast<float>(factor * factor);
    for (int y = 0; y < image.height; ++y) {
      float const down = static_cast<float>(y) / static_cast<float>(image.height);
      Vec const background{0.80f - 0.35f * down, 0.86f - 0.32f * down, 0.92f - 0.28f * down};
      for (int x = 0; x < image.width; ++x) {
        Vec sum{};
        for (int s = 0; s < factor * factor; ++s) {
          auto const pixel =
              static_cast<std::size_t>(y * factor + s / factor) * static_cast<std::size_t>(width_) +
              static_cast<std::size_t>(x * factor + s % factor);
          auto const& colour = std::isinf(depth_[pixel]) ? background : colour_[pixel];
          for (std::size_t i = 0; i < 3; ++i) sum[i] += colour[i] * weight;
        }
        for (float const value : sum) image.rgba.push_back(std::min(value, 1.f));
        image.rgba.push_back(1.f);
      }
    }
    return image;
  }

 private:
  std::size_t pixels() const {
    return static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_);
  }
  static int clampTo(float value, int limit) {
    return static_cast<int>(std::clamp(value, 0.f, static_cast<float>(limit)));
  }

  int width_, height_;
  std::vector<float> depth_;
  std::vector<Vec> colour_;
};

void run(std::string const& in, std::string const& out) {
  auto const mesh = readPly(in);
  if (mesh.vertices.empty()) throw std::runtime_error("the mesh is empty");
  auto const normals = vertexNormals(mesh);
  Vec min = mesh.vertices.front(), max = min;
  for (auto const& v : mesh.vertices) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      min[axis] = std::min(min[axis], v[axis]);
      max[axis] = std::max(max[axis], v[axis]);
    }
  }
  constexpr int factor = 2, width = 1280, height = 720;
  Camera camera(min, max, width * factor, height * factor);
  camera.fit(mesh.vertices);
  Canvas canvas(width * factor, height * factor);
  for (auto const& t : mesh.triangles) {
    std::array<Vec, 3> corners, colours;
    for (std::size_t c = 0; c < 3; ++c) {
      auto const v = static_cast<std::size_t>(t[c]);
      corners[c] = camera.project(mesh.vertices[v]);
      colours[c] = shade(mesh.vertices[v], normals[v], camera.eye());
    }
    canvas.draw(corners, colours);
  }
  Tool::OutputFile file(out);
  Tool::imageFormat(out).write(canvas.finish(factor), file);
  file.commit();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || argv[1][0] == '-') {
    std::fprintf(stderr, "usage: velmor-demo-picture MESH.ply PICTURE.png\n");
    return 2;
  }
  try {
    run(argv[1], argv[2]);
  } catch (std::exception const& e) {
    std::fprintf(stderr, "velmor-demo-picture: %s: %s\n", argv[1], e.what());
    return 1;
  }
  return 0;
}
