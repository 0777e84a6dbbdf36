#include "files/image.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "velmorhost/files.h"
#include "velmorhost/scene.h"
#include "velmorhost/settings.h"

namespace Velmor::Host::Files {

namespace {

constexpr std::uint64_t alignment = 64;
constexpr std::uint64_t smallest = std::uint64_t{1} << 20;

}  // namespace

ImageBuilder::ImageBuilder(int fd, std::size_t limit) : fd_(fd) {
  for (std::uint64_t size = std::max<std::uint64_t>(limit, smallest); size >= smallest; size /= 2) {
    if (fd_ >= 0 && ::ftruncate(fd_, static_cast<off_t>(size)) != 0) continue;
    void* const at =
        fd_ >= 0 ? ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, fd_, 0)
                 : ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (at == MAP_FAILED) continue;
    // Faults of single pages take longer than what is written to them.
    if (fd_ < 0) ::madvise(at, size, MADV_HUGEPAGE);
    base_ = static_cast<std::byte*>(at);
    limit_ = size;
    used_ = sizeof(ImageHeader);
    return;
  }
  throw ImageFull{};
}

ImageBuilder::~ImageBuilder() { ::munmap(base_, limit_); }

std::uint64_t ImageBuilder::reserve(std::uint64_t count, std::size_t size) {
  auto const start = (used_ + alignment - 1) / alignment * alignment;
  if (start > limit_ || count > (limit_ - start) / size) throw ImageFull{};
  used_ = start + count * size;
  return start;
}

void ImageBuilder::rewind(std::uint64_t mark) noexcept {
  // What is handed out again has to be zero again: whole pages are given back,
  // since much of the range may never have been written.
  auto const page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  auto const from = std::min((mark + page - 1) / page * page, used_);
  std::memset(base_ + mark, 0, from - mark);
  if (from < used_ &&
      ::madvise(base_ + from, used_ - from, fd_ >= 0 ? MADV_REMOVE : MADV_DONTNEED) != 0) {
    std::memset(base_ + from, 0, used_ - from);
  }
  used_ = mark;
}

Span ImageBuilder::text(std::string_view text) {
  Span span;
  auto* const out = allocate<char>(text.size(), span);
  std::copy(text.begin(), text.end(), out);
  return span;
}

void ImageBuilder::finish(ImageHeader header) {
  header.magic = ImageHeader::theMagic;
  header.version = ImageHeader::theVersion;
  header.bytes = used_;
  std::memcpy(base_, &header, sizeof header);
  if (fd_ >= 0 && ::ftruncate(fd_, static_cast<off_t>(used_)) != 0) throw ImageFull{};
}

bool Image::holds(Span const& span, std::size_t size) const noexcept {
  return span.offset % alignment == 0 && span.offset <= size_ &&
         span.count <= (size_ - span.offset) / size;
}

std::string Image::checkMetadata(Span const& span) const {
  if (!holds(span, sizeof(MetadataRecord))) return "metadata out of bounds";
  for (auto const *m = at<MetadataRecord>(span), *end = m + span.count; m != end; ++m) {
    if (!holds(m->key, 1) || !holds(m->text, 1) || m->type > MetadataType::Text) {
      return "a metadata record is damaged";
    }
  }
  return {};
}

std::string Image::checkTiles(Span const& coords, int level) const {
  auto const shape = header().shape;  // a copy: nothing that is read below can change it
  if (!holds(coords, sizeof(API::TileCoord)) || (level > shape.depth && coords.count != 0)) {
    return "tiles out of bounds";
  }
  auto const extent = level > shape.depth ? 1 : shape.tileExtent(level);
  auto const origin = shape.rootOrigin();
  auto const* const tiles = at<API::TileCoord>(coords);
  std::uint64_t previous = 0;
  for (std::uint64_t t = 0; t < coords.count; ++t) {
    auto const& c = tiles[t];
    if (!shape.inRoot(c.i, c.j, c.k) || (c.i - origin) % extent != 0 ||
        (c.j - origin) % extent != 0 || (c.k - origin) % extent != 0) {
      return "a tile lies off the grid";
    }
    auto const order = shape.order(c, level);
    if (t > 0 && order <= previous) return "tiles out of order";
    previous = order;
  }
  return {};
}

