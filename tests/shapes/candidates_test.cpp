#include "processing/surface.h"
#include "shapes/shape_case.h"

namespace Velmor::Processing {
namespace {

using Test::errorOf;
using Test::Float3;
using Test::ObjectBuilder;

class Candidates : public Test::ShapeCase {
 protected:
  /// The error of a surface that asks for a distance the object lacks.
  std::string errorFor(ObjectBuilder const& builder, char const* distance = "phi") const {
    folder.write(builder.object(), 1);
    auto parameters = parametersFor<SurfaceParameters>("name=liquid, frame=1");
    parameters.distance_channel = distance;
    return errorOf(Surface(parameters));
  }
};

TEST_F(Candidates, AreTheFloatChannelsInTheComponentsOrder) {
  ObjectBuilder const builder("liquid");
  auto const voxels = builder.voxels();
  builder.sphere(voxels, 2.f, "zeta");
  builder.channel<Float3>(voxels, "velocity", Float3(1.f));
  builder.channel<float>(voxels, "alpha", 1.f);
  builder.channel<int>(voxels, "id", 1);
  builder.channel<float>(voxels, "beta", 1.f);
  auto const error = errorFor(builder);
  std::string const head = "Invalid distance channel 'phi'. Available channels are:\n";
  ASSERT_EQ(error.substr(0, head.size()), head);
  // The file may hand its channels over in an order of its own; the list keeps that one.
  auto parameters = parametersFor<SurfaceParameters>("name=liquid, frame=1");
  parameters.distance_channel = "phi";
  Surface const surface(parameters);
  std::string list;
  for (auto const& channel : surface.voxels().channels()) {
    if (channel.dataType() == API::DataType::Float) list += "    " + channel.name().str() + "\n";
  }
  EXPECT_EQ(error, head + list);
  EXPECT_EQ(list.size(), std::string("    zeta\n    alpha\n    beta\n").size());
}

TEST_F(Candidates, IncludeNoChannelOfTheRightNameAndTheWrongType) {
  ObjectBuilder const builder("liquid");
  auto const voxels = builder.voxels();
  builder.sphere(voxels, 2.f, "phi");
  builder.channel<Float3>(voxels, "distance", Float3(1.f));
  EXPECT_EQ(errorFor(builder, "distance"),
            "Invalid distance channel 'distance'. Available channels are:\n    phi\n");
}

TEST_F(Candidates, MayBeNone) {
  ObjectBuilder const builder("liquid");
  auto const voxels = builder.voxels();
  Host::addLeafTiles(voxels.layout(), {{0, 0, 0}});
  builder.channel<Float3>(voxels, "velocity", Float3(1.f));
  EXPECT_EQ(errorFor(builder), "Invalid distance channel 'phi'. Available channels are:\n");
}

}  // namespace
}  // namespace Velmor::Processing
