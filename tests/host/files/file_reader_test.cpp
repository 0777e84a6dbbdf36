#include "files/file_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <istream>
#include <limits>

#include "host/files/file_scenes.h"
#include "support/cache_folder.h"

namespace Velmor::Test {
namespace {

using Host::Files::FileReader;

TEST(FileReader, ReadsAndMovesLikeTheStandardStream) {
  CacheFolder const folder;
  auto const path = folder.path().str() + "/bytes";
  std::string content(1'000'003, '\0');
  Random random(5);
  for (char& c : content) c = static_cast<char>(random.below(256));
  std::ofstream(path, std::ios::binary) << content;

  std::ifstream theirs(path, std::ios::binary);
  FileReader reader(path);
  ASSERT_TRUE(reader.isOpen());
  std::istream ours(&reader);
  constexpr std::uint32_t sizes[] = {1, 16, 3000, 262144, 400000};
  for (int n = 0; n < 2000; ++n) {
    switch (random.below(4)) {
      case 0: {
        auto const to = static_cast<std::streamoff>(random.below(1'100'000));
        theirs.seekg(to);
        ours.seekg(to);
        break;
      }
      case 1: {
        auto const by = static_cast<std::streamoff>(random.below(4000)) - 2000;
        theirs.seekg(by, std::ios::cur);
        ours.seekg(by, std::ios::cur);
        break;
      }
      default: {
        auto const size = random.below(sizes[random.below(5)]) + 1;
        std::string expected(size, '\0'), got(size, '\0');
        theirs.read(expected.data(), static_cast<std::streamsize>(size));
        ours.read(got.data(), static_cast<std::streamsize>(size));
        ASSERT_EQ(ours.gcount(), theirs.gcount());
        ASSERT_TRUE(got == expected);
      }
    }
    ASSERT_EQ(ours.rdstate(), theirs.rdstate());
    theirs.clear();
    ours.clear();
    ASSERT_EQ(ours.tellg(), theirs.tellg());
  }
  ours.seekg(-3, std::ios::end);
  EXPECT_EQ(ours.tellg(), std::streampos(1'000'000));
}

TEST(FileReader, OffsetsThatNoFileHasAreFailures) {
  CacheFolder const folder;
  auto const path = folder.path().str() + "/short";
  std::ofstream(path, std::ios::binary) << "abc";
  FileReader reader(path);
  std::istream in(&reader);
  using Limits = std::numeric_limits<std::streamoff>;
  for (auto const to : {std::streamoff{-1}, Limits::min()}) {
    in.seekg(to);
    EXPECT_TRUE(in.fail());
    in.clear();
  }
  in.seekg(1);
  in.seekg(Limits::max(), std::ios::cur);
  EXPECT_TRUE(in.fail());
  in.clear();
  in.seekg(Limits::max());
  EXPECT_EQ(in.get(), std::char_traits<char>::eof());
  in.clear();
  in.seekg(2);
  EXPECT_EQ(in.get(), 'c');
}

TEST(FileReader, AMissingFileIsNotOpen) {
  CacheFolder const folder;
  FileReader reader(folder.path().str() + "/none");
  EXPECT_FALSE(reader.isOpen());
  std::istream in(&reader);
  EXPECT_EQ(in.get(), std::char_traits<char>::eof());
}

}  // namespace
}  // namespace Velmor::Test
