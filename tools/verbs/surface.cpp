#include "processing/surface.h"

#include <algorithm>
#include <filesystem>
#include <iomanip>
#include <locale>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "channel_edits.h"
#include "command.h"
#include "frame_runner.h"
#include "frames.h"
#include "names.h"
#include "operators.h"
#include "output.h"
#include "render/spheres.h"
#include "stopwatch.h"
#include "surface_input.h"
#include "surface_keys.h"
#include "surface_mesh.h"
#include "velmorhost/scene.h"
#include "verbs.h"
#include "view.h"
#include "writers/image_writer.h"
#include "writers/mesh_writer.h"

namespace Velmor::Tool {

namespace {

using Render::Box;
using Render::Vec3d;

struct SurfaceOptions {
  std::string path, object, frames, params;
  SurfaceValues values;
  std::string mesh, picture, vdb;
  MeshContent content;
  ViewOptions view;
  bool allowOpen = false;
  Host::DistanceMode distance = Host::DistanceMode::Auto;
  SequenceOptions sequence;
};

// Everything that the frames share, checked before the first.
class SurfaceSequence {
 public:
  SurfaceSequence(Session& session, SurfaceOptions const& options)
      : session_(session),
        options_(options),
        input_(options.path),
        object_(input_.object(options.object)),
        mesh_(options.mesh),
        picture_(options.picture),
        vdb_(options.vdb) {
    chooseFrames();
    checkOutputs();
    SurfaceValues values;
    if (!options.params.empty()) values = readSurfaceValues(options.params);
    setSurfaceValues(values, options.params, parameters_);
    setSurfaceValues(options.values, "", parameters_);
    values.insert(options.values.begin(), options.values.end());
    if (parameters_.smooth_iterations > mostSmoothing) {
      throw Failure(ExitCode::Usage, "",
                    "smooth_iterations: " + std::to_string(parameters_.smooth_iterations) +
                        " passes are too many; there may be up to " +
                        std::to_string(mostSmoothing));
    }
    parameters_.cache_folder = input_.cacheFolder();
    auto const given = [&values](char const* key) { return values.count(key) > 0; };
    // Where the points make the surface, voxels are not missed.
    if (particles() && !given("voxel_component")) parameters_.voxel_component = "";
    if (!particles() && !given("point_component")) parameters_.point_component = "";
    search_ = !particles() && !given("voxel_component");
    if (given("distance_channel")) channel_ = parameters_.distance_channel.str();
    auto read = Host::readOptions();
    read.distance = options.distance;
    read.distanceChannel = particles() ? "" : parameters_.distance_channel.str();
    Host::setReadOptions(read);
    if (!particles()) listenTo(read.distanceChannel);
    if (!options.picture.empty() && !options.view.viewpoint) frameAll();
  }

  void run() {
    Stopwatch watch;
    auto const outcomes = runFrames(
        session_, "surface", frames_, options_.sequence, input_.path(),
        [this](int frame) { return exists(frame); },
        [this](FrameOutcome& outcome) { makeFrame(outcome); }, !alone());
    auto const open = openFrames(outcomes);
    if (alone() && !outcomes.front().error.empty()) {
      session_.fail(outcomes.front().code, outcomes.front().error);
    }
    report(outcomes, open, watch.lap());
    if (!alone()) finishSequence(session_, outcomes, input_.path());
    if (!open.empty()) reportOpen(open);
  }

 private:
  bool particles() const {
    return parameters_.render_component == Processing::SurfaceParameters::Particle;
  }

  // One file is no sequence, whatever its number.
  bool alone() const {
    bool const numbered = !options_.frames.empty() || !object_.frames.empty();
    return !numbered || (input_.isFile() && frames_.size() == 1);
  }

  void chooseFrames() {
    if (!options_.frames.empty()) {
      frames_ = parseFrames(options_.frames);
    } else if (!object_.frames.empty()) {
      frames_ = object_.frames;
    } else {
      frames_ = {0};
    }
  }

  void checkOutputs() const {
    if (options_.mesh.empty() && options_.picture.empty() && options_.vdb.empty()) {
      throw Failure(ExitCode::Usage, "", "nothing to write: give --mesh, --render or --vdb");
    }
    if (!options_.mesh.empty()) meshFormat(options_.mesh);
    if (!options_.picture.empty()) imageFormat(options_.picture);
    if (!options_.vdb.empty() && !options_.vdb.ends_with(".vdb")) {
      throw Failure(ExitCode::Usage, options_.vdb, "--vdb: the name must end in .vdb");
    }
    if (!options_.vdb.empty()) {
      for (int const frame : frames_) checkNotInput(input_, vdb_.path(frame));
    }
    for (auto const* pattern : outputs()) {
      if (frames_.size() > 1 && !pattern->numbered()) {
        throw Failure(ExitCode::Usage, pattern->path(0),
                      "several frames need a place for their number, such as out.####.ply");
      }
      checkOutput(pattern->path(frames_.front()));
    }
  }

