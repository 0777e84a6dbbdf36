#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "core/banner_text.h"

namespace Velmor::Processing {
namespace {

constexpr char const* variable = "KESTRIL_DUMP_VERSION_INFO";

struct Run {
  int exitCode = -1;
  std::vector<std::string> lines;
};

// Runs a shell command and reads its standard output.
Run run(std::string const& command) {
  Run result;
  std::FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return result;
  std::string text;
  std::array<char, 4096> buffer{};
  while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) {
    text = buffer.data();
    result.lines.push_back(text.substr(0, text.find('\n')));
  }
  result.exitCode = WEXITSTATUS(pclose(pipe));
  return result;
}

std::string probe(std::string const& environment, std::string const& way) {
  return "env -u " + std::string(variable) + " LD_LIBRARY_PATH='" VELMOR_FAKEHOST_DIR "' " +
         environment + " '" VELMOR_BANNER_PROBE "' " + way + " '" VELMOR_LIBRARY "'";
}

// What a process that loads the library writes to standard error.
std::vector<std::string> bannersOf(std::string const& environment, std::string const& way) {
  auto const result = run(probe(environment, way) + " 2>&1 >/dev/null");
  EXPECT_EQ(result.exitCode, 0);
  return result.lines;
}

std::string with(std::string const& value) { return std::string(variable) + "='" + value + "'"; }

TEST(Banner, IsPrintedWhereTheVariableStartsWithANumberOtherThanZero) {
  for (auto const* value : {"1", "2", "-1", " 1", "1abc"}) {
    EXPECT_EQ(bannersOf(with(value), "once").size(), 1u) << "'" << value << "'";
  }
}

TEST(Banner, IsNotPrintedOtherwise) {
  EXPECT_TRUE(bannersOf("", "once").empty());
  for (auto const* value : {"0", "", "yes", "true", "0x1"}) {
    EXPECT_TRUE(bannersOf(with(value), "once").empty()) << "'" << value << "'";
  }
}

TEST(Banner, IsOneLineOfAFixedForm) {
  auto const lines = bannersOf(with("1"), "once");
  ASSERT_EQ(lines.size(), 1u);
  std::regex const form(R"(^velmorprocessing: .+ version [0-9]+\.[0-9]+\.[0-9]+\.[0-9]+ )"
                        R"(\(.+, build [0-9]+, commit [0-9a-f]{7}, branch .+\)$)");
  EXPECT_TRUE(std::regex_match(lines[0], form)) << lines[0];
  EXPECT_EQ(lines[0].find("velmorprocessing: VelmorFluidsModules version "), 0u);
}

TEST(Banner, IsPrintedOncePerLoad) {
  EXPECT_EQ(bannersOf(with("1"), "again").size(), 2u);
  EXPECT_EQ(bannersOf(with("1"), "shared").size(), 1u);
}

TEST(Banner, AClosedErrorStreamIsNoError) {
  // Nor where a program wants to be told of each failure to write.
  for (auto const* way : {"once", "strict"}) {
    auto const result = run(probe(with("1"), way) + " 2>&-");
    EXPECT_EQ(result.exitCode, 0) << way;
    EXPECT_EQ(result.lines, std::vector<std::string>{"loaded"}) << way;
  }
}

TEST(Banner, AnErrorStreamWithoutADescriptorGetsNone) {
  EXPECT_TRUE(bannersOf(with("1"), "memory").empty());
}

TEST(Banner, IsNotPrintedWithoutADescriptor) {
  ASSERT_EQ(setenv("VELMOR_TEST_VARIABLE", "1", 1), 0);
  EXPECT_TRUE(mustPrint("VELMOR_TEST_VARIABLE", 2));
  EXPECT_TRUE(mustPrint("VELMOR_TEST_VARIABLE", 0));
  EXPECT_FALSE(mustPrint("VELMOR_TEST_VARIABLE", -1));
  ASSERT_EQ(unsetenv("VELMOR_TEST_VARIABLE"), 0);
  EXPECT_FALSE(mustPrint("VELMOR_TEST_VARIABLE", 2));
}

constexpr BuildInfo example{"Product",
                            "abc",
                            {"2", "08", "x", "0"},
                            "Mon 2024-01-01 202401010000",
                            "0158",
                            "0123456789abcdef0123456789abcdef01234567",
                            "release"};

TEST(BannerLine, RightAlignsTheModuleInSixteenColumns) {
  EXPECT_EQ(bannerLine(example).substr(0, 18), "             abc: ");
  auto wide = example;
  wide.module = "velmorprocessing";
  EXPECT_EQ(bannerLine(wide).substr(0, 18), "velmorprocessing: ");
  wide.module = "seventeen_letters";
  EXPECT_EQ(bannerLine(wide).substr(0, 19), "seventeen_letters: ");
}

TEST(BannerLine, ConvertsVersionAndBuildToNumbers) {
  EXPECT_EQ(bannerLine(example).substr(18),
            "Product version 2.8.0.0 (Mon 2024-01-01 202401010000, build 158, "
            "commit 0123456, branch release)");
}

TEST(BannerLine, RightAlignsAShortCommitInSevenColumns) {
  auto shortCommit = example;
  shortCommit.commit = "abc";
  EXPECT_NE(bannerLine(shortCommit).find(", commit     abc, branch"), std::string::npos);
}

}  // namespace
}  // namespace Velmor::Processing
