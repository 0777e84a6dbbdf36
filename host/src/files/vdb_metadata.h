#pragma once

#include <vector>

#include "files/image.h"
#include "files/vdb_grids.h"
#include "velmorapi/dictionary.h"

namespace Velmor::Host::Files {

/// What a dictionary can hold of a file's or grid's metadata: numbers, float
/// vectors and texts as they are, all else as its text. Leaves out what OpenVDB
/// itself derives from the grid.
void readMetadata(openvdb::MetaMap const& metadata, ImageBuilder& image,
                  std::vector<MetadataRecord>& records);
void addText(ImageBuilder& image, std::vector<MetadataRecord>& records, char const* key,
             std::string const& value);

/// The dictionary's values as metadata, but for the given keys.
void writeMetadata(API::Dictionary const& dictionary, std::vector<std::string_view> const& except,
                   openvdb::MetaMap& metadata);

}  // namespace Velmor::Host::Files