  std::vector<FramePattern const*> outputs() const {
    std::vector<FramePattern const*> patterns;
    if (!options_.mesh.empty()) patterns.push_back(&mesh_);
    if (!options_.picture.empty()) patterns.push_back(&picture_);
    if (!options_.vdb.empty()) patterns.push_back(&vdb_);
    return patterns;
  }

  bool exists(int frame) const {
    auto const patterns = outputs();
    return std::all_of(patterns.begin(), patterns.end(), [frame](FramePattern const* pattern) {
      return std::filesystem::is_regular_file(pattern->path(frame));
    });
  }

  // One camera for all frames, or the picture would jump: it frames what the
  // first, the last and some frames between hold.
  void frameAll() {
    constexpr std::size_t samples = 5;
    auto const count = std::min(samples, frames_.size());
    for (std::size_t s = 0; s < count; ++s) {
      auto const f = count == 1 ? 0 : s * (frames_.size() - 1) / (count - 1);
      try {
        extend(input_.load({object_.name, frameOf(frames_[f])}));
      } catch (Failure const&) {
        // Said when its turn comes.
      }
    }
  }

  // The component that the surface is made of, where loading finds it.
  API::Component shown(API::Object const& object) const {
    auto const& name = particles() ? parameters_.point_component : parameters_.voxel_component;
    API::Component component(object.findComponent(name));
    if (!component.valid()) component = object.findComponent(object.name() + "-" + name);
    auto const channel = channel_.empty() ? "distance" : channel_;
    if (!search_ || component.findChannel(channel).valid()) return component;
    auto const found = channel_.empty() ? std::optional(defaultDistance(object, input_.path()))
                                        : findChannel(object, channel_);
    return found ? API::Component(object.findComponent(found->component)) : component;
  }

  void extend(API::Object const& object) {
    auto const component = shown(object);
    API::PointComponent const points{API::Ref(component)};
    API::VoxelComponent const voxels{API::Ref(component)};
    Box box{{1., 1., 1.}, {-1., -1., -1.}};
    if (particles() && points.valid()) {
      box = Render::reachOf(points, static_cast<double>(parameters_.levelset_surface_radius));
    } else if (!particles() && voxels.valid()) {
      box = Render::reachOf(API::Layout(voxels.layout()));
    }
    if (isEmpty(box)) return;
    auto const shift = origin(component);
    auto const scale = static_cast<double>(parameters_.space_scale);
    for (int a = 0; a < 3; ++a) {
      auto const by = shift[static_cast<std::size_t>(a)];
      box.min[a] = (box.min[a] + by) * scale;
      box.max[a] = (box.max[a] + by) * scale;
      if (framed_) {
        box.min[a] = std::min(box.min[a], framed_->min[a]);
        box.max[a] = std::max(box.max[a], framed_->max[a]);
      }
    }
    framed_ = box;
  }

  int frameOf(int frame) const { return input_.frameOrFirst(object_, frame); }

  // The first frame with a surface tells where the channel is; frames run alone
  // until then.
  std::unique_ptr<Processing::Surface> load(Selection const& selection) {
    if (search_) {
      auto loaded =
          loadSurface(session_, input_, selection, channel_, options_.distance, parameters_);
      parameters_.voxel_component = loaded.channel.component;
      parameters_.distance_channel = loaded.channel.channel;
      search_ = false;
      return std::move(loaded.surface);
    }
    auto parameters = parameters_;
    parameters.object = input_.query(selection);
    auto surface = std::make_unique<Processing::Surface>(parameters);
    if (particles()) {
      session_.check(surface->status(), input_.path());
    } else {
      checkSurface(session_, *surface, input_, selection, parameters.distance_channel.str());
    }
    return surface;
  }

