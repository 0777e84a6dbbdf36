#include "render/render.h"

#include <algorithm>
#include <iomanip>
#include <locale>
#include <map>
#include <memory>
#include <sstream>

#include "command.h"
#include "names.h"
#include "output.h"
#include "processing/volume.h"
#include "progress.h"
#include "stopwatch.h"
#include "surface_input.h"
#include "vectors.h"
#include "velmorhost/scene.h"
#include "verbs.h"
#include "writers/image_writer.h"

namespace Velmor::Tool {

namespace {

using Render::Vec3d;

struct RenderOptions {
  InputOptions input;
  std::string channel;
  std::string eye, target;
  double fov = 40.;
  std::string size = "1280x720";
  Host::DistanceMode distance = Host::DistanceMode::Auto;
  Render::Settings settings;
  std::string output;
};

// What is to be seen, with everything that keeps it loaded.
struct Subject {
  LoadedSurface surface;
  std::unique_ptr<Processing::Volume> volume;
  API::VoxelChannel density;
  FoundChannel channel;
  std::array<double, 3> origin{};

  API::Layout layout() const {
    return volume != nullptr ? API::Layout(density.layout()) : surface.surface->accel();
  }
};

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
  FoundChannel channel;
  {
    // Only a loaded object tells what its channels are; a shape then loads its own.
    auto const object = input.load(selection);
    bool const asked = options.settings.shading == Render::Shading::Density;
    bool fog = false;
    if (options.channel.empty()) {
      fog = asked || !hasDistance(object);
      if (fog) channel = defaultDensity(object, input.path());
    } else {
      auto const found = findChannel(object, options.channel);
      channel = found ? *found : FoundChannel{"volume", options.channel};
      API::Component const component(object.findComponent(channel.component));
      API::Channel const data(component.findChannel(channel.channel));
      if (data.dataType() != API::DataType::Float) {
        throw Failure(ExitCode::Input, input.path(),
                      (found ? "channel '" + options.channel + "' is no float channel"
                             : "no channel '" + options.channel + "'") +
                          channelHint(object, options.channel, API::DataType::Float));
      }
      fog = asked ||
            (Host::fieldClass(data) != Host::FieldClass::LevelSet && channel.channel != "distance");
    }
    if (!fog) return surfaceOf(session, input, selection, options);
  }
  return fogOf(session, input, selection, channel);
}

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
  if (!size || text.find(',') != std::string::npos || (*size)[0] < 1. || (*size)[1] < 1. ||
      (*size)[0] > largest || (*size)[1] > largest) {
    throw Failure(ExitCode::Usage, "",
                  "--size: '" + text + "' is no size; write WIDTHxHEIGHT, each from 1 to 16384");
  }
  settings.width = static_cast<int>((*size)[0]);
  settings.height = static_cast<int>((*size)[1]);
}

bool isEmpty(Render::Box const& box) {
  return !(box.max.x > box.min.x && box.max.y > box.min.y && box.max.z > box.min.z);
}

