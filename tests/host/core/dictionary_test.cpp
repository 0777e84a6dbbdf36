#include "velmorapi/dictionary.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/scene.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

API::Dictionary dictionaryOf(Scene const& scene) { return scene.distance.dictionary(); }

TEST(Dictionary, IsSharedByTheHandlesOfAnItem) {
  auto const scene = emptyScene();
  dictionaryOf(scene).set("key", 3);
  API::Channel const again(scene.volume.findChannel("distance"));
  EXPECT_EQ(again.dictionary().value<int>("key"), 3);
  EXPECT_FALSE(scene.volume.dictionary().hasValue("key"));
  EXPECT_FALSE(scene.layout.dictionary().hasValue("key"));
}

TEST(Dictionary, ConvertsNumbersAsTheLanguageDoes) {
  auto const scene = emptyScene();
  auto const dictionary = dictionaryOf(scene);
  dictionary.set("f", -2.75f);
  EXPECT_EQ(dictionary.value<int>("f"), -2);
  EXPECT_EQ(dictionary.value<double>("f"), -2.75);
  EXPECT_TRUE(dictionary.value<bool>("f"));
  dictionary.set("b", true);
  EXPECT_EQ(dictionary.value<int>("b"), 1);
  EXPECT_EQ(dictionary.value<float>("b"), 1.f);
  dictionary.set("far", 1e20);
  EXPECT_EQ(dictionary.value<int>("far"), std::numeric_limits<int>::min());
  dictionary.set("nan", std::numeric_limits<float>::quiet_NaN());
  EXPECT_EQ(dictionary.value<int>("nan"), std::numeric_limits<int>::min());
}

TEST(Dictionary, ConvertsEveryValueToItsText) {
  auto const scene = emptyScene();
  auto const dictionary = dictionaryOf(scene);
  dictionary.set("value", true);
  EXPECT_EQ(dictionary.value<API::String>("value"), API::String("true"));
  dictionary.set("value", -7);
  EXPECT_EQ(dictionary.value<API::String>("value"), API::String("-7"));
  dictionary.set("value", 0.1f);
  EXPECT_EQ(dictionary.value<API::String>("value"), API::String("0.1"));
  dictionary.set("value", Vec3(1.f, 0.5f, -2.f));
  EXPECT_EQ(dictionary.value<API::String>("value"), API::String("1 0.5 -2"));
  dictionary.set("value", "text");
  EXPECT_EQ(dictionary.value<API::String>("value"), API::String("text"));
  EXPECT_EQ(dictionary.keys().count(), 1u);
}

TEST(Dictionary, GivesNothingForWhatDoesNotConvertOrIsNotThere) {
  auto const scene = emptyScene();
  auto const dictionary = dictionaryOf(scene);
  dictionary.set("text", "12");
  dictionary.set("vector", Vec3(1.f));
  EXPECT_EQ(dictionary.value<int>("text"), 0);
  EXPECT_EQ(dictionary.value<Vec3>("text"), Vec3());
  EXPECT_EQ(dictionary.value<float>("vector"), 0.f);
  EXPECT_EQ(dictionary.value<Vec3>("vector"), Vec3(1.f));
  EXPECT_FALSE(dictionary.value<bool>("missing"));
  dictionary.remove("text");
  dictionary.remove("missing");
  EXPECT_FALSE(dictionary.hasValue("text"));
  EXPECT_EQ(dictionary.keys(), (API::Array<API::String>{"vector"}));
}

TEST(Dictionary, DoesNothingWithoutAStore) {
  API::Dictionary const none = API::Channel().dictionary();
  none.set("key", 1);
  none.remove("key");
  EXPECT_FALSE(none.hasValue("key"));
  EXPECT_EQ(none.value<int>("key"), 0);
  EXPECT_TRUE(none.keys().empty());
}

}  // namespace
