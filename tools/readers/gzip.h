#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Velmor::Tool {

/// The bytes of a file one after the other, unpacked on the way if they are
/// gzip. Never holds more than a block. Throws a `Failure` of code `Input` that
/// names the file.
class UnpackedFile {
 public:
  explicit UnpackedFile(std::string const& path);
  ~UnpackedFile();
  UnpackedFile(UnpackedFile const&) = delete;
  UnpackedFile& operator=(UnpackedFile const&) = delete;

  /// Reads up to `size` bytes; fewer only at the end of the data.
  std::size_t read(char* to, std::size_t size);
  /// Reads on to the end of gzip data, where their checksum stands: to be called
  /// when all that is wanted has been read.
  void finish();
  /// More bytes than can follow in the best case: a bound for counts that the
  /// file claims.
  double mostBytes() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// The first bytes of a file, unpacked if they are gzip. Throws as above where
/// the file cannot be opened; damaged gzip gives what comes before the damage.
std::string startOf(std::string const& path);

/// Unpacks deflated data with a zlib header into exactly `size` bytes; false if
/// they are damaged or of another size.
bool inflateBlock(char const* data, std::size_t count, char* to, std::size_t size);

}  // namespace Velmor::Tool