Render::Camera cameraOf(RenderOptions const& options, Subject const& subject,
                        Render::Box const& box) {
  Vec3d const shift(subject.origin[0], subject.origin[1], subject.origin[2]);
  if (!options.eye.empty()) {
    Vec3d const eye = place(options.eye, "--eye"), target = place(options.target, "--target");
    if (!(Render::length(eye - target) > 0.)) {
      throw Failure(ExitCode::Usage, "", "--eye and --target are the same place");
    }
    return {eye - shift, target - shift, options.fov};
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

void run(Session& session, RenderOptions options) {
  auto const& format = imageFormat(options.output);
  parseSize(options.size, options.settings);
  if (options.eye.empty() != options.target.empty()) {
    throw Failure(ExitCode::Usage, "", "--eye and --target go together");
  }
  if (isStandardOutput(options.output)) session.reportToStandardError();
  Stopwatch total, watch;
  Input const input(options.input.path);
  auto const selection = input.select(options.input);
  checkOutput(options.output);

  auto const subject = load(session, input, selection, options);
  auto const box = Render::reachOf(subject.layout());
  bool const fog = subject.volume != nullptr;
  if (isEmpty(box)) {
    session.warn(input.path() + ": nothing to be seen: '" + subject.channel.channel + "' " +
                 (fog ? "holds no voxels" : "crosses zero nowhere"));
  }
  auto const camera = cameraOf(options, subject, box);
  double const loadSeconds = watch.lap();

  Render::Image image;
  {
    Progress progress(session, "rendering");
    auto const show = [&progress](double done) { progress.show(done); };
    image = fog ? Render::renderFog(subject.density, camera, options.settings, show)
                : Render::renderSurface(subject.surface.surface->distance(),
                                        subject.surface.surface->accel(), camera, options.settings,
                                        show);
  }
  double const renderSeconds = watch.lap();
  OutputFile out(options.output);
  format.write(image, out);
  out.commit();

  double const rays = static_cast<double>(image.width) * image.height * options.settings.samples;
  Vec3d const eye = camera.eye() + Vec3d(subject.origin[0], subject.origin[1], subject.origin[2]);
  double const covered = coverage(image);
  double const totalSeconds = total.lap();
  Json report;
  report["input"] = input.path();
  report["object"] = selection.object;
  report["frame"] = selection.frame;
  report["component"] = subject.channel.component;
  report["channel"] = subject.channel.channel;
  report["as"] = fog ? "fog" : "surface";
  report["shade"] = nameOf(options.settings.shading);
  report["size"] = {image.width, image.height};
  report["samples"] = options.settings.samples;
  report["eye"] = {eye.x, eye.y, eye.z};
  report["covered"] = covered;
  report["output"] = options.output;
  report["format"] = format.name;
  report["rays"] = rays;
  report["rays_per_second"] = renderSeconds > 0. ? rays / renderSeconds : 0.;
  report["seconds"] = {{"load", loadSeconds}, {"render", renderSeconds}, {"total", totalSeconds}};

  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "object    " << selection.object << ", frame " << selection.frame << '\n'
       << "channel   " << subject.channel.component << '/' << subject.channel.channel << ", as "
       << (fog ? "fog" : "surface") << '\n'
       << "size      " << image.width << " x " << image.height << ", " << options.settings.samples
       << " rays per pixel\n"
       << std::fixed << std::setprecision(1) << "covered   " << covered * 100. << " %\n"
       << std::setprecision(2) << "seconds   " << totalSeconds << " (load " << loadSeconds
       << ", render " << renderSeconds << ")\n"
       << "output    " << options.output << '\n';
  session.report(std::move(report), text.str());
}

}  // namespace

void addRender(Command& command) {
  auto const options = std::make_shared<RenderOptions>();
  auto& verb = command.verb("render", "Writes a picture of a surface or a fog volume",
                            [options](Session& session) { run(session, *options); });
  addInput(verb, options->input);
  verb.add_option("--channel", options->channel,
                  "The channel, or component/channel: a distance is shown as a surface, anything "
                  "else as fog. If left out: the distance, or else the density")
      ->type_name("NAME");
  verb.add_option("--eye", options->eye,
                  "Where the camera stands, in world units; if left out it frames everything")
      ->type_name("X,Y,Z");
  verb.add_option("--target", options->target, "Where the camera looks, in world units")
      ->type_name("X,Y,Z");
  verb.add_option("--fov", options->fov, "Vertical field of view")
      ->check(CLI::Range(0.01, 179.))
      ->type_name("DEGREES");
  verb.add_option("--size", options->size, "Pixels of the picture")->type_name("WIDTHxHEIGHT");
  verb.add_option("--samples", options->settings.samples, "Rays per pixel")
      ->check(CLI::Range(1, 4096))
      ->type_name("N");
  verb.add_option("--shade", options->settings.shading,
                  "matte: lit; normal: the normal as a colour; depth: the distance along the ray "
                  "(one float channel Z in .exr); density: fog")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, Render::Shading>{{"matte", Render::Shading::Matte},
                                                 {"normal", Render::Shading::Normal},
                                                 {"depth", Render::Shading::Depth},
                                                 {"density", Render::Shading::Density}}))
      ->type_name("matte|normal|depth|density");
  addDistanceMode(verb, options->distance);
  verb.add_option("-o,--output", options->output,
                  "The picture: .png or .exr; a pipe or a device without an extension gets PNG, "
                  "'-' is standard output")
      ->required()
      ->type_name("FILE");
}

}  // namespace Velmor::Tool
