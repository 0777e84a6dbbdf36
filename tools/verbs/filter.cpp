#include <algorithm>
#include <array>
#include <iomanip>
#include <locale>
#include <memory>
#include <optional>
#include <sstream>

#include "channel_edits.h"
#include "channel_stats.h"
#include "command.h"
#include "operators.h"
#include "output.h"
#include "stopwatch.h"
#include "velmorapi/object_model.h"
#include "velmorhost/scene.h"
#include "verbs.h"

namespace Velmor::Tool {

namespace {

struct FilterOptions {
  InputOptions input;
  std::string channel;
  std::vector<std::string> operators;
  std::vector<int> depths;
  std::string into;
  std::size_t maxTiles = 20'000'000;
  std::string output;
};

// An ocean joins a liquid and a plane over bands of this many voxels; with
// narrower ones the join's own plateau looks like a surface to ray queries.
constexpr float oceanBand = 5.f;
constexpr float narrowestOceanBand = 4.44f;

VoxelTarget findTarget(API::Object const& object, FilterOptions const& options,
                       std::vector<Operator> const& operators, std::string const& subject) {
  if (findChannel(object, options.channel) || !operators.front().makesChannel()) {
    return requireChannel(object, options.channel, subject);
  }
  // The channel is made later, once everything has been checked.
  auto const slash = options.channel.find('/');
  for (auto const& component : object.components()) {
    API::VoxelComponent const voxels = component;
    if (!voxels.valid()) continue;
    if (slash == std::string::npos || voxels.name().str() == options.channel.substr(0, slash)) {
      requireNewName("--channel", options.channel.substr(slash + 1), voxels);
      return {voxels, {}};
    }
  }
  throw Failure(ExitCode::Input, subject, "no voxel component for '" + options.channel + "'");
}

void widenForOcean(Session& session, API::VoxelChannel const& channel, std::string const& subject) {
  float const voxel = API::Layout(channel.layout()).voxelScale();
  float const band = channel.backgroundValue<float>();
  if (!(band > 0.f)) {
    throw Failure(ExitCode::Input, subject,
                  "'" + channel.name().str() + "' is no level set: its background is not positive");
  }
  if (band >= narrowestOceanBand * voxel) return;
  Host::movePlateau(channel, oceanBand * voxel);
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << subject << ": moved the plateau of '" << channel.name().str() << "' from "
       << std::setprecision(3) << band / voxel << " voxels out to 5, which an ocean needs";
  session.note(text.str());
}

// Whether a float channel is a level set with both an inside and an outside.
bool hasSurface(API::VoxelChannel const& channel) {
  if (channel.dataType() != API::DataType::Float ||
      Host::fieldClass(channel) != Host::FieldClass::LevelSet) {
    return false;
  }
  auto const stats = voxelStats(channel);
  return stats.min[0] <= 0. && stats.max[0] > 0.;
}

void checkMasks(std::vector<Operator> const& operators, std::string const& into,
                API::Component const& component) {
  std::vector<std::string> taken;
  if (!into.empty()) taken.push_back(into);
  for (auto const& each : operators) {
    auto const mask = each.maskName();
    if (mask.empty()) continue;
    requireNewName(each.text(), mask, component);
    if (std::find(taken.begin(), taken.end(), mask) != taken.end()) {
      throw Failure(ExitCode::Usage, "", each.text() + ": '" + mask + "' is used twice");
    }
    taken.push_back(mask);
  }
}

void run(Session& session, FilterOptions const& options) {
  std::vector<Operator> operators;
  for (auto const& text : options.operators) operators.emplace_back(text);
  refuseReserved("--channel", options.channel);
  if (!options.into.empty()) refuseReserved("--into", options.into);
  if (!options.depths.empty() && options.depths[0] > options.depths[1]) {
    throw Failure(ExitCode::Usage, "", "--depths: the first is above the second");
  }
  if (isStandardOutput(options.output)) session.reportToStandardError();
  checkCacheOutput(options.output);

  Times times;
  Input const input(options.input.path);
  checkNotInput(input, options.output);
  auto const selection = input.select(options.input);
  auto const object = input.load(selection);
  times.end("load");

  auto [component, channel] = findTarget(object, options, operators, input.path());
  bool const missing = !channel.valid();
  if (!options.into.empty()) requireNewName("--into", options.into, component);
  checkMasks(operators, options.into, component);
  OperatorTarget target;
  target.component = component;
  target.type = missing ? API::DataType::Float2 : channel.dataType();
  target.name = options.channel;
  target.origin = origin(component);
  target.maxTiles = options.maxTiles;
  if (!options.depths.empty()) target.depths = {options.depths[0], options.depths[1]};
  std::vector<Operator::Step> steps;
  for (auto const& each : operators) steps.push_back(each.bind(target));

  if (missing) {
    API::StateServer const server(API::ObjectModel::stateServer(component.stateID()));
    auto const name =
        options.into.empty() ? options.channel.substr(options.channel.find('/') + 1) : options.into;
    channel = API::VoxelChannel(server.createChannel(component, target.type, name));
  } else if (!options.into.empty()) {
    channel = Host::copyChannel(channel, options.into);
  }
  if (!channel.valid()) throw Failure(ExitCode::Other, input.path(), "no channel could be made");
  if (std::any_of(operators.begin(), operators.end(), [](auto const& o) { return o.isOcean(); })) {
    widenForOcean(session, channel, input.path());
  }
  bool const surface = std::all_of(operators.begin(), operators.end(),
                                   [](auto const& each) { return each.keepsDistance(); }) &&
                       hasSurface(channel);
  if (Host::fieldClass(channel) == Host::FieldClass::FogVolume) {
    for (auto const& each : operators) {
      if (!each.wantsDistance()) continue;
      session.warn(input.path() + ": '" + channel.name().str() + "' is a fog volume; " +
                   each.text() + " is meant for distances");
    }
  }
  {
    KeptChannels const kept(component);
    for (auto const& step : steps) step(channel);
  }
  if (surface && !hasSurface(channel)) {
    session.warn(input.path() + ": no surface is left: '" + channel.name().str() +
                 "' crosses zero nowhere");
  }
  times.end("filter");
  writeCache(object, options.output);
  times.end("write");

  Json report = reportOf(input, selection);
  report["component"] = component.name().str();
  report["channel"] = options.channel;
  report["result"] = channel.name().str();
  report["type"] = typeName(target.type);
  report["operators"] = options.operators;
  report["output"] = options.output;
  report["seconds"] = times.json();
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "object     " << wordsFor(selection) << '\n'
       << "channel    " << component.name().str() << '/' << channel.name().str() << ", "
       << typeName(target.type) << '\n'
       << "operators ";
  for (auto const& each : options.operators) text << ' ' << each;
  text << '\n' << "seconds    " << times.text() << '\n' << "output     " << options.output << '\n';
  session.report(std::move(report), text.str());
}

}  // namespace

void addFilter(Command& command) {
  auto const options = std::make_shared<FilterOptions>();
  auto& verb = command.verb("filter", "Changes a voxel channel, or makes a changed copy of it",
                            [options](Session& session) { run(session, *options); });
  addInput(verb, options->input);
  verb.add_option("--channel", options->channel, "The channel, or component/channel")
      ->required()
      ->type_name("NAME");
  verb.add_option("--op", options->operators,
                  "An operator and its arguments between colons, such as offset:0.5 or "
                  "smooth:laplacian:3:0.5; may be given several times, and they run in this order")
      ->required()
      ->take_all()
      ->expected(1)
      ->type_name("OP");
  verb.add_flag_callback(
          "--list", [] { throw CLI::CallForVersion(Operator::list(), 0); },
          "Explain the operators and do nothing else")
      ->trigger_on_parse();
  verb.add_option("--depths", options->depths,
                  "Only tiles of these depths, the root being 0; everything if either is below 1. "
                  "Without it stencils work on leaf tiles and the rest on all")
      ->expected(2)
      ->type_name("MIN MAX");
  verb.add_option("--into", options->into,
                  "A new channel for the result; the named one stays as it is")
      ->check([](std::string const& name) { return name.empty() ? "a name is missing" : ""; })
      ->type_name("NAME");
  verb.add_option("--max-tiles", options->maxTiles, "Refuse an ocean of more leaf tiles than this")
      ->type_name("N")
      ->capture_default_str();
  verb.add_option("-o,--output", options->output,
                  "The cache file (.vdb), with all other channels of the input")
      ->required()
      ->type_name("FILE");
}

}  // namespace Velmor::Tool