  void makeFrame(FrameOutcome& outcome) {
    Stopwatch watch;
    auto const loaded = load({object_.name, frameOf(outcome.frame)});
    auto const& surface = *loaded;
    auto place = origin(surface.voxels());
    for (auto& x : place) x *= static_cast<double>(parameters_.space_scale);
    auto const treatment = treatmentOf(surface);
    if (!treatment.mode.empty()) outcome.report["distance"] = treatment.report();
    Json seconds;
    seconds["surface"] = watch.lap();

    if (!options_.mesh.empty()) {
      auto const made = meshOf(surface, place, options_.content, input_.path());
      seconds["mesh"] = watch.lap();
      writeMesh(session_, made.mesh, mesh_.path(outcome.frame));
      seconds["write_mesh"] = watch.lap();
      outcome.report["mesh"] = mesh_.path(outcome.frame);
      outcome.report["vertices"] = made.mesh.vertices.count();
      outcome.report["triangles"] = made.mesh.triangles.count();
      outcome.report["open_edges"] = made.open;
      outcome.line = std::to_string(made.mesh.triangles.count()) + " triangles";
      if (made.open > 0) outcome.line += ", " + std::to_string(made.open) + " open edges";
      if (made.mesh.triangles.empty()) {
        bool const none = particles() && surface.points().elementCount() == 0;
        session_.warn(mesh_.path(outcome.frame) +
                      (none ? ": there are no particles; the mesh is empty"
                            : ": there is no surface; the mesh is empty: " +
                                  whyNoSurface(surface.distance())));
      }
    }
    if (!options_.picture.empty()) {
      auto const camera = cameraFor(surface, place);
      auto const image = Render::renderSurface(surface.distance(), surface.accel(), camera,
                                               options_.view.settings, [](double) {});
      auto const path = picture_.path(outcome.frame);
      OutputFile out(path);
      imageFormat(path).write(image, out);
      out.commit();
      seconds["render"] = watch.lap();
      outcome.report["picture"] = path;
      double const covered = coverage(image);
      // A picture of nothing looks like a broken one.
      if (covered == 0.) session_.warn(path + ": the camera sees nothing");
      outcome.report["covered"] = covered;
      if (outcome.line.empty()) outcome.line = "picture";
    }
    if (!options_.vdb.empty()) {
      writeVdb(surface, place, vdb_.path(outcome.frame));
      seconds["write_vdb"] = watch.lap();
      outcome.report["vdb"] = vdb_.path(outcome.frame);
      if (outcome.line.empty()) outcome.line = "level set";
    }
    outcome.report["tiles"] = Host::tileCount(surface.accel(), surface.accel().maxDepth());
    outcome.report["parts"] = seconds;
  }

  Render::Camera cameraFor(Processing::Surface const& surface,
                           std::array<double, 3> const& place) const {
    auto box = Render::reachOf(surface.accel());
    if (framed_) {
      Vec3d const shift(place[0], place[1], place[2]);
      box = {framed_->min - shift, framed_->max - shift};
    }
    return cameraOf(options_.view, place, box);
  }

  // The voxels by themselves: the points are in the cache already.
  static void writeVdb(Processing::Surface const& surface, std::array<double, 3> const& place,
                       std::string const& path) {
    API::Object const object(surface.voxels().object());
    for (auto const& component : object.components()) {
      if (API::PointComponent{API::Ref(component)}.valid())
        object.removeComponent(component.name());
    }
    if (place != std::array<double, 3>{}) {
      object.dictionary().set("origin", orlen::Math::vec<3, float>(static_cast<float>(place[0]),
                                                                   static_cast<float>(place[1]),
                                                                   static_cast<float>(place[2])));
    }
    auto const status = Host::writeObject(object, path);
    if (!status.succeeded()) throw Failure(ExitCode::Output, path, status.message().str());
  }

  // A frame that failed after its mesh was made has no report any more.
  static std::vector<int> openFrames(std::vector<FrameOutcome> const& outcomes) {
    std::vector<int> open;
    for (auto const& outcome : outcomes) {
      if (outcome.report.contains("open_edges") && outcome.report["open_edges"] > 0) {
        open.push_back(outcome.frame);
      }
    }
    std::sort(open.begin(), open.end());
    return open;
  }

  // What was done to the distances of the frames, in the words of each if they agree.
  static std::string treatments(std::vector<FrameOutcome> const& outcomes) {
    std::set<std::string> words;
    std::map<std::string, std::vector<int>> frames;
    for (auto const& outcome : outcomes) {
      if (!outcome.report.contains("distance")) continue;
      auto const& said = outcome.report["distance"];
      DistanceTreatment const treatment{said["mode"], said["reason"], said["factor"]};
      words.insert(treatment.words());
      frames[treatment.mode].push_back(outcome.frame);
    }
    if (words.size() == 1) return *words.begin();
    std::string text;
    for (auto& [mode, which] : frames) {
      std::sort(which.begin(), which.end());
      text += (text.empty() ? "" : "; ") + mode;
      if (frames.size() > 1) text += " in " + frameList(which);
    }
    return text;
  }

