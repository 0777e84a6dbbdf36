#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "symbols/interface_tables.h"

namespace Velmor::Processing::Interface {
namespace {

constexpr char const* home = "Velmor::Processing::";

void replaceAll(std::string& text, std::string const& what, std::string const& with) {
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
}

/// The names that the library's dynamic symbol table defines, with their sizes.
std::map<std::string, std::size_t> readSymbols() {
  std::map<std::string, std::size_t> sizes;
  std::FILE* const pipe =
      popen("'" VELMOR_NM "' -D -S --demangle --defined-only '" VELMOR_LIBRARY "'", "r");
  if (pipe == nullptr) return sizes;
  std::array<char, 8192> line{};
  while (std::fgets(line.data(), line.size(), pipe) != nullptr) {
    std::istringstream fields(line.data());
    std::string address, kind, name;
    std::size_t size = 0;
    fields >> address >> std::hex >> size >> kind >> std::ws;
    std::getline(fields, name);
    replaceAll(name, "> >", ">>");  // as some demanglers write it
    sizes[name] = size;
  }
  pclose(pipe);
  return sizes;
}

std::map<std::string, std::size_t> const& symbols() {
  static auto const names = readSymbols();
  return names;
}

/// An entry of the tables as a demangler writes it, for one value type.
std::string spelled(std::string text, std::string const& type) {
  // Not the T of a name: it stands between brackets or begins an argument.
  replaceAll(text, "<T>", "<" + type + ">");
  replaceAll(text, "(T const&", "(" + type + " const&");
  replaceAll(text, ", T const&", ", " + type + " const&");
  for (auto const& [name, full] :
       std::vector<std::pair<std::string, std::string>>{{"Float2", "orlen::Math::vec<2, float>"},
                                                        {"Float3", "orlen::Math::vec<3, float>"},
                                                        {"Int3", "orlen::Math::vec<3, int>"},
                                                        {"API::", "Velmor::API::"}}) {
    replaceAll(text, name, full);
  }
  for (auto const* own :
       {"SmoothFilter<float>::Mode", "Sample&", "ShapeParameters const&", "PointsParameters const&",
        "SurfaceParameters const&", "VolumeParameters const&"}) {
    for (auto const* before : {"(", ", "}) {
      replaceAll(text, std::string(before) + own, std::string(before) + home + own);
    }
  }
  return text;
}

void expectExported(std::string const& name) { EXPECT_EQ(symbols().count(name), 1u) << name; }

void expectClass(Class const& entry, std::string const& type) {
  auto const self = home + spelled(entry.name, type);
  auto const shortName = entry.name.substr(0, entry.name.find('<'));
  auto const member = [&](std::string const& text) {
    expectExported(self + "::" + spelled(text, type));
  };
  for (auto const& arguments : entry.constructors) {
    member(std::string(shortName).append("(").append(arguments).append(")"));
  }
  member("~" + shortName + "()");
  expectExported(self + "::operator=(" + self + " const&)");
  if (entry.values != Values::Assignment) {
    expectExported(self + "::" + shortName + "(" + self + " const&)");
  } else {
    EXPECT_EQ(symbols().count(self + "::" + shortName + "(" + self + " const&)"), 0u) << self;
  }
  if (entry.values == Values::CopyAndMove || entry.values == Values::MoveConstruction) {
    expectExported(self + "::" + shortName + "(" + self + "&&)");
  }
  if (entry.values == Values::CopyAndMove) expectExported(self + "::operator=(" + self + "&&)");
  if (entry.virtualOperations == none) {
    EXPECT_EQ(symbols().count("vtable for " + self), 0u) << self;
  } else {
    expectExported("vtable for " + self);
    // Its head and the destructor take two places each.
    auto const places = 4 + static_cast<std::size_t>(entry.virtualOperations);
    EXPECT_EQ(symbols().at("vtable for " + self), places * sizeof(void*)) << self;
    expectExported("typeinfo for " + self);
    expectExported("typeinfo name for " + self);
  }
  for (auto const& text : entry.members) member(text);
}

std::vector<std::string> const valueTypes{"int",
                                          "float",
                                          "orlen::Math::vec<2, int>",
                                          "orlen::Math::vec<2, float>",
                                          "orlen::Math::vec<3, int>",
                                          "orlen::Math::vec<3, float>"};

TEST(Symbols, EveryFamilyIsExportedForTheSixValueTypes) {
  for (auto const& family : families) {
    for (auto const& type : valueTypes) expectClass(family, type);
  }
}

TEST(Symbols, EveryClassAndFunctionIsExported) {
  for (auto const& entry : classes) expectClass(entry, "");
  for (auto const& function : functions) expectExported(home + spelled(function, ""));
}

TEST(Symbols, NothingElseIsExported) {
  std::vector<std::string> allowed;
  allowed.reserve(classes.size() + furtherNames.size() + families.size() * valueTypes.size());
  for (auto const& entry : classes) allowed.push_back(home + entry.name);
  for (auto const& name : furtherNames) allowed.push_back(home + name);
  for (auto const& family : families) {
    for (auto const& type : valueTypes) allowed.push_back(home + spelled(family.name, type));
  }
  std::set<std::string> whole(allowed.begin(), allowed.end());
  for (auto const& function : functions) whole.insert(home + spelled(function, ""));

  ASSERT_FALSE(symbols().empty());
  for (auto const& [symbol, size] : symbols()) {
    auto name = symbol;
    for (std::string const prefix : {"vtable for ", "typeinfo for ", "typeinfo name for "}) {
      if (name.compare(0, prefix.size(), prefix) == 0) name.erase(0, prefix.size());
    }
    bool known = whole.count(name) > 0;
    for (auto const& owner : allowed) {
      // A member of its own, not one of a class nested in it.
      known =
          known || (name.compare(0, owner.size() + 2, owner + "::") == 0 &&
                    name.substr(owner.size() + 2, name.find('(') - owner.size() - 2).find("::") ==
                        std::string::npos);
    }
    EXPECT_TRUE(known) << name;
  }
}

TEST(Symbols, StencilsAndSmoothingExistForFloatOnly) {
  for (auto const& [name, size] : symbols()) {
    for (auto const* family : {"MeanFilter<", "MedianFilter<", "LaplacianFilter<",
                               "CurvatureFilter<", "SmoothFilter<"}) {
      auto const at = name.find(family);
      if (at == std::string::npos) continue;
      EXPECT_EQ(name.substr(name.find('<', at), 7), "<float>") << name;
    }
  }
}

}  // namespace
}  // namespace Velmor::Processing::Interface
