// A per-thread cache of freed blocks of one size, for the tree builder's nodes.
//
// A document's tree is built and freed node by node, thousands at a time; the general allocator
// keeps only a handful of freed blocks per size at hand, so most of those go through its slower
// paths. Here up to kMaxCachedBlocks freed blocks of each size stay on the freeing thread's list
// for the next nodes. Any thread may free a block another made. Under AddressSanitizer the cache
// is off, so that use after free is still caught.
#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace rkv::internal {

#if defined(__SANITIZE_ADDRESS__)
#define RKV_NODE_CACHE_ENABLED 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define RKV_NODE_CACHE_ENABLED 0
#endif
#endif
#ifndef RKV_NODE_CACHE_ENABLED
#define RKV_NODE_CACHE_ENABLED 1
#endif

template <size_t Size>
class RKVBlockCache {
  static_assert(Size >= sizeof(void*));

 public:
  static constexpr size_t kMaxCachedBlocks = 1024;

  static void* allocate() {
#if RKV_NODE_CACHE_ENABLED
    List& list = list_;
    if (list.head != nullptr) {
      Block* block = list.head;
      list.head = block->next;
      --list.count;
      return block;
    }
#endif
    return ::operator new(Size);
  }

  static void deallocate(void* pointer) noexcept {
#if RKV_NODE_CACHE_ENABLED
    List& list = list_;
    if (!list.closed && list.count < kMaxCachedBlocks) {
      auto* block = static_cast<Block*>(pointer);
      block->next = list.head;
      list.head = block;
      ++list.count;
      if (!list.registered) registerRelease();
      return;
    }
#endif
    ::operator delete(pointer);
  }

 private:
  struct Block {
    Block* next;
  };
  // Trivially destructible, so that it stays usable while other thread-local objects are
  // destroyed at thread exit; Release empties and closes it then.
  struct List {
    Block* head;
    size_t count;
    bool registered;
    bool closed;
  };
  struct Release {
    ~Release() {
      List& list = list_;
      list.closed = true;
      while (list.head != nullptr) {
        Block* block = list.head;
        list.head = block->next;
        ::operator delete(block);
      }
      list.count = 0;
    }
  };

  static void registerRelease() {
    list_.registered = true;
    thread_local Release release;
    static_cast<void>(release);
  }

  static thread_local List list_;
};

template <size_t Size>
thread_local typename RKVBlockCache<Size>::List RKVBlockCache<Size>::list_{};

// A stateless allocator over RKVBlockCache, for std::allocate_shared.
template <typename T>
struct RKVNodeAllocator {
  using value_type = T;

  RKVNodeAllocator() = default;
  template <typename U>
  RKVNodeAllocator(const RKVNodeAllocator<U>&) noexcept {}

  T* allocate(size_t count) {
    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    if (count != 1) return static_cast<T*>(::operator new(count * sizeof(T)));
    return static_cast<T*>(RKVBlockCache<sizeof(T)>::allocate());
  }
  void deallocate(T* pointer, size_t count) noexcept {
    if (count != 1) {
      ::operator delete(pointer);
    } else {
      RKVBlockCache<sizeof(T)>::deallocate(pointer);
    }
  }

  template <typename U>
  friend bool operator==(const RKVNodeAllocator&, const RKVNodeAllocator<U>&) noexcept {
    return true;
  }
};

// A new node of the tree, in a block from the cache.
template <typename T, typename... Args>
std::shared_ptr<T> makeNode(Args&&... args) {
  return std::allocate_shared<T>(RKVNodeAllocator<T>(), std::forward<Args>(args)...);
}

}  // namespace rkv::internal
