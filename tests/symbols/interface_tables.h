#pragma once

#include <string>
#include <vector>

/// The interface of the library as its symbol table must show it. Names are
/// those of namespace Velmor::Processing, and T stands for each value type.
namespace Velmor::Processing::Interface {

/// Of a class without a virtual table.
inline constexpr int none = -1;

/// What can be copied and moved how.
enum class Values { CopyAndMove, MoveConstruction, Copy, Assignment };

struct Class {
  std::string name;
  /// The arguments of each constructor but those that copy and move.
  std::vector<std::string> constructors;
  Values values;
  /// After the destructor; `none` where there is no virtual table at all.
  int virtualOperations;
  /// Further members; "(" begins their arguments.
  std::vector<std::string> members;
};

inline std::string const channels = "(API::Channel, API::Channel) const";
inline std::string const mixing =
    "mix(API::Channel const&, API::Channel const&, API::Channel&) const";
inline std::string const stencil =
    "compute(API::VoxelTile<float, 1, 5> const&, int, int, int) const";

/// Families: for the six value types.
inline std::vector<Class> const families{
    {"TransformFilter<T>", {""}, Values::CopyAndMove, 2, {"filter" + channels}},
    {"IdentityFilter<T>", {""}, Values::CopyAndMove, 2, {"compute(T const&) const"}},
    {"OffsetFilter<T>", {"T const&"}, Values::CopyAndMove, 2, {"compute(T const&) const"}},
    {"ScaleFilter<T>", {"T const&"}, Values::CopyAndMove, 2, {"compute(T const&) const"}},
    {"RemapFilter<T>",
     {"T const&, T const&, T const&, T const&"},
     Values::CopyAndMove,
     2,
     {"compute(T const&) const"}},
    {"DilateFilter<T>", {"T const&"}, Values::CopyAndMove, 2, {}},
    {"ErodeFilter<T>", {"T const&"}, Values::CopyAndMove, 2, {}},
    {"HaloFilter<T>", {""}, Values::CopyAndMove, 2, {"filter" + channels}},
    {"MixerT<T>",
     {""},
     Values::CopyAndMove,
     2,
     {mixing, "mixable(API::Channel const&, API::Channel const&, API::Channel const&) const"}},
    {"AlphaMixer<T>",
     {"float", "API::Channel const&"},
     Values::CopyAndMove,
     2,
     {mixing, "compute(T const&, T const&) const"}},
    {"StepMixer<T>", {"float"}, Values::CopyAndMove, 2, {"compute(T const&, T const&) const"}},
};

/// All else.
inline std::vector<Class> const classes{
    {"Traverser",
     {""},
     Values::Copy,
     0,
     {"setTraversalMode(API::TraversalMode)", "traversalMode()", "setDepths(int, int)",
      "depths() const"}},
    {"Filter", {""}, Values::CopyAndMove, 1, {}},
    {"MeanFilter<float>", {""}, Values::CopyAndMove, 2, {stencil}},
    {"MedianFilter<float>", {""}, Values::CopyAndMove, 2, {stencil}},
    {"LaplacianFilter<float>", {""}, Values::CopyAndMove, 2, {stencil}},
    {"CurvatureFilter<float>", {""}, Values::CopyAndMove, 2, {stencil}},
    {"SmoothFilter<float>",
     {"SmoothFilter<float>::Mode, unsigned int, float"},
     Values::CopyAndMove,
     1,
     {"filter" + channels}},
    {"ExtendFilter",
     {"float, Float2 const&, Float2 const&, float, API::String const&"},
     Values::CopyAndMove,
     1,
     {"filter" + channels, "uvs(API::Channel const&) const"}},
    {"Mixer", {""}, Values::Copy, 1, {}},
    {"Sampler",
     {"", "API::VoxelChannel const&", "API::VoxelComponent const&, API::String const&"},
     Values::CopyAndMove,
     none,
     {"valid() const", "dataType() const", "sample(Float3 const&, Sample&) const",
      "sampleGradient(Float3 const&, Float3&) const"}},
    {"Intersector",
     {"", "API::Layout const&"},
     Values::CopyAndMove,
     0,
     {"init(Float3 const&, Float3 const&, float, float)", "next()"}},
    {"Mesher", {""}, Values::Copy, 1, {}},
    {"MarchingCubes",
     {"unsigned int"},
     Values::CopyAndMove,
     1,
     {"mesh(API::VoxelChannel const&, API::Array<Float3>&, API::Array<Int3>&) const"}},
    {"Stream", {""}, Values::Copy, none, {"operator<<(char const*)", "str() const"}},
    {"Status",
     {""},
     Values::Assignment,
     none,
     {"fail()", "warn()", "operator bool() const", "error() const", "warnings() const"}},
    {"ShapeParameters", {""}, Values::MoveConstruction, 1, {"str() const"}},
    {"PointsParameters", {""}, Values::MoveConstruction, 1, {"str() const"}},
    {"SurfaceParameters", {""}, Values::MoveConstruction, 1, {"str() const"}},
    {"VolumeParameters", {""}, Values::MoveConstruction, 1, {"str() const"}},
    {"Shape",
     {"ShapeParameters const&"},
     Values::Copy,
     1,
     {"status() const", "points() const", "voxels() const", "bbox() const"}},
    {"Points",
     {"PointsParameters const&"},
     Values::Copy,
     1,
     {"positionChannel() const", "positions(API::Array<Float3>&) const"}},
    {"Surface",
     {"SurfaceParameters const&"},
     Values::Copy,
     1,
     {"distance() const", "accel() const"}},
    {"Volume", {"VolumeParameters const&"}, Values::Copy, 1, {}},
};

inline std::vector<std::string> const functions{
    "createAccelLayout(API::VoxelChannel const&)",
    "computeBBox(API::Layout const&)",
    "Interval::Interval()",
    "Interval::Interval(float, float)",
    "Interval::valid() const",
};

/// Names that are exported beside those of the tables.
inline std::vector<std::string> const furtherNames{"Interval", "Sample"};

}  // namespace Velmor::Processing::Interface
