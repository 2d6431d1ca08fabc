// The dataset value: construction, sharing, access by index, key and path, equality.
#include "cgp/dataset.h"

#include <cstdint>
#include <cstdio>
#include <utility>

#include "kvs/ascii.h"
#include "kvs/exception.h"

namespace cgp {
namespace {

const std::string kNoText;
const DataSet::Elements kNoElements;
const DataSet::Entries kNoEntries;

[[noreturn]] void invalidType() {
  throw kvs::Exception("Invalid Dataset Type");
}

data_set* makeNode(std::uint32_t kind, std::string_view text = {}) {
  auto* node = new data_set;
  node->kind = kind;
  node->text.assign(text.data(), text.size());
  return node;
}

// Moves the children of `node` into `work`, leaving the node without any.
void detachChildren(data_set& node, std::vector<DataSet>& work) {
  for (DataSet& child : node.elements) work.push_back(child);
  node.elements.clear();
  for (auto& entry : node.entries) work.push_back(entry.second);
  node.entries.clear();
}

}  // namespace

DataSet::DataSet() : kvs::thread_safe_ptr<data_set>(makeNode(Empty)) {}

DataSet::DataSet(std::string_view text) : kvs::thread_safe_ptr<data_set>(makeNode(Text, text)) {}

DataSet::DataSet(bool value)
    : kvs::thread_safe_ptr<data_set>(makeNode(Text, value ? "YES" : "NO")) {}

DataSet::DataSet(const DataSet& other) : kvs::thread_safe_ptr<data_set>(other) {}

DataSet& DataSet::operator=(const DataSet& other) {
  if (get() != other.get()) {
    // `other` may be a child of the node released here: hold it while dismantling.
    DataSet keep(other);
    dismantleIfLast();
    kvs::thread_safe_ptr<data_set>::operator=(keep);
  }
  return *this;
}

DataSet::~DataSet() {
  dismantleIfLast();
}

void DataSet::dismantleIfLast() {
  if (isNull() || !isUnique()) return;
  std::vector<DataSet> work;
  detachChildren(*get(), work);
  while (!work.empty()) {
    DataSet child = work.back();
    work.pop_back();
    if (child.isUnique()) detachChildren(*child.get(), work);
  }
}

DataSet DataSet::array() {
  DataSet value;
  value->kind = Array;
  return value;
}

DataSet DataSet::dictionary() {
  DataSet value;
  value->kind = Dictionary;
  return value;
}

DataSet DataSet::block(std::string_view text) {
  DataSet value(text);
  value->kind = Block;
  return value;
}

DataSet& DataSet::operator=(bool value) {
  std::vector<DataSet> old;
  detachChildren(*get(), old);
  (*this)->kind = Text;
  (*this)->text = value ? "YES" : "NO";
  return *this;
}

DataSet::Kind DataSet::kind() const {
  return static_cast<Kind>(get()->kind);
}

const std::string& DataSet::getText() const {
  return (kind() == Text || kind() == Block) ? get()->text : kNoText;
}

std::size_t DataSet::count() const {
  switch (kind()) {
    case Array:
      return get()->elements.size();
    case Dictionary:
      return get()->entries.size();
    default:
      return 0;
  }
}

DataSet DataSet::at(std::size_t index) const {
  if (kind() != Array || index >= get()->elements.size()) return DataSet();
  return get()->elements[index];
}

void DataSet::append(const DataSet& value) {
  if (kind() == Empty) (*this)->kind = Array;
  if (kind() != Array) invalidType();
  (*this)->elements.push_back(value);
}

DataSet DataSet::get(std::string_view key) const {
  if (kind() != Dictionary) return DataSet();
  auto it = get()->entries.find(std::string(key));
  return it == get()->entries.end() ? DataSet() : it->second;
}

bool DataSet::has(std::string_view key) const {
  return kind() == Dictionary && get()->entries.count(std::string(key)) != 0;
}

void DataSet::set(const std::string& key, const DataSet& value) {
  if (kind() == Empty) (*this)->kind = Dictionary;
  if (kind() != Dictionary) invalidType();
  auto& entries = (*this)->entries;
  auto it = entries.find(key);
  if (it == entries.end()) {
    entries.emplace(key, value);
  } else {
    it->second = value;
  }
}

bool DataSet::erase(const std::string& key) {
  return kind() == Dictionary && (*this)->entries.erase(key) != 0;
}

const DataSet::Elements& DataSet::elements() const {
  return kind() == Array ? get()->elements : kNoElements;
}

const DataSet::Entries& DataSet::entries() const {
  return kind() == Dictionary ? get()->entries : kNoEntries;
}

DataSet DataSet::path(std::string_view path) const {
  DataSet current = *this;
  if (path.empty()) return current;
  for (;;) {
    const std::size_t dot = path.find('.');
    const std::string_view step = path.substr(0, dot);
    if (current.kind() == Dictionary) {
      auto it = current->entries.find(std::string(step));
      if (it == current->entries.end()) return DataSet();
      DataSet next = it->second;
      current = next;
    } else if (current.kind() == Array) {
      const kvs::LeadingNumber index = kvs::leadingNumber(step, SIZE_MAX);
      if (index.digits == 0 || index.digits != step.size() || index.over ||
          index.value >= current->elements.size()) {
        return DataSet();
      }
      DataSet next = current->elements[index.value];
      current = next;
    } else {
      invalidType();
    }
    if (dot == std::string_view::npos) return current;
    path.remove_prefix(dot + 1);
  }
}

bool operator==(const DataSet& a, const DataSet& b) {
  // Arrays nest to any depth: compare with an explicit stack, not by recursion.
  std::vector<std::pair<const data_set*, const data_set*>> pending{{a.get(), b.get()}};
  while (!pending.empty()) {
    const auto [x, y] = pending.back();
    pending.pop_back();
    if (x->kind != y->kind || x->kind > DataSet::Block) return false;
    switch (x->kind) {
      case DataSet::Empty:
        break;
      case DataSet::Text:
      case DataSet::Block:
        if (x->text != y->text) return false;
        break;
      case DataSet::Array:
        if (x->elements.size() != y->elements.size()) return false;
        for (std::size_t i = 0; i < x->elements.size(); ++i) {
          pending.emplace_back(x->elements[i].get(), y->elements[i].get());
        }
        break;
      default:
        return false;  // dictionaries
    }
  }
  return true;
}

std::string DataSet::numberText(double value) {
  char buffer[400];
  const int n = std::snprintf(buffer, sizeof buffer, "%.6f", value);
  std::string text(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
  // Only a text with a point loses zeros: inf and nan have none.
  if (text.find('.') == std::string::npos) return text;
  while (text.ends_with('0')) text.pop_back();
  if (text.ends_with('.')) text.pop_back();
  return text;
}

}  // namespace cgp
