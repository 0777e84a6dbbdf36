#include "input.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "names.h"
#include "velmorapi/state_server.h"
#include "velmorhost/files.h"
#include "velmorhost/scene.h"

namespace Velmor::Tool {

namespace {

// The graph that looks into the input; it lives as long as this.
class ScanGraph {
 public:
  explicit ScanGraph(std::string const& path)
      : graph_(API::ObjectModel::createActiveGraph(name)),
        importer_(graph_.createCacheResourceImporter(path)) {}
  ~ScanGraph() { API::ObjectModel::removeActiveGraph(name); }
  ScanGraph(ScanGraph const&) = delete;
  ScanGraph& operator=(ScanGraph const&) = delete;

  API::Runtime::ActiveGraph const& graph() const { return graph_; }
  API::Runtime::CacheResourceImporter const& importer() const { return importer_; }

 private:
  static constexpr char const* name = "velmor command input";
  API::Runtime::ActiveGraph graph_;
  API::Runtime::CacheResourceImporter importer_;
};

bool isCacheName(std::string const& path) {
  std::string_view const ending = ".vdb";
  return path.size() > ending.size() &&
         std::equal(ending.begin(), ending.end(), path.end() - std::ptrdiff_t{4},
                    [](char a, char b) { return a == b || (b >= 'A' && b <= 'Z' && a == b + 32); });
}

std::vector<std::string> objectNames(std::vector<CacheObject> const& objects) {
  std::vector<std::string> names;
  for (auto const& object : objects) names.push_back(object.name);
  return names;
}

}  // namespace

void Input::fail(std::string const& text) const { throw Failure(ExitCode::Input, path_, text); }

Input::Input(std::string path) : path_(std::move(path)) {
  struct stat there {};
  if (stat(path_.c_str(), &there) != 0) fail(std::strerror(errno));
  isFile_ = !S_ISDIR(there.st_mode);
  if (isFile_ && !S_ISREG(there.st_mode)) fail("neither a file nor a folder");
  if (isFile_ && !isCacheName(path_)) fail("not a cache file: its name does not end in .vdb");
  if (isFile_ && access(path_.c_str(), R_OK) != 0) fail(std::strerror(errno));
  if (!isFile_) {
    auto* const folder = opendir(path_.c_str());
    if (folder == nullptr) fail(std::strerror(errno));
    closedir(folder);
  }

  ScanGraph const scan(path_);
  scan.importer().readFiles(false, false, "", "");
  for (auto const& file : Host::cacheFiles(scan.importer())) {
    files_.push_back(file.path);
    if (objects_.empty() || objects_.back().name != file.object) {
      objects_.push_back({file.object, false, {}});
    }
    if (file.numbered) {
      objects_.back().frames.push_back(file.frame);
    } else {
      objects_.back().everyFrame = true;
    }
  }
  for (auto& object : objects_) {
    std::sort(object.frames.begin(), object.frames.end());
    object.frames.erase(std::unique(object.frames.begin(), object.frames.end()),
                        object.frames.end());
  }
  if (objects_.empty()) {
    fail(isFile_ ? "not a cache file" : "no cache files (.vdb) in this folder");
  }
}

CacheObject const& Input::object(std::string const& name) const {
  auto const names = objectNames(objects_);
  if (name.empty()) {
    if (objects_.size() == 1) return objects_.front();
    fail("holds several objects; choose one with --object: " + quotedList(names, ""));
  }
  auto const found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    fail("no object '" + name + "'; there is " + quotedList(names, "none") +
         didYouMean(name, names));
  }
  return objects_[static_cast<std::size_t>(found - names.begin())];
}

int Input::frameOrFirst(CacheObject const& object, std::optional<int> frame) const {
  if (!frame) return object.frames.empty() ? 0 : object.frames.front();
  if (!object.everyFrame &&
      !std::binary_search(object.frames.begin(), object.frames.end(), *frame)) {
    fail("object '" + object.name + "' has no frame " + std::to_string(*frame) + "; it has " +
         frameList(object.frames));
  }
  return *frame;
}

Selection Input::select(InputOptions const& options) const {
  auto const& chosen = object(options.object);
  if (!options.frame && chosen.frames.size() + (chosen.everyFrame ? 1 : 0) > 1) {
    fail("object '" + chosen.name +
         "' has several frames; choose one with --frame: " + frameList(chosen.frames));
  }
  auto const frame = frameOrFirst(chosen, options.frame);
  return {chosen.name, frame,
          !std::binary_search(chosen.frames.begin(), chosen.frames.end(), frame)};
}

