#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "support/cache_folder.h"
#include "support/scene.h"
#include "velmorhost/files.h"

namespace Velmor::Test {

inline Host::ReadOptions trusting() {
  Host::ReadOptions options;
  options.isolate = false;
  return options;
}

/// Reads a file, in this process unless told otherwise; the object is invalid
/// and the failure in `message` if that did not work.
struct Loaded {
  API::StateServer server;
  API::Object object;
  std::string message;
  std::vector<std::string> warnings;

  API::Channel channel(char const* name, char const* component = "volume") const {
    return API::Component(object.findComponent(component)).findChannel(name);
  }
};
inline Loaded load(std::string const& path, Host::ReadOptions const& how = trusting(),
                   API::Runtime::CacheResource::LoadOptions const& options = {}) {
  Loaded loaded;
  Host::setMessageHandler(
      [&](Host::Severity, std::string const& text) { loaded.warnings.push_back(text); });
  API::Ref server;
  auto const status = Host::readObject(path, "object", options, how, server);
  Host::setMessageHandler(nullptr);
  loaded.server = API::StateServer(server);
  loaded.message = status.message().str();
  if (status.succeeded()) loaded.object = API::Object(loaded.server.findObject("object"));
  return loaded;
}

/// A state with tiles of several depths far from and around voxel 0, values
/// that OpenVDB's compression and comparisons find hard, and given masks.
template <class T>
std::vector<T> hardValues() {
  if constexpr (std::is_same_v<T, float>) {
    std::vector<float> values;
    for (std::uint32_t bits : {0x80000000u, 0x00000001u, 0x807fffffu, 0x7fc00001u, 0xffc12345u,
                               0x7f800000u, 0xff800000u, 0x7f7fffffu, 0x3f800000u, 0xbf800000u}) {
      values.push_back(std::bit_cast<float>(bits));
    }
    return values;
  } else if constexpr (std::is_same_v<T, int>) {
    return {-2147483647 - 1, 2147483647, -1, 1, 0, 77};
  } else {
    std::vector<T> values;
    for (auto const part : hardValues<typename T::value_type>()) {
      T value;
      for (int c = 0; c < T::size; ++c)
        value[c] = c == 0 ? part : static_cast<typename T::value_type>(c);
      values.push_back(value);
      value[1] = part;
      values.push_back(value);
    }
    return values;
  }
}

/// Small, repeatable, and the same everywhere.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed * 2 + 1) {}
  std::uint32_t operator()() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    auto const x = static_cast<std::uint32_t>(((state_ >> 18) ^ state_) >> 27);
    auto const turn = static_cast<int>(state_ >> 59);
    return std::rotr(x, turn);
  }
  std::uint32_t below(std::uint32_t limit) { return (*this)() % limit; }

 private:
  std::uint64_t state_;
};

/// The bits of every cell without a child, of its mask and of the background,
/// by depth and place.
template <class T>
std::map<std::tuple<int, int, int, int>, std::string> contentOf(API::Channel const& channel) {
  std::map<std::tuple<int, int, int, int>, std::string> content;
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  forTiles(layout, 0, layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const tile = accessor.tile(index);
    auto const cells = channel.tileData<T>(index);
    auto const mask = Host::activeMask(channel, index);
    std::string bytes;
    for (int c = 0; c < 125; ++c) {
      bool const refined =
          index.depth < layout.maxDepth() && tile.child(c % 5, c / 5 % 5, c / 25).valid();
      bytes += refined ? 'c' : mask.test(c) ? '1' : '0';
      if (!refined) bytes.append(reinterpret_cast<char const*>(&cells.data[c]), sizeof(T));
    }
    content[{index.depth, tile.coord().i, tile.coord().j, tile.coord().k}] = bytes;
  });
  auto const background = channel.backgroundValue<T>();
  content[{-1, 0, 0, 0}].assign(reinterpret_cast<char const*>(&background), sizeof background);
  return content;
}

/// Says where two channels first differ.
template <class T>
void expectSameContent(API::Channel const& expected, API::Channel const& actual) {
  auto const before = contentOf<T>(expected), after = contentOf<T>(actual);
  auto const list = [](auto const& place) {
    auto const& [depth, i, j, k] = place;
    return "depth " + std::to_string(depth) + " at " + std::to_string(i) + " " + std::to_string(j) +
           " " + std::to_string(k);
  };
  for (auto const& [place, bytes] : after) {
    ASSERT_TRUE(before.count(place) == 1) << "there was no tile of " << list(place);
  }
  for (auto const& [place, bytes] : before) {
    auto const found = after.find(place);
    ASSERT_TRUE(found != after.end()) << "no tile of " << list(place);
    auto const at =
        std::mismatch(bytes.begin(), bytes.end(), found->second.begin(), found->second.end()).first;
    ASSERT_TRUE(bytes == found->second)
        << "the tile of " << list(place) << " differs from byte " << at - bytes.begin();
  }
}

}  // namespace Velmor::Test
