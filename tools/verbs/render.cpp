#include "render/render.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <locale>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include "command.h"
#include "names.h"
#include "output.h"
#include "processing/volume.h"
#include "progress.h"
#include "render/spheres.h"
#include "stopwatch.h"
#include "surface_input.h"
#include "velmorhost/scene.h"
#include "verbs.h"
#include "view.h"
#include "writers/image_writer.h"

namespace Velmor::Tool {

namespace {

using Render::Vec3d;

struct RenderOptions {
  InputOptions input;
  std::string channel;
  ViewOptions view;
  std::optional<double> spheres;  // their radius in voxels
  Host::DistanceMode distance = Host::DistanceMode::Auto;
  std::string output;
};

// What is to be seen, with everything that keeps it loaded.
struct Subject {
  LoadedSurface surface;
  std::unique_ptr<Processing::Volume> volume;
  API::VoxelChannel density;
  API::PointComponent points;
  FoundChannel channel;
  std::array<double, 3> origin{};
  double radius = 0.;

  DistanceTreatment treatment() const {
    return surface.surface != nullptr ? treatmentOf(*surface.surface) : DistanceTreatment();
  }
  char const* kind() const {
    if (points.valid()) return "spheres";
    return volume != nullptr ? "fog" : "surface";
  }
  Render::Box reach() const {
    if (points.valid()) return Render::reachOf(points, radius);
    return volume != nullptr ? Render::reachOfFog(density)
                             : Render::reachOf(surface.surface->accel());
  }
  // Why there is nothing to be seen.
  std::string nothing() const {
    if (points.valid()) return "'" + channel.component + "' holds no particles";
    return "'" + channel.channel + "' " +
           (volume != nullptr ? "is above 0 nowhere" : "crosses zero nowhere");
  }
  Render::Image picture(Render::Camera const& camera, Render::Settings const& settings,
                        Render::Progress const& progress) const {
    if (points.valid()) return Render::renderSpheres(points, radius, camera, settings, progress);
    if (volume != nullptr) return Render::renderFog(density, camera, settings, progress);
    auto const& shown = *surface.surface;
    return Render::renderSurface(shown.distance(), shown.accel(), camera, settings, progress);
  }
};

Subject spheresOf(Input const& input, Selection const& selection, double radius) {
  auto const object = input.load(selection);
  for (auto const& component : object.components()) {
    API::PointComponent const points{API::Ref(component)};
    if (!points.valid()) continue;
    Subject subject;
    subject.points = points;
    subject.channel = {points.name().str(), "position"};
    subject.origin = origin(points);
    subject.radius = radius;
    return subject;
  }
  throw Failure(ExitCode::Input, input.path(),
                "object '" + selection.object + "' has no particles for --spheres");
}

Subject fogOf(Session& session, Input const& input, Selection const& selection,
              FoundChannel const& channel) {
  Processing::VolumeParameters parameters;
  parameters.cache_folder = input.cacheFolder();
  parameters.object = input.query(selection);
  parameters.point_component = "";
  parameters.voxel_component = channel.component;
  parameters.density_channel = channel.channel;
  Subject subject;
  subject.channel = channel;
  subject.volume = std::make_unique<Processing::Volume>(parameters);
  session.check(subject.volume->status(), input.path());
  subject.density = subject.volume->voxels().findChannel(channel.channel);
  subject.origin = origin(subject.volume->voxels());
  return subject;
}

Subject surfaceOf(Session& session, Input const& input, Selection const& selection,
                  RenderOptions const& options) {
  Subject subject;
  subject.surface = loadSurface(session, input, selection, options.channel, options.distance);
  subject.channel = subject.surface.channel;
  subject.origin = subject.surface.origin;
  return subject;
}

// Fog if it was asked for, or if that is what the channel is.
Subject load(Session& session, Input const& input, Selection const& selection,
             RenderOptions const& options) {
  if (options.spheres) return spheresOf(input, selection, *options.spheres);
  FoundChannel channel;
  {
    // Only a loaded object tells what its channels are; a shape then loads its own,
    // and what there is to say of it is said then.
    listenTo(options.channel.empty() ? "distance" : options.channel);
    auto const object = input.load(selection);
    bool const asked = options.view.settings.shading == Render::Shading::Density;
    bool fog = false;
    auto const known = floatChannelsOutside(object, "");
    if (known.empty() && holdsParticles(object)) {
      throw Failure(ExitCode::Input, input.path(),
                    "holds no float channel. The object has particles: --spheres R shows them");
    }
    if (options.channel.empty()) {
      fog = asked || !hasDistance(object);
      if (fog) channel = defaultDensity(object, input.path());
    } else {
      auto const found = findChannel(object, options.channel);
      channel = found ? *found : FoundChannel{"volume", options.channel};
      API::Component const component(object.findComponent(channel.component));
      API::Channel const data(component.findChannel(channel.channel));
      if (data.dataType() != API::DataType::Float) {
        auto const hint = channelHint(object, options.channel, API::DataType::Float);
        throw Failure(ExitCode::Input, input.path(),
                      (found ? "channel '" + options.channel + "' is no float channel"
                             : "no channel '" + options.channel + "'; there is " +
                                   quotedList(known, "no float channel")) +
                          (hint.empty() ? "" : ". " + hint));
      }
      fog = asked ||
            (Host::fieldClass(data) != Host::FieldClass::LevelSet && channel.channel != "distance");
    }
    if (!fog) return surfaceOf(session, input, selection, options);
  }
  listenTo(channel.channel);
  return fogOf(session, input, selection, channel);
}

char const* nameOf(Render::Shading shading) {
  switch (shading) {
    case Render::Shading::Matte:
      return "matte";
    case Render::Shading::Normal:
      return "normal";
    case Render::Shading::Depth:
      return "depth";
    case Render::Shading::Density:
      return "density";
  }
  return "";
}

void checkSpheres(RenderOptions const& options) {
  if (!options.spheres) return;
  if (!std::isfinite(*options.spheres) || *options.spheres <= 0.) {
    throw Failure(ExitCode::Usage, "", "--spheres: a radius is a number above 0");
  }
  if (options.view.settings.shading == Render::Shading::Density) {
    throw Failure(ExitCode::Usage, "", "--spheres are no fog: --shade density does not fit");
  }
}

void run(Session& session, RenderOptions options) {
  auto const& format = imageFormat(options.output);
  checkView(options.view);
  checkSpheres(options);
  if (isStandardOutput(options.output)) session.reportToStandardError();
  Times times;
  Input const input(options.input.path);
  auto const selection = input.select(options.input);
  checkOutput(options.output);

  auto const subject = load(session, input, selection, options);
  auto const box = subject.reach();
  bool const fog = subject.volume != nullptr;
  if (isEmpty(box)) {
    session.warn(input.path() + ": nothing to be seen: " + subject.nothing());
  }
  if (subject.surface.surface == nullptr && options.distance != Host::DistanceMode::Auto) {
    session.note(input.path() + ": " +
                 (fog ? "'" + subject.channel.channel + "' is shown as fog"
                      : "particles are shown as spheres") +
                 ": --distance does nothing");
  }
  auto& shading = options.view.settings.shading;
  if (fog && shading == Render::Shading::Normal) {
    session.note(input.path() + ": '" + subject.channel.channel +
                 "' is shown as fog, which has no normals");
  }
  if (fog && shading != Render::Shading::Depth) shading = Render::Shading::Density;
  auto const camera = cameraOf(options.view, subject.origin, box);
  times.end("load");

  Render::Image image;
  {
    Progress progress(session, "rendering");
    image = subject.picture(camera, options.view.settings,
                            [&progress](double done) { progress.show(done); });
  }
  auto const treatment = subject.treatment();
  double const renderSeconds = times.end("render");
  OutputFile out(options.output);
  format.write(image, out);
  out.commit();

  double const rays =
      static_cast<double>(image.width) * image.height * options.view.settings.samples;
  Vec3d const shift(subject.origin[0], subject.origin[1], subject.origin[2]);
  Vec3d const eye = camera.eye() + shift, target = camera.target() + shift;
  double const covered = coverage(image);
  if (covered == 0. && !isEmpty(box)) session.warn(options.output + ": the camera sees nothing");
  times.end("write");
  Json report = reportOf(input, selection);
  report["component"] = subject.channel.component;
  report["channel"] = subject.channel.channel;
  report["as"] = subject.kind();
  if (!treatment.mode.empty()) report["distance"] = treatment.report();
  if (subject.points.valid()) report["spheres"] = Render::sphereCount(subject.points);
  report["shade"] = nameOf(options.view.settings.shading);
  report["size"] = {image.width, image.height};
  report["samples"] = options.view.settings.samples;
  report["eye"] = {eye.x, eye.y, eye.z};
  report["target"] = {target.x, target.y, target.z};
  report["covered"] = covered;
  report["output"] = options.output;
  report["format"] = format.name;
  report["rays"] = rays;
  report["rays_per_second"] = renderSeconds > 0. ? rays / renderSeconds : 0.;
  report["seconds"] = times.json();

  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "object    " << wordsFor(selection) << '\n'
       << "channel   " << subject.channel.component << '/' << subject.channel.channel << ", as "
       << subject.kind() << '\n';
  if (!treatment.mode.empty()) text << "distance  " << treatment.words() << '\n';
  text << "size      " << image.width << " x " << image.height << ", "
       << options.view.settings.samples << " rays per pixel\n"
       << std::fixed << std::setprecision(1) << "covered   " << covered * 100. << " %\n"
       << "seconds   " << times.text() << '\n'
       << "output    " << options.output << '\n';
  session.report(std::move(report), text.str());
}

}  // namespace

void addRender(Command& command) {
  auto const options = std::make_shared<RenderOptions>();
  auto& verb = command.verb("render", "Writes a picture of a surface, a fog volume or particles",
                            [options](Session& session) { run(session, *options); });
  addInput(verb, options->input);
  verb.add_option("--channel", options->channel,
                  "The channel, or component/channel: a distance is shown as a surface, anything "
                  "else as fog. If left out: the distance, or else the density")
      ->type_name("NAME");
  verb.add_option("--spheres", options->spheres,
                  "Show the particles instead, each as a sphere of this radius in their voxels")
      ->excludes("--channel")
      ->type_name("R");
  addView(verb, options->view);
  verb.add_option("--shade", options->view.settings.shading,
                  "matte: lit; normal: the normal as a colour; depth: the distance along the ray "
                  "(one float channel Z in .exr); density: fog")
      ->transform(CLI::CheckedTransformer(
                      std::map<std::string, Render::Shading>{{"matte", Render::Shading::Matte},
                                                             {"normal", Render::Shading::Normal},
                                                             {"depth", Render::Shading::Depth},
                                                             {"density", Render::Shading::Density}})
                      .description(""))
      ->type_name("matte|normal|depth|density");
  addDistanceMode(verb, options->distance);
  verb.add_option("-o,--output", options->output,
                  "The picture: .png or .exr; a pipe or a device without an extension gets PNG, "
                  "'-' is standard output")
      ->required()
      ->type_name("FILE");
}

}  // namespace Velmor::Tool