API::String Input::query(Selection const& selection) const {
  auto const frame = "frame=" + std::to_string(selection.frame);
  // A file is one object, whatever its name.
  return isFile_ ? frame : frame + ", name=\"" + selection.object + "\"";
}

bool Input::holds(std::string const& path) const {
  struct stat there {
  }, file{};
  if (stat(path.c_str(), &there) != 0) return false;
  return std::any_of(files_.begin(), files_.end(), [&](std::string const& name) {
    return stat(name.c_str(), &file) == 0 && file.st_dev == there.st_dev &&
           file.st_ino == there.st_ino;
  });
}

API::Object Input::load(Selection const& selection) const {
  ScanGraph const scan(path_);
  scan.importer().readFiles(false, false, selection.object, "");
  API::Array<API::String> ids;
  scan.importer().resIDs(selection.object, selection.frame, ids);
  if (ids.count() != 1) {
    fail("object '" + selection.object + "', frame " + std::to_string(selection.frame) + ": " +
         std::to_string(ids.count()) + " files hold it");
  }
  API::Runtime::CacheResource const resource = scan.graph().resource(selection.frame, ids[0]);
  // The host has said by now what is wrong with the file.
  if (!resource.load({}).succeeded()) {
    fail("could not read object '" + selection.object + "', frame " +
         std::to_string(selection.frame));
  }
  API::StateServer const server = resource.dataSource();
  API::Object const object = server.findObject(selection.object);
  if (!object.valid()) fail("the file holds no object '" + selection.object + "'");
  return object;
}

std::string typeName(API::DataType type) {
  switch (type) {
    case API::DataType::Float:
      return "float";
    case API::DataType::Float2:
      return "float2";
    case API::DataType::Float3:
      return "float3";
    case API::DataType::Int:
      return "int";
    case API::DataType::Int2:
      return "int2";
    case API::DataType::Int3:
      return "int3";
    case API::DataType::None:
      break;
  }
  return "none";
}

void listenTo(std::string const& name) {
  auto read = Host::readOptions();
  read.messagesAbout = name.substr(name.find('/') + 1);  // all of it without a '/'
  Host::setReadOptions(read);
}

Json reportOf(Input const& input, Selection const& selection) {
  Json report;
  report["input"] = input.path();
  report["object"] = selection.object;
  report["frame"] = selection.frame;
  report["every_frame"] = selection.everyFrame;
  return report;
}

std::string wordsFor(Selection const& selection) {
  return selection.object + (selection.everyFrame ? ", all frames (one file)"
                                                  : ", frame " + std::to_string(selection.frame));
}

std::optional<FoundChannel> findChannel(API::Object const& object, std::string const& name) {
  for (auto const& component : object.components()) {
    API::VoxelComponent const voxels = component;
    for (auto const& channel : voxels.channels()) {
      FoundChannel const found{voxels.name().str(), channel.name().str()};
      if (name == found.channel || name == found.component + "/" + found.channel) return found;
    }
  }
  return std::nullopt;
}

namespace {

struct FloatChannel {
  FoundChannel at;
  Host::FieldClass fieldClass;
};

std::vector<FloatChannel> floatChannels(API::Object const& object) {
  std::vector<FloatChannel> found;
  for (auto const& component : object.components()) {
    API::VoxelComponent const voxels = component;
    for (auto const& channel : voxels.channels()) {
      if (channel.dataType() != API::DataType::Float) continue;
      found.push_back({{voxels.name().str(), channel.name().str()}, Host::fieldClass(channel)});
    }
  }
  return found;
}

// The channel of that name, else the only one of that class. What the message
// calls the class is `kind`.
FoundChannel defaultChannel(API::Object const& object, std::string const& subject,
                            std::string const& name, Host::FieldClass fieldClass,
                            std::string const& kind) {
  auto const all = floatChannels(object);
  std::vector<FoundChannel> fitting, candidates;
  for (auto const& channel : all) {
    if (channel.at.channel == name) return channel.at;
    if (channel.fieldClass == fieldClass) fitting.push_back(channel.at);
    candidates.push_back(channel.at);
  }
  if (fitting.size() == 1) return fitting.front();
  std::vector<std::string> names;
  for (auto const& c : fitting.empty() ? candidates : fitting) {
    names.push_back(c.component == "volume" ? c.channel : c.component + "/" + c.channel);
  }
  if (candidates.empty()) throw Failure(ExitCode::Input, subject, "holds no float channel");
  throw Failure(ExitCode::Input, subject,
                "no channel '" + name + "' and " + (fitting.empty() ? "no " : "several ") + kind +
                    (fitting.empty() ? "" : "s") +
                    "; choose one with --channel: " + quotedList(names, ""));
}

}  // namespace

