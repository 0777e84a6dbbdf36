#pragma once

#include <gtest/gtest.h>

#include <filesystem>

#include "processing/shape.h"
#include "support/cache_folder.h"
#include "support/object_builder.h"
#include "velmorapi/object_model.h"
#include "velmorhost/settings.h"

namespace Velmor::Test {

/// A shape that shows what only derived shapes see.
class OpenShape : public Processing::Shape {
 public:
  explicit OpenShape(Processing::ShapeParameters const& parameters) : Shape(parameters) {}
  using Shape::scale;
  Processing::Status& messages() { return status_; }
  API::String const& activeGraphName() const { return activeGraphName_; }
  API::String const& tempFolder() const { return tempFolder_; }
};

/// A test with a cache folder, on a host that reads in this process and keeps
/// to itself what it thinks of the files.
class ShapeCase : public ::testing::Test {
 protected:
  ShapeCase() {
    Host::ReadOptions options;
    options.isolate = false;
    Host::setReadOptions(options);
    Host::setMessageHandler([](Host::Severity, std::string const&) {});
  }
  ~ShapeCase() override {
    Host::clearFailures();
    Host::setMessageHandler(nullptr);
    Host::setReadOptions({});
  }

  template <class Parameters = Processing::ShapeParameters>
  Parameters parametersFor(API::String const& query) const {
    Parameters parameters;
    parameters.cache_folder = folder.path();
    parameters.object = query;
    return parameters;
  }

  CacheFolder folder;
};

/// The warnings as a vector, for comparisons.
inline std::vector<std::string> warningsOf(Processing::Shape const& shape) {
  std::vector<std::string> texts;
  for (auto const& text : shape.status().warnings()) texts.push_back(text.str());
  return texts;
}

inline std::string errorOf(Processing::Shape const& shape) { return shape.status().error().str(); }

inline bool graphExists(API::String const& name) {
  return API::ObjectModel::activeGraph(name).valid();
}

inline bool folderExists(API::String const& path) { return std::filesystem::exists(path.str()); }

inline float voxelScaleOf(API::Component const& component) {
  return API::Layout(component.layout()).voxelScale();
}

}  // namespace Velmor::Test
