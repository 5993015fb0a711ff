#include "dataparser/util/slab_memory.h"

#include <sys/mman.h>

#include <atomic>
#include <cstdlib>

#include "dataparser/util/sanitizers.h"

#ifdef DATAPARSER_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace dataparser {
namespace {

// Under AddressSanitizer the slabs tell it which bytes are handed out, keep a poisoned gap after
// each piece, and are scanned for pointers by the leak checker, so that its checks see every
// piece as they would see separate allocations.
#ifdef DATAPARSER_ADDRESS_SANITIZER
constexpr std::size_t kGap = 32;
void poison(const void* bytes, std::size_t size) {
  __asan_poison_memory_region(bytes, size);
}
void unpoison(const void* bytes, std::size_t size) {
  __asan_unpoison_memory_region(bytes, size);
}
void watchForPointers(const void* slab, std::size_t size) {
  __lsan_register_root_region(slab, size);
}
void stopWatching(const void* slab, std::size_t size) {
  __lsan_unregister_root_region(slab, size);
}
#else
constexpr std::size_t kGap = 0;
void poison(const void*, std::size_t) {}
void unpoison(const void*, std::size_t) {}
void watchForPointers(const void*, std::size_t) {}
void stopWatching(const void*, std::size_t) {}
#endif

constexpr std::size_t kSlabBytes = std::size_t{2} << 20;
// The slab's header (its count of live pieces) fills the first cache line.
constexpr std::size_t kHeaderBytes = 64;
// Added to the count while a thread carves from the slab, so that it cannot reach zero then.
constexpr std::uint64_t kCarving = std::uint64_t{1} << 62;

struct SlabHeader {
  std::atomic<std::uint64_t> live;
};
static_assert(sizeof(SlabHeader) <= kHeaderBytes);

SlabHeader* headerOf(void* piece) {
  return reinterpret_cast<SlabHeader*>(reinterpret_cast<std::uintptr_t>(piece) &
                                       ~(std::uintptr_t{kSlabBytes} - 1));
}

// A slab-aligned block of kSlabBytes with its pages in place; nullptr when the system refuses.
std::uint8_t* mapSlab() {
  // Twice the size, trimmed to the aligned slab inside.
  void* raw =
      ::mmap(nullptr, 2 * kSlabBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t slab = (start + kSlabBytes - 1) & ~(std::uintptr_t{kSlabBytes} - 1);
  if (slab > start) ::munmap(raw, slab - start);
  const std::uintptr_t end = start + 2 * kSlabBytes;
  if (end > slab + kSlabBytes)
    ::munmap(reinterpret_cast<void*>(slab + kSlabBytes), end - slab - kSlabBytes);
#ifdef MADV_POPULATE_WRITE
  // One call fills every page; where the system cannot, each page arrives at its first write.
  ::madvise(reinterpret_cast<void*>(slab), kSlabBytes, MADV_POPULATE_WRITE);
#endif
  watchForPointers(reinterpret_cast<void*>(slab), kSlabBytes);
  poison(reinterpret_cast<void*>(slab), kSlabBytes);
  return reinterpret_cast<std::uint8_t*>(slab);
}

void release(SlabHeader* header, std::uint64_t pieces) {
  if (header->live.fetch_sub(pieces, std::memory_order_acq_rel) == pieces) {
    header->~SlabHeader();
    unpoison(header, kSlabBytes);
    stopWatching(header, kSlabBytes);
    ::munmap(header, kSlabBytes);
  }
}

// The slab a thread carves from.
class Cursor {
 public:
  ~Cursor() { retire(); }

  void* carve(std::size_t bytes, std::size_t alignment) {
    std::size_t at = (used_ + alignment - 1) & ~(alignment - 1);
    if (slab_ == nullptr || at + bytes + kGap > kSlabBytes) {
      retire();
      slab_ = mapSlab();
      if (slab_ == nullptr) return nullptr;
      unpoison(slab_, sizeof(SlabHeader));
      new (slab_) SlabHeader{kCarving};
      at = kHeaderBytes;
    }
    used_ = at + bytes + kGap;
    ++carved_;
    unpoison(slab_ + at, bytes);
    return slab_ + at;
  }

 private:
  void retire() {
    if (slab_ == nullptr) return;
    release(reinterpret_cast<SlabHeader*>(slab_), kCarving - carved_);
    slab_ = nullptr;
    used_ = 0;
    carved_ = 0;
  }

  std::uint8_t* slab_ = nullptr;
  std::size_t used_ = 0;
  std::uint64_t carved_ = 0;
};

thread_local Cursor cursor;

}  // namespace

void* slabAllocate(std::size_t bytes, std::size_t alignment) noexcept {
  if (bytes > kLargestSlabPiece || alignment > kHeaderBytes) {
    return ::operator new(bytes == 0 ? 1 : bytes, std::align_val_t(alignment), std::nothrow);
  }
  return cursor.carve(bytes == 0 ? 1 : bytes, alignment);
}

void slabDeallocate(void* piece, std::size_t bytes, std::size_t alignment) noexcept {
  if (piece == nullptr) return;
  if (bytes > kLargestSlabPiece || alignment > kHeaderBytes) {
    ::operator delete(piece, std::align_val_t(alignment));
    return;
  }
  poison(piece, bytes == 0 ? 1 : bytes);
  release(headerOf(piece), 1);
}

}  // namespace dataparser