std::string Image::checkChannel(ChannelRecord const& channel) const {
  auto const size = API::valueSize(static_cast<API::DataType>(channel.type));
  if (!holds(channel.name, 1) || !holds(channel.distanceReason, 1) || size == 0 ||
      channel.component >= header().components.count ||
      channel.fieldClass > static_cast<std::uint32_t>(FieldClass::Staggered) ||
      channel.distanceMode > 1 + static_cast<std::uint32_t>(DistanceMode::Rebuild)) {
    return "a channel record is damaged";
  }
  if (!holds(channel.points, size)) return "point values out of bounds";
  if (!holds(channel.coarse, sizeof(CoarseCell))) return "coarse cells out of bounds";
  auto const* const coarse = at<CoarseCell>(channel.coarse);
  for (std::uint64_t c = 0; c < channel.coarse.count; ++c) {
    if (coarse[c].depth < 0 || coarse[c].depth >= header().shape.depth || coarse[c].cell < 0 ||
        coarse[c].cell >= TreeShape::cells ||
        !header().shape.inRoot(coarse[c].tile.i, coarse[c].tile.j, coarse[c].tile.k)) {
      return "a coarse cell is damaged";
    }
  }
  for (int d = 0; d < TreeShape::levels; ++d) {
    auto const& level = channel.levels[d];
    if (!holds(level.slots, 4) || !holds(level.masks, 16) ||
        !holds(level.values, TreeShape::cells * size) || level.slots.count != level.coords.count ||
        level.masks.count != level.values.count) {
      return "tiles out of bounds";
    }
    if (auto wrong = checkTiles(level.coords, d); !wrong.empty()) return wrong;
    auto const* const slots = at<std::uint32_t>(level.slots);
    for (std::uint64_t t = 0; t < level.coords.count; ++t) {
      if (slots[t] >= level.values.count) return "a tile without values";
    }
  }
  return {};
}

std::string Image::check() const {
  if (size_ < sizeof(ImageHeader)) return "nothing was handed over";
  auto const& head = header();
  if (head.magic != ImageHeader::theMagic || head.version != ImageHeader::theVersion ||
      head.bytes != size_) {
    return "what was handed over is incomplete";
  }
  if (head.shape.depth < 1 || head.shape.depth >= TreeShape::levels || head.shape.centred < 0 ||
      head.shape.centred > 1) {
    return "the tile grid is damaged";
  }
  if (!holds(head.failure, 1) || !holds(head.components, sizeof(ComponentRecord)) ||
      !holds(head.channels, sizeof(ChannelRecord)) ||
      !holds(head.messages, sizeof(MessageRecord))) {
    return "tables out of bounds";
  }
  if (auto wrong = checkMetadata(head.metadata); !wrong.empty()) return wrong;
  for (auto const *m = at<MessageRecord>(head.messages), *end = m + head.messages.count; m != end;
       ++m) {
    if (!holds(m->text, 1) || m->severity > static_cast<std::uint32_t>(Severity::Error)) {
      return "a message record is damaged";
    }
  }
  auto const* const components = at<ComponentRecord>(head.components);
  for (std::uint64_t c = 0; c < head.components.count; ++c) {
    if (!holds(components[c].name, 1) || !holds(components[c].gridName, 1) ||
        components[c].kind > ComponentKind::Points || !(components[c].voxelSize > 0)) {
      return "a component record is damaged";
    }
    for (int d = 0; d < TreeShape::levels; ++d) {
      if (auto wrong = checkTiles(components[c].tiles[d], d); !wrong.empty()) return wrong;
    }
  }
  auto const* const channels = at<ChannelRecord>(head.channels);
  for (std::uint64_t c = 0; c < head.channels.count; ++c) {
    if (auto wrong = checkMetadata(channels[c].metadata); !wrong.empty()) return wrong;
    if (auto wrong = checkChannel(channels[c]); !wrong.empty()) return wrong;
  }
  return {};
}

}  // namespace Velmor::Host::Files
