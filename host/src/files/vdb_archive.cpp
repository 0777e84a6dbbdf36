#include "files/vdb_archive.h"

#include <openvdb/io/Stream.h>
#include <openvdb/io/io.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <ios>

namespace Velmor::Host::Files {

namespace {

constexpr std::int32_t mostGrids = 1 << 16;

}  // namespace

VdbArchive::VdbArchive(std::string const& path) : file_(path), in_(&file_) {
  if (!file_.isOpen()) OPENVDB_THROW(openvdb::IoError, "cannot open the file");
  in_.exceptions(std::ios::badbit | std::ios::failbit);
  in_.seekg(0, std::ios::end);
  size_ = in_.tellg();
  in_.seekg(0);
  stream_.reset(new openvdb::io::StreamMetadata);
  openvdb::io::setStreamMetadataPtr(in_, stream_, /*transfer=*/false);
  readHeader(in_);
  setFormatVersion(in_);
  setLibraryVersion(in_);
  setDataCompression(in_);
  checkMetadata();
  metadata_.readMeta(in_);
  if (inputHasGridOffsets()) {
    readDescriptors();
  } else {
    readStream(path);
  }
}

/// Passes over a text: its length in four bytes, then itself.
void VdbArchive::checkText() {
  std::uint32_t length = 0;
  in_.read(reinterpret_cast<char*>(&length), sizeof length);
  if (length > size_ - in_.tellg()) {
    OPENVDB_THROW(openvdb::IoError, "damaged: a text of " << length << " bytes");
  }
  in_.seekg(length, std::ios::cur);
}

void VdbArchive::checkDescriptor() {
  auto const start = in_.tellg();
  for (int names = separable() ? 3 : 2; names > 0; --names) checkText();
  in_.seekg(start);
}

/// Values of metadata begin with their length as texts do.
void VdbArchive::checkMetadata() {
  auto const start = in_.tellg();
  std::uint32_t count = 0;
  in_.read(reinterpret_cast<char*>(&count), sizeof count);
  for (std::uint64_t texts = std::uint64_t{3} * count; texts > 0; --texts) checkText();
  in_.seekg(start);
}

void VdbArchive::readDescriptors() {
  auto const count = readGridCount(in_);
  if (count < 0 || count > mostGrids) {
    OPENVDB_THROW(openvdb::IoError, "damaged: a file of " << count << " grids");
  }
  for (std::int32_t g = 0; g < count; ++g) {
    VdbEntry entry;
    checkDescriptor();
    try {
      entry.grid = entry.descriptor.read(in_);
    } catch (openvdb::LookupError const&) {
      // Of a type that nobody registered: only its three offsets are left to read.
      std::int64_t offsets[3] = {};
      in_.read(reinterpret_cast<char*>(offsets), sizeof offsets);
      entry.descriptor.setGridPos(offsets[0]);
      entry.descriptor.setBlockPos(offsets[1]);
      entry.descriptor.setEndPos(offsets[2]);
    }
    entry.name = entry.descriptor.gridName();
    entry.type = entry.descriptor.gridType();
    entry.descriptor.seekToEnd(in_);
    entries_.push_back(std::move(entry));
  }
}

void VdbArchive::readStream(std::string const& path) {
  std::ifstream in(path, std::ios::in | std::ios::binary);
  openvdb::io::Stream stream(in, /*delayLoad=*/false);
  if (auto const meta = stream.getMetadata()) metadata_ = *meta;
  for (auto const& grid : *stream.getGrids()) {
    VdbEntry entry;
    entry.name = grid->getName();
    entry.type = grid->type();
    entry.grid = grid;
    entries_.push_back(std::move(entry));
  }
  complete_ = true;
}

bool VdbArchive::separable() const {
  return fileVersion() >= openvdb::OPENVDB_FILE_VERSION_GRID_INSTANCING;
}

void VdbArchive::readHead(VdbEntry& entry) {
  if (complete_ || !entry.grid) return;
  in_.clear();
  if (!separable()) {
    readAll(entry);
    return;
  }
  entry.descriptor.seekToGrid(in_);
  readGridCompression(in_);
  checkMetadata();
  entry.grid->readMeta(in_);
  auto const transform = in_.tellg();
  checkText();
  in_.seekg(transform);
  entry.grid->readTransform(in_);
}

void VdbArchive::readAll(VdbEntry& entry) {
  if (complete_ || !entry.grid) return;
  in_.clear();
  entry.grid = openvdb::GridBase::createGrid(entry.type);
  entry.grid->setSaveFloatAsHalf(entry.descriptor.saveFloatAsHalf());
  entry.descriptor.seekToGrid(in_);
  Archive::readGrid(entry.grid, entry.descriptor, in_);
  if (entry.descriptor.isInstance()) {
    auto const parent = std::find_if(entries_.begin(), entries_.end(), [&](VdbEntry const& e) {
      return e.descriptor.uniqueName() == entry.descriptor.instanceParentName();
    });
    if (parent == entries_.end() || parent->descriptor.isInstance() || parent->type != entry.type) {
      OPENVDB_THROW(openvdb::IoError, "the grid that it shares its voxels with is missing");
    }
    auto shared = openvdb::GridBase::createGrid(entry.type);
    shared->setSaveFloatAsHalf(parent->descriptor.saveFloatAsHalf());
    parent->descriptor.seekToGrid(in_);
    Archive::readGrid(shared, parent->descriptor, in_);
    entry.grid->setTree(shared->baseTreePtr());
  }
}

}  // namespace Velmor::Host::Files
