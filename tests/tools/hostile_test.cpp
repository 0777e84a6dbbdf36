#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>

#include "support/cache_folder.h"
#include "support/object_builder.h"
#include "support/seed.h"
#include "tools/level_sets.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

// Damage to a file; each run of a damaged file must succeed or end with code 3,
// in bounded time, and leave no output without success.
using Damage = std::function<void(std::string& bytes, std::mt19937& random)>;

void truncate(std::string& bytes, std::mt19937& random) { bytes.resize(random() % bytes.size()); }

void flipBits(std::string& bytes, std::mt19937& random) {
  for (unsigned n = 1 + random() % 4; n > 0; --n) {
    bytes[random() % bytes.size()] ^= static_cast<char>(1u << (random() % 8));
  }
}

void overwrite(std::string& bytes, std::mt19937& random) {
  auto const from = random() % bytes.size();
  auto const count = std::min<std::size_t>(1 + random() % 64, bytes.size() - from);
  for (std::size_t i = 0; i < count; ++i) bytes[from + i] = static_cast<char>(random());
}

// Headers and descriptors lie in front; damage there goes deeper.
void overwriteFront(std::string& bytes, std::mt19937& random) {
  auto const limit = std::min<std::size_t>(bytes.size(), 1500);
  for (unsigned n = 1 + random() % 8; n > 0; --n) {
    bytes[random() % limit] = static_cast<char>(random());
  }
}

/// Fewer under sanitizers, where starting the command takes half a second.
int shareOf(int times) {
  auto const* const wished = std::getenv("VELMOR_HOSTILE_FILES");
  return wished == nullptr ? times : std::max(1, times * std::atoi(wished) / 2000);
}

void expectGraceful(std::string const& whole, Damage const& damage, int most) {
  int const times = shareOf(most);
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  CacheFolder const folder;
  auto const file = folder.path().str() + "/x.vdb", out = folder.path().str() + "/x.ply";
  for (int n = 0; n < times; ++n) {
    auto bytes = whole;
    damage(bytes, random);
    writeFile(file, bytes);
    bool const mesh = random() % 2 == 1;
    auto const run = mesh ? runCommand({"mesh", file, "--allow-open", "-o", out})
                          : runCommand({"info", file, "--json"});
    EXPECT_EQ(run.signal, 0) << "run " << n;
    EXPECT_TRUE(run.exit == 0 || run.exit == 3) << "run " << n << ": " << run.exit << run.err;
    if (run.exit == 3) {
      EXPECT_NE(run.err.find("velmor: "), std::string::npos);
    }
    EXPECT_EQ(std::filesystem::exists(out), mesh && run.exit == 0) << "run " << n;
    std::filesystem::remove(out);
    if (testing::Test::HasFailure()) {
      auto const kept = std::filesystem::temp_directory_path() / "velmor-hostile.vdb";
      writeFile(kept.string(), bytes);
      FAIL() << "the file is kept as " << kept;
    }
  }
}

std::string ballFile() {
  CacheFolder const folder;
  ObjectBuilder const builder("ball");
  auto const volume = builder.voxels();
  builder.sphere(volume, 7.f);
  builder.channel<Float3>(volume, "velocity", {1.f, 2.f, 3.f});
  builder.points({{1.f, 2.f, 3.f}, {4.f, 5.f, 6.f}});
  folder.write(builder.object(), 1);
  return readFile(folder.fileOf("ball", 1).string());
}

TEST(DamagedFile, OfOursTruncated) { expectGraceful(ballFile(), truncate, 40); }
TEST(DamagedFile, OfOursWithBitsFlipped) { expectGraceful(ballFile(), flipBits, 60); }
TEST(DamagedFile, OfOursOverwritten) { expectGraceful(ballFile(), overwrite, 60); }
TEST(DamagedFile, OfOursOverwrittenInFront) { expectGraceful(ballFile(), overwriteFront, 60); }

TEST(DamagedFile, OfOthers) {
  std::string const folder = VELMOR_SHARED_DATA;
  auto const files = vdbFiles(folder);
  if (files.empty()) GTEST_SKIP() << "no data beside the project";
  for (auto const& file : files) {
    auto const bytes = readFile(folder + "/" + file);
    if (bytes.size() > 400000) continue;
    SCOPED_TRACE(file);
    expectGraceful(bytes, overwrite, 4);
    expectGraceful(bytes, overwriteFront, 4);
  }
}

TEST(DamagedFile, RubbishOfAnySize) {
  expectGraceful(
      std::string(5000, 'x'),
      [](std::string& bytes, std::mt19937& random) {
        bytes.resize(random() % 5000);
        for (auto& byte : bytes) byte = static_cast<char>(random());
      },
      10);
}

}  // namespace
}  // namespace Velmor::Test
