#include <iomanip>
#include <locale>
#include <memory>
#include <sstream>

#include "channel_stats.h"
#include "command.h"
#include "names.h"
#include "velmorhost/scene.h"
#include "verbs.h"

namespace Velmor::Tool {

namespace {

std::string className(Host::FieldClass fieldClass) {
  switch (fieldClass) {
    case Host::FieldClass::LevelSet:
      return "level set";
    case Host::FieldClass::FogVolume:
      return "fog volume";
    case Host::FieldClass::Staggered:
      return "staggered";
    case Host::FieldClass::Unknown:
      break;
  }
  return "unknown";
}

// One number for scalars, an array for vectors; null for what has no number.
Json numbers(ChannelStats const& stats, std::vector<double> const& values) {
  Json all = Json::array();
  for (std::size_t c = 0; c < values.size(); ++c) {
    all.push_back(stats.min[c] > stats.max[c] ? Json() : Json(values[c]));
  }
  return all.size() == 1 ? all.front() : all;
}

Json rangeOf(ChannelStats const& stats) {
  bool none = true;
  for (std::size_t c = 0; c < stats.min.size(); ++c) none = none && stats.min[c] > stats.max[c];
  if (none) return nullptr;
  return {{"min", numbers(stats, stats.min)}, {"max", numbers(stats, stats.max)}};
}

// A box from per-axis numbers, moved by the component's origin.
template <class T>
Json boxOf(T const& lower, T const& upper, double scale, std::array<double, 3> const& origin) {
  if (lower.size() != 3 || lower[0] > upper[0]) return nullptr;
  Json min = Json::array(), max = Json::array();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    min.push_back(static_cast<double>(lower[axis]) * scale + origin[axis]);
    max.push_back(static_cast<double>(upper[axis]) * scale + origin[axis]);
  }
  return {{"min", min}, {"max", max}};
}

Json describe(API::Component const& component) {
  API::Layout const layout = component.layout();
  auto const scale = static_cast<double>(layout.voxelScale());
  auto const from = origin(component);
  API::PointComponent const points = component;

  Json result;
  result["name"] = component.name().str();
  result["type"] = points.valid() ? "points" : "voxels";
  result["voxel_size"] = layout.voxelScale();
  result["origin"] = from;
  if (points.valid()) result["count"] = points.elementCount();
  Json tiles = Json::array();
  for (int depth = 0; depth <= layout.maxDepth(); ++depth) {
    tiles.push_back(Host::tileCount(layout, depth));
  }
  result["tiles"] = tiles;

  Json box = nullptr;
  if (points.valid()) {
    auto const stats = pointStats(points.findChannel("position"));
    box = boxOf(stats.min, stats.max, scale, from);
  }
  Json channels = Json::array();
  for (auto const& channel : component.channels()) {
    Json entry;
    entry["name"] = channel.name().str();
    entry["type"] = typeName(channel.dataType());
    if (points.valid()) {
      auto const stats = pointStats(channel);
      entry["count"] = stats.active;
      entry["range"] = rangeOf(stats);
      entry["bounds"] = box;
    } else {
      auto const stats = voxelStats(channel);
      entry["class"] = className(Host::fieldClass(channel));
      entry["active_voxels"] = stats.active;
      entry["stored_voxels"] = stats.stored;
      entry["range"] = rangeOf(stats);
      entry["bounds"] = boxOf(stats.lower, stats.upper, scale, from);
    }
    channels.push_back(entry);
  }
  result["channels"] = channels;
  return result;
}

std::string words(Json const& value) {
  if (value.is_null()) return "-";
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::setprecision(6);
  if (value.is_array()) {
    text << '(';
    for (std::size_t i = 0; i < value.size(); ++i) {
      text << (i > 0 ? ", " : "") << words(value[i]);
    }
    text << ')';
  } else if (value.is_object()) {
    text << words(value["min"]) << " to " << words(value["max"]);
  } else if (value.is_number_float()) {
    text << value.get<double>();
  } else if (value.is_string()) {
    text << value.get<std::string>();
  } else {
    text << value.dump();
  }
  return text.str();
}

// Lines of cells, each column as wide as its widest cell.
std::string table(std::vector<std::vector<std::string>> const& lines, std::string const& indent) {
  std::vector<std::size_t> widths;
  for (auto const& line : lines) {
    widths.resize(std::max(widths.size(), line.size()), 0);
    for (std::size_t c = 0; c < line.size(); ++c) widths[c] = std::max(widths[c], line[c].size());
  }
  std::string text;
  for (auto const& line : lines) {
    std::string row = indent;
    for (std::size_t c = 0; c < line.size(); ++c) {
      row += line[c] + std::string(widths[c] - line[c].size() + 2, ' ');
    }
    text += row.substr(0, row.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

std::string framesOf(Json const& object) {
  auto text = frameList(object["frames"].get<std::vector<int>>());
  if (object["every_frame"].get<bool>())
    text += text.empty() ? "all (one file)" : ", else one file";
  return text;
}

std::string describeInWords(Json const& report) {
  std::string text;
  for (auto const& object : report["objects"]) {
    text += "object " + words(object["name"]) + "\n  frames: " + framesOf(object) + "\n";
    bool const several = object["frames"].size() > 1;
    if (object.contains("error")) {
      auto const frame = several && object.contains("frame")
                             ? "frame " + words(object["frame"]) + " "
                             : std::string();
      text += "  " + frame + "could not be read\n";
    } else if (several) {
      text += "  described: frame " + words(object["frame"]) + "\n";
    }
    for (auto const& component : object["components"]) {
      bool const points = component["type"] == "points";
      text += "  component " + words(component["name"]) + " (" + words(component["type"]) +
              "): " + (points ? words(component["count"]) + " points, " : "") + "voxel size " +
              words(component["voxel_size"]) + ", origin " + words(component["origin"]) +
              " (world units)\n    tiles per depth: " + words(component["tiles"]) + "\n";
      std::vector<std::vector<std::string>> lines;
      if (points) {
        lines.push_back({"channel", "type", "points", "range"});
      } else {
        lines.push_back({"channel", "type", "class", "active voxels", "stored voxels", "range",
                         "bounds (world units)"});
      }
      for (auto const& c : component["channels"]) {
        if (points) {
          lines.push_back(
              {words(c["name"]), words(c["type"]), words(c["count"]), words(c["range"])});
        } else {
          lines.push_back({words(c["name"]), words(c["type"]), words(c["class"]),
                           words(c["active_voxels"]), words(c["stored_voxels"]), words(c["range"]),
                           words(c["bounds"])});
        }
      }
      text += table(lines, "    ");
      if (points && !component["channels"].empty()) {
        text += "    bounds of the points: " + words(component["channels"][0]["bounds"]) +
                " (world units)\n";
      }
    }
  }
  return text;
}

void run(Session& session, InputOptions const& options) {
  Input const input(options.path);
  if (!options.object.empty()) input.object(options.object);  // a wrong name ends here
  Json report;
  report["input"] = input.path();
  Json objects = Json::array();
  bool anyRead = false;
  for (auto const& object : input.objects()) {
    if (!options.object.empty() && object.name != options.object) continue;
    Json entry;
    entry["name"] = object.name;
    entry["every_frame"] = object.everyFrame;
    entry["frames"] = object.frames;
    Json components = Json::array();
    // One unreadable object does not hide the others.
    try {
      Selection const selection{object.name, input.frameOrFirst(object, options.frame)};
      entry["frame"] = selection.frame;
      auto const loaded = input.load(selection);
      for (auto const& component : loaded.components()) components.push_back(describe(component));
      anyRead = true;
    } catch (Failure const& failure) {
      entry["error"] = failure.what();
      session.error(failure);
    }
    entry["components"] = components;
    objects.push_back(entry);
  }
  // The messages say it all, but of what else is there, and programs do not read them.
  bool const single = objects.size() == 1 && objects[0]["frames"].size() <= 1;
  if (!anyRead && single && !session.options().json) return;
  report["objects"] = objects;
  auto const text = describeInWords(report);
  session.report(std::move(report), text);
}

}  // namespace

void addInfo(Command& command) {
  auto const options = std::make_shared<InputOptions>();
  auto& verb = command.verb(
      "info", "Lists the objects, frames, components and channels of a file or cache folder",
      [options](Session& session) { run(session, *options); });
  addInput(verb, *options);
  verb.footer(
      "Of an object with several frames the one of --frame is described, or the first.\n\n" +
      verb.get_footer());
}

}  // namespace Velmor::Tool