FoundChannel defaultDistance(API::Object const& object, std::string const& subject) {
  return defaultChannel(object, subject, "distance", Host::FieldClass::LevelSet, "level set");
}

FoundChannel defaultDensity(API::Object const& object, std::string const& subject) {
  auto const all = floatChannels(object);
  if (all.size() == 1) return all.front().at;
  return defaultChannel(object, subject, "density", Host::FieldClass::FogVolume, "fog volume");
}

bool hasDistance(API::Object const& object) {
  auto const all = floatChannels(object);
  auto const named = [&](char const* name) {
    return std::any_of(all.begin(), all.end(),
                       [&](auto const& channel) { return channel.at.channel == name; });
  };
  auto const levelSets = std::count_if(all.begin(), all.end(), [](auto const& channel) {
    return channel.fieldClass == Host::FieldClass::LevelSet;
  });
  // Several level sets beside a density are what a smoke solver keeps of its domain.
  return named("distance") || levelSets == 1 || (levelSets > 1 && !named("density"));
}

void failWithoutChannel(API::Object const& object, std::string const& name,
                        std::string const& subject) {
  auto const slash = name.find('/');
  std::vector<std::string> names, all;
  for (auto const& component : object.components()) {
    API::VoxelComponent const voxels = component;
    auto const at = voxels.name().str();
    for (auto const& channel : voxels.channels()) {
      bool const meant = slash == std::string::npos || at == name.substr(0, slash);
      if (meant) names.push_back(channel.name().str());
      all.push_back(at + "/" + channel.name().str());
    }
  }
  auto const& known = names.empty() ? all : names;
  bool const particles = all.empty() && holdsParticles(object);
  throw Failure(ExitCode::Input, subject,
                "no voxel channel '" + name + "'; there is " + quotedList(known, "none") +
                    (particles ? ": the object has particles only" : "") + didYouMean(name, known));
}

std::vector<std::string> floatChannelsOutside(API::Object const& object,
                                              std::string const& component) {
  std::vector<std::string> names;
  for (auto const& channel : floatChannels(object)) {
    if (channel.at.component != component) {
      names.push_back(channel.at.component + "/" + channel.at.channel);
    }
  }
  return names;
}

bool holdsParticles(API::Object const& object) {
  auto const components = object.components();
  return std::any_of(components.begin(), components.end(), [](API::Component const& component) {
    return API::PointComponent{API::Ref(component)}.valid();
  });
}

std::string channelHint(API::Object const& object, std::string const& name, API::DataType wanted) {
  std::vector<std::string> names;
  for (auto const& component : object.components()) {
    API::VoxelComponent const voxels = component;
    for (auto const& channel : voxels.channels()) {
      if (channel.dataType() == wanted) {
        names.push_back(channel.name().str());
      } else if (channel.name() == name) {
        return "'" + name + "' holds " + typeName(channel.dataType()) + " values, not " +
               typeName(wanted) + ".";
      }
    }
  }
  auto const nearest = nearestName(name, names);
  return nearest.empty() ? "" : "Did you mean '" + nearest + "'?";
}

std::array<double, 3> origin(API::Component const& component) {
  // Components of one object can lie differently; what they share is the object's.
  auto dictionary = component.dictionary();
  if (!dictionary.hasValue("origin")) {
    dictionary = API::Object(component.object()).dictionary();
  }
  auto const rounded = dictionary.value<orlen::Math::vec<3, float>>("origin");
  auto const halfVoxel = 0.5 * dictionary.value<double>("voxel_size");
  std::array<double, 3> result{};
  for (int axis = 0; axis < 3; ++axis) {
    // The file's own numbers are doubles, and place the centre of voxel 0. Where
    // somebody has moved the object, its origin alone holds.
    auto const key = std::string("translation_") + "xyz"[axis];
    auto const exact = dictionary.value<double>(key) - halfVoxel;
    bool const same = dictionary.hasValue(key) && static_cast<float>(exact) == rounded[axis];
    result[static_cast<std::size_t>(axis)] = same ? exact : static_cast<double>(rounded[axis]);
  }
  return result;
}

}  // namespace Velmor::Tool
