#include "mesh.h"

#include <chrono>
#include <iomanip>
#include <locale>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include "command.h"
#include "names.h"
#include "output.h"
#include "processing/mesher.h"
#include "processing/surface.h"
#include "velmorhost/files.h"
#include "verbs.h"
#include "writers/mesh_writer.h"

namespace Velmor::Tool {

namespace {

struct MeshOptions {
  InputOptions input;
  std::string channel;
  unsigned int subdivisions = 0;
  Host::DistanceMode distance = Host::DistanceMode::Auto;
  bool allowOpen = false;
  std::string output;
};

class Stopwatch {
 public:
  double lap() {
    auto const now = std::chrono::steady_clock::now();
    auto const seconds = std::chrono::duration<double>(now - last_).count();
    last_ = now;
    return seconds;
  }

 private:
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

// Makes the next surface take its distance from that channel.
void choose(FoundChannel const& channel, Host::DistanceMode mode,
            Processing::SurfaceParameters& parameters) {
  auto read = Host::readOptions();
  read.distance = mode;
  read.distanceChannel = channel.channel;
  Host::setReadOptions(read);
  parameters.voxel_component = channel.component;
  parameters.distance_channel = channel.channel;
}

// Where the channel is that the user means, if the surface looked for it in the
// wrong place: only a loaded object tells what it holds.
std::optional<FoundChannel> elsewhere(Processing::Surface const& surface,
                                      MeshOptions const& options,
                                      Processing::SurfaceParameters const& parameters) {
  if (surface.status() || !surface.voxels().valid()) return std::nullopt;
  API::Object const object = surface.voxels().object();
  auto const found = options.channel.empty()
                         ? std::optional(defaultDistance(object, options.input.path))
                         : findChannel(object, options.channel);
  if (found && found->component == parameters.voxel_component &&
      found->channel == parameters.distance_channel) {
    return std::nullopt;
  }
  return found;
}

void run(Session& session, MeshOptions const& options) {
  auto const& format = meshFormat(options.output);
  if (isStandardOutput(options.output)) session.reportToStandardError();
  Stopwatch total, watch;

  Input const input(options.input.path);
  auto const selection = input.select(options.input);
  checkOutput(options.output);

  Processing::SurfaceParameters parameters;
  parameters.cache_folder = input.cacheFolder();
  parameters.object = input.query(selection);
  parameters.point_component = "";
  std::optional<Processing::Surface> surface;
  FoundChannel channel{parameters.voxel_component.str(),
                       options.channel.empty() ? "distance" : options.channel};
  for (std::optional<FoundChannel> next = channel; next;
       next = elsewhere(*surface, options, parameters)) {
    channel = *next;
    choose(channel, options.distance, parameters);
    // The one before goes first: it would take the new one's graph along.
    surface.reset();
    surface.emplace(parameters);
  }
  if (!surface->status() && surface->voxels().valid()) {
    auto const hint =
        channelHint(surface->voxels().object(), channel.channel, API::DataType::Float);
    if (!hint.empty()) {
      throw Failure(ExitCode::Input, input.path(), surface->status().error().str() + hint);
    }
  }
  session.check(surface->status(), input.path());
  double const loadSeconds = watch.lap();

  Mesh mesh;
  mesh.voxelSize = API::Layout(surface->voxels().layout()).voxelScale();
  mesh.origin = origin(surface->voxels());
  Processing::MarchingCubes(options.subdivisions)
      .mesh(surface->distance(), mesh.vertices, mesh.triangles);
  auto const degenerate = dropDegenerate(mesh);
  auto const open = openEdges(mesh);
  double const meshSeconds = watch.lap();

  if (mesh.triangles.empty()) {
    session.warn(input.path() + ": no surface: '" + channel.channel + "' crosses zero nowhere");
  }
  if (needsDoubles(mesh) && !format.doubles) {
    session.warn(options.output + ": " + format.name +
                 " holds floats only; this far from the origin they are coarser than a "
                 "thousandth of a voxel");
  }
  OutputFile out(options.output);
  format.write(mesh, out);
  out.commit();
  double const writeSeconds = watch.lap();
  double const totalSeconds = total.lap();

  auto const how = surface->distance().dictionary();
  auto const mode = how.value<API::String>("distance_mode").str();
  auto const reason = how.value<API::String>("distance_reason").str();
  Json report;
  report["input"] = input.path();
  report["object"] = selection.object;
  report["frame"] = selection.frame;
  report["component"] = channel.component;
  report["channel"] = channel.channel;
  report["distance"] = {
      {"mode", mode},
      {"factor", how.hasValue("distance_factor") ? how.value<float>("distance_factor") : 1.f},
      {"reason", reason}};
  report["subdivisions"] = options.subdivisions;
  report["output"] = options.output;
  report["format"] = format.name;
  report["vertices"] = mesh.vertices.count();
  report["triangles"] = mesh.triangles.count();
  report["degenerate_triangles_left_out"] = degenerate;
  report["open_edges"] = open;
  report["seconds"] = {{"load", loadSeconds},
                       {"mesh", meshSeconds},
                       {"write", writeSeconds},
                       {"total", totalSeconds}};

  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "object      " << selection.object << ", frame " << selection.frame << '\n'
       << "channel     " << channel.component << '/' << channel.channel << '\n';
  if (!mode.empty()) {
    text << "distance    " << mode << (reason.empty() ? "" : ": " + reason) << '\n';
  }
  text << "vertices    " << mesh.vertices.count() << '\n'
       << "triangles   " << mesh.triangles.count() << '\n'
       << "open edges  " << open << '\n'
       << std::fixed << std::setprecision(2) << "seconds     " << totalSeconds << " (load "
       << loadSeconds << ", mesh " << meshSeconds << ", write " << writeSeconds << ")\n"
       << "output      " << options.output << '\n';
  session.report(std::move(report), text.str());

  if (open > 0) {
    auto const words = "the mesh is not closed: " + std::to_string(open) + " open edges";
    if (options.allowOpen) {
      session.note(input.path() + ": " + words);
    } else {
      session.error(Failure(ExitCode::Open, input.path(), words));
    }
  }
}

}  // namespace

void addMesh(Command& command) {
  auto const options = std::make_shared<MeshOptions>();
  auto& verb = command.verb("mesh", "Writes the surface of a distance channel as a triangle mesh",
                            [options](Session& session) { run(session, *options); });
  addInput(verb, options->input);
  verb.add_option("--channel", options->channel,
                  "The distance channel, or component/channel; if left out 'distance', else the "
                  "only level set")
      ->type_name("NAME");
  verb.add_option("--subdivisions", options->subdivisions,
                  "Cuts each voxel into N + 1 cells per axis")
      ->check(CLI::Range(0, 63))
      ->type_name("N");
  verb.add_option("--distance", options->distance,
                  "What to do with the channel's values: keep them, scale them by a factor to "
                  "world units, rebuild a narrow band from their zero crossing, or auto: the "
                  "first of these that gives a true distance")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, Host::DistanceMode>{{"auto", Host::DistanceMode::Auto},
                                                    {"keep", Host::DistanceMode::Keep},
                                                    {"scale", Host::DistanceMode::Scale},
                                                    {"rebuild", Host::DistanceMode::Rebuild}}))
      ->type_name("auto|keep|scale|rebuild");
  verb.add_flag("--allow-open", options->allowOpen,
                "Open edges are no error: for surfaces that end at a border");
  verb.add_option("-o,--output", options->output,
                  "The mesh: .ply (binary), .obj or .stl (binary); a pipe or a device without an "
                  "extension gets PLY, '-' is standard output")
      ->required()
      ->type_name("FILE");
}

}  // namespace Velmor::Tool
