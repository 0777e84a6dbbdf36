#include <cmath>
#include <filesystem>
#include <iomanip>
#include <locale>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "command.h"
#include "frame_runner.h"
#include "frames.h"
#include "names.h"
#include "output.h"
#include "point_cache.h"
#include "stopwatch.h"
#include "velmorapi/object_model.h"
#include "verbs.h"

namespace Velmor::Tool {

namespace {

struct ImportOptions {
  std::string input, cache, frames;
  PointObject object;
  std::optional<int> frame;
  std::optional<double> voxelSize;
  SequenceOptions sequence;
};

// Queries and file names could not say such a name again.
void checkName(std::string const& name) {
  API::Query const query(API::ObjectModel::createQuery());
  query.load("name=\"" + name + "\"");
  // A quote would end the name there, and more keys could follow.
  bool const said = query.valid() && name.find('"') == std::string::npos;
  if (!said || name.empty() || name.front() == '.' || name.front() == ' ' || name.back() == ' ') {
    throw Failure(ExitCode::Usage, "",
                  "--object: '" + name +
                      "' is no name for an object; it may not be empty, begin with '.', begin "
                      "or end with a blank, or hold control characters, '/', '\\', '\"', ',', "
                      "'..', 'name=' or 'Filters'");
  }
}

// The files to import by their frames.
std::map<int, std::string> filesOf(ImportOptions const& options) {
  FramePattern const pattern(options.input);
  std::map<int, std::string> files;
  if (!pattern.numbered()) {
    if (!options.frames.empty()) {
      throw Failure(ExitCode::Usage, "",
                    "--frames goes with a pattern for several files; the frame that a single one "
                    "becomes is --frame");
    }
    files[options.frame.value_or(1)] = options.input;
    return files;
  }
  if (options.frame) {
    throw Failure(ExitCode::Usage, "",
                  "--frame goes with a single file; of a pattern's files --frames picks some");
  }
  if (options.frames.empty()) {
    for (auto const& [frame, path] : pattern.find()) files[frame] = path;
    if (files.empty()) {
      throw Failure(ExitCode::Input, options.input, "no file fits this pattern");
    }
    return files;
  }
  for (int const frame : parseFrames(options.frames)) files[frame] = pattern.path(frame);
  return files;
}

std::string fileOf(ImportOptions const& options, int frame) {
  auto const& name = options.object.name;
  return options.cache + "/" + name + "/" + FramePattern(name + ".####.vdb").path(frame);
}

// Particles that are read from cache files could be those of the cache itself.
void checkNotInputs(ImportOptions const& options, std::map<int, std::string> const& files) {
  std::error_code unreadable;
  std::set<std::filesystem::path> inputs;
  for (auto const& [frame, path] : files) {
    inputs.insert(std::filesystem::weakly_canonical(path, unreadable));
  }
  for (auto const& [frame, path] : files) {
    auto const output = fileOf(options, frame);
    if (inputs.count(std::filesystem::weakly_canonical(output, unreadable)) == 0) continue;
    throw Failure(ExitCode::Usage, output, "is the input itself; name another object or cache");
  }
}

// The grid of the first frame that has particles holds for all.
PointGrid gridOf(ImportOptions const& options, std::map<int, std::string> const& files) {
  for (auto const& [frame, path] : files) {
    try {
      if (auto const grid = measureGrid(readParticles(path), options.voxelSize)) return *grid;
    } catch (Failure const&) {
      // Said when its turn comes.
    }
  }
  PointGrid grid;
  grid.voxelSize = static_cast<double>(static_cast<float>(options.voxelSize.value_or(1.)));
  return grid;
}

// Makes a folder, and takes away again what it made of it if nothing comes to lie
// there.
class Folder {
 public:
  explicit Folder(std::string path) : path_(std::move(path)) {
    std::error_code error;
    for (auto part = path_; !part.empty() && !std::filesystem::exists(part, error) && !error;
         part = part.parent_path()) {
      made_.push_back(part);
    }
    if (!error) std::filesystem::create_directories(path_, error);
    if (error)
      throw Failure(ExitCode::Output, path_.string(), "cannot be made: " + error.message());
  }
  ~Folder() {
    std::error_code notEmpty;
    for (auto const& part : made_) {
      if (!std::filesystem::remove(part, notEmpty)) return;
    }
  }
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;

