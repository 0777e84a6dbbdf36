#include "surface_keys.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <sstream>
#include <vector>

#include "failure.h"
#include "names.h"
#include "readers/table.h"
#include "session.h"
#include "vectors.h"

namespace Velmor::Tool {

namespace {

using Parameters = Processing::SurfaceParameters;

struct Field {
  // Puts a text into the field; false if it does not fit.
  std::function<bool(std::string const&, Parameters&)> set;
  std::function<Json(Parameters const&)> get;
  char const* range = "";  // what the kind alone does not say
};

struct Key {
  char const* name;
  char const* kind;
  char const* help;
  Field field;
};

bool fitsFloat(double x) {
  return std::abs(x) <= static_cast<double>(std::numeric_limits<float>::max());
}

// The number as people write it: 0.1, not the nearest double to a float's 0.1.
Json shortest(float x) {
  std::array<char, 32> digits{};
  auto const end = std::to_chars(digits.data(), digits.data() + digits.size(), x).ptr;
  double value = 0.;
  std::from_chars(digits.data(), end, value);
  return value;
}

template <class Owner>
Field number(float Owner::*field) {
  return {[field](std::string const& text, Parameters& p) {
            auto const value = parseVector<1>(text);
            if (!value || !fitsFloat((*value)[0])) return false;
            p.*field = static_cast<float>((*value)[0]);
            return true;
          },
          [field](Parameters const& p) { return shortest(p.*field); }};
}

template <class Owner>
Field length(float Owner::*field) {
  auto const any = number(field);
  return {[any, field](std::string const& text, Parameters& p) {
            return any.set(text, p) && p.*field >= 0.f;
          },
          any.get, ", 0 or more"};
}

Field integer(int Parameters::*field) {
  return {[field](std::string const& text, Parameters& p) {
            auto const end = text.data() + text.size();
            auto const read = std::from_chars(text.data(), end, p.*field);
            return read.ec == std::errc() && read.ptr == end;
          },
          [field](Parameters const& p) { return Json(p.*field); }};
}

template <class Owner>
Field flag(bool Owner::*field) {
  return {[field](std::string const& text, Parameters& p) {
            bool const on = text == "true" || text == "1" || text == "on" || text == "yes";
            p.*field = on;
            return on || text == "false" || text == "0" || text == "off" || text == "no";
          },
          [field](Parameters const& p) { return Json(p.*field); }};
}

template <class Owner>
Field name(API::String Owner::*field) {
  return {[field](std::string const& text, Parameters& p) {
            p.*field = text;
            return true;
          },
          [field](Parameters const& p) { return Json((p.*field).str()); }};
}

Field pair(orlen::Math::vec<2, float> Parameters::*field) {
  return {[field](std::string const& text, Parameters& p) {
            auto const value = parseVector<2>(text);
            if (!value || !fitsFloat((*value)[0]) || !fitsFloat((*value)[1])) return false;
            p.*field = {static_cast<float>((*value)[0]), static_cast<float>((*value)[1])};
            return true;
          },
          [field](Parameters const& p) {
            return Json{shortest((p.*field).x), shortest((p.*field).y)};
          }};
}

bool setBox(std::string const& text, Parameters& p) {
  auto const v = parseVector<6>(text);
  if (!v || !std::all_of(v->begin(), v->end(), fitsFloat)) return false;
  auto const at = [&v](std::size_t i) { return static_cast<float>((*v)[i]); };
  p.clip_bbox = {{at(0), at(1), at(2)}, {at(3), at(4), at(5)}};
  return true;
}

Json boxOf(Parameters const& p) {
  auto const corner = [](auto const& v) {
    return Json{shortest(v.x), shortest(v.y), shortest(v.z)};
  };
  return {{"min", corner(p.clip_bbox.min)}, {"max", corner(p.clip_bbox.max)}};
}

bool setChannels(std::string const& text, Parameters& p) {
  p.channels.clear();
  std::istringstream names(text);
  for (std::string channel; std::getline(names, channel, ',');) {
    if (!channel.empty()) p.channels.add(channel);
  }
  return true;
}

Json channelsOf(Parameters const& p) {
  auto names = Json::array();
  for (auto const& channel : p.channels) names.push_back(channel.str());
  return names;
}

bool same(std::string const& text, char const* word) {
  return text.size() == std::char_traits<char>::length(word) &&
         std::equal(text.begin(), text.end(), word,
                    [](char a, char b) { return (a | 0x20) == (b | 0x20); });
}

bool setRenderComponent(std::string const& text, Parameters& p) {
  bool const particle = same(text, "Particle") || text == "1";
  p.render_component = particle ? Parameters::Particle : Parameters::Volume;
  return particle || same(text, "Volume") || text == "0";
}

Json renderComponentOf(Parameters const& p) {
  return p.render_component == Parameters::Particle ? "Particle" : "Volume";
}

bool setSmoothMode(std::string const& text, Parameters& p) {
  bool const curvature = same(text, "Curvature") || text == "1";
  p.smooth_mode = curvature ? Parameters::Curvature : Parameters::Laplacian;
  return curvature || same(text, "Laplacian") || text == "0";
}

Json smoothModeOf(Parameters const& p) {
  return p.smooth_mode == Parameters::Curvature ? "Curvature" : "Laplacian";
}

std::vector<Key> const& keys() {
  using P = Parameters;
  using S = Processing::ShapeParameters;
  static std::vector<Key> const all{
      {"point_component", "NAME", "Component of the points", name<S>(&S::point_component)},
      {"voxel_component", "NAME", "Component of the voxels", name<S>(&S::voxel_component)},
      {"channels", "NAMES", "Channel names, carried along only", {setChannels, channelsOf}},
      {"velocity_channel", "NAME", "Velocities to be scaled", name<S>(&S::velocity_channel)},
      {"uv_channel", "NAME", "Texture coordinates of the ocean", name<S>(&S::uv_channel)},
      {"velocity_scale", "FACTOR", "Factor on velocities", number<S>(&S::velocity_scale)},
      {"space_scale", "FACTOR", "Factor on the world size", number<S>(&S::space_scale)},
      {"fps", "RATE", "Frames per second: velocities become units per frame", number<S>(&S::fps)},
      {"clip", "true|false", "Load only what lies in clip-bbox", flag<S>(&S::clip)},
      {"clip_bbox", "X,Y,Z,X,Y,Z", "The lowest and the highest corner", {setBox, boxOf}},
      {"render_component",
       "Volume|Particle",
       "Where the distance comes from",
       {setRenderComponent, renderComponentOf}},
      {"distance_channel", "NAME", "Channel of the distance (Volume)",
       name<P>(&P::distance_channel)},
      {"levelset_resolution_factor", "FACTOR", "Voxels of the surface per voxel of the points",
       number<P>(&P::levelset_resolution_factor)},
      {"levelset_droplet_reveal_factor", "FACTOR",
       "Droplet radii from the liquid at which droplets have their full size",
       number<P>(&P::levelset_droplet_reveal_factor)},
      {"levelset_surface_radius", "VOXELS", "Radius of particles",
       number<P>(&P::levelset_surface_radius)},
      {"levelset_droplet_radius", "VOXELS", "Radius of droplets",
       number<P>(&P::levelset_droplet_radius)},
      {"levelset_max_volume_of_holes_to_close", "VOLUME", "Enclosed holes up to this are filled",
       number<P>(&P::levelset_max_volume_of_holes_to_close)},
      {"dilate", "DISTANCE", "Moves the surface outwards first", number<P>(&P::dilate)},
      {"smooth", "AMOUNT", "Step of the smoothing", number<P>(&P::smooth)},
      {"smooth_mode",
       "Laplacian|Curvature",
       "Flow of the smoothing",
       {setSmoothMode, smoothModeOf}},
      {"smooth_iterations", "N", "Passes of the smoothing", integer(&P::smooth_iterations)},
      {"erode", "DISTANCE", "Moves the surface inwards at last", number<P>(&P::erode)},
      {"enable_ocean_blending", "true|false", "Blend the liquid into an ocean",
       flag<P>(&P::enable_ocean_blending)},
      {"ocean_blending_height", "Y", "Height of the ocean", number<P>(&P::ocean_blending_height)},
      {"ocean_blending_center", "X,Z", "Centre of the ocean", pair(&P::ocean_blending_center)},
      {"ocean_blending_dimension", "X,Z", "Size of the ocean", pair(&P::ocean_blending_dimension)},
      {"ocean_blending_radius", "DISTANCE", "Width of the transition",
       length<P>(&P::ocean_blending_radius)},
      {"ocean_blending_out_channel", "NAME", "Channel to keep the ocean's mask in",
       name<P>(&P::ocean_blending_out_channel)},
      {"enable_ocean_blending_uvs", "true|false", "Extend texture coordinates over the ocean",
       flag<P>(&P::enable_ocean_blending_uvs)},
      {"compute_laplacian", "true|false", "Make a channel 'laplacian'",
       flag<P>(&P::compute_laplacian)},
      {"compute_curvature", "true|false", "Make a channel 'curvature'",
       flag<P>(&P::compute_curvature)}};
  return all;
}

Key const* find(std::string const& key) {
  for (auto const& known : keys()) {
    if (key == known.name) return &known;
  }
  return nullptr;
}

std::string withDashes(std::string key) {
  std::replace(key.begin(), key.end(), '_', '-');
  return key;
}

// One number, truth or text.
std::optional<std::string> scalarText(Json const& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number() || value.is_boolean()) return value.dump();
  return std::nullopt;
}

// The text that an option would have for a JSON value; nothing for what no key
// takes. It goes no deeper than a box: files may nest as deep as they like.
std::optional<std::string> listText(Json const& value) {
  if (!value.is_array()) return scalarText(value);
  std::string text;
  for (auto const& part : value) {
    auto const one = scalarText(part);
    if (!one) return std::nullopt;
    text += (text.empty() ? "" : ",") + *one;
  }
  return text;
}

std::optional<std::string> textOf(Json const& value) {
  if (!value.is_object()) return listText(value);
  if (value.size() == 2 && value.contains("min") && value.contains("max")) {
    auto const min = listText(value["min"]), max = listText(value["max"]);
    if (min && max) return *min + "," + *max;
  }
  return std::nullopt;
}

[[noreturn]] void refuse(std::string const& source, Key const& key, std::string const& text) {
  throw Failure(
      ExitCode::Usage, source,
      std::string(key.name) + ": '" + text + "' does not fit; write " + key.kind + key.field.range);
}

Key const& keyOf(std::string const& name, std::string const& path) {
  auto const* const key = find(name);
  if (key != nullptr) return *key;
  if (name == "cache_folder" || name == "object") {
    throw Failure(ExitCode::Usage, path,
                  "key '" + name + "': the input and --object say that on the command line");
  }
  std::vector<std::string> names;
  for (auto const& known : keys()) names.emplace_back(known.name);
  // A key in the spelling of the options is one step away.
  auto underscores = name;
  std::replace(underscores.begin(), underscores.end(), '-', '_');
  auto const hint = didYouMean(underscores, names);
  throw Failure(
      ExitCode::Usage, path,
      "no key '" + name + "'" + (hint.empty() ? "; velmor surface --help lists them" : hint));
}

// Reads a file that is no JSON up to the place where it ceases to be, and throws.
class Complaint final : public nlohmann::json_sax<Json> {
 public:
  Complaint(std::string const& path, std::vector<char> const& bytes) : path_(path), bytes_(bytes) {}

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, string_t const&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override { return ++depth_ > 0; }
  bool end_object() override { return depth_-- > 0; }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool key(string_t& name) override {
    if (depth_ == 1) key_ = name;
    return true;
  }
  bool parse_error(std::size_t position, std::string const& token,
                   nlohmann::detail::exception const& error) override {
    // JSON, but a number that nothing can hold.
    bool const tooLarge = dynamic_cast<Json::out_of_range const*>(&error) != nullptr;
    if (tooLarge && !key_.empty()) refuse(path_, keyOf(key_, path_), token);
    auto const end =
        bytes_.begin() + static_cast<std::ptrdiff_t>(std::min(position, bytes_.size()));
    auto const line = std::count(bytes_.begin(), end, '\n') + 1;
    throw Failure(ExitCode::Input, path_,
                  "line " + std::to_string(line) + ": no JSON" +
                      (token.empty() || position > bytes_.size() ? ", it ends too early"
                                                                 : ": '" + token + "'") +
                      (key_.empty() ? "" : " after the key '" + key_ + "'"));
  }

