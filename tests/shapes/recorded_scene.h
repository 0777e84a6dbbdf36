#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakehost/fakehost.h"
#include "processing/shape.h"

namespace Velmor::Test {

using Calls = std::vector<std::string>;
using Float3 = orlen::Math::vec<3, float>;

/// A test on the recording host, which has one object "liquid" for every query
/// and in every folder, with voxels of size 0.1 and points of size 0.2.
class RecordedScene : public ::testing::Test {
 protected:
  RecordedScene() {
    FakeHost::reset();
    server = FakeHost::createStateServer("state");
    object = FakeHost::createObject(server, "liquid");
    voxels = server.createComponent(API::VoxelComponentType, "volume", 0.1f);
    points = server.createComponent(API::PointComponentType, "particle", 0.2f);
    object.addComponent(voxels);
    object.addComponent(points);
    auto& script = FakeHost::script();
    script.query.name = "liquid";
    script.query.frame = 12;
    script.objectNames = {"liquid"};
    script.resourceIDs = {"id"};
    script.dataSource = server;
    FakeHost::clearCalls();
  }
  ~RecordedScene() override {
    FakeHost::script().dataSource = {};
    FakeHost::script().query.results.clear();
  }

  template <class Parameters = Processing::ShapeParameters>
  static Parameters parametersFor(API::String const& query = "any") {
    Parameters parameters;
    parameters.cache_folder = "cache";
    parameters.object = query;
    return parameters;
  }

  /// Lets the query find the object in memory, in graph "scene".
  void publish() {
    API::ObjectModel::createActiveGraph("scene");
    FakeHost::script().query.graph = "scene";
    FakeHost::script().query.results = {object};
    FakeHost::clearCalls();
  }

  API::StateServer server;
  API::Object object;
  API::VoxelComponent voxels;
  API::PointComponent points;
};

}  // namespace Velmor::Test
