#include "processing/volume.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <type_traits>

#include "processing/smooth_filter.h"
#include "shapes/shape_case.h"
#include "support/sanitized.h"
#include "velmorapi/object_model.h"

namespace Velmor::Processing {
namespace {

using Test::addChannel;
using Test::errorOf;
using Test::Float3;
using Test::forTiles;
using Test::ObjectBuilder;
using Test::valuesOf;

static_assert(std::is_base_of_v<Shape, Volume> && std::is_copy_constructible_v<Volume> &&
              std::is_copy_assignable_v<Volume>);
static_assert(std::is_base_of_v<ShapeParameters, VolumeParameters> &&
              std::is_move_constructible_v<VolumeParameters> &&
              std::is_copy_assignable_v<VolumeParameters>);

class VolumeTest : public Test::ShapeCase {
 protected:
  /// A cloud of density that is not the same everywhere, and another channel.
  static ObjectBuilder cloud() {
    ObjectBuilder builder("smoke");
    auto const component = builder.voxels();
    builder.sphere(component, 4.f, "density");
    builder.sphere(component, 3.f, "temperature");
    return builder;
  }
  VolumeParameters parametersOf(ObjectBuilder const& builder) const {
    folder.write(builder.object(), 1);
    auto parameters = parametersFor<VolumeParameters>("name=smoke, frame=1");
    parameters.point_component = "";
    return parameters;
  }
  static std::vector<float> densityOf(Volume const& volume) {
    return valuesOf<float>(API::Channel(volume.voxels().findChannel("density")));
  }
};

TEST_F(VolumeTest, ParametersEndWithTheirOwnLines) {
  std::string const text = VolumeParameters().str().str();
  std::string const base = ShapeParameters().str().str();
  EXPECT_EQ(text,
            base + "    density_channel = density\n    smooth = 0\n    smooth_iterations = 1\n");
  VolumeParameters parameters;
  parameters.density_channel = "fuel";
  parameters.smooth = 0.25f;
  parameters.smooth_iterations = 4294967295u;
  VolumeParameters const moved(std::move(parameters));
  EXPECT_NE(moved.str().str().find("    density_channel = fuel\n    smooth = 0.25\n"
                                   "    smooth_iterations = 4294967295\n"),
            std::string::npos);
  EXPECT_EQ(parameters.density_channel, "fuel");  // moving from parameters leaves them whole
}

TEST_F(VolumeTest, LeavesTheDensityAloneUnlessBothSmoothingParametersAreOn) {
  auto const builder = cloud();
  auto const original = valuesOf<float>(API::Channel(
      API::Component(builder.object().findComponent("volume")).findChannel("density")));
  struct Case {
    float smooth;
    unsigned int iterations;
  };
  for (auto const [smooth, iterations] :
       {Case{0.f, 1}, Case{0.5f, 0}, Case{-1.f, 3}, Case{std::nanf(""), 3}}) {
    auto parameters = parametersOf(builder);
    parameters.smooth = smooth;
    parameters.smooth_iterations = iterations;
    Volume const volume(parameters);
    EXPECT_TRUE(volume.status()) << errorOf(volume);
    EXPECT_EQ(densityOf(volume), original) << smooth << ", " << iterations;
  }
}

TEST_F(VolumeTest, SmoothsByTheLaplacianInPlace) {
  auto parameters = parametersOf(cloud());
  Volume const plain(parameters);
  API::Channel const expected(plain.voxels().findChannel("density"));
  SmoothFilter<float>(SmoothFilter<float>::Laplacian, 2, 0.5f).filter(expected, expected);
  parameters.smooth = 0.5f;
  parameters.smooth_iterations = 2;
  Volume const volume(parameters);
  EXPECT_TRUE(volume.status());
  EXPECT_EQ(densityOf(volume), valuesOf<float>(expected));
  EXPECT_FALSE(volume.voxels().findChannel("tmp").valid());
}

TEST_F(VolumeTest, LosesAChannelOfTheNameThatSmoothingUses) {
  auto const builder = cloud();
  builder.channel(API::VoxelComponent(builder.object().findComponent("volume")), "tmp", 1.f);
  auto parameters = parametersOf(builder);
  EXPECT_TRUE(Volume(parameters).voxels().findChannel("tmp").valid());
  parameters.smooth = 0.5f;
  EXPECT_FALSE(Volume(parameters).voxels().findChannel("tmp").valid());
}

TEST_F(VolumeTest, NamesTheFloatChannelsIfTheDensityIsMissing) {
  auto parameters = parametersOf(cloud());
  parameters.density_channel = "densty";
  Volume const volume(parameters);
  EXPECT_FALSE(volume.status());
  EXPECT_EQ(errorOf(volume),
            "Invalid distance channel 'densty'. Available channels are:\n"
            "    density\n    temperature\n");
}

TEST_F(VolumeTest, RefusesADensityOfVectors) {
  ObjectBuilder const builder("smoke");
  auto const component = builder.voxels();
  Host::addLeafTiles(API::Layout(component.layout()), {{0, 0, 0}});
  builder.channel(component, "density", Float3(1.f, 2.f, 3.f));
  builder.channel(component, "flags", 3);
  builder.channel(component, "heat", 4.f);
  Volume const volume(parametersOf(builder));
  EXPECT_EQ(errorOf(volume),
            "Invalid distance channel 'density'. Available channels are:\n    heat\n");
}

TEST_F(VolumeTest, PreparesAfterAFailedLoadAndAppendsToItsMessage) {
  auto parameters = parametersFor<VolumeParameters>("");
  Volume const volume(parameters);
  EXPECT_EQ(errorOf(volume),
            "Invalid object query: ''.Invalid distance channel 'density'. Available channels "
            "are:\n");
}

TEST_F(VolumeTest, CopiesShareWhatWasLoaded) {
  Volume const volume(parametersOf(cloud()));
  auto const copy = std::make_unique<Volume>(volume);
  EXPECT_EQ(densityOf(*copy), densityOf(volume));
  Volume assigned(parametersFor<VolumeParameters>(""));
  assigned = volume;
  EXPECT_EQ(assigned.voxels(), volume.voxels());
}

TEST_F(VolumeTest, LoadsAndSmoothsEveryFogVolumeOfTheSharedData) {
  namespace fs = std::filesystem;
  if (!fs::is_directory(VELMOR_SHARED_DATA)) GTEST_SKIP() << "no shared data";
  int volumes = 0;
  for (auto const& entry : fs::recursive_directory_iterator(VELMOR_SHARED_DATA)) {
    if (entry.path().extension() != ".vdb") continue;
    API::Ref read;
    Host::ReadOptions options;
    options.isolate = false;
    if (!Host::readObject(entry.path().string(), "object", {}, options, read).succeeded()) continue;
    // The names of its fog volumes in the first voxel component.
    std::vector<API::String> names;
    for (auto const& object : API::StateServer(read).objects()) {
      API::Component const component(object.findComponent("volume"));
      for (auto const& channel : component.channels()) {
        if (Host::fieldClass(channel) == Host::FieldClass::FogVolume &&
            channel.dataType() == API::DataType::Float) {
          names.push_back(channel.name());
        }
      }
    }
    if (names.empty()) continue;
    if (Velmor::Test::sanitized) names.resize(1);
    // As a single file under a name without a number, it stands for any frame.
    auto const link = fs::path(folder.path().str()) / "shared.vdb";
    fs::remove(link);
    fs::copy_file(entry.path(), link);
    for (auto const& name : names) {
      VolumeParameters parameters;
      parameters.cache_folder = link.string();
      parameters.object = "frame=1";
      parameters.point_component = "";
      parameters.density_channel = name;
      parameters.smooth = 0.5f;
      Volume const volume(parameters);
      EXPECT_TRUE(volume.status()) << entry.path() << ": " << errorOf(volume);
      API::Channel const density(volume.voxels().findChannel(name));
      for (float const v : valuesOf<float>(density)) ASSERT_TRUE(std::isfinite(v)) << name;
      ++volumes;
    }
  }
  EXPECT_GT(volumes, Velmor::Test::sanitized ? 8 : 50);
}

TEST_F(VolumeTest, SmoothsADensityOf256Cubed) {
  ObjectBuilder const builder("smoke");
  auto const component = builder.voxels();
  std::vector<API::TileCoord> tiles;
  for (int z = 0; z < 256; z += 5)
    for (int y = 0; y < 256; y += 5)
      for (int x = 0; x < 256; x += 5) tiles.push_back({x, y, z});
  API::Layout const layout(component.layout());
  Host::addLeafTiles(layout, tiles);
  API::VoxelChannel const density(
      API::StateServer(API::ObjectModel::stateServer(component.stateID()))
          .createChannel(component, API::DataType::Float, "density"));
  auto const accessor = layout.tileAccessor();
  forTiles(layout, 7, 7, [&](API::TreeIndex const& index) {
    auto const at = accessor.tile(index).coord();
    auto const data = density.tileData<float>(index);
    // A chequered cloud: each voxel's neighbours have the other value.
    for (int e = 0; e < 125; ++e) {
      data.data[e] = ((at.i + at.j + at.k + e % 5 + e / 5 % 5 + e / 25) & 1) != 0 ? 1.f : 0.25f;
    }
  });
  auto parameters = parametersOf(builder);
  parameters.smooth = 0.5f;
  Volume const volume(parameters);
  ASSERT_TRUE(volume.status()) << errorOf(volume);
  API::Channel const smoothed(volume.voxels().findChannel("density"));
  for (int const at : {10, 100, 200}) {
    auto const tile = API::Layout(smoothed.layout()).tileAccessor().tile(at, at, at, 7);
    auto const data = smoothed.tileData<float>(tile.index());
    // Half of the way to the neighbours' value.
    for (int e = 0; e < 125; ++e) EXPECT_NEAR(data.data[e], 0.625f, 1e-6f);
  }
}

}  // namespace
}  // namespace Velmor::Processing
