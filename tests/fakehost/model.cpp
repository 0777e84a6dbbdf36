#include <algorithm>

#include "fakehost/items.h"
#include "velmorapi/file.h"

namespace Velmor::FakeHost {

namespace {

int edgeOf(ComponentItem const& component, TileShape const& shape) {
  return component.layout->treeWidth + 2 * shape.halo;
}

std::size_t storedSize(API::DataType type) {
  // Types that the library knows nothing of have a size, too.
  return type == API::DataType::None ? 0 : std::max<std::size_t>(4, valueSize(type));
}

// The scripted shape with its zeros filled in.
TileShape completed(TileShape shape, ComponentItem const& component) {
  int const edge = edgeOf(component, shape);
  if (shape.strides[0] == 0) {
    shape.strides[0] = 1;
    shape.strides[1] = edge;
    shape.strides[2] = edge * edge;
  }
  if (shape.count == 0) {
    int const last = (edge - 1) * (shape.strides[0] + shape.strides[1] + shape.strides[2]);
    shape.count = static_cast<std::size_t>(last) + 1;
  }
  return shape;
}

template <class I>
I* newest(std::vector<I*> const& items, std::string const& name) {
  auto const found =
      std::find_if(items.rbegin(), items.rend(), [&](I const* item) { return item->name == name; });
  return found == items.rend() ? nullptr : *found;
}

template <class I>
void detach(std::vector<I*>& items, I const* item) {
  items.erase(std::remove(items.begin(), items.end(), item), items.end());
}

}  // namespace

API::StateServer createStateServer(std::string const& name) {
  auto& server = make<ServerItem>(name);
  server.state = world().nextState++;
  world().servers[server.state] = &server;
  return API::StateServer(API::Ref(&server));
}

API::Object createObject(API::StateServer const& server, std::string const& name) {
  auto& object = make<ObjectItem>(name);
  object.state = server.item()->state;
  as<ServerItem>(server)->objects.push_back(&object);
  return API::Object(API::Ref(&object));
}

void setElementCount(API::PointComponent const& points, std::size_t count) {
  as<ComponentItem>(points)->elementCount = count;
}

}  // namespace Velmor::FakeHost

