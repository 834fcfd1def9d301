// Dictionaries that remember the order of their keys.
//
// Not thread-safe: callers serialise access. Costs with n keys:
// - looking up, and setting the object of an existing key: constant on average;
// - adding a key: amortised constant, or proportional to n if a constructor was given repeated keys or keys without
// entries;
// - removing a key, and replacing a key by one that already has another position: proportional to n;
// - sorting: n log n.
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

/// An ordered list of keys, each with an object. Pointers to objects are valid until the dictionary changes.
///
/// The constructors take key lists as given: a key may occur twice, or have no entry. Looking up a key without an entry
/// gives a null pointer. Functions that go through the keys take JSON null as its object.
class HXOrderedDictionary {
 public:
  HXOrderedDictionary() = default;
  virtual ~HXOrderedDictionary() = default;
  HXOrderedDictionary(const HXOrderedDictionary&) = default;
  HXOrderedDictionary& operator=(const HXOrderedDictionary&) = default;
  HXOrderedDictionary(HXOrderedDictionary&&) = default;
  HXOrderedDictionary& operator=(HXOrderedDictionary&&) = default;
  // Converting a mutable dictionary takes an explicit copyWithZone().
  template <std::same_as<HXMutableOrderedDictionary> Mutable>
  HXOrderedDictionary(const Mutable&) = delete;
  template <std::same_as<HXMutableOrderedDictionary> Mutable>
  HXOrderedDictionary& operator=(const Mutable&) = delete;

  /// Pairs the first object with the first key, and so on. If a key occurs more than once, its last object counts.
  static HXOrderedDictionary initWithObjects(const std::vector<boost::json::value>& objects,
                                             std::vector<std::string> keys);
  /// Takes the order of the object's members.
  static HXOrderedDictionary initWithDictionary(const boost::json::object& dictionary = {});
  /// Reads the text that serializationData() returns; absent for any other text.
  static std::optional<HXOrderedDictionary> initWithSerializationData(std::string_view data);

  HXOrderedDictionary copyWithZone() const { return *this; }
  HXMutableOrderedDictionary mutableCopyWithZone() const;

  /// Number of keys.
  std::size_t count() const { return _array.size(); }

  /// These throw std::out_of_range if the index is out of range.
  const std::string& keyAtIndex(std::size_t index) const { return _array.at(index); }
  const boost::json::value* objectAtIndex(std::size_t index) const { return objectForKey(keyAtIndex(index)); }
  const boost::json::value* operator[](std::size_t index) const { return objectAtIndex(index); }

  /// The object of a key; a null pointer if it has no entry.
  const boost::json::value* objectForKey(std::string_view key) const { return _dictionary.if_contains(key); }
  const boost::json::value* operator[](std::string_view key) const { return objectForKey(key); }

  /// The keys in their order. They are not sorted.
  std::vector<std::string> sortedKeys() const { return _array; }
  /// The objects in the order of the keys.
  std::vector<boost::json::value> sortedValues() const;

  /// The entries, in no particular order.
  boost::json::object dictionary() const { return _dictionary; }
  boost::json::object dictionaryRepresentation() const { return _dictionary; }

  /// Each call of the returned function gives the next key or object, and null at the end. Keys come in order, objects
  /// do not. The dictionary must outlive the function.
  std::function<const std::string*()> keyEnumerator() const;
  std::function<const boost::json::value*()> objectEnumerator() const;

  /// Whether isEqualToDictionary() holds and the other dictionary has this one's class or a class derived from it.
  virtual bool isEqual(const HXOrderedDictionary& other) const { return isEqualToDictionary(other); }
  /// Whether both have the same keys in the same order and the same entries.
  bool isEqualToDictionary(const HXOrderedDictionary& other) const {
    return _array == other._array && _dictionary == other._dictionary;
  }
  bool operator==(const HXOrderedDictionary& other) const { return isEqualToDictionary(other); }

  /// "{\n    key = object\n}", with one line for each key. An object that is not a string is shown as JSON text.
  std::string description() const;

  /// The compact JSON text of an array of two elements: the keys in order, and the entries as an object. Absent, with a
  /// line in the log, if HX_JSONData() cannot write it.
  std::optional<std::string> serializationData() const;

  /// "key=object" for each key in order, with the separator in between.
  /// - A key, or an object that is a string, is enclosed in double quotes if it contains the separator (without the
  ///   white space at the separator's ends; a separator of white space alone encloses nothing). Nothing is escaped.
  /// - An object that is not a string is shown as JSON text.
  std::string equationLinesWithSeparator(std::string_view separator) const;

  /// Called with a key, the number of keys visited before, the key's object, and a flag that is false at each call;
  /// setting it ends the enumeration after this call. The references point into the dictionary: they may dangle once
  /// the block has changed the order of the keys or removed the entry.
  using EnumerationBlock =
      std::function<void(const std::string& key, std::size_t index, const boost::json::value& object, bool& stop)>;
  /// Enumerates the keys in order, or backwards with `reverse`. Throws HXEnumerationMutation if it would continue
  /// after the order of the keys has changed.
  void enumerateKeysAndObjectsUsingBlock(const EnumerationBlock& block, bool reverse = false) const;

 protected:
  /// Counts changes of the key order. Assigning to a dictionary or moving from it counts as a change.
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
  /// Whether _array may hold repeated keys or keys without an entry, which only constructors can put there.
  bool mayLackEntries_ = false;
};

/// Sort options; a bit mask. Every sort here is stable and single-threaded, whatever the options.
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

  /// A mutable dictionary equals only another mutable one.
  bool isEqual(const HXOrderedDictionary& other) const override;

  /// Sets the object of a key. A new key goes to the end; an existing one keeps its position. An absent object (unlike
  /// JSON null) removes the key.
  void setObject(std::optional<boost::json::value> object, std::string_view key);
  template <class Text>
  requires(std::convertible_to<const Text&, std::string_view> &&
           !std::is_null_pointer_v<Text>) void setObject(const Text& text, std::string_view key) {
    setObject(std::make_optional<boost::json::value>(std::string_view(text)), key);
  }
  /// Sets the object of every member, in the members' order.
  void addEntriesFromDictionary(const boost::json::object& dictionary);
  void removeObjectForKey(std::string_view key);

  /// These throw std::out_of_range if the index is out of range.
  void removeObjectAtIndex(std::size_t index);
  /// Replaces the key at an index, and its object. If the new key had another position, it is removed there.
  void replaceObjectAtIndex(std::size_t index, boost::json::value object, std::string_view key);

  /// Sort the keys. The comparator must be a strict weak ordering; equal keys keep their order. An exception of the
  /// comparator passes through and leaves the order unchanged.
  void sortUsingSelector(const std::function<std::weak_ordering(const std::string&, const std::string&)>& comparator);
  void sortWithOptions(HXSortOptions options,
                       const std::function<std::weak_ordering(const std::string& key1, const std::string& key2,
                                                              const boost::json::value& object1,
                                                              const boost::json::value& object2)>& comparator);
  void reverseAllKeys();

  /// Sets a string object for every line that hx::splitEquationLine() can split; skips the others.
  void importEquationLines(const std::vector<std::string>& lines);
};
