#include "shapes/loading.h"

#include <cmath>
#include <limits>

#include "processing/pointwise_filters.h"
#include "velmorapi/file.h"
#include "velmorapi/object_model.h"

namespace Velmor::Processing {

namespace {

using Float3 = orlen::Math::vec<3, float>;

/// Piece `i` of a split text, empty where there are fewer: the description of a
/// query is the host's, and not worth a crash.
API::String piece(API::Array<API::String> const& pieces, std::size_t i) {
  return i < pieces.count() ? pieces[i] : API::String();
}

API::String objectNameOf(API::Query const& query) {
  auto const filters = piece(query.info().split("Filters"), 1);
  return piece(piece(filters.split("name="), 1).split(','), 0);
}

/// The steps of one loading. Each returns false after it has written an error.
class Loader {
 public:
  Loader(ShapeParameters const& parameters, Status& status)
      : parameters_(parameters), status_(status), path_(parameters.cache_folder) {}

  LoadedObject run() {
    if (findSource() && openGraph() && chooseObject() && loadFrame()) {
      takeComponents();
      scaleVelocities();
    }
    return loaded_;
  }

 private:
  bool findSource() {
    API::Query const query(API::ObjectModel::createQuery());
    query.load(parameters_.object);
    if (!query.valid()) {
      status_.fail() << "Invalid object query: '" << parameters_.object << "'.";
      return false;
    }
    auto const binding = query.binding();
    frame_ = binding.frame;
    auto const inMemory = query.run();
    if (!inMemory.empty()) return writeToTempFolder(API::Object(inMemory[0]), binding.graph);
    objectName_ = objectNameOf(query);
    path_ += "/" + objectName_;
    return true;
  }

  /// An object in memory goes through a file, so that the shape may change its
  /// channels without changing those of whoever owns the object.
  bool writeToTempFolder(API::Object const& object, API::String const& graphName) {
    objectName_ = object.name();
    path_ = API::File::createTempFolder();
    loaded_.tempFolder = path_;
    // Without a folder the host would be asked to write beside the process.
    if (path_.empty() || !save(object, graphName)) {
      status_.fail() << "Failed to write to temporary cache folder.";
      return false;
    }
    return true;
  }

  bool save(API::Object const& object, API::String const& graphName) const {
    API::Runtime::ActiveGraph const graph(API::ObjectModel::activeGraph(graphName));
    API::String resID;
    bool saved = false;
    {
      // Released before the removal, which would else leave the resource alive.
      API::Runtime::CacheResource const resource(
          graph.createCacheResource(frame_, path_, objectName_, "", ""));
      resID = resource.resID();
      saved = resource.save(object, API::VRC::Compression::Default).succeeded();
    }
    graph.removeResource(frame_, resID);
    return saved;
  }

  bool openGraph() {
    graph_ = API::ObjectModel::activeGraph(path_);
    if (!graph_.valid()) graph_ = API::ObjectModel::createActiveGraph(path_);
    if (!graph_.valid()) {
      status_.fail() << "Could not create active graph for path: '" << path_ << "'";
      return false;
    }
    loaded_.activeGraphName = graph_.name();
    importer_ = graph_.createCacheResourceImporter(path_);
    return true;
  }

  bool chooseObject() {
    importer_.readFiles(false, false, objectName_, "");
    auto const names = importer_.objectNames();
    if (!objectName_.empty()) {
      if (names.count() == 1) return true;
      status_.fail() << "Could not find object '" << objectName_ << "' in path '" << path_ << "'";
      return false;
    }
    if (names.empty()) {
      status_.fail() << "Could not find objects in path '" << path_ << "'";
      return false;
    }
    objectName_ = names[0];
    if (names.count() > 1) {
      status_.warn() << "Found multiple objects in path '" << path_ << "'. Using object '"
                     << objectName_ << "'.";
    }
    return true;
  }

  bool loadFrame() {
    API::Array<API::String> resIDs;
    importer_.resIDs(objectName_, frame_, resIDs);
    if (resIDs.count() != 1) {
      status_.fail() << "Could not figure what resource ID to use: "
                     << static_cast<unsigned int>(resIDs.count()) << " found.";
      return false;
    }
    API::Runtime::CacheResource const resource(graph_.resource(frame_, resIDs[0]));
    if (!resource.load(loadOptions()).succeeded()) {
      status_.fail() << "Failed to load frame '" << frame_ << "'.";
      return false;
    }
    API::StateServer const server(resource.dataSource());
    if (!server.valid()) {
      status_.fail() << "Invalid state server.";
      return false;
    }
    object_ = server.findObject(objectName_);
    if (!object_.valid()) {
      status_.fail() << "Could not find object in state server '" << server.name() << "'";
      return false;
    }
    loaded_.found = true;
    return true;
  }

  API::Runtime::CacheResource::LoadOptions loadOptions() const {
    API::Runtime::CacheResource::LoadOptions options;  // no channel named: all are loaded
    if (parameters_.clip) options.bounds = parameters_.clip_bbox;
    options.keepLoaded = false;
    options.points = true;
    options.voxels = true;
    return options;
  }

  void takeComponents() {
    if (!parameters_.point_component.empty()) {
      loaded_.points = findComponent(parameters_.point_component);
    }
    if (!parameters_.voxel_component.empty()) {
      loaded_.voxels = findComponent(parameters_.voxel_component);
    }
  }

  API::Ref findComponent(API::String const& name) {
    auto component = object_.findComponent(name);
    // Level sets built from particles carry the name of their object.
    if (!component.valid()) component = object_.findComponent(objectName_ + "-" + name);
    if (!component.valid()) {
      status_.warn() << "Could not find component named '" << name << "'.";
    }
    return component;
  }

  void scaleVelocities() const {
    float const s = (parameters_.space_scale * parameters_.velocity_scale) / parameters_.fps;
    if (!(std::abs(s - 1.f) > std::numeric_limits<float>::epsilon())) return;
    auto const& name = parameters_.velocity_channel;
    ScaleFilter<float> const scaleFloat(s);
    for (char const* suffix : {"_u", "_v", "_w"}) {
      scaleInPlace(scaleFloat, loaded_.voxels.findChannel(name + suffix));
    }
    ScaleFilter<Float3> const scaleVector(Float3(s, s, s));
    scaleInPlace(scaleVector, loaded_.voxels.findChannel(name));
    scaleInPlace(scaleVector, loaded_.points.findChannel(name));
  }

  static void scaleInPlace(Filter const& filter, API::Channel const& channel) {
    if (channel.valid()) filter.filter(channel, channel);
  }

  ShapeParameters const& parameters_;
  Status& status_;
  API::String objectName_;
  API::String path_;
  API::Runtime::Frame frame_ = 0;
  API::Runtime::ActiveGraph graph_;
  API::Runtime::CacheResourceImporter importer_;
  API::Object object_;
  LoadedObject loaded_;
};

}  // namespace

LoadedObject loadObject(ShapeParameters const& parameters, Status& status) {
  return Loader(parameters, status).run();
}

}  // namespace Velmor::Processing
