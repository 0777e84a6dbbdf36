// The order of virtual functions: what a client's subclass is built against.

#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using Slots = std::vector<std::string>;

char const* const pure = "__cxa_pure_virtual";

std::string demangled(char const* name) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> const text(
      abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
  return status == 0 ? text.get() : name;
}

std::string withoutArguments(std::string const& name) { return name.substr(0, name.find('(')); }

/// The functions of a class's table, class and name, as the library lays them out.
Slots slotsOf(std::string const& mangledClass) {
  auto const symbol = "_ZTV" + mangledClass;
  void* const table = dlsym(RTLD_DEFAULT, symbol.c_str());
  if (table == nullptr) return {"no table"};
  Dl_info info{};
  ElfW(Sym)* entry = nullptr;
  if (dladdr1(table, &info, reinterpret_cast<void**>(&entry), RTLD_DL_SYMENT) == 0) return {"lost"};
  auto const* const words = static_cast<void* const*>(table);
  Slots slots;
  // Behind the offset to the top and the type.
  for (std::size_t w = 2; w < entry->st_size / sizeof(void*); ++w) {
    Dl_info function{};
    bool const known = dladdr(words[w], &function) != 0 && function.dli_saddr == words[w];
    auto name = known ? withoutArguments(demangled(function.dli_sname)) : std::string("?");
    std::string const home = "Velmor::Processing::";
    for (auto at = name.find(home); at != std::string::npos; at = name.find(home)) {
      name.erase(at, home.size());
    }
    slots.push_back(name);
  }
  return slots;
}

/// Behind the two destructors that a table begins with.
void expectSlots(std::string const& name, std::string const& mangled, Slots const& expected) {
  SCOPED_TRACE(name);
  auto slots = slotsOf("N6Velmor10Processing" + mangled + "E");
  ASSERT_EQ(slots.size(), expected.size() + 2);
  auto const isAbstract = expected.size() > 0 && expected.back() == pure;
  auto const own = name.substr(0, name.find('<'));
  for (std::size_t s = 0; s < 2 && !isAbstract; ++s) EXPECT_EQ(slots[s], name + "::~" + own);
  slots.erase(slots.begin(), slots.begin() + 2);
  EXPECT_EQ(slots, expected);
}

TEST(Slots, OfFilters) {
  expectSlots("Traverser", "9Traverser", {});
  expectSlots("Filter", "6Filter", {pure});
  expectSlots("TransformFilter<float>", "15TransformFilterIfE",
              {"TransformFilter<float>::filter", pure});
  expectSlots("HaloFilter<float>", "10HaloFilterIfE", {"HaloFilter<float>::filter", pure});
  struct Transform {
    char const *name, *mangled, *computes;
  };
  for (auto const& [name, mangled, computes] :
       {Transform{"IdentityFilter", "14IdentityFilterIfE", "IdentityFilter"},
        Transform{"OffsetFilter", "12OffsetFilterIfE", "OffsetFilter"},
        Transform{"ScaleFilter", "11ScaleFilterIfE", "ScaleFilter"},
        Transform{"RemapFilter", "11RemapFilterIfE", "RemapFilter"},
        Transform{"DilateFilter", "12DilateFilterIfE", "OffsetFilter"},
        Transform{"ErodeFilter", "11ErodeFilterIfE", "OffsetFilter"}}) {
    expectSlots(std::string(name) + "<float>", mangled,
                {"TransformFilter<float>::filter", std::string(computes) + "<float>::compute"});
  }
  for (auto const& [name, mangled, computes] :
       {Transform{"MeanFilter", "10MeanFilterIfE", "MeanFilter"},
        Transform{"MedianFilter", "12MedianFilterIfE", "MedianFilter"},
        Transform{"LaplacianFilter", "15LaplacianFilterIfE", "LaplacianFilter"},
        Transform{"CurvatureFilter", "15CurvatureFilterIfE", "CurvatureFilter"}}) {
    expectSlots(std::string(name) + "<float>", mangled,
                {"HaloFilter<float>::filter", std::string(computes) + "<float>::compute"});
  }
  expectSlots("SmoothFilter<float>", "12SmoothFilterIfE", {"SmoothFilter<float>::filter"});
  expectSlots("ExtendFilter", "12ExtendFilter", {"ExtendFilter::filter"});
}

TEST(Slots, OfMixers) {
  expectSlots("Mixer", "5Mixer", {pure});
  expectSlots("MixerT<float>", "6MixerTIfE", {"MixerT<float>::mix", pure});
  expectSlots("AlphaMixer<float>", "10AlphaMixerIfE",
              {"AlphaMixer<float>::mix", "AlphaMixer<float>::compute"});
  expectSlots("StepMixer<float>", "9StepMixerIfE",
              {"MixerT<float>::mix", "StepMixer<float>::compute"});
}

TEST(Slots, OfMeshersAndIntersectors) {
  expectSlots("Mesher", "6Mesher", {pure});
  expectSlots("MarchingCubes", "13MarchingCubes", {"MarchingCubes::mesh"});
  expectSlots("Intersector", "11Intersector", {});
}

TEST(Slots, OfShapesAndTheirParameters) {
  for (std::string const name : {"Shape", "Points", "Surface", "Volume"}) {
    expectSlots(name, std::to_string(name.size()) + name, {"Shape::bbox"});
    auto const parameters = name + "Parameters";
    expectSlots(parameters, std::to_string(parameters.size()) + parameters, {parameters + "::str"});
  }
}

}  // namespace
