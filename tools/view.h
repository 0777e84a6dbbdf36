#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <string>

#include "render/render.h"

namespace Velmor::Tool {

/// From where and how a picture is taken, as options give it.
struct ViewOptions {
  std::string eye, target;
  double fov = 40.;
  std::string size = "1280x720";
  Render::Settings settings;
};

/// Adds --eye, --target, --fov, --size and --samples to a verb.
void addView(CLI::App& verb, ViewOptions& options);
/// Puts the size into the settings. Throws a `Failure` of code `Usage` for texts
/// that mean nothing.
void checkView(ViewOptions& options);

/// The camera of the options, or where they name no eye one that frames the box.
/// Eye and target are in the world, box and camera in the space of the data,
/// which lies `origin` further in the world.
Render::Camera cameraOf(ViewOptions const& options, std::array<double, 3> const& origin,
                        Render::Box const& box);

bool isEmpty(Render::Box const& box);
/// The share of the pixels that show something.
double coverage(Render::Image const& image);

}  // namespace Velmor::Tool
