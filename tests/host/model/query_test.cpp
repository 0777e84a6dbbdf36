#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "velmorapi/object_model.h"

namespace Velmor::Test {
namespace {

API::Query queryOf(std::string const& text) {
  API::Query const query(API::ObjectModel::createQuery());
  query.load(text);
  return query;
}

/// The object name as clients take it out of the description.
std::string nameIn(API::Query const& query) {
  auto const filters = query.info().split("Filters");
  EXPECT_EQ(filters.count(), 2u) << query.info();
  return filters[1].split("name=")[1].split(',')[0].str();
}

TEST(Query, IsInvalidBeforeAnythingIsLoaded) {
  EXPECT_FALSE(API::Query(API::ObjectModel::createQuery()).valid());
  EXPECT_FALSE(API::Query().valid());
}

TEST(Query, ReadsPairsBetweenCommasOrBlanks) {
  for (char const* const text :
       {"frame=12,name=liquid,type=object,graph=sim", "frame=12 name=liquid type=object graph=sim",
        "  graph=sim ,\tname=liquid , type=object\tframe=12  ",
        "name=\"liquid\", frame=\"12\", graph=\"sim\", type=\"object\""}) {
    auto const query = queryOf(text);
    ASSERT_TRUE(query.valid()) << text;
    EXPECT_EQ(query.binding().graph, "sim") << text;
    EXPECT_EQ(query.binding().frame, 12) << text;
    EXPECT_EQ(nameIn(query), "liquid") << text;
  }
}

TEST(Query, FrameAloneMeansAnyObject) {
  auto const query = queryOf("frame=0");
  ASSERT_TRUE(query.valid());
  EXPECT_EQ(nameIn(query), "");
  EXPECT_EQ(query.binding().graph, "");
}

TEST(Query, FrameIsZeroWithoutOne) {
  auto const query = queryOf("name=liquid");
  ASSERT_TRUE(query.valid());
  EXPECT_EQ(query.binding().frame, 0);
}

TEST(Query, QuotesHoldBlanksAndCommasOfGraphs) {
  auto const query = queryOf("name=\"two  words\" graph=\"/a folder/b, c\"");
  ASSERT_TRUE(query.valid());
  EXPECT_EQ(nameIn(query), "two  words");
  EXPECT_EQ(query.binding().graph, "/a folder/b, c");
}

TEST(Query, RefusesMalformedText) {
  for (char const* const text : {"",
                                 "   ",
                                 ",",
                                 "liquid",
                                 "name",
                                 "=liquid",
                                 "name=",
                                 "name= frame=1",
                                 "frame=12,",
                                 ",frame=12",
                                 "frame=1,,name=a",
                                 "frame = 12",
                                 "colour=red",
                                 "Frame=1",
                                 "frame=1 frame=1",
                                 "name=a, name=a",
                                 "graph=a graph=b",
                                 "type=object type=object",
                                 "type=channel",
                                 "type=Object",
                                 "name=\"liquid",
                                 "name=liquid\"",
                                 "name=li\"qu\"id",
                                 "name=\"a\"b",
                                 "name=\"a\"frame=1",
                                 "name=\"a\"\"b\"",
                                 "name=two words",
                                 "name=a\nframe=1",
                                 "name=\"a\nb\"",
                                 "graph=\"a\rb\""}) {
    EXPECT_FALSE(queryOf(text).valid()) << text;
  }
}

TEST(Query, RefusesNamesThatItsDescriptionOrAPathCannotHold) {
  for (char const* const name : {"a/b", "/", "a\\b", "..", "a..b", "../x", "a,b",
                                 "name=", "myname=x", "Filters", "the Filters"}) {
    EXPECT_FALSE(queryOf(std::string("name=\"") + name + '"').valid()) << name;
  }
  EXPECT_FALSE(queryOf(std::string("name=a\x01") + "b").valid());
  EXPECT_FALSE(queryOf(std::string("name=a\0b", 8)).valid());
  for (char const* const name :
       {"a.b", ".a", "name", "filters", "Filter s", "a=b", "\xc3\xa9t\xc3\xa9"})
    EXPECT_EQ(nameIn(queryOf(std::string("name=\"") + name + '"')), name);
}

TEST(Query, ReadsFramesOfTheWholeRangeAndNoOthers) {
  using Limits = std::numeric_limits<API::Runtime::Frame>;
  EXPECT_EQ(queryOf("frame=-12").binding().frame, -12);
  EXPECT_EQ(queryOf("frame=0012").binding().frame, 12);
  EXPECT_EQ(queryOf("frame=2147483647").binding().frame, Limits::max());
  EXPECT_EQ(queryOf("frame=-2147483648").binding().frame, Limits::min());
  for (char const* const frame : {"2147483648", "-2147483649", "99999999999999999999", "+1", "1.0",
                                  "1e3", "0x10", "--1", "-", "one", "1-", "12a", "\"\"", "\" 1\""})
    EXPECT_FALSE(queryOf(std::string("frame=") + frame).valid()) << frame;
}

TEST(Query, DescribesItselfInOneLine) {
  EXPECT_EQ(queryOf("frame=-3, name=\"two words\", graph=sim").info(),
            "Query Filters: name=two words,type=object,component=*; Binding: graph='sim',frame=-3");
  EXPECT_EQ(queryOf("frame=0").info(),
            "Query Filters: name=,type=object,component=*; Binding: graph='',frame=0");
}

TEST(Query, GraphsDoNotDisturbTheDescription) {
  EXPECT_EQ(queryOf("name=liquid graph=\"name=x,y\"")
                .info()
                .split("Filters")[1]
                .split("name=")[1]
                .split(',')[0],
            "liquid");
}

TEST(Query, AFailedLoadForgetsTheOneBefore) {
  auto const query = queryOf("name=liquid, graph=sim, frame=4");
  query.load("name=");
  EXPECT_FALSE(query.valid());
  EXPECT_EQ(query.binding().graph, "");
  EXPECT_EQ(query.binding().frame, 0);
  EXPECT_EQ(nameIn(query), "");
  query.load("frame=5");
  EXPECT_TRUE(query.valid());
  EXPECT_EQ(query.binding().frame, 5);
}

TEST(Query, InvalidHandlesDoNothing) {
  API::Query const query;
  query.load("frame=0");
  EXPECT_FALSE(query.valid());
  EXPECT_TRUE(query.info().empty());
  EXPECT_TRUE(query.run().empty());
  EXPECT_EQ(query.binding().frame, 0);
}

TEST(Query, FindsNothingWithoutAGraphOrInAnUnknownOne) {
  EXPECT_TRUE(queryOf("frame=0").run().empty());
  EXPECT_TRUE(queryOf("graph=\"no such graph\"").run().empty());
}

}  // namespace
}  // namespace Velmor::Test
