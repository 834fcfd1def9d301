// Dictionaries that remember the order of their keys.
//
// Not thread-safe: callers take turns. With n keys, a lookup, and setting or replacing an object in place, take
// constant time on average; adding a key does so amortised. Removing a key, and giving a place a key that another place
// has, take time in proportion to n, as does setting a key that is new when a constructor was given keys without
// entries; sorting n log n.
#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <compare>
#include <concepts>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class HXMutableOrderedDictionary;

/// Keys in an order, each with an object.
///
/// The constructors take key lists as given: a key may stand there twice, or without an entry in the dictionary. Where
/// such a key's object is wanted, null stands for it; only the lookups, which return pointers, tell the difference.
/// Pointers to objects are valid until the dictionary changes.
class HXOrderedDictionary {
 public:
  HXOrderedDictionary() = default;
  virtual ~HXOrderedDictionary() = default;
  HXOrderedDictionary(const HXOrderedDictionary&) = default;
  HXOrderedDictionary& operator=(const HXOrderedDictionary&) = default;
  HXOrderedDictionary(HXOrderedDictionary&&) = default;
  HXOrderedDictionary& operator=(HXOrderedDictionary&&) = default;
  // A mutable one is made immutable by copyWithZone(), and not in passing.
  template <std::same_as<HXMutableOrderedDictionary> Mutable>
  HXOrderedDictionary(const Mutable&) = delete;
  template <std::same_as<HXMutableOrderedDictionary> Mutable>
  HXOrderedDictionary& operator=(const Mutable&) = delete;

  /// The first object belongs to the first key, and so on; of the objects of one key the last counts.
  static HXOrderedDictionary initWithObjects(const std::vector<boost::json::value>& objects,
                                             std::vector<std::string> keys);
  /// In the order of the object's members.
  static HXOrderedDictionary initWithDictionary(const boost::json::object& dictionary = {});
  /// Reads what serializationData() gives; absent for everything else.
  static std::optional<HXOrderedDictionary> initWithSerializationData(std::string_view data);

  HXOrderedDictionary copyWithZone() const { return *this; }
  HXMutableOrderedDictionary mutableCopyWithZone() const;

  /// Number of keys.
  std::size_t count() const { return _array.size(); }

  /// These throw std::out_of_range for an index that is none.
  const std::string& keyAtIndex(std::size_t index) const { return _array.at(index); }
  const boost::json::value* objectAtIndex(std::size_t index) const { return objectForKey(keyAtIndex(index)); }
  const boost::json::value* operator[](std::size_t index) const { return objectAtIndex(index); }

  /// Null when there is no entry.
  const boost::json::value* objectForKey(std::string_view key) const { return _dictionary.if_contains(key); }
  const boost::json::value* operator[](std::string_view key) const { return objectForKey(key); }

  /// The keys in their order; they are not sorted.
  std::vector<std::string> sortedKeys() const { return _array; }
  /// The objects in the order of the keys.
  std::vector<boost::json::value> sortedValues() const;

  /// The entries; their order means nothing.
  boost::json::object dictionary() const { return _dictionary; }
  boost::json::object dictionaryRepresentation() const { return _dictionary; }

  /// Each call of the result gives the next key, or object, and null at the end. The keys come in order, the objects do
  /// not. The dictionary must live on.
  std::function<const std::string*()> keyEnumerator() const;
  std::function<const boost::json::value*()> objectEnumerator() const;

  /// Whether the other is of this one's class or of one derived from it, and isEqualToDictionary() holds.
  virtual bool isEqual(const HXOrderedDictionary& other) const { return isEqualToDictionary(other); }
  /// Whether both have the same keys in the same order and the same entries.
  bool isEqualToDictionary(const HXOrderedDictionary& other) const {
    return _array == other._array && _dictionary == other._dictionary;
  }
  bool operator==(const HXOrderedDictionary& other) const { return isEqualToDictionary(other); }

  /// "{\n    key = object\n}", a line an entry. An object that is not a string is shown as its JSON text.
  std::string description() const;

  /// The compact JSON text of an array of two: the keys in order, and the entries as an object. Absent, with a line in
  /// the log, when HX_JSONData() has none.
  std::optional<std::string> serializationData() const;

  /// "key=object" for each entry in order, the separator between entries. A key, or an object that is a string, is put
  /// between double quotes, without escapes, when it contains the separator less white space at its ends. Other objects
  /// are shown as their JSON text.
  std::string equationLinesWithSeparator(std::string_view separator) const;

