#include "foundation/HXOrderedDictionary.h"

#include <gmock/gmock.h>

#include <limits>

#include "foundation/HXEnumerationMutation.h"
#include "foundation/HXLog.h"

namespace json = boost::json;

namespace {

using testing::ElementsAre;
using Dictionary = HXMutableOrderedDictionary;

static_assert(!std::is_constructible_v<HXOrderedDictionary, Dictionary&>);
static_assert(!std::is_assignable_v<HXOrderedDictionary&, Dictionary>);
static_assert(std::is_copy_assignable_v<Dictionary> && std::is_copy_constructible_v<HXOrderedDictionary>);

Dictionary abc() {
  Dictionary dictionary;
  dictionary.setObject(1, "a");
  dictionary.setObject(std::string("two"), "b");
  dictionary.setObject(nullptr, "c");
  return dictionary;
}

TEST(OrderedDictionary, KeepsItsOrder) {
  auto dictionary = abc();
  dictionary.setObject(4, "a");
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("a", "b", "c"));
  EXPECT_THAT(dictionary.sortedValues(), ElementsAre(4, "two", nullptr));
  dictionary.removeObjectForKey(dictionary.keyAtIndex(1));
  dictionary.setObject(std::nullopt, "none");
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("a", "c"));
  dictionary.reverseAllKeys();
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("c", "a"));
  dictionary.addEntriesFromDictionary({{"z", 1}, {"c", 2}, {"y", 3}});
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("c", "a", "z", "y"));
  EXPECT_EQ(dictionary.dictionary(), (json::object{{"a", 4}, {"c", 2}, {"y", 3}, {"z", 1}}));
  dictionary.removeObjectAtIndex(0);
  dictionary.setObject(std::nullopt, "z");
  EXPECT_EQ(dictionary.description(), "{\n    a = 4\n    y = 3\n}");
}

TEST(OrderedDictionary, LooksUpByKeyAndPlace) {
  const auto dictionary = abc();
  EXPECT_EQ(*dictionary.objectForKey("c"), nullptr);
  EXPECT_EQ(dictionary.objectForKey("d"), nullptr);
  auto changeable = dictionary;
  EXPECT_THROW(dictionary.keyAtIndex(3), std::out_of_range);
  EXPECT_THROW(dictionary.objectAtIndex(3), std::out_of_range);
  EXPECT_THROW(changeable.removeObjectAtIndex(3), std::out_of_range);
  EXPECT_THROW(changeable.replaceObjectAtIndex(3, 0, "d"), std::out_of_range);
  EXPECT_EQ(changeable, dictionary);

  auto next = dictionary.keyEnumerator();
  for (auto key : {"a", "b", "c"}) EXPECT_EQ(*next(), key);
  EXPECT_EQ(next(), nullptr);
  std::size_t objects = 0;
  for (auto nextObject = dictionary.objectEnumerator(); nextObject();) ++objects;
  EXPECT_EQ(objects, 3u);
}

TEST(OrderedDictionary, ReplacesTheKeyAtAPlace) {
  auto dictionary = abc();
  dictionary.replaceObjectAtIndex(1, 5, "b");
  EXPECT_EQ(dictionary.serializationData(), R"([["a","b","c"],{"a":1,"b":5,"c":null}])");
  dictionary.replaceObjectAtIndex(0, 6, "new");
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("new", "b", "c"));
  dictionary.replaceObjectAtIndex(2, 7, "new");  // the key was before this position
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("b", "new"));
  dictionary.replaceObjectAtIndex(0, 8, dictionary.keyAtIndex(1));  // the key was after this position
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("new"));
  EXPECT_EQ(dictionary.dictionary(), (json::object{{"new", 8}}));
}

TEST(OrderedDictionary, EqualityDependsOnOrderAndClass) {
  auto dictionary = abc(), other = abc();
  EXPECT_EQ(dictionary, other);
  other.setObject(2, "a");
  EXPECT_FALSE(dictionary.isEqual(other));
  other = abc();
  other.reverseAllKeys();
  EXPECT_NE(dictionary, other);

  auto fixed = dictionary.copyWithZone();
  EXPECT_TRUE(fixed.isEqualToDictionary(dictionary));
  EXPECT_TRUE(fixed.isEqual(dictionary));
  EXPECT_FALSE(dictionary.isEqual(fixed));
  EXPECT_TRUE(dictionary.isEqual(fixed.mutableCopyWithZone()));
}

