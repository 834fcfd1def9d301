#include "platform/network_settings/linux/gvdb.h"

#include <algorithm>

namespace platform {

namespace {

constexpr std::uint32_t noParent = 0xFFFFFFFF;
constexpr std::size_t headerSize = 24, itemSize = 24;

/// Appends a number in little-endian order, which the signature at the start declares for the whole file.
void append(std::string& to, std::uint64_t number, std::size_t bytes) {
  for (std::size_t index = 0; index < bytes; ++index) to += static_cast<char>(number >> (8 * index) & 0xFF);
}

std::uint32_t hashOf(const std::string& key) {
  std::uint32_t hash = 5381;
  for (char c : key) hash = hash * 33 + static_cast<std::uint32_t>(static_cast<signed char>(c));
  return hash;
}

/// An array of strings: the strings, then the offset of each one's end. Offsets are just wide enough for the size of
/// the array.
std::string serialised(const std::vector<std::string>& texts) {
  std::string bytes;
  std::vector<std::size_t> ends;
  for (const auto& text : texts) {
    bytes += text + '\0';
    ends.push_back(bytes.size());
  }
  std::size_t width = 1;
  while (width < 4 && bytes.size() + ends.size() * width >= std::size_t{1} << (8 * width)) width *= 2;
  for (auto end : ends) append(bytes, end, width);
  return bytes;
}

/// A variant: the value, a zero byte, the type.
std::string serialised(const GVDBValue& value) {
  using namespace std::string_literals;
  std::string bytes;
  if (const auto* boolean = std::get_if<bool>(&value)) return (*boolean ? "\1" : "\0"s) + "\0b"s;
  if (const auto* number = std::get_if<std::int32_t>(&value)) {
    append(bytes, static_cast<std::uint32_t>(*number), 4);
    return bytes + "\0i"s;
  }
  if (const auto* text = std::get_if<std::string>(&value)) return *text + "\0\0s"s;
  return serialised(std::get<std::vector<std::string>>(value)) + "\0as"s;
}

/// An entry of a table. Its name continues the name of its parent.
struct Item {
  std::string path;
  std::uint32_t parent = noParent;
  std::string name = path;
  char type = 'v';   ///< v: a variant, L: the items of a folder, H: another table
  std::string data;  ///< used for v and L
};

/// The position of a part of the file.
struct Range {
  std::size_t start = 0, end = 0;
};

class Writer {
 public:
  std::string file(std::vector<Item> root, const std::vector<Item>& locks) {
    if (!locks.empty()) root.push_back({.path = ".locks", .type = 'H', .data = {}});
    auto table = addTable(root, locks);
    std::string header = "GVariant";
    for (std::size_t number : {std::size_t{0}, std::size_t{0}, table.start, table.end}) append(header, number, 4);
    return bytes_.replace(0, headerSize, header);
  }

 private:
  Range add(const std::string& data, std::size_t alignment) {
    bytes_.resize((bytes_.size() + alignment - 1) / alignment * alignment);
    Range range{.start = bytes_.size(), .end = bytes_.size() + data.size()};
    bytes_ += data;
    return range;
  }

  /// A table with a single bucket, which readers search linearly, and without a bloom filter.
  Range addTable(const std::vector<Item>& items, const std::vector<Item>& inner) {
    std::string table;
    append(table, 0, 4);
    append(table, items.empty() ? 0 : 1, 4);
    if (!items.empty()) append(table, 0, 4);  // the bucket's first item
    const auto range = add(std::string(table.size() + items.size() * itemSize, '\0'), 4);
    for (const auto& item : items) {
      auto name = add(item.name, 1);
      auto data = item.type == 'H' ? addTable(inner, {}) : add(item.data, 8);
      append(table, hashOf(item.path), 4);
      append(table, item.parent, 4);
      append(table, name.start, 4);
      append(table, item.name.size(), 2);
      table += {item.type, '\0'};
      append(table, data.start, 4);
      append(table, data.end, 4);
    }
    bytes_.replace(range.start, table.size(), table);
    return range;
  }

  std::string bytes_ = std::string(headerSize, '\0');
};

/// The folder of a path, including its final "/"; empty for "/" itself.
std::string folderOf(std::string path) {
  if (path.ends_with('/')) path.pop_back();
  return path.substr(0, path.rfind('/') + 1);
}

/// The values and the folders that contain them.
std::vector<Item> tree(const std::map<std::string, GVDBValue>& values) {
  std::map<std::string, Item> items;
  for (const auto& [path, value] : values) {
    items[path] = {.path = path, .data = serialised(value)};
    for (auto folder = folderOf(path); !folder.empty(); folder = folderOf(folder)) {
      items[folder] = {.path = folder, .type = 'L', .data = {}};
    }
  }
  for (auto& [path, item] : items) {
    auto parent = items.find(folderOf(path));
    if (parent == items.end()) continue;
    item.parent = static_cast<std::uint32_t>(std::distance(items.begin(), parent));
    item.name = path.substr(parent->first.size());
    append(parent->second.data, static_cast<std::size_t>(std::distance(items.begin(), items.find(path))), 4);
  }
  std::vector<Item> list;
  for (auto& [path, item] : items) list.push_back(std::move(item));
  return list;
}

}  // namespace

std::string gvdbFile(const std::map<std::string, GVDBValue>& values) {
  std::vector<Item> locks;
  for (const auto& [path, value] : values) locks.push_back({.path = path, .data = serialised(true)});
  return Writer().file(tree(values), locks);
}

}  // namespace platform