 private:
  std::string const& path_;
  std::vector<char> const& bytes_;
  std::string key_;
  int depth_ = 0;
};

}  // namespace

void addSurfaceKeys(CLI::App& verb, SurfaceValues& values) {
  for (auto const& key : keys()) {
    auto const dashed = "--" + withDashes(key.name), plain = std::string("--") + key.name;
    verb.add_option_function<std::string>(
            dashed == plain ? plain : dashed + "," + plain,
            [&values, &key](std::string const& text) { values[key.name] = text; }, key.help)
        ->type_name(key.kind)
        ->default_str(textOf(key.field.get(Parameters())).value_or(""))
        ->group("Keys of the surface");
  }
}

SurfaceValues readSurfaceValues(std::string const& path) {
  auto const bytes = readFile(path);
  auto const document = Json::parse(bytes.begin(), bytes.end(), nullptr, false);
  if (document.is_discarded()) {
    Complaint complaint(path, bytes);
    Json::sax_parse(bytes.begin(), bytes.end(), &complaint);
  }
  if (!document.is_object()) throw Failure(ExitCode::Input, path, "no JSON object of keys");
  SurfaceValues values;
  for (auto const& [name, value] : document.items()) {
    auto const& key = keyOf(name, path);
    auto const text = textOf(value);
    if (!text) refuse(path, key, value.is_null() ? "null" : value.is_array() ? "[...]" : "{...}");
    values[name] = *text;
  }
  return values;
}

Json surfaceValues(Processing::SurfaceParameters const& parameters) {
  Json values;
  for (auto const& key : keys()) values[key.name] = key.field.get(parameters);
  return values;
}

void setSurfaceValues(SurfaceValues const& values, std::string const& source,
                      Processing::SurfaceParameters& parameters) {
  for (auto const& [name, text] : values) {
    auto const* const key = find(name);
    if (key != nullptr && !key->field.set(text, parameters)) refuse(source, *key, text);
  }
}

}  // namespace Velmor::Tool