TEST(OrderedDictionary, RepeatedKeysStayUntilTheyAreChanged) {
  auto dictionary = Dictionary::initWithObjects({1, 2, 3}, {"a", "b", "a", "none"});
  EXPECT_THAT(dictionary.sortedValues(), ElementsAre(3, 2, 3, nullptr));
  auto without = dictionary;
  without.removeObjectForKey("a");
  EXPECT_THAT(without.sortedKeys(), ElementsAre("b", "none"));
  dictionary.replaceObjectAtIndex(0, 4, "c");
  dictionary.replaceObjectAtIndex(1, 5, "a");
  dictionary.replaceObjectAtIndex(0, 6, "none");
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("none", "a"));
  EXPECT_EQ(dictionary.dictionary(), (json::object{{"a", 5}, {"none", 6}}));

  EXPECT_THAT(HXOrderedDictionary::initWithDictionary({{"z", 1}, {"y", 2}}).sortedKeys(), ElementsAre("z", "y"));
}

TEST(OrderedDictionary, SerializedFormKeepsTheOrder) {
  HXSetLogDestinations(0);
  Dictionary dictionary;
  dictionary.setObject(2, "b");
  dictionary.setObject(json::array{"é"}, "a");
  auto data = dictionary.serializationData();
  EXPECT_EQ(data, R"([["b","a"],{"b":2,"a":["é"]}])");
  auto read = Dictionary::initWithSerializationData(*data);
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, dictionary);
  for (auto text : {"", "{}", "[[]]", "[[],{},[]]", "[{},[]]", "[[],[]]", "[[1],{}]", "[[],{}"})
    EXPECT_FALSE(HXOrderedDictionary::initWithSerializationData(text)) << text;
  dictionary.setObject(std::numeric_limits<double>::quiet_NaN(), "nan");
  EXPECT_FALSE(dictionary.serializationData());
}

TEST(OrderedDictionary, EquationLines) {
  Dictionary dictionary;
  dictionary.setObject("x,y", "k");
  EXPECT_EQ(dictionary.equationLinesWithSeparator("\n"), "k=x,y");
  dictionary.setObject(json::array{1, true}, "a,b");
  EXPECT_EQ(dictionary.equationLinesWithSeparator("\u00A0, "), "k=\"x,y\"\u00A0, \"a,b\"=[1,true]");
  Dictionary imported;
  imported.importEquationLines({"k = v", "k2=\"a=b\"", "no sign", "k=w"});
  EXPECT_EQ(imported.serializationData(), R"([["k","k2"],{"k":"w","k2":"a=b"}])");
}

TEST(OrderedDictionary, EnumeratesBothWaysAndDetectsChanges) {
  auto dictionary = abc();
  std::string seen;
  auto see = [&](const std::string& key, std::size_t index, const json::value& object, bool& stop) {
    EXPECT_FALSE(stop);
    seen += key + std::to_string(index);
    stop = object == "two";
  };
  dictionary.enumerateKeysAndObjectsUsingBlock(see);
  EXPECT_EQ(std::exchange(seen, ""), "a0b1");
  dictionary.enumerateKeysAndObjectsUsingBlock(see, true);
  EXPECT_EQ(std::exchange(seen, ""), "c0b1");
  dictionary.enumerateKeysAndObjectsUsingBlock(nullptr);

  auto walkAnd = [&](auto change) {
    dictionary.enumerateKeysAndObjectsUsingBlock([&](const auto&, auto index, const auto&, bool&) {
      if (index == 0) change();
    });
  };
  EXPECT_NO_THROW(walkAnd([&] { dictionary.setObject(9, "a"); }));
  EXPECT_THROW(walkAnd([&] { dictionary.setObject(9, "new"); }), HXEnumerationMutation);
  EXPECT_THROW(walkAnd([&] { dictionary.removeObjectForKey("new"); }), HXEnumerationMutation);
  EXPECT_THROW(walkAnd([&] { dictionary.reverseAllKeys(); }), HXEnumerationMutation);
  EXPECT_THROW(walkAnd([&] { dictionary.replaceObjectAtIndex(0, 0, "d"); }), HXEnumerationMutation);
  EXPECT_THROW(walkAnd([&] { dictionary = abc(); }), HXEnumerationMutation);
  EXPECT_THROW(walkAnd([&] { auto moved = std::move(dictionary); }), HXEnumerationMutation);
}

TEST(OrderedDictionary, SortsByKeysAndByObjects) {
  auto dictionary = Dictionary::initWithObjects({2, 1, 2, 1}, {"d", "c", "a", "b"});
  auto byObject = [](const auto&, const auto&, const json::value& one, const json::value& two) {
    return one.as_int64() <=> two.as_int64();
  };
  dictionary.sortWithOptions(HXSortStable, byObject);
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("c", "b", "d", "a"));
  dictionary.sortUsingSelector([](const auto& one, const auto& two) { return two <=> one; });
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("d", "c", "b", "a"));
  auto failing = [](const auto&, const auto&) -> std::strong_ordering { throw std::runtime_error(""); };
  EXPECT_THROW(dictionary.sortUsingSelector(failing), std::runtime_error);
  EXPECT_THAT(dictionary.sortedKeys(), ElementsAre("d", "c", "b", "a"));
}

}  // namespace
