// The server's dataset value: a shared handle to a node that is empty, a text, an array, a
// dictionary or a block (a text written in square brackets).
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "kvs/ptr.h"

namespace cgp {

struct data_set;

// FNV-1a over the key bytes, so that a dictionary's iteration order does not depend on which
// standard library built the program.
struct KeyHash {
  std::size_t operator()(std::string_view key) const noexcept {
    std::uint32_t hash = 2166136261u;
    for (unsigned char c : key) {
      hash ^= c;
      hash *= 16777619u;
    }
    return hash;
  }
};

class DataSet : public kvs::thread_safe_ptr<data_set> {
 public:
  enum Kind : std::uint32_t { Empty = 0, Text = 1, Array = 2, Dictionary = 3, Block = 4 };
  using Elements = std::vector<DataSet>;
  using Entries = std::unordered_map<std::string, DataSet, KeyHash>;

  // A fresh node of kind Empty: a handle is never null.
  DataSet();
  explicit DataSet(std::string_view text);
  explicit DataSet(const char* text) : DataSet(std::string_view(text)) {}
  explicit DataSet(const std::string& text) : DataSet(std::string_view(text)) {}
  // "YES" or "NO".
  explicit DataSet(bool value);
  template <class Number>
  requires(std::is_arithmetic_v<Number> &&
           !std::same_as<Number, bool>) explicit DataSet(Number value)
      : DataSet(numberText(value)) {}

  DataSet(const DataSet& other);
  using kvs::thread_safe_ptr<data_set>::get;
  DataSet& operator=(const DataSet& other);
  ~DataSet() override;

  static DataSet empty() { return DataSet(); }
  static DataSet text(std::string_view value) { return DataSet(value); }
  static DataSet boolean(bool value) { return DataSet(value); }
  static DataSet array();
  static DataSet dictionary();
  static DataSet block(std::string_view value);

  // Changes the shared node itself: every handle of it sees the text "YES" or "NO".
  DataSet& operator=(bool value);

  [[nodiscard]] Kind kind() const;
  [[nodiscard]] bool isEmpty() const { return kind() == Empty; }
  [[nodiscard]] bool isText() const { return kind() == Text || kind() == Block; }
  [[nodiscard]] bool isArray() const { return kind() == Array; }
  [[nodiscard]] bool isDictionary() const { return kind() == Dictionary; }

  // The text of a Text or Block value; "" for the other kinds.
  [[nodiscard]] const std::string& getText() const;
  // Elements of an array or entries of a dictionary; 0 for the other kinds.
  [[nodiscard]] std::size_t count() const;
  // The element at `index`, or an empty value when there is none (or this is no array).
  [[nodiscard]] DataSet at(std::size_t index) const;
  // Appends to an array; an Empty value becomes an array first. Other kinds throw
  // kvs::Exception("Invalid Dataset Type").
  void append(const DataSet& value);

  // The entry under `key`, or an empty value when there is none (or this is no dictionary).
  [[nodiscard]] DataSet get(std::string_view key) const;
  [[nodiscard]] bool has(std::string_view key) const;
  // Stores under `key`, replacing an earlier value; an Empty value becomes a dictionary first.
  // Other kinds throw kvs::Exception("Invalid Dataset Type").
  void set(const std::string& key, const DataSet& value);
  bool erase(const std::string& key);

  // Read-only views; empty for the other kinds.
  [[nodiscard]] const Elements& elements() const;
  [[nodiscard]] const Entries& entries() const;

  // Steps separated by "." descend one level each: a key on a dictionary, a decimal index on an
  // array. A missing key, a step that is no number or an index past the end ends the walk with
  // an empty value (never adding a key). A step on any other kind throws
  // kvs::Exception("Invalid Dataset Type"). An empty path is the value itself.
  [[nodiscard]] DataSet path(std::string_view path) const;

  // Dictionaries are never equal, not even to themselves: callers only ever compare texts and
  // arrays, and the server's own values behave the same way.
  friend bool operator==(const DataSet& a, const DataSet& b);

  // Fixed-point with six digits after the point, then trailing zeros and a bare point removed.
  static std::string numberText(double value);
  template <std::integral Integer>
  static std::string numberText(Integer value) {
    return std::to_string(value);
  }

 private:
  // Detaches the children of a node that this handle alone holds, iteratively, so that neither
  // a deep value's destruction recurses nor a child is released under the pointer type's lock.
  void dismantleIfLast();
};

struct data_set {
  std::uint32_t kind = DataSet::Empty;
  std::string text;
  DataSet::Elements elements;
  DataSet::Entries entries;
};

}  // namespace cgp
