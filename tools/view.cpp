#include "view.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "failure.h"
#include "vectors.h"

namespace Velmor::Tool {

using Render::Vec3d;

namespace {

Vec3d place(std::string const& text, char const* option) {
  auto const values = parseVector<3>(text);
  if (!values) {
    throw Failure(ExitCode::Usage, "",
                  std::string(option) + ": '" + text + "' is no place; write X,Y,Z");
  }
  return {(*values)[0], (*values)[1], (*values)[2]};
}

void parseSize(std::string const& text, Render::Settings& settings) {
  auto comma = text;
  std::replace(comma.begin(), comma.end(), 'x', ',');
  auto const size = parseVector<2>(comma);
  constexpr double largest = 16384.;
  auto const fits = [](double edge) {
    return edge >= 1. && edge <= largest && edge == std::trunc(edge);
  };
  if (!size || text.find(',') != std::string::npos || !fits((*size)[0]) || !fits((*size)[1])) {
    throw Failure(ExitCode::Usage, "",
                  "--size: '" + text + "' is no size; write WIDTHxHEIGHT, each from 1 to 16384");
  }
  settings.width = static_cast<int>((*size)[0]);
  settings.height = static_cast<int>((*size)[1]);
}

}  // namespace

void addView(CLI::App& verb, ViewOptions& options) {
  verb.add_option("--eye", options.eye,
                  "Where the camera stands, in world units; if left out it frames everything")
      ->type_name("X,Y,Z");
  verb.add_option("--target", options.target, "Where the camera looks, in world units")
      ->type_name("X,Y,Z");
  verb.add_option("--fov", options.fov, "Vertical field of view")
      ->check(CLI::Range(0.01, 179.))
      ->type_name("DEGREES")
      ->capture_default_str();
  verb.add_option("--size", options.size, "Pixels of the picture")
      ->type_name("WIDTHxHEIGHT")
      ->capture_default_str();
  verb.add_option("--samples", options.settings.samples, "Rays per pixel")
      ->check(CLI::Range(1, 4096))
      ->type_name("N")
      ->capture_default_str();
}

void checkView(ViewOptions& options) {
  parseSize(options.size, options.settings);
  // The range that is checked as the option is read lets "nan" pass.
  if (!std::isfinite(options.fov)) throw Failure(ExitCode::Usage, "", "--fov is not a number");
  if (options.eye.empty() != options.target.empty()) {
    throw Failure(ExitCode::Usage, "",
                  options.eye.empty() ? "--target says where the camera looks; add --eye X,Y,Z, "
                                        "where it stands"
                                      : "--eye says where the camera stands; add --target X,Y,Z, "
                                        "where it looks");
  }
  if (options.eye.empty()) return;
  options.viewpoint = {place(options.eye, "--eye"), place(options.target, "--target")};
  if (!(Render::length(options.viewpoint->eye - options.viewpoint->target) > 0.)) {
    throw Failure(ExitCode::Usage, "", "--eye and --target are the same place");
  }
}

bool isEmpty(Render::Box const& box) {
  return !(box.max.x > box.min.x && box.max.y > box.min.y && box.max.z > box.min.z);
}

Render::Camera cameraOf(ViewOptions const& options, std::array<double, 3> const& origin,
                        Render::Box const& box) {
  Vec3d const shift(origin[0], origin[1], origin[2]);
  if (auto const& from = options.viewpoint) {
    return {from->eye - shift, from->target - shift, options.fov};
  }
  Render::Box const framed = isEmpty(box) ? Render::Box{{-1., -1., -1.}, {1., 1., 1.}} : box;
  return Render::Camera::framing(
      framed, options.fov, static_cast<double>(options.settings.width) / options.settings.height);
}

double coverage(Render::Image const& image) {
  std::size_t hit = 0;
  auto const pixels =
      static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height);
  for (std::size_t i = 0; i < pixels; ++i) {
    if (image.rgba.empty() ? image.depth[i] > 0.f : image.rgba[4 * i + 3] > 0.f) ++hit;
  }
  return static_cast<double>(hit) / static_cast<double>(pixels);
}

}  // namespace Velmor::Tool
