#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <memory>
#include <string>

#include "input.h"
#include "processing/surface.h"
#include "session.h"
#include "velmorhost/files.h"

namespace Velmor::Tool {

/// A surface loaded from an input, and where its distance was found.
struct LoadedSurface {
  std::unique_ptr<Processing::Surface> surface;
  FoundChannel channel;
  std::array<double, 3> origin{};  ///< to be added to what the surface says in world space
};

/// Default parameters, but for particles: none are looked for.
Processing::SurfaceParameters withoutParticles();

/// Loads the surface of a selection. `channel` is "channel", "component/channel"
/// or empty: then "distance", else the only float level set. `parameters` gives
/// everything but the input, the object and the channel; its voxel component is
/// where the channel is looked for first. Status warnings go to the session; an
/// error is thrown as a `Failure` of code `Input`. Sets the process's read options
/// for the channel: nothing else may load meanwhile.
LoadedSurface loadSurface(Session& session, Input const& input, Selection const& selection,
                          std::string const& channel, Host::DistanceMode distance,
                          Processing::SurfaceParameters parameters = withoutParticles());

/// Passes on the status of a surface that takes its distance from a voxel channel,
/// as `Session::check` does. The `Failure` also says which channels the object has
/// elsewhere, and where it has particles instead how they become a surface.
void checkSurface(Session& session, Processing::Surface const& surface, Input const& input,
                  Selection const& selection, std::string const& channel);

/// What loading did to the channel of a surface's distance.
struct DistanceTreatment {
  std::string mode;    ///< "keep", "scale" or "rebuild"; empty where none was read
  std::string reason;  ///< may be empty
  float factor = 1.f;

  std::string words() const { return mode + (reason.empty() ? "" : ": " + reason); }
  Json report() const { return {{"mode", mode}, {"factor", factor}, {"reason", reason}}; }
};
DistanceTreatment treatmentOf(Processing::Surface const& surface);

/// Adds --distance to a verb.
void addDistanceMode(CLI::App& verb, Host::DistanceMode& mode);

}  // namespace Velmor::Tool