 private:
  std::filesystem::path path_;
  std::vector<std::filesystem::path> made_;  // the deepest first
};

void importFrame(Session& session, ImportOptions const& options, PointGrid const& grid,
                 std::string const& path, FrameOutcome& outcome) {
  auto const particles = readParticles(path);
  auto const stored = writePoints(particles, grid, options.object, fileOf(options, outcome.frame));
  auto const ofAll = " of " + std::to_string(particles.count()) + " particles left out: ";
  if (stored.notFinite > 0) {
    session.warn(path + ": " + std::to_string(stored.notFinite) + ofAll +
                 "their positions are no numbers");
  }
  if (stored.outside > 0) {
    session.warn(path + ": " + std::to_string(stored.outside) + ofAll +
                 "they lie more than 195312 voxels from the origin");
  }
  for (auto const& what : particles.skipped) session.note(path + ": left out: " + what);
  outcome.line = std::to_string(stored.count) + " particles";
  outcome.report["input"] = path;
  outcome.report["output"] = fileOf(options, outcome.frame);
  outcome.report["particles"] = stored.count;
  outcome.report["not_finite"] = stored.notFinite;
  outcome.report["outside"] = stored.outside;
  outcome.report["channels"] = stored.channels;
}

void run(Session& session, ImportOptions const& options) {
  if (options.voxelSize && !(std::isfinite(*options.voxelSize) && *options.voxelSize > 0.)) {
    throw Failure(ExitCode::Usage, "", "--voxel-size is no positive number");
  }
  checkName(options.object.name);
  auto const files = filesOf(options);
  checkNotInputs(options, files);
  auto const folder = options.cache + "/" + options.object.name;
  Folder const made(folder);
  Times times;
  auto const grid = gridOf(options, files);
  times.end("measure");

  std::vector<int> frames;
  for (auto const& [frame, path] : files) frames.push_back(frame);
  auto const outcomes = runFrames(
      session, "importing", frames, options.sequence, options.input,
      [&](int frame) { return std::filesystem::is_regular_file(fileOf(options, frame)); },
      [&](FrameOutcome& outcome) {
        importFrame(session, options, grid, files.at(outcome.frame), outcome);
      });
  times.end("import");

  std::size_t particles = 0;
  for (auto const& outcome : outcomes) {
    if (outcome.report.contains("particles"))
      particles += outcome.report["particles"].get<std::size_t>();
  }
  Json report;
  report["input"] = options.input;
  report["object"] = options.object.name;
  report["cache"] = options.cache;
  report["voxel_size"] = grid.voxelSize;
  report["voxel_size_measured"] = !options.voxelSize;
  report["origin"] = grid.origin;
  report["particles"] = particles;
  reportFrames(outcomes, report);
  report["seconds"] = times.json();

  std::error_code unreadable;
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "object      " << options.object.name << '\n'
       << "voxel size  " << std::setprecision(6) << grid.voxelSize
       << (options.voxelSize ? " (as given)\n"
           : particles == 0  ? " (there was nothing to measure)\n"
                             : " (measured: eight particles in a filled voxel)\n");
  if (grid.origin != std::array<double, 3>{}) {
    text << "origin      " << std::setprecision(9) << grid.origin[0] << ", " << grid.origin[1]
         << ", " << grid.origin[2] << '\n';
  }
  text << "particles   " << particles << '\n'
       << "frames      " << summaryOf(outcomes) << '\n'
       << "seconds     " << times.text() << '\n'
       << "output      " << (std::filesystem::is_empty(folder, unreadable) ? "none" : folder)
       << '\n';
  // A single file that cannot be read is an unreadable input, no gap in a sequence.
  bool const failed = outcomes.size() == 1 && !outcomes.front().error.empty();
  if (failed) {
    bool const sequence = FramePattern(options.input).numbered();
    session.fail(sequence ? ExitCode::Frames : outcomes.front().code, outcomes.front().error);
  }
  session.report(std::move(report), text.str());
  if (!failed) finishSequence(session, outcomes, options.input);
}

}  // namespace

void addImport(Command& command) {
  auto const options = std::make_shared<ImportOptions>();
  auto& verb = command.verb("import", "Makes a cache of particle files",
                            [options](Session& session) { run(session, *options); });
  verb.add_option("input", options->input,
                  "A file, or a pattern for one per frame such as particles.####.ply or "
                  "particles.%04d.ply: .ply, .vtk, .vtu, .vtp, .bgeo (classic), .csv, .xyz or .vdb "
                  "(points)")
      ->required()
      ->type_name("FILES");
  verb.add_option("--object", options->object.name, "The name of the object in the cache")
      ->required()
      ->type_name("NAME");
  verb.add_option("--cache", options->cache, "The cache folder; made if need be")
      ->required()
      ->type_name("FOLDER");
  verb.add_option("--frames", options->frames,
                  "The frames to import, such as 1-48, 1-48x2 or 1,5,9-12; if left out all that "
                  "there are")
      ->type_name("LIST");
  verb.add_option("--frame", options->frame, "The frame that a single file becomes; 1 if left out")
      ->type_name("N");
  verb.add_option("--voxel-size", options->voxelSize,
                  "The voxel size, of which radii are multiples; if left out the size at which a "
                  "filled voxel of the first frame holds eight particles")
      ->type_name("SIZE");
  verb.add_option("--droplet-threshold", options->object.dropletThreshold,
                  "Particles whose 'droplet' is at least this are droplets; 1 if left out")
      ->type_name("T");
  verb.add_flag("--spatial-adaptivity", options->object.spatialAdaptivity,
                "Let surfaces enlarge the radii of particles where there are few");
  addSequence(verb, options->sequence);
}

}  // namespace Velmor::Tool
