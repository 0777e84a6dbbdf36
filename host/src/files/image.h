#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "files/tree_shape.h"
#include "velmorapi/types.h"

/// The content of a cache file as one flat piece of memory without pointers:
/// what the reading side hands over, within the process or out of the helper.
namespace Velmor::Host::Files {

/// A run of `count` elements that starts `offset` bytes into the image.
struct Span {
  std::uint64_t offset = 0;
  std::uint64_t count = 0;
};

enum class ComponentKind : std::uint32_t { Voxels = 0, Points = 1 };

struct ComponentRecord {
  Span name;      // char
  Span gridName;  // char; of the point grid it was
  ComponentKind kind = ComponentKind::Voxels;
  float origin[3] = {0, 0, 0};  // world position of our position 0
  double voxelSize = 1;
  double translation[3] = {0, 0, 0};  // the file's, exactly
  Span tiles[TreeShape::levels];      // TileCoord; of tiles that no channel has values for
};

/// The tiles of one level of one channel. Their values and masks are in slots,
/// `slots` says in which; slots without a tile hold nothing.
struct LevelRecord {
  Span coords;  // TileCoord, in tree order
  Span slots;   // uint32
  Span masks;   // two uint64 per slot
  Span values;  // 125 elements per slot
};

/// A coarse cell whose value the grid has no place for.
struct CoarseCell {
  API::TileCoord tile;
  std::int32_t depth = 0;  // of the tile
  std::int32_t cell = 0;
  std::uint32_t active = 0;
  std::uint32_t value[3] = {0, 0, 0};  // bits
};

struct ChannelRecord {
  Span name;      // char
  Span metadata;  // MetadataRecord
  std::uint32_t component = 0;
  std::int32_t type = 0;           // API::DataType
  std::uint32_t fieldClass = 0;    // FieldClass
  std::uint32_t distanceMode = 0;  // 0: none was applied, else 1 + DistanceMode
  float distanceFactor = 1;
  std::uint32_t background[3] = {0, 0, 0};  // bits
  Span distanceReason;                      // char
  LevelRecord levels[TreeShape::levels];
  Span coarse;  // CoarseCell; they replace what the levels have
  Span points;  // values of a point channel
};

enum class MetadataType : std::uint32_t { Bool, Int, Float, Double, Vector, Text };

struct MetadataRecord {
  Span key;   // char
  Span text;  // char
  MetadataType type = MetadataType::Bool;
  std::int32_t integer = 0;
  double number = 0;
  float vector[3] = {0, 0, 0};
  std::uint32_t reserved = 0;
};

struct MessageRecord {
  Span text;
  std::uint32_t severity = 0;
  std::uint32_t reserved = 0;
};

struct ImageHeader {
  static constexpr std::uint64_t theMagic = 0x315642564d4c4556;
  static constexpr std::uint32_t theVersion = 2;

  std::uint64_t magic = 0;
  std::uint32_t version = 0;
  std::uint32_t failed = 0;
  std::uint64_t bytes = 0;
  TreeShape shape;
  Span failure;     // char
  Span components;  // ComponentRecord
  Span channels;    // ChannelRecord
  Span metadata;    // MetadataRecord, of the file
  Span messages;    // MessageRecord
};

/// Thrown where an image would grow beyond its limit.
struct ImageFull {};

/// Memory that an image is built in. The address range is reserved at once, so
/// nothing moves; pages are used as they are written.
class ImageBuilder {
 public:
  /// `fd` is an empty memory file that will hold the image, or -1 for memory of
  /// this process alone. At most `limit` bytes. Throws `ImageFull` if not even
  /// a small range is to be had.
  ImageBuilder(int fd, std::size_t limit);
  ImageBuilder(ImageBuilder const&) = delete;
  ImageBuilder& operator=(ImageBuilder const&) = delete;
  ~ImageBuilder();

  /// Room for `count` elements, zeroed. One thread at a time.
  template <class T>
  T* allocate(std::uint64_t count, Span& span) {
    span.offset = reserve(count, sizeof(T));
    span.count = count;
    return reinterpret_cast<T*>(base_ + span.offset);
  }
  /// The same for elements of a size known at run time.
  std::byte* allocateBytes(std::uint64_t count, std::size_t size, Span& span) {
    span.offset = reserve(count, size);
    span.count = count;
    return base_ + span.offset;
  }
  /// What was allocated as `span`.
  std::byte* at(Span const& span) noexcept { return base_ + span.offset; }
  Span text(std::string_view text);
  template <class T>
  Span records(std::vector<T> const& records) {
    Span span;
    auto* out = allocate<T>(records.size(), span);
    for (auto const& record : records) *out++ = record;
    return span;
  }

  /// Bytes still to be had.
  std::uint64_t room() const noexcept { return limit_ - used_; }
  /// What to go back to if a part turns out to be useless.
  std::uint64_t mark() const noexcept { return used_; }
  void rewind(std::uint64_t mark) noexcept;

  /// Completes the image; `header` gets its magic and size.
  void finish(ImageHeader header);
  std::byte const* data() const noexcept { return base_; }
  std::size_t size() const noexcept { return used_; }

 private:
  std::uint64_t reserve(std::uint64_t count, std::size_t size);

  std::byte* base_ = nullptr;
  std::uint64_t limit_ = 0;
  std::uint64_t used_ = 0;
  int fd_;
};

/// A finished image. Whoever made it is not trusted: `check` proves that every
/// reference stays inside and every enumeration is known, and the accessors may
/// be used only after it succeeded.
class Image {
 public:
  Image(std::byte const* data, std::size_t size) noexcept : data_(data), size_(size) {}

  /// Empty text if the image is sound, else what is wrong with it.
  std::string check() const;

  ImageHeader const& header() const noexcept {
    return *reinterpret_cast<ImageHeader const*>(data_);
  }
  template <class T>
  T const* at(Span const& span) const noexcept {
    return reinterpret_cast<T const*>(data_ + span.offset);
  }
  std::string text(Span const& span) const {
    return {reinterpret_cast<char const*>(data_ + span.offset),
            static_cast<std::size_t>(span.count)};
  }

 private:
  bool holds(Span const& span, std::size_t size) const noexcept;
  std::string checkMetadata(Span const& span) const;
  std::string checkTiles(Span const& coords, int level) const;
  std::string checkChannel(ChannelRecord const& channel) const;

  std::byte const* data_;
  std::size_t size_;
};

}  // namespace Velmor::Host::Files