  void report(std::vector<FrameOutcome> const& outcomes, std::vector<int> const& open,
              double seconds) {
    double work = 0.;
    bool none = true;
    for (auto const& outcome : outcomes) {
      work += outcome.seconds;
      none = none && !outcome.error.empty();
    }
    auto const sum = [&outcomes](char const* field) {
      std::size_t total = 0;
      for (auto const& outcome : outcomes) {
        if (outcome.report.contains(field)) total += outcome.report[field].get<std::size_t>();
      }
      return total;
    };
    Json report;
    report["input"] = input_.path();
    report["object"] = object_.name;
    report["parameters"] = surfaceValues(parameters_);
    reportFrames(outcomes, report);
    report["open_frames"] = open;
    report["seconds"] = {{"frames", work}, {"total", seconds}};

    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "object      " << object_.name << '\n' << "frames      " << summaryOf(outcomes) << '\n';
    auto const treated = treatments(outcomes);
    if (!treated.empty()) text << "distance    " << treated << '\n';
    if (!options_.mesh.empty() && !none) {
      text << "triangles   " << sum("triangles") << '\n' << "open edges  " << sum("open_edges");
      if (!open.empty() && !alone()) text << " in " << open.size() << " frames";
      text << '\n';
    }
    text << std::fixed << std::setprecision(2) << "seconds     " << seconds << " ("
         << work / static_cast<double>(std::max<std::size_t>(1, outcomes.size()))
         << " per frame, several at a time)\n";
    for (auto const& output : {options_.mesh, options_.picture, options_.vdb}) {
      if (!output.empty() && !none) text << "output      " << output << '\n';
    }
    // The error of one file says it all.
    session_.report(std::move(report), alone() && none ? "" : text.str());
  }

  void reportOpen(std::vector<int> const& open) {
    auto const words = "the mesh is not closed" + (alone() ? "" : " in frame " + frameList(open));
    if (options_.allowOpen) {
      session_.note(input_.path() + ": " + words);
    } else {
      session_.error(Failure(ExitCode::Open, input_.path(), words));
    }
  }

  Session& session_;
  SurfaceOptions const& options_;
  Input const input_;
  CacheObject const& object_;
  FramePattern const mesh_, picture_, vdb_;
  std::vector<int> frames_;
  Processing::SurfaceParameters parameters_;
  bool search_ = false;        // the distance may be in another component or channel
  std::string channel_;        // the one asked for
  std::optional<Box> framed_;  // in the world, the space scale included
};

}  // namespace

void addSurface(Command& command) {
  auto const options = std::make_shared<SurfaceOptions>();
  auto& verb = command.verb(
      "surface", "Makes the surfaces of a sequence of frames: meshes, pictures, level sets",
      [options](Session& session) {
        checkView(options->view);
        SurfaceSequence(session, *options).run();
      });
  verb.add_option("input", options->path, "A cache folder, or one cache file (.vdb)")
      ->required()
      ->type_name("INPUT");
  verb.add_option("--object", options->object, "The object; may be left out where there is one")
      ->type_name("NAME");
  verb.add_option_function<std::string>(
          "--channel",
          [options](std::string const& name) { options->values["distance_channel"] = name; },
          "The distance channel, or component/channel; if left out 'distance', else the only "
          "level set")
      ->type_name("NAME");
  verb.add_option("--frames", options->frames,
                  "Frames such as 1-48, 1-48x2 or 1,5,9-12; if left out all that there are")
      ->type_name("LIST");
  verb.add_option("--mesh", options->mesh,
                  "Meshes to write, '#' or %04d standing for the frame: out.####.ply, .obj, .stl")
      ->type_name("FILES");
  verb.add_option("--render", options->picture, "Pictures to write: out.####.png, .exr")
      ->type_name("FILES");
  verb.add_option("--vdb", options->vdb, "Level sets to write: out.####.vdb")->type_name("FILES");
  verb.add_option("--params", options->params,
                  "A JSON object of the keys below; options on the command line win")
      ->type_name("FILE");
  addMeshContent(verb, options->content);
  verb.add_flag("--allow-open", options->allowOpen,
                "Open edges are no error: for surfaces that end at a border");
  addView(verb, options->view);
  addDistanceMode(verb, options->distance);
  addSequence(verb, options->sequence);
  addSurfaceKeys(verb, options->values);
}

}  // namespace Velmor::Tool
