#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "velmorapi/level_set.h"
#include "velmorapi/object_model.h"
#include "velmorapi/state_server.h"

/// A second, tiny implementation of the host API that does as it is told and
/// remembers what it was asked. It shows what the library does where the
/// embedded host would never go: other tile shapes, failing calls, the order
/// and the arguments of calls, visitors outside a traversal.
///
/// A test of it is listed with `velmor_fakehost_test(name SOURCES ...)` instead
/// of `velmor_test`; it links the same library, and gets this host's
/// libvelmorapi.so. Scenes are made through the host API itself:
///
///     FakeHost::reset();                       // first thing in every test
///     FakeHost::script().nextChannel.halo = 1; // before what it is about
///     auto const server = FakeHost::createStateServer("state");
///     API::VoxelComponent const component(
///         server.createComponent(API::VoxelComponentType, "volume", 1.f));
///     API::Channel const src(server.createChannel(component, API::DataType::Float, "src"));
///     FakeHost::addTile(API::Layout(component.layout()), 7, {0, 0, 0});
///     ...
///     EXPECT_EQ(FakeHost::calls("Layout::traverse"), (Calls{"Layout::traverse 3"}));
///
/// One thread at a time. Nothing is freed before `reset`, which spares what
/// still has handles.
namespace Velmor::FakeHost {

/// How a channel stores a tile. Strides of 0 mean x fastest without gaps.
struct TileShape {
  int halo = 0;
  int strides[3] = {0, 0, 0};
  std::size_t count = 0;  ///< elements per tile; 0: as many as the shape needs
};

/// What `Query` answers, whatever text it loads.
struct QueryAnswer {
  bool valid = true;
  std::string graph;  ///< of the binding
  int frame = 0;      ///< of the binding
  std::string name;   ///< in the usual `info()`
  std::string info;   ///< instead of the usual one
  std::vector<API::Ref> results;
};

struct Script {
  // Layouts made from now on.
  int maxDepth = 7;
  int treeWidth = 5;      ///< cells per tile edge
  int reportedWidth = 5;  ///< what `tileDimInfo` says
  int deeperWidth = -1;   ///< what it says of depths below the root's; -1: the same
  // Channels made from now on.
  TileShape nextChannel;

  /// Operations that fail, as they are named in the log: "Layout::traverse".
  std::set<std::string> failing;

  /// Visitor copies of a traversal in any mode but 0; 0: none, the visitor itself.
  int workers = 0;
  /// Called instead of visiting tiles.
  std::function<void(API::Visitor&)> visit;

  /// What samplers answer; else the value of the voxel that holds the position.
  std::function<float(orlen::Math::vec<3, float> const&)> sample;
  orlen::Math::vec<3, float> gradient;

  QueryAnswer query;
  std::string tempFolder = "fake-temp";                 ///< what `createTempFolder` returns
  std::vector<std::string> objectNames;                 ///< what every importer finds
  std::vector<std::string> resourceIDs;                 ///< of every object and frame
  API::Ref dataSource;                                  ///< of every resource after a load
  API::Runtime::CacheResource::LoadOptions loadedWith;  ///< options of the last load

  /// Called by `createLevelSet` unless that fails.
  std::function<void(API::PointComponent const& points, API::VoxelComponent const& output,
                     API::Array<API::String> const& outputs)>
      createLevelSet;
  API::LevelSetOptions levelSetOptions;  ///< of the last call
};

/// The settings in force; change them at any time.
VELMOR_EXPORT Script& script();
/// Default settings, an empty log, no items.
VELMOR_EXPORT void reset();

/// Tiles of a width, and channels with a border of `halo` elements around each, x
/// or z fastest in memory, from now on.
VELMOR_EXPORT void useTiles(int width, int halo, bool zFastest);

/// The log: one line per call, "Class::operation" and the arguments between
/// blanks, texts in single quotes. Tests rely on:
///
///     Layout::traverse <mode> [<minDepth> <maxDepth>]
///     Layout::setVoxelScale <scale>
///     TileAccessor::addTile <i> <j> <k> <depth>
///     HaloedCache::init / HaloedCache::update <slot> <depth>
///     Visitor::copy / Visitor::join        (by this host's traversals)
///     VoxelChannel::createSampler '<type>' <space>
///     Channel::setBackgroundValue '<channel>'
///     StateServer::createComponent '<type>' '<name>' <scale>
///     StateServer::createChannel '<component>' <type> '<name>'
///     StateServer::createLayout '<name>'
///     StateServer::removeChannel '<path>' handles=<n>     (-1: no such channel)
///     StateServer::removeComponent '<name>'
///     Object::addComponent '<name>' / Object::removeComponent '<name>'
///     ObjectModel::createQuery / stateServer <id> / activeGraph '<name>' /
///         createActiveGraph '<path>' / removeActiveGraph '<name>'
///     Query::load '<text>' / Query::run
///     ActiveGraph::createCacheResource <frame> '<path>' '<object>' '<pattern>' '<comment>'
///     ActiveGraph::createCacheResourceImporter '<path>'
///     ActiveGraph::resource <frame> '<id>'
///     ActiveGraph::removeResource <frame> '<id>' handles=<n>
///     CacheResource::load / CacheResource::save '<object>' <compression>
///     CacheResourceImporter::readFiles <recursive> <reload> '<object>' '<pattern>'
///     CacheResourceImporter::resIDs '<object>' <frame>
///     File::createTempFolder / File::deleteFolder '<path>'
///     createLevelSet '<inputs...>' -> '<outputs...>'
VELMOR_EXPORT std::vector<std::string> const& calls();
/// Those that begin with `prefix`.
VELMOR_EXPORT std::vector<std::string> calls(std::string const& prefix);
VELMOR_EXPORT void clearCalls();

VELMOR_EXPORT API::StateServer createStateServer(std::string const& name);
VELMOR_EXPORT API::Object createObject(API::StateServer const& server, std::string const& name);
/// Makes a tile (no ancestors), or returns the one that is there. Tiles are
/// anchored with a corner on voxel 0. Values start at the background.
VELMOR_EXPORT API::TreeIndex addTile(API::Layout const& layout, int depth,
                                     API::TileCoord const& voxel);
VELMOR_EXPORT void setElementCount(API::PointComponent const& points, std::size_t count);
/// Handles to the item now.
VELMOR_EXPORT int handleCount(API::Ref const& ref);

}  // namespace Velmor::FakeHost
