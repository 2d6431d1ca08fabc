// One growable buffer of decoded bytes that is never zero-filled: a ZIP part is decoded into it
// whole, and pages reserved but never written cost no memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

namespace scanner {

class ImageBuffer {
 public:
  ImageBuffer() = default;
  explicit ImageBuffer(std::size_t capacity) { reserve(capacity); }

  void reserve(std::size_t capacity) {
    if (capacity <= capacity_) return;
    std::unique_ptr<char[]> bigger(new char[capacity]);  // default-initialised: not touched
    if (size_ > 0) std::memcpy(bigger.get(), data_.get(), size_);
    data_ = std::move(bigger);
    capacity_ = capacity;
  }
  // Room for `n` more bytes; write them, then commit what was written.
  char* room(std::size_t n) {
    if (capacity_ - size_ < n) reserve(std::max(size_ + n, capacity_ + capacity_ / 2));
    return data_.get() + size_;
  }
  void commit(std::size_t n) { size_ += n; }
  void append(std::string_view bytes) {
    std::memcpy(room(bytes.size()), bytes.data(), bytes.size());
    commit(bytes.size());
  }
  void clear() { size_ = 0; }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::string_view view() const { return {data_.get(), size_}; }

 private:
  std::unique_ptr<char[]> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace scanner
