#include <locale>
#include <memory>
#include <sstream>

#include "command.h"
#include "output.h"
#include "stopwatch.h"
#include "surface_input.h"
#include "surface_mesh.h"
#include "verbs.h"
#include "writers/mesh_writer.h"

namespace Velmor::Tool {

namespace {

struct MeshOptions {
  InputOptions input;
  std::string channel;
  MeshContent content;
  Host::DistanceMode distance = Host::DistanceMode::Auto;
  bool allowOpen = false;
  std::string output;
};

void run(Session& session, MeshOptions const& options) {
  auto const& format = meshFormat(options.output);
  if (isStandardOutput(options.output)) session.reportToStandardError();
  Times times;

  Input const input(options.input.path);
  auto const selection = input.select(options.input);
  checkOutput(options.output);

  auto parameters = withoutParticles();
  parameters.fps = 1.f;  // velocities on vertices as the cache holds them
  auto const [surface, channel, origin] =
      loadSurface(session, input, selection, options.channel, options.distance, parameters);
  times.end("load");

  auto const [mesh, degenerate, open] = meshOf(*surface, origin, options.content, input.path());
  times.end("mesh");

  if (mesh.triangles.empty()) {
    session.warn(input.path() + ": no surface: " + whyNoSurface(surface->distance()));
  }
  writeMesh(session, mesh, options.output);
  times.end("write");

  auto const treatment = treatmentOf(*surface);
  Json report = reportOf(input, selection);
  report["component"] = channel.component;
  report["channel"] = channel.channel;
  report["distance"] = treatment.report();
  report["subdivisions"] = options.content.subdivisions;
  report["output"] = options.output;
  report["format"] = format.name;
  report["vertices"] = mesh.vertices.count();
  report["triangles"] = mesh.triangles.count();
  report["degenerate_triangles_left_out"] = degenerate;
  report["open_edges"] = open;
  report["seconds"] = times.json();

  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "object      " << wordsFor(selection) << '\n'
       << "channel     " << channel.component << '/' << channel.channel << '\n';
  if (!treatment.mode.empty()) text << "distance    " << treatment.words() << '\n';
  text << "vertices    " << mesh.vertices.count() << '\n'
       << "triangles   " << mesh.triangles.count() << '\n'
       << "open edges  " << open << '\n'
       << "seconds     " << times.text() << '\n'
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
  addMeshContent(verb, options->content);
  addDistanceMode(verb, options->distance);
  verb.add_flag("--allow-open", options->allowOpen,
                "Open edges are no error: for surfaces that end at a border");
  verb.add_option("-o,--output", options->output,
                  "The mesh: .ply (binary), .obj or .stl (binary); a pipe or a device without an "
                  "extension gets PLY, '-' is standard output")
      ->required()
      ->type_name("FILE");
}

}  // namespace Velmor::Tool
