#include "dataparser/util/slab_memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace dataparser {
namespace {

struct Counted {
  Counted(int* counter, std::string bytes) : alive(counter), text(std::move(bytes)) { ++*alive; }
  ~Counted() { --*alive; }
  int* alive;
  std::string text;  // owns heap memory that only a slab points to
};

// Pieces of every size class, spread over several slabs and past the largest slab piece, keep
// their alignment and their bytes; freeing them on another thread than the one that carved them
// (with the carving thread gone) is fine.
TEST(SlabMemoryTest, PiecesKeepTheirBytesAcrossSlabsAndThreads) {
  struct Piece {
    std::uint8_t* bytes;
    std::size_t size;
    std::size_t alignment;
  };
  std::vector<Piece> pieces;
  std::thread carver([&] {
    const std::size_t sizes[] = {
        1, 7, 16, 24, 100, 4096, 40000, kLargestSlabPiece, kLargestSlabPiece + 1, 3 << 20};
    const std::size_t alignments[] = {1, 8, 16, 64, 128};
    for (int round = 0; round < 12; ++round) {
      for (std::size_t size : sizes) {
        for (std::size_t alignment : alignments) {
          auto* bytes = static_cast<std::uint8_t*>(slabAllocate(size, alignment));
          ASSERT_NE(bytes, nullptr);
          std::memset(bytes, static_cast<int>(pieces.size() & 0xFF), size);
          pieces.push_back({bytes, size, alignment});
        }
      }
    }
  });
  carver.join();
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const Piece& piece = pieces[i];
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(piece.bytes) % piece.alignment, 0U) << i;
    EXPECT_EQ(piece.bytes[0], i & 0xFF) << i;
    EXPECT_EQ(piece.bytes[piece.size - 1], i & 0xFF) << i;
  }
  for (const Piece& piece : pieces)
    slabDeallocate(piece.bytes, piece.size, piece.alignment);
}

// Shared objects made in slabs are destroyed once, whichever thread drops the last reference, and
// what they own is freed with them (the leak checker scans the slabs).
TEST(SlabMemoryTest, SharedObjectsAndOwnedBytes) {
  int alive = 0;
  std::vector<std::shared_ptr<Counted>> objects;
  for (int i = 0; i < 20000; ++i) {
    objects.push_back(std::allocate_shared<Counted>(
        SlabAllocator<Counted>(), &alive, std::string(40, static_cast<char>('a' + i % 26))));
  }
  EXPECT_EQ(alive, 20000);
  EXPECT_EQ(objects[27]->text, std::string(40, 'b'));
  std::thread([moved = std::move(objects)]() mutable { moved.clear(); }).join();
  EXPECT_EQ(alive, 0);

  SlabBytes bytes;
  EXPECT_FALSE(bytes.allocate(0));
  ASSERT_TRUE(bytes.allocate(100));
  std::memset(bytes.data(), 1, bytes.size());
  SlabBytes moved = std::move(bytes);
  EXPECT_EQ(bytes.data(), nullptr);
  EXPECT_EQ(moved.size(), 100U);
  EXPECT_EQ(moved.data()[99], 1);
}

}  // namespace
}  // namespace dataparser
