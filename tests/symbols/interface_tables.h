#pragma once

#include <string>
#include <vector>

/// The interface of the library as its symbol table must show it. Names are
/// those of namespace Velmor::Processing, and T stands for each value type.
namespace Velmor::Processing::Interface {

/// What can be copied and moved how.
enum class Values { CopyAndMove, MoveConstruction, Copy, Assignment };

struct Class {
  std::string name;
  /// The arguments of each constructor but those that copy and move.
  std::vector<std::string> constructors;
  Values values;
  bool hasVirtualTable;
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
    {"TransformFilter<T>", {""}, Values::CopyAndMove, true, {"filter" + channels}},
    {"IdentityFilter<T>", {""}, Values::CopyAndMove, true, {"compute(T const&) const"}},
    {"OffsetFilter<T>", {"T const&"}, Values::CopyAndMove, true, {"compute(T const&) const"}},
    {"ScaleFilter<T>", {"T const&"}, Values::CopyAndMove, true, {"compute(T const&) const"}},
    {"RemapFilter<T>",
     {"T const&, T const&, T const&, T const&"},
     Values::CopyAndMove,
     true,
     {"compute(T const&) const"}},
    {"DilateFilter<T>", {"T const&"}, Values::CopyAndMove, true, {}},
    {"ErodeFilter<T>", {"T const&"}, Values::CopyAndMove, true, {}},
    {"HaloFilter<T>", {""}, Values::CopyAndMove, true, {"filter" + channels}},
    {"MixerT<T>", {""}, Values::CopyAndMove, true, {mixing}},
    {"AlphaMixer<T>",
     {"float", "API::Channel const&"},
     Values::CopyAndMove,
     true,
     {mixing, "compute(T const&, T const&) const"}},
    {"StepMixer<T>", {"float"}, Values::CopyAndMove, true, {"compute(T const&, T const&) const"}},
};

/// All else.
inline std::vector<Class> const classes{
    {"Traverser",
     {""},
     Values::Copy,
     true,
     {"setTraversalMode(API::TraversalMode)", "traversalMode()", "setDepths(int, int)",
      "depths() const"}},
    {"Filter", {""}, Values::CopyAndMove, true, {}},
    {"MeanFilter<float>", {""}, Values::CopyAndMove, true, {stencil}},
    {"MedianFilter<float>", {""}, Values::CopyAndMove, true, {stencil}},
    {"LaplacianFilter<float>", {""}, Values::CopyAndMove, true, {stencil}},
    {"CurvatureFilter<float>", {""}, Values::CopyAndMove, true, {stencil}},
    {"SmoothFilter<float>",
     {"SmoothFilter<float>::Mode, unsigned int, float"},
     Values::CopyAndMove,
     true,
     {"filter" + channels}},
    {"ExtendFilter",
     {"float, Float2 const&, Float2 const&, float, API::String const&"},
     Values::CopyAndMove,
     true,
     {"filter" + channels, "uvs(API::Channel const&) const"}},
    {"Mixer", {""}, Values::Copy, true, {}},
    {"Sampler",
     {"", "API::VoxelChannel const&", "API::VoxelComponent const&, API::String const&"},
     Values::CopyAndMove,
     false,
     {"valid() const", "dataType() const", "sample(Float3 const&, Sample&) const",
      "sampleGradient(Float3 const&, Float3&) const"}},
    {"Intersector",
     {"", "API::Layout const&"},
     Values::CopyAndMove,
     false,
     {"init(Float3 const&, Float3 const&, float, float)", "next()"}},
    {"Mesher", {""}, Values::Copy, true, {}},
    {"MarchingCubes",
     {"unsigned int"},
     Values::CopyAndMove,
     true,
     {"mesh(API::VoxelChannel const&, API::Array<Float3>&, API::Array<Int3>&) const"}},
    {"Stream", {""}, Values::Copy, false, {"operator<<(char const*)", "str() const"}},
    {"Status",
     {""},
     Values::Assignment,
     false,
     {"fail()", "warn()", "operator bool() const", "error() const", "warnings() const"}},
    {"ShapeParameters", {""}, Values::MoveConstruction, true, {"str() const"}},
    {"PointsParameters", {""}, Values::MoveConstruction, true, {"str() const"}},
    {"SurfaceParameters", {""}, Values::MoveConstruction, true, {"str() const"}},
    {"VolumeParameters", {""}, Values::MoveConstruction, true, {"str() const"}},
    {"Shape",
     {"ShapeParameters const&"},
     Values::Copy,
     true,
     {"status() const", "points() const", "voxels() const", "bbox() const"}},
    {"Points",
     {"PointsParameters const&"},
     Values::Copy,
     true,
     {"positionChannel() const", "positions(API::Array<Float3>&) const"}},
    {"Surface",
     {"SurfaceParameters const&"},
     Values::Copy,
     true,
     {"distance() const", "accel() const"}},
    {"Volume", {"VolumeParameters const&"}, Values::Copy, true, {}},
};

inline std::vector<std::string> const functions{
    "createAccelLayout(API::VoxelChannel const&)",
    "computeBBox(API::Layout const&)",
};

/// Names that are exported beside those of the tables.
inline std::vector<std::string> const furtherNames{"Interval", "Sample"};

}  // namespace Velmor::Processing::Interface
