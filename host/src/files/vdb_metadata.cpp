#include "files/vdb_metadata.h"

#include <algorithm>
#include <string_view>
#include <variant>

#include "core/dictionary_store.h"

namespace Velmor::Host::Files {

namespace {

bool derived(std::string const& key) {
  using Grid = openvdb::GridBase;
  std::string_view const name = key;
  if (name.starts_with("velmor_")) return true;
  for (auto const* const known :
       {Grid::META_GRID_NAME, Grid::META_SAVE_HALF_FLOAT, Grid::META_FILE_BBOX_MIN,
        Grid::META_FILE_BBOX_MAX, Grid::META_FILE_COMPRESSION, Grid::META_FILE_MEM_BYTES,
        Grid::META_FILE_VOXEL_COUNT, Grid::META_FILE_DELAYED_LOAD}) {
    if (name == known) return true;
  }
  return false;
}

bool exact(openvdb::Vec3d const& v) { return v == openvdb::Vec3d(openvdb::Vec3s(v)); }

void setVector(MetadataRecord& record, openvdb::Vec3d const& v) {
  record.type = MetadataType::Vector;
  for (int a = 0; a < 3; ++a) record.vector[a] = static_cast<float>(v[a]);
}

/// False where only the text is left.
bool setValue(MetadataRecord& record, openvdb::Metadata const& value) {
  using namespace openvdb;
  if (auto const* flag = dynamic_cast<BoolMetadata const*>(&value)) {
    record.type = MetadataType::Bool;
    record.integer = flag->value() ? 1 : 0;
  } else if (auto const* whole = dynamic_cast<Int32Metadata const*>(&value)) {
    record.type = MetadataType::Int;
    record.integer = whole->value();
  } else if (auto const* single = dynamic_cast<FloatMetadata const*>(&value)) {
    record.type = MetadataType::Float;
    record.number = static_cast<double>(single->value());
    record.vector[0] = single->value();
  } else if (auto const* number = dynamic_cast<DoubleMetadata const*>(&value)) {
    record.type = MetadataType::Double;
    record.number = number->value();
  } else if (auto const* vector = dynamic_cast<Vec3SMetadata const*>(&value)) {
    setVector(record, Vec3d(vector->value()));
  } else if (auto const* precise = dynamic_cast<Vec3DMetadata const*>(&value);
             precise != nullptr && exact(precise->value())) {
    setVector(record, precise->value());
  } else {
    return false;
  }
  return true;
}

struct MetadataOf {
  openvdb::Metadata::Ptr operator()(bool value) const {
    return openvdb::BoolMetadata(value).copy();
  }
  openvdb::Metadata::Ptr operator()(int value) const {
    return openvdb::Int32Metadata(value).copy();
  }
  openvdb::Metadata::Ptr operator()(float value) const {
    return openvdb::FloatMetadata(value).copy();
  }
  openvdb::Metadata::Ptr operator()(double value) const {
    return openvdb::DoubleMetadata(value).copy();
  }
  openvdb::Metadata::Ptr operator()(orlen::Math::vec<3, float> const& v) const {
    return openvdb::Vec3SMetadata(openvdb::Vec3s(v.x, v.y, v.z)).copy();
  }
  openvdb::Metadata::Ptr operator()(std::string const& value) const {
    return openvdb::StringMetadata(value).copy();
  }
};

}  // namespace

void readMetadata(openvdb::MetaMap const& metadata, ImageBuilder& image,
                  std::vector<MetadataRecord>& records) {
  for (auto it = metadata.beginMeta(); it != metadata.endMeta(); ++it) {
    if (!it->second || derived(it->first)) continue;
    MetadataRecord record;
    if (!setValue(record, *it->second)) {
      record.type = MetadataType::Text;
      record.text = image.text(it->second->str());
    }
    record.key = image.text(it->first);
    records.push_back(record);
  }
}

void addText(ImageBuilder& image, std::vector<MetadataRecord>& records, char const* key,
             std::string const& value) {
  MetadataRecord record;
  record.type = MetadataType::Text;
  record.key = image.text(key);
  record.text = image.text(value);
  records.push_back(record);
}

void writeMetadata(API::Dictionary const& dictionary, std::vector<std::string_view> const& except,
                   openvdb::MetaMap& metadata) {
  auto const* const store = dictionary.store();
  if (store == nullptr) return;
  for (auto const& [key, value] : store->values) {
    // OpenVDB has no metadata without a name.
    if (key.empty() || derived(key) ||
        std::find(except.begin(), except.end(), key) != except.end()) {
      continue;
    }
    metadata.insertMeta(key, *std::visit(MetadataOf{}, value));
  }
}

}  // namespace Velmor::Host::Files
