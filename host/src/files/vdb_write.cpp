#include "files/vdb_write.h"

#include <openvdb/io/Archive.h>

#include <algorithm>
#include <vector>

#include "core/channel_item.h"
#include "files/keys.h"
#include "files/plain_tiles.h"
#include "files/source_field.h"
#include "files/vdb_encode.h"
#include "files/vdb_grids.h"
#include "files/vdb_log.h"
#include "files/vdb_metadata.h"
#include "files/vdb_plan.h"
#include "velmorapi/layout.h"
#include "velmorhost/settings.h"

namespace Velmor::Host::Files {

namespace {

using Vector = orlen::Math::vec<3, float>;

/// The placement that a component was read with, if nobody has changed its
/// voxel size or origin since; else the one that its origin makes.
Placement placementOf(API::Component const& component, API::Object const& object) {
  auto const dictionary = component.dictionary();
  auto const origin = (dictionary.hasValue(Keys::origin) ? dictionary : object.dictionary())
                          .value<Vector>(Keys::origin);
  auto const scale = API::Layout(component.layout()).voxelScale();
  bool const points = API::PointComponent(API::Ref(component)).valid();

  Placement kept;
  kept.voxelSize = dictionary.value<double>(Keys::voxelSize);
  bool same = static_cast<float>(kept.voxelSize) == scale;
  for (int a = 0; a < 3; ++a) {
    kept.translation[a] = dictionary.value<double>(Keys::translation[a]);
    same = same && dictionary.hasValue(Keys::translation[a]) &&
           (points || static_cast<float>(kept.translation[a] - 0.5 * kept.voxelSize) == origin[a]);
  }
  if (same) return kept;
  Placement made;
  made.voxelSize = static_cast<double>(scale);
  for (int a = 0; a < 3; ++a) {
    made.translation[a] = static_cast<double>(origin[a]) + 0.5 * made.voxelSize;
  }
  return made;
}

/// Archives write to streams only on behalf of their subclasses.
class Writer : public openvdb::io::Archive {
 public:
  void writeTo(std::ostream& out, openvdb::GridCPtrVec const& grids,
               openvdb::MetaMap const& metadata) const {
    Archive::write(out, grids, /*seekable=*/true, metadata);
  }
};

std::uint32_t flagsOf(API::VRC::Compression compression) {
  using namespace openvdb::io;
  switch (compression) {
    case API::VRC::Compression::None:
      return COMPRESS_ACTIVE_MASK;
    case API::VRC::Compression::Zip:
      return COMPRESS_ZIP | COMPRESS_ACTIVE_MASK;
    default:
      return (Archive::hasBloscCompression() ? COMPRESS_BLOSC : COMPRESS_ZIP) |
             COMPRESS_ACTIVE_MASK;
  }
}

class ObjectWriter {
 public:
  explicit ObjectWriter(API::Object const& object) : object_(object) {}

  void collect() {
    findOrigin();
    for (auto const& component : object_.components()) {
      if (API::VoxelComponent(API::Ref(component)).valid()) {
        addVoxels(component);
      } else {
        addPoints(component);
      }
    }
  }

  void write(std::ostream& out, std::uint32_t compression) const {
    openvdb::MetaMap metadata;
    writeMetadata(object_.dictionary(), {Keys::origin}, metadata);
    Writer writer;
    writer.setCompression(
        delicate_ ? compression & ~std::uint32_t{openvdb::io::COMPRESS_ACTIVE_MASK} : compression);
    writer.writeTo(out, grids_, metadata);
  }

 private:
  /// World position of position 0, as exactly as it is known.
  void findOrigin() {
    auto const rounded = object_.dictionary().value<Vector>(Keys::origin);
    for (int a = 0; a < 3; ++a) origin_[a] = static_cast<double>(rounded[a]);
    auto const components = object_.components();
    for (auto const& component : components) {
      auto const place = placementOf(component, object_);
      double exact[3];
      bool same = true;
      for (int a = 0; a < 3; ++a) {
        exact[a] = place.translation[a] - 0.5 * place.voxelSize;
        same = same && static_cast<float>(exact[a]) == rounded[a];
      }
      if (!same) continue;
      std::copy_n(exact, 3, origin_);
      return;
    }
  }

  void add(openvdb::GridBase::Ptr const& grid, API::Component const& component,
           Placement const& place, std::string const& name) {
    grid->setName(name);
    auto const transform = openvdb::math::Transform::createLinearTransform(place.voxelSize);
    transform->postTranslate(
        openvdb::Vec3d(place.translation[0], place.translation[1], place.translation[2]));
    grid->setTransform(transform);
    grid->insertMeta(Keys::component, openvdb::StringMetadata(component.name().str()));
    grids_.push_back(grid);
  }

  static void tell(API::Channel const& channel, std::int64_t edge) {
    report(Severity::Warning,
           "Channel '" + channel.name().str() + "': its coarse cells of " + std::to_string(edge) +
               " voxels and more go into metadata that other programs do not read; they will see "
               "empty space there");
  }

  void addVoxels(API::Component const& component) {
    auto const place = placementOf(component, object_);
    std::vector<EncodedGrid> grids;
    std::vector<SourceField> fields;
    for (auto const& channel : component.channels()) {
      auto const* const item = API::itemAs<API::VoxelChannelItem>(channel);
      if (item == nullptr) continue;
      grids.push_back(encodeVoxels(*item));
      fields.emplace_back(*item, grids.back().detached);
      if (grids.back().detached != SourceField::none) tell(channel, grids.back().detached);
    }
    auto tiles = packPlainTiles(component, fields);
    auto next = grids.begin();
    for (auto const& channel : component.channels()) {
      if (API::itemAs<API::VoxelChannelItem>(channel) == nullptr) continue;
      auto& encoded = *next++;
      delicate_ = delicate_ || encoded.delicate;
      writeMetadata(channel.dictionary(),
                    {Keys::gridName, Keys::distanceMode, Keys::distanceFactor, Keys::distanceReason,
                     openvdb::GridBase::META_GRID_CLASS},
                    *encoded.grid);
      if (!tiles.empty()) {
        encoded.grid->insertMeta(Keys::tiles, openvdb::StringMetadata(tiles));
        tiles.clear();
      }
      auto const kept = channel.dictionary().value<API::String>(Keys::gridName);
      add(encoded.grid, component, place,
          channel.dictionary().hasValue(Keys::gridName) ? kept.str() : channel.name().str());
    }
  }

  void addPoints(API::Component const& component) {
    auto const place = placementOf(component, object_);
    double offset[3];
    for (int a = 0; a < 3; ++a) offset[a] = (origin_[a] - place.translation[a]) / place.voxelSize;
    auto const kept = component.dictionary().value<API::String>(Keys::gridName).str();
    add(encodePoints(API::PointComponent(API::Ref(component)), offset), component, place,
        kept.empty() ? component.name().str() : kept);
  }

  API::Object const& object_;
  double origin_[3] = {0, 0, 0};
  openvdb::GridCPtrVec grids_;
  bool delicate_ = false;
};

}  // namespace

void writeVdb(API::Object const& object, API::VRC::Compression compression, std::ostream& out) {
  startVdb();
  VdbLog log;
  ObjectWriter writer(object);
  writer.collect();
  writer.write(out, flagsOf(compression));
  for (auto const& line : log.take()) {
    report(Severity::Warning, "Object '" + object.name().str() + "': " + line);
  }
}

}  // namespace Velmor::Host::Files