namespace Velmor::API {

using namespace Velmor::FakeHost;

Component::Component(Ref const& ref) noexcept : StateServerItem(only<ComponentItem>(ref)) {}
VoxelComponent::VoxelComponent(Ref const& ref) noexcept : Component(ref) {
  if (valid() && as<ComponentItem>(*this)->points) *this = VoxelComponent();
}
PointComponent::PointComponent(Ref const& ref) noexcept : Component(ref) {
  if (valid() && !as<ComponentItem>(*this)->points) *this = PointComponent();
}
Ref Component::layout() const { return valid() ? Ref(as<ComponentItem>(*this)->layout) : Ref(); }
Ref Component::object() const { return valid() ? Ref(as<ComponentItem>(*this)->object) : Ref(); }
Ref Component::findChannel(String const& name) const {
  return valid() ? Ref(newest(as<ComponentItem>(*this)->channels, name.str())) : Ref();
}
Array<Channel> Component::channels() const {
  Array<Channel> found;
  if (!valid()) return found;
  for (auto* channel : as<ComponentItem>(*this)->channels) found.add(Channel(Ref(channel)));
  return found;
}
std::size_t PointComponent::elementCount() const {
  return valid() ? as<ComponentItem>(*this)->elementCount : 0;
}

Object::Object(Ref const& ref) noexcept : StateServerItem(only<ObjectItem>(ref)) {}
Ref Object::findComponent(String const& name) const {
  return valid() ? Ref(newest(as<ObjectItem>(*this)->components, name.str())) : Ref();
}
Array<Component> Object::components() const {
  Array<Component> found;
  if (!valid()) return found;
  for (auto* component : as<ObjectItem>(*this)->components) found.add(Component(Ref(component)));
  return found;
}
void Object::addComponent(Component const& component) const {
  log("Object::addComponent", quoted(component.name()));
  if (!valid() || !component.valid()) return;
  auto* const object = as<ObjectItem>(*this);
  as<ComponentItem>(component)->object = object;
  object->components.push_back(as<ComponentItem>(component));
}
void Object::removeComponent(String const& name) const {
  log("Object::removeComponent", quoted(name));
  if (!valid()) return;
  auto* const object = as<ObjectItem>(*this);
  detach(object->components, newest(object->components, name.str()));
}

StateServer::StateServer(Ref const& ref) noexcept : Base(only<ServerItem>(ref)) {}
Ref StateServer::findObject(String const& name) const {
  log("StateServer::findObject", quoted(name));
  if (!valid() || mustFail("StateServer::findObject")) return {};
  return Ref(newest(as<ServerItem>(*this)->objects, name.str()));
}
Array<Object> StateServer::objects() const {
  Array<Object> found;
  if (!valid()) return found;
  for (auto* object : as<ServerItem>(*this)->objects) found.add(Object(Ref(object)));
  return found;
}
Ref StateServer::createComponent(String const& type, String const& name, float voxelScale) const {
  log("StateServer::createComponent", quoted(type), quoted(name), voxelScale);
  if (!valid() || mustFail("StateServer::createComponent")) return {};
  auto& component = make<ComponentItem>(name.str());
  component.points = type == String(PointComponentType);
  component.state = item()->state;
  component.layout = &makeLayout("layout", voxelScale, item()->state);
  as<ServerItem>(*this)->components.push_back(&component);
  return Ref(&component);
}
Ref StateServer::createChannel(Component const& component, DataType type,
                               String const& name) const {
  log("StateServer::createChannel", quoted(component.name()), static_cast<int>(type), quoted(name));
  auto const size = storedSize(type);
  if (!valid() || !component.valid() || size == 0 || mustFail("StateServer::createChannel")) {
    return {};
  }
  auto& channel = make<ChannelItem>(name.str());
  channel.state = item()->state;
  channel.type = type;
  channel.component = as<ComponentItem>(component);
  channel.shape = completed(script().nextChannel, *channel.component);
  channel.background.resize(size);
  channel.component->channels.push_back(&channel);
  return Ref(&channel);
}
Ref StateServer::createLayout(String const& name) const {
  log("StateServer::createLayout", quoted(name));
  if (!valid() || mustFail("StateServer::createLayout")) return {};
  return Ref(&makeLayout(name.str(), 1.f, item()->state));
}
void StateServer::removeChannel(String const& path) const {
  auto const pieces = path.split('/');
  auto const count = pieces.count();
  ChannelItem* found = nullptr;
  if (valid()) {
    for (auto* component : as<ServerItem>(*this)->components) {
      auto* const channel = newest(component->channels, pieces[count - 1].str());
      if (channel == nullptr) continue;
      if (count > 1 && component->name != pieces[count - 2].str()) continue;
      if (count > 2 &&
          (component->object == nullptr || component->object->name != pieces[count - 3].str())) {
        continue;
      }
      found = channel;
    }
  }
  log("StateServer::removeChannel", quoted(path),
      "handles=" + std::to_string(found == nullptr ? -1 : found->handles.load()));
  if (found != nullptr) detach(found->component->channels, found);
}
void StateServer::removeComponent(String const& name) const {
  log("StateServer::removeComponent", quoted(name));
  if (!valid()) return;
  auto* const server = as<ServerItem>(*this);
  auto* const component = newest(server->components, name.str());
  if (component == nullptr) return;
  detach(server->components, component);
  if (component->object != nullptr) detach(component->object->components, component);
}

Query::Query(Ref const& ref) noexcept : Ref(only<QueryItem>(ref)) {}
void Query::load(String const& text) const { log("Query::load", quoted(text)); }
bool Query::valid() const { return Ref::valid() && script().query.valid; }
QueryBinding Query::binding() const { return {script().query.graph, script().query.frame}; }
String Query::info() const {
  auto const& query = script().query;
  return query.info.empty() ? "Query Filters: name=" + query.name + ",type=object" : query.info;
}
Array<Ref> Query::run() const {
  log("Query::run");
  Array<Ref> found;
  for (auto const& ref : script().query.results) found.add(ref);
  return found;
}

Ref ObjectModel::createQuery() {
  log("ObjectModel::createQuery");
  return Ref(&make<QueryItem>(""));
}
Ref ObjectModel::stateServer(StateID id) {
  log("ObjectModel::stateServer", id);
  auto const found = world().servers.find(id);
  return found == world().servers.end() ? Ref() : Ref(found->second);
}
Ref ObjectModel::activeGraph(String const& nameOrPath) {
  log("ObjectModel::activeGraph", quoted(nameOrPath));
  auto const found = world().graphs.find(nameOrPath.str());
  return found == world().graphs.end() ? Ref() : Ref(found->second);
}
Ref ObjectModel::createActiveGraph(String const& path) {
  log("ObjectModel::createActiveGraph", quoted(path));
  if (mustFail("ObjectModel::createActiveGraph")) return {};
  auto& graph = make<GraphItem>(path.str());
  world().graphs[path.str()] = &graph;
  return Ref(&graph);
}
void ObjectModel::removeActiveGraph(String const& nameOrPath) {
  log("ObjectModel::removeActiveGraph", quoted(nameOrPath));
  world().graphs.erase(nameOrPath.str());
}

String File::createTempFolder() {
  log("File::createTempFolder");
  return mustFail("File::createTempFolder") ? std::string() : script().tempFolder;
}
bool File::deleteFolder(String const& path) {
  log("File::deleteFolder", quoted(path));
  return !mustFail("File::deleteFolder");
}

Status createLevelSet(LevelSetOptions const& options, PointComponent const& points,
                      Array<String> const& inputs, VoxelComponent const&, String const&,
                      VoxelComponent const& output, Array<String> const& outputs) {
  std::ostringstream paths;
  for (auto const& input : inputs) paths << quoted(input) << ' ';
  paths << "->";
  for (auto const& path : outputs) paths << ' ' << quoted(path);
  log("createLevelSet", paths.str());
  script().levelSetOptions = options;
  auto const status = outcome("createLevelSet");
  if (status.succeeded() && script().createLevelSet) {
    script().createLevelSet(points, output, outputs);
  }
  return status;
}

namespace Runtime {

namespace {

ResourceItem& makeResource(std::string const& id) {
  auto& resource = make<ResourceItem>(id);
  world().resources.push_back(&resource);
  return resource;
}

}  // namespace

Resource::Resource(Ref const& ref) noexcept : Ref(only<ResourceItem>(ref)) {}
String Resource::resID() const { return valid() ? String(item()->name) : String(); }
Ref Resource::dataSource() const {
  if (!valid() || !as<ResourceItem>(*this)->loaded || mustFail("Resource::dataSource")) return {};
  return script().dataSource;
}

CacheResource::CacheResource(Ref const& ref) noexcept : Resource(ref) {}
Status CacheResource::load(LoadOptions const& options) const {
  log("CacheResource::load");
  script().loadedWith = options;
  auto const status = outcome("CacheResource::load");
  if (valid()) as<ResourceItem>(*this)->loaded = status.succeeded();
  return status;
}
Status CacheResource::save(Object const& object, VRC::Compression compression) const {
  log("CacheResource::save", quoted(object.name()), static_cast<int>(compression));
  return outcome("CacheResource::save");
}

CacheResourceImporter::CacheResourceImporter(Ref const& ref) noexcept
    : Ref(only<ImporterItem>(ref)) {}
Status CacheResourceImporter::readFiles(bool recursive, bool reload, String const& object,
                                        String const& pattern) const {
  log("CacheResourceImporter::readFiles", recursive, reload, quoted(object), quoted(pattern));
  return outcome("CacheResourceImporter::readFiles");
}
Array<String> CacheResourceImporter::objectNames() const {
  Array<String> names;
  for (auto const& name : script().objectNames) names.add(name);
  return names;
}
Status CacheResourceImporter::resIDs(String const& object, Frame frame, Array<String>& ids) const {
  log("CacheResourceImporter::resIDs", quoted(object), frame);
  for (auto const& id : script().resourceIDs) ids.add(id);
  return outcome("CacheResourceImporter::resIDs");
}

ActiveGraph::ActiveGraph(Ref const& ref) noexcept : Base(only<GraphItem>(ref)) {}
Ref ActiveGraph::createCacheResource(Frame frame, String const& path, String const& object,
                                     String const& pattern, String const& comment) const {
  log("ActiveGraph::createCacheResource", frame, quoted(path), quoted(object), quoted(pattern),
      quoted(comment));
  if (!valid() || mustFail("ActiveGraph::createCacheResource")) return {};
  return Ref(&makeResource("created"));
}
Ref ActiveGraph::createCacheResourceImporter(String const& path) const {
  log("ActiveGraph::createCacheResourceImporter", quoted(path));
  if (!valid() || mustFail("ActiveGraph::createCacheResourceImporter")) return {};
  return Ref(&make<ImporterItem>(path.str()));
}
Ref ActiveGraph::resource(Frame frame, String const& resID) const {
  log("ActiveGraph::resource", frame, quoted(resID));
  if (!valid() || mustFail("ActiveGraph::resource")) return {};
  return Ref(&makeResource(resID.str()));
}
Status ActiveGraph::removeResource(Frame frame, String const& resID) const {
  auto const* const resource = newest(world().resources, resID.str());
  log("ActiveGraph::removeResource", frame, quoted(resID),
      "handles=" + std::to_string(resource == nullptr ? -1 : resource->handles.load()));
  detach(world().resources, resource);
  return outcome("ActiveGraph::removeResource");
}

}  // namespace Runtime

}  // namespace Velmor::API
