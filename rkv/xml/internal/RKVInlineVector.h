// RKVInlineVector: a vector that keeps its first N elements inside the object and moves to the
// heap beyond that. The dictionary tree uses it so that the common small element (a few
// attributes and a text, or a list holding one child) costs one allocation instead of two.
//
// T must be nothrow move constructible. Iterators and references are invalidated by any growth
// and, unlike std::vector, by moving the container.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace rkv::internal {

template <typename T, size_t N>
class RKVInlineVector {
  static_assert(N > 0);
  static_assert(std::is_nothrow_move_constructible_v<T>);

 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;

  RKVInlineVector() noexcept = default;
  RKVInlineVector(const RKVInlineVector& other) {
    reserve(other.size_);
    for (const T& item : other)
      new (data_ + size_++) T(item);
  }
  RKVInlineVector(RKVInlineVector&& other) noexcept { takeFrom(other); }
  RKVInlineVector& operator=(const RKVInlineVector& other) {
    if (this != &other) {
      RKVInlineVector copy(other);
      clear();
      releaseHeap();
      takeFrom(copy);
    }
    return *this;
  }
  RKVInlineVector& operator=(RKVInlineVector&& other) noexcept {
    if (this != &other) {
      clear();
      releaseHeap();
      takeFrom(other);
    }
    return *this;
  }
  ~RKVInlineVector() {
    clear();
    releaseHeap();
  }

  size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  size_t capacity() const noexcept { return capacity_; }
  T* data() noexcept { return data_; }
  const T* data() const noexcept { return data_; }
  T* begin() noexcept { return data_; }
  T* end() noexcept { return data_ + size_; }
  const T* begin() const noexcept { return data_; }
  const T* end() const noexcept { return data_ + size_; }
  T& operator[](size_t i) noexcept { return data_[i]; }
  const T& operator[](size_t i) const noexcept { return data_[i]; }
  T& back() noexcept { return data_[size_ - 1]; }
  const T& back() const noexcept { return data_[size_ - 1]; }

  void reserve(size_t wanted) {
    if (wanted <= capacity_) return;
    T* fresh = static_cast<T*>(::operator new (wanted * sizeof(T), std::align_val_t{alignof(T)}));
    for (uint32_t i = 0; i < size_; ++i) {
      new (fresh + i) T(std::move(data_[i]));
      data_[i].~T();
    }
    releaseHeap();
    data_ = fresh;
    capacity_ = static_cast<uint32_t>(wanted);
  }

  template <typename... Args>
  T& emplace_back(Args&&... args) {
    if (size_ == capacity_) {
      // Build the new element first: the arguments may refer to an element of this vector.
      T item(std::forward<Args>(args)...);
      reserve(capacity_ * 2);
      return *new (data_ + size_++) T(std::move(item));
    }
    return *new (data_ + size_++) T(std::forward<Args>(args)...);
  }
  void push_back(T item) { emplace_back(std::move(item)); }

  void pop_back() noexcept { data_[--size_].~T(); }

  // Removes the element at `position`, keeping the order of the others.
  void erase(T* position) noexcept {
    std::move(position + 1, end(), position);
    pop_back();
  }

  void clear() noexcept {
    while (size_ > 0)
      pop_back();
  }

 private:
  bool onHeap() const noexcept { return data_ != inlineData(); }
  T* inlineData() noexcept { return reinterpret_cast<T*>(inline_); }
  const T* inlineData() const noexcept { return reinterpret_cast<const T*>(inline_); }

  void releaseHeap() noexcept {
    if (onHeap()) ::operator delete (data_, std::align_val_t{alignof(T)});
    data_ = inlineData();
    capacity_ = N;
  }

  // Takes other's elements; other is left empty (and inline).
  void takeFrom(RKVInlineVector& other) noexcept {
    if (other.onHeap()) {
      data_ = other.data_;
      capacity_ = other.capacity_;
      size_ = other.size_;
      other.data_ = other.inlineData();
      other.capacity_ = N;
      other.size_ = 0;
      return;
    }
    data_ = inlineData();
    capacity_ = N;
    for (uint32_t i = 0; i < other.size_; ++i) {
      new (data_ + i) T(std::move(other.data_[i]));
      other.data_[i].~T();
    }
    size_ = other.size_;
    other.size_ = 0;
  }

  T* data_ = inlineData();
  uint32_t size_ = 0;
  uint32_t capacity_ = N;
  alignas(T) unsigned char inline_[N * sizeof(T)];
};

}  // namespace rkv::internal
