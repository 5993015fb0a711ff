// Slab memory: room for the many small objects and buffers of a scan that live about as long as
// each other (items, attachments, the decoded documents their records point into).
//
// Each thread carves its requests out of a slab of its own, 2 MiB taken from the system at once
// with its pages already in place, by moving a cursor. A slab goes back to the system when the
// last piece carved from it is freed, on whatever thread. The general allocator, by contrast,
// grows the arena of a thread other than the main one a page at a time, one system call per
// page, and those calls serialise with every other thread's mapping changes: for a million
// items built on a scan's thread that alone cost a fifth of the scan.
//
// The price: a slab stays whole while any piece of it lives, so memory that outlives the rest of
// its slab keeps the slab. Meant for a scan's results, which go together; not for long-lived odds
// and ends mixed with short-lived bulk. Requests above kLargestSlabPiece go to the general
// allocator. Under AddressSanitizer every piece is checked as a separate allocation would be
// (overruns, use after free, leaks of what pieces point to).
//
//   auto item = std::allocate_shared<Item>(SlabAllocator<Item>());
//
// Thread safety: allocation uses only the calling thread's slab; freeing is safe on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace dataparser {

inline constexpr std::size_t kLargestSlabPiece = std::size_t{256} << 10;

// `bytes` with `alignment` (at most 64); nullptr when the system has no memory left.
void* slabAllocate(std::size_t bytes, std::size_t alignment) noexcept;
// Frees what slabAllocate gave for the same `bytes` and `alignment`.
void slabDeallocate(void* piece, std::size_t bytes, std::size_t alignment) noexcept;

// A standard allocator over the slabs, for std::allocate_shared and containers. Stateless: all
// instances are equal.
template <class T>
class SlabAllocator {
 public:
  using value_type = T;
  SlabAllocator() = default;
  template <class U>
  SlabAllocator(const SlabAllocator<U>&) noexcept {}  // NOLINT: rebinding converts implicitly

  T* allocate(std::size_t count) {
    if (count > SIZE_MAX / sizeof(T)) throw std::bad_alloc();
    void* piece = slabAllocate(count * sizeof(T), alignof(T));
    if (piece == nullptr) throw std::bad_alloc();
    return static_cast<T*>(piece);
  }
  void deallocate(T* piece, std::size_t count) noexcept {
    slabDeallocate(piece, count * sizeof(T), alignof(T));
  }

  template <class U>
  bool operator==(const SlabAllocator<U>&) const noexcept {
    return true;
  }
};

// std::unique_ptr over an object made in a slab: makeSlabUnique<T>(args...).
template <class T>
struct SlabDelete {
  void operator()(T* object) const noexcept {
    object->~T();
    slabDeallocate(object, sizeof(T), alignof(T));
  }
};
template <class T>
using SlabUniquePtr = std::unique_ptr<T, SlabDelete<T>>;

template <class T, class... Args>
SlabUniquePtr<T> makeSlabUnique(Args&&... args) {
  T* object = SlabAllocator<T>().allocate(1);
  try {
    ::new (static_cast<void*>(object)) T(std::forward<Args>(args)...);
  } catch (...) {
    slabDeallocate(object, sizeof(T), alignof(T));
    throw;
  }
  return SlabUniquePtr<T>(object);
}

// An owned run of slab bytes: one buffer of a decoded document, say. Move-only.
class SlabBytes {
 public:
  SlabBytes() = default;
  ~SlabBytes() { reset(); }
  SlabBytes(SlabBytes&& other) noexcept : data_(other.data_), size_(other.size_) {
    other.data_ = nullptr;
    other.size_ = 0;
  }
  SlabBytes& operator=(SlabBytes&& other) noexcept {
    if (this != &other) {
      reset();
      data_ = other.data_;
      size_ = other.size_;
      other.data_ = nullptr;
      other.size_ = 0;
    }
    return *this;
  }
  SlabBytes(const SlabBytes&) = delete;
  SlabBytes& operator=(const SlabBytes&) = delete;

  // Replaces the run with `bytes` uninitialised bytes aligned for any scalar; false (and no run)
  // when there is no memory or `bytes` is 0.
  bool allocate(std::size_t bytes) {
    reset();
    if (bytes == 0) return false;
    data_ = static_cast<std::uint8_t*>(slabAllocate(bytes, alignof(std::max_align_t)));
    size_ = data_ == nullptr ? 0 : bytes;
    return data_ != nullptr;
  }
  void reset() {
    if (data_ != nullptr) slabDeallocate(data_, size_, alignof(std::max_align_t));
    data_ = nullptr;
    size_ = 0;
  }
  std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }

 private:
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace dataparser