  /// Called with a key, the number of keys visited before, its object, and a flag, false at each call, that ends the
  /// walk after the call. The key and the object are the dictionary's own: once the block has changed the order of the
  /// keys or removed the entry they may no longer be there.
  using EnumerationBlock =
      std::function<void(const std::string& key, std::size_t index, const boost::json::value& object, bool& stop)>;
  /// Walks in order, or backwards. Throws HXEnumerationMutation when it goes on after the order of the keys was
  /// changed.
  void enumerateKeysAndObjectsUsingBlock(const EnumerationBlock& block, bool reverse = false) const;

 protected:
  /// Counts changes of the order of the keys; assigning to a dictionary and moving from it are such changes.
  class OrderChanges {
   public:
    OrderChanges() = default;
    OrderChanges(const OrderChanges&) {}
    OrderChanges(OrderChanges&& other) noexcept { ++other; }
    OrderChanges& operator=(const OrderChanges&) { return ++*this; }
    OrderChanges& operator=(OrderChanges&& other) noexcept {
      ++other;
      return ++*this;
    }
    OrderChanges& operator++() {
      ++count_;
      return *this;
    }
    std::uint64_t count() const { return count_; }

   private:
    std::uint64_t count_ = 0;
  };

  HXOrderedDictionary(std::vector<std::string> keys, boost::json::object dictionary);

  const boost::json::value& objectOrNull(const std::string& key) const;

  std::vector<std::string> _array;
  boost::json::object _dictionary;
  OrderChanges orderChanges_;
  /// Whether keys may stand in the order without an entry, as a constructor was given them.
  bool mayLackEntries_ = false;
};

/// Sort options, a bit mask. Every sort here is stable, and none runs on several threads.
using HXSortOptions = std::uint64_t;
inline constexpr HXSortOptions HXSortConcurrent = 1;
inline constexpr HXSortOptions HXSortStable = 16;

class HXMutableOrderedDictionary : public HXOrderedDictionary {
 public:
  HXMutableOrderedDictionary() = default;
  explicit HXMutableOrderedDictionary(HXOrderedDictionary other) : HXOrderedDictionary(std::move(other)) {}

  static HXMutableOrderedDictionary initWithCapacity(std::size_t capacity);
  static HXMutableOrderedDictionary initWithObjects(const std::vector<boost::json::value>& objects,
                                                    std::vector<std::string> keys);
  static HXMutableOrderedDictionary initWithDictionary(const boost::json::object& dictionary = {});
  static std::optional<HXMutableOrderedDictionary> initWithSerializationData(std::string_view data);

  /// Only another mutable dictionary is equal.
  bool isEqual(const HXOrderedDictionary& other) const override;

  /// A new key goes to the end; one that has an entry keeps its place. An absent object, which JSON's null is not,
  /// removes the key.
  void setObject(std::optional<boost::json::value> object, std::string_view key);
  template <class Text>
  requires(std::convertible_to<const Text&, std::string_view> &&
           !std::is_null_pointer_v<Text>) void setObject(const Text& text, std::string_view key) {
    setObject(std::make_optional<boost::json::value>(std::string_view(text)), key);
  }
  /// Sets the object of every member, in the order of the members.
  void addEntriesFromDictionary(const boost::json::object& dictionary);
  void removeObjectForKey(std::string_view key);

  /// These throw std::out_of_range for an index that is none.
  void removeObjectAtIndex(std::size_t index);
  /// Puts a key with its object at a place, instead of the key there. Where the new key already had another place, that
  /// place is closed up.
  void replaceObjectAtIndex(std::size_t index, boost::json::value object, std::string_view key);

  /// Sort the keys. The comparisons must agree with each other; equal keys keep their order. What a comparison throws
  /// passes through and leaves the order as it was.
  void sortUsingSelector(const std::function<std::weak_ordering(const std::string&, const std::string&)>& comparator);
  void sortWithOptions(HXSortOptions options,
                       const std::function<std::weak_ordering(const std::string& key1, const std::string& key2,
                                                              const boost::json::value& object1,
                                                              const boost::json::value& object2)>& comparator);
  void reverseAllKeys();

  /// Sets an object, a string, for every line that hx::splitEquationLine() can split; passes over the others.
  void importEquationLines(const std::vector<std::string>& lines);
};
