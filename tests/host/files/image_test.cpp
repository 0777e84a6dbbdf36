#include "files/image.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/files/file_scenes.h"

namespace Velmor::Test {
namespace {

/// Every image that is damaged in one place is refused, or harmless to walk.
TEST(Image, DamageIsFoundBeforeItIsUsed) {
  using namespace Host::Files;
  ImageBuilder builder(-1, std::size_t{1} << 24);
  ImageHeader header;
  ComponentRecord component;
  component.name = builder.text("volume");
  ChannelRecord channel;
  channel.name = builder.text("density");
  channel.type = static_cast<std::int32_t>(API::DataType::Float);
  auto& level = channel.levels[0];
  auto const root = TreeShape{}.rootOrigin();
  *builder.allocate<API::TileCoord>(1, level.coords) = {root, root, root};
  builder.allocate<std::uint32_t>(1, level.slots);
  builder.allocateBytes(1, 16, level.masks);
  builder.allocateBytes(1, 500, level.values);
  header.components = builder.records(std::vector{component});
  header.channels = builder.records(std::vector{channel});
  builder.finish(header);
  std::vector<std::byte> good(builder.data(), builder.data() + builder.size());
  ASSERT_EQ(Image(good.data(), good.size()).check(), "");
  Random random(5);
  int refused = 0;
  for (int n = 0; n < 20000; ++n) {
    alignas(64) static std::byte bad[1 << 16];
    ASSERT_LE(good.size(), sizeof bad);
    std::copy(good.begin(), good.end(), bad);
    auto const size = random.below(10) == 0 ? random.below(static_cast<std::uint32_t>(good.size()))
                                            : static_cast<std::uint32_t>(good.size());
    for (auto flips = 1 + random.below(3); flips > 0; --flips) {
      bad[random.below(static_cast<std::uint32_t>(good.size()))] =
          static_cast<std::byte>(random.below(256));
    }
    if (!Image(bad, size).check().empty()) ++refused;
  }
  EXPECT_GT(refused, 1000);
}

}  // namespace
}  // namespace Velmor::Test
