#include <gtest/gtest.h>
#include <openvdb/points/PointAttribute.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <random>
#include <set>
#include <thread>

#include "files/vdb_grids.h"
#include "host/files/file_scenes.h"
#include "host/files/vdb_files.h"
#include "support/object_builder.h"
#include "support/seed.h"

namespace Velmor::Test {
namespace {

std::string bytesOf(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

openvdb::points::PointDataGrid::Ptr smallPoints() {
  CacheFolder const folder;
  auto const path = folder.path().str() + "/points.vdb";
  ObjectBuilder const scene("points");
  std::vector<Float3> positions;
  for (int n = 0; n < 60; ++n) {
    auto const t = static_cast<float>(n);
    positions.emplace_back(t * 0.25f, t * 0.125f, 2.5f);
  }
  scene.points(positions);
  EXPECT_EQ(Host::writeObject(scene.object(), path).message(), "");
  auto const grids = readGrids(path);
  EXPECT_EQ(grids.size(), 1u);
  auto const grid = openvdb::gridPtrCast<openvdb::points::PointDataGrid>(grids.front());
  // Other programs write nothing of what the reader looks for in our files.
  grid->clearMetadata();
  grid->setName("points");
  return grid;
}

/// Small files of each kind that the reader knows.
std::vector<std::string> seeds(std::string const& folder) {
  openvdb::initialize();
  auto vectors = openvdb::Vec3SGrid::create(openvdb::Vec3s(0));
  vectors->setName("velocity");
  vectors->fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(9)), openvdb::Vec3s(1, 2, 3));
  auto half = sphereGrid(4.f, 0.1);
  half->setName("half");
  half->setSaveFloatAsHalf(true);
  std::vector<std::string> contents;
  for (auto const compression :
       {std::uint32_t{openvdb::io::COMPRESS_NONE}, std::uint32_t{openvdb::io::COMPRESS_ZIP},
        std::uint32_t{openvdb::io::COMPRESS_BLOSC} | openvdb::io::COMPRESS_ACTIVE_MASK}) {
    auto const path = folder + "/seed.vdb";
    openvdb::io::File file(path);
    file.setCompression(compression);
    file.write(openvdb::GridPtrVec{sphereGrid(3.f, 0.1), half, vectors, smallPoints()});
    contents.push_back(bytesOf(path));
  }
  auto const scene = sphereScene(3.f);
  auto const path = folder + "/ours.vdb";
  if (Host::writeObject(scene.object, path).succeeded()) contents.push_back(bytesOf(path));
  return contents;
}

std::string damaged(std::string bytes, Random& random) {
  auto const place = [&] { return random.below(static_cast<std::uint32_t>(bytes.size())); };
  switch (random.below(4)) {
    case 0:
      bytes.resize(place());
      break;
    case 1:
      for (auto n = 1 + random.below(8); n > 0; --n) {
        bytes[place()] ^= static_cast<char>(1u << random.below(8));
      }
      break;
    case 2: {
      auto const from = place();
      auto const to = std::min<std::size_t>(bytes.size(), from + 1 + random.below(64));
      for (std::size_t b = from; b < to; ++b) bytes[b] = static_cast<char>(random());
      break;
    }
    default: {
      // Most of what counts stands near the start: sizes, names, offsets.
      auto const at =
          random.below(std::min<std::uint32_t>(2000, static_cast<std::uint32_t>(bytes.size() - 8)));
      static constexpr std::uint64_t values[] = {0, 1, 0x7fffffff, 0xffffffff, ~0ull, 1ull << 40};
      auto const value = values[random.below(6)];
      std::memcpy(&bytes[at], &value, random.below(2) == 0 ? 4 : 8);
    }
  }
  return bytes;
}

TEST(HostileFile, EndsInSuccessOrAMessageNeverInACrash) {
  CacheFolder const folder;
  auto const contents = seeds(folder.path().str());
  auto const* const wished = std::getenv("VELMOR_HOSTILE_FILES");
  int const count = wished != nullptr ? std::atoi(wished) : 2000;
  auto const seed = std::uint64_t{newSeed()};
  std::cout << "seed " << seed << "\n";
  Host::setMessageHandler([](Host::Severity, std::string const&) {});
  Threads const one(1);
  std::atomic<int> next{0}, loaded{0}, refused{0};
  auto const work = [&](int worker) {
    auto const path = folder.path().str() + "/damaged" + std::to_string(worker) + ".vdb";
    for (int n = next++; n < count; n = next++) {
      Random random(seed + static_cast<std::uint64_t>(n));
      auto const bytes =
          damaged(contents[random.below(static_cast<std::uint32_t>(contents.size()))], random);
      std::ofstream(path, std::ios::binary)
          .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
      Host::ReadOptions how;
      how.timeLimit = 20;
      how.memoryLimit = std::size_t{1} << 30;
      API::Ref server;
      auto const status = Host::readObject(path, "object", {}, how, server);
      ++(status.succeeded() ? loaded : refused);
      if (!status.succeeded()) {
        EXPECT_NE(status.message().str().find(path), std::string::npos) << status.message();
      }
    }
  };
  std::vector<std::thread> workers;
  for (int w = 0; w < 2; ++w) workers.emplace_back(work, w);
  for (auto& worker : workers) worker.join();
  Host::setMessageHandler(nullptr);
  std::cout << loaded << " loaded, " << refused << " refused\n";
  EXPECT_EQ(loaded + refused, count);
  EXPECT_GT(loaded, count / 50);
  EXPECT_GT(refused, count / 50);
}

TEST(HostileFile, ValuesPerPointThatOverflowAreNoPair) {
  CacheFolder const folder;
  auto const path = folder.path().str() + "/points.vdb";
  openvdb::initialize();
  auto const grid = smallPoints();
  using Vectors = openvdb::points::TypedAttributeArray<openvdb::Vec3s>;
  // Three times this is 2 in 32 bits.
  openvdb::points::appendAttribute(grid->tree(), "wide", Vectors::attributeType(), 0x55555556);
  writeGrids(path, {grid});
  auto const loaded = load(path);
  EXPECT_EQ(loaded.message, "");
  ASSERT_EQ(loaded.warnings.size(), 1u);
  EXPECT_NE(loaded.warnings[0].find("attribute 'wide' is skipped: values of type 'vec3s' times "
                                    "1431655766 are not supported"),
            std::string::npos)
      << loaded.warnings[0];
  EXPECT_EQ(API::PointComponent(loaded.object.findComponent("particle")).elementCount(), 60u);
}

TEST(HostileFile, AttributesThatPointsDisagreeOnAreSkipped) {
  namespace points = openvdb::points;
  CacheFolder const folder;
  auto const path = folder.path().str() + "/points.vdb";
  openvdb::initialize();
  auto const grid = smallPoints();
  ASSERT_GT(grid->tree().leafCount(), 1u);
  auto const append = [](auto& leaf, char const* name, openvdb::NamePair const& type,
                         bool constant = true) {
    auto const before = leaf.attributeSet().descriptorPtr();
    auto after = before->duplicateAppend(name, type);
    leaf.appendAttribute(*before, after, after->find(name), constant ? 1 : 100, constant);
  };
  bool first = true;
  for (auto leaf = grid->tree().beginLeaf(); leaf; ++leaf) {
    append(*leaf, "mixed",
           first ? points::TypedAttributeArray<float>::attributeType()
                 : points::TypedAttributeArray<int>::attributeType());
    append(*leaf, "varying", points::TypedAttributeArray<float>::attributeType(), false);
    if (first) append(*leaf, "some", points::TypedAttributeArray<float>::attributeType());
    first = false;
  }
  writeGrids(path, {grid});
  auto const loaded = load(path);
  EXPECT_EQ(loaded.message, "");
  std::set<std::string> reasons;
  for (auto const& warning : loaded.warnings)
    reasons.insert(warning.substr(warning.find("': ") + 3));
  EXPECT_EQ(reasons,
            (std::set<std::string>{"attribute 'mixed' is skipped: its type changes within the grid",
                                   "attribute 'some' is skipped: not all points have it",
                                   "attribute 'varying' is skipped: its number of values varies"}));
  EXPECT_EQ(API::PointComponent(loaded.object.findComponent("particle")).elementCount(), 60u);
}

TEST(HostileFile, RootEntriesWhereNoNodeCanBeAreDamage) {
  CacheFolder const folder;
  auto const path = folder.path().str() + "/root.vdb";
  constexpr std::int32_t sound = 0x12345000;
  for (std::int32_t const at :
       {0x7ffff000, std::numeric_limits<std::int32_t>::min(), sound + 8, sound + 0xfff}) {
    SCOPED_TRACE(at);
    auto const grid = sphereGrid(5.f, 0.1);
    grid->tree().root().addTile(openvdb::Coord(0, sound, 0), -1.f, false);
    writeGrids(path, {grid});
    auto bytes = bytesOf(path);
    std::string const key(reinterpret_cast<char const*>(&sound), sizeof sound);
    auto const place = bytes.find(key);
    ASSERT_NE(place, std::string::npos);
    std::memcpy(&bytes[place], &at, sizeof at);
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    auto how = trusting();
    how.distance = Host::DistanceMode::Auto;
    auto const loaded = load(path, how);
    EXPECT_FALSE(loaded.object.valid());
    EXPECT_NE(loaded.message.find("damaged: its root node has an entry at [0, " +
                                  std::to_string(at) + ", 0]"),
              std::string::npos)
        << loaded.message;
  }
}

// OpenVDB would fill memory for the text before it looks for it in the file.
TEST(HostileFile, TextsThatAreLongerThanTheFileAreDamage) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/x.vdb";
  auto const grid = sphereGrid(4.f, 0.1);
  grid->insertMeta("colour", openvdb::StringMetadata("turquoise"));
  writeGrids(file, {grid}, [] {
    openvdb::MetaMap metadata;
    metadata.insertMeta("creator", openvdb::StringMetadata("somebody"));
    return metadata;
  }());
  auto const whole = bytesOf(file);
  for (std::string const text :
       {"creator", "somebody", "distance", "colour", "turquoise", "UniformScaleTranslateMap"}) {
    auto const length = std::string(1, static_cast<char>(text.size())) + std::string(3, '\0');
    auto const at = whole.find(length + text);
    ASSERT_NE(at, std::string::npos) << text;
    auto bytes = whole;
    bytes[at + 3] = 0x7f;
    std::ofstream(file, std::ios::binary) << bytes;
    auto const said = load(file).message;
    EXPECT_NE(said.find("damaged: a text of " + std::to_string(0x7f000000u + text.size())),
              std::string::npos)
        << text << ": " << said;
  }
}

TEST(HostileFile, WhatIsNoVdbIsSaidToBeNone) {
  CacheFolder const folder;
  auto const path = folder.path().str() + "/rubbish.vdb";
  for (auto const& text : {std::string(), std::string("not a cache"), std::string(5000, '\0')}) {
    std::ofstream(path, std::ios::binary) << text;
    for (bool const isolate : {false, true}) {
      auto how = trusting();
      how.isolate = isolate;
      auto const loaded = load(path, how);
      EXPECT_FALSE(loaded.object.valid());
      EXPECT_NE(loaded.message.find("rubbish.vdb"), std::string::npos);
      EXPECT_EQ(loaded.message.find("iostream"), std::string::npos) << loaded.message;
    }
  }
  auto const folderItself = load(folder.path().str());
  EXPECT_NE(folderItself.message.find("it is a folder"), std::string::npos);
}

}  // namespace
}  // namespace Velmor::Test
