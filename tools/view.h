#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <optional>
#include <string>

#include "render/render.h"

namespace Velmor::Tool {

/// From where and how a picture is taken, as options give it.
struct ViewOptions {
  struct Viewpoint {
    Render::Vec3d eye, target;  // not the same
  };

  std::string eye, target;
  std::optional<Viewpoint> viewpoint;  ///< what they say, once checked; none without them
  double fov = 40.;
  std::string size = "1280x720";
  Render::Settings settings;
};

/// Adds --eye, --target, --fov, --size and --samples to a verb.
void addView(CLI::App& verb, ViewOptions& options);
/// Understands the viewpoint and the size. Throws a `Failure` of code `Usage` for
/// texts that mean nothing: call it before any work.
void checkView(ViewOptions& options);

/// The camera of checked options, or where they name no eye one that frames the box.
/// Eye and target are in the world, box and camera in the space of the data,
/// which lies `origin` further in the world.
Render::Camera cameraOf(ViewOptions const& options, std::array<double, 3> const& origin,
                        Render::Box const& box);

bool isEmpty(Render::Box const& box);
/// The share of the pixels that show something.
double coverage(Render::Image const& image);

}  // namespace Velmor::Tool
