#pragma once

#include <openvdb/io/Archive.h>
#include <openvdb/io/GridDescriptor.h>

#include <istream>
#include <memory>
#include <string>
#include <vector>

#include "files/file_reader.h"
#include "files/vdb_grids.h"

namespace Velmor::Host::Files {

/// One grid of a file: what its descriptor says, before any of it is read.
struct VdbEntry {
  openvdb::io::GridDescriptor descriptor;
  std::string name;  ///< without the suffix that tells grids of one name apart
  std::string type;
  openvdb::GridBase::Ptr grid;  ///< empty until `read`; null for an unknown type
};

/// A `.vdb` file open for reading. Differs from OpenVDB's own class in four
/// ways: it gives the grids in the order of the file, a grid of an unknown type
/// does not make the others unreadable, nothing is mapped or loaded late (a file
/// that changes while it is read would kill the process), and the lengths of texts
/// are looked at before there is room made for them (4 GB for a damaged one).
class VdbArchive : public openvdb::io::Archive {
 public:
  /// Throws `openvdb::Exception` or `std::ios_base::failure`.
  explicit VdbArchive(std::string const& path);

  openvdb::MetaMap const& metadata() const { return metadata_; }
  std::vector<VdbEntry>& entries() { return entries_; }

  /// Reads metadata and transform alone. Where the file cannot be read in
  /// parts, reads all.
  void readHead(VdbEntry& entry);
  /// Reads the whole grid.
  void readAll(VdbEntry& entry);

 private:
  void readDescriptors();
  void checkText();
  void checkDescriptor();
  void checkMetadata();
  void readStream(std::string const& path);
  bool separable() const;

  FileReader file_;
  std::istream in_;
  std::streamoff size_ = 0;
  openvdb::SharedPtr<openvdb::io::StreamMetadata> stream_;
  openvdb::MetaMap metadata_;
  std::vector<VdbEntry> entries_;
  bool complete_ = false;  // all grids are in memory already
};

}  // namespace Velmor::Host::Files
