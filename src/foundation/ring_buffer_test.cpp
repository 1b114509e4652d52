#include "foundation/ring_buffer.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <vector>

TEST(RingBuffer, OneSlotStaysFreeSoFullAndEmptyDiffer) {
  LRingBufferThreadUnsafe<int> ring(8);
  EXPECT_EQ(ring.GetFilled(), 0u);
  EXPECT_EQ(ring.GetFreeRoom(), 7u);
  int const in[7] = {1, 2, 3, 4, 5, 6, 7};
  ring.Write(in, 7);
  EXPECT_EQ(ring.GetFilled(), 7u);
  EXPECT_EQ(ring.GetFreeRoom(), 0u);
  EXPECT_EQ(LRingBufferThreadUnsafe<int>(0).GetCapacity(), 2u);
}

TEST(RingBuffer, CopiesAcrossTheWrapInOrder) {
  LRingBufferThreadUnsafe<int> ring(8);
  int const a[6] = {1, 2, 3, 4, 5, 6};
  int out[8] = {};
  ring.Write(a, 6);
  ring.Read(out, 5);  // read index at 5
  int const b[6] = {7, 8, 9, 10, 11, 12};
  ring.Write(b, 6);  // write index 6 -> 4, wrapping
  EXPECT_EQ(ring.GetFilled(), 7u);
  ring.Read(out, 7);  // wraps as well
  int const expected[7] = {6, 7, 8, 9, 10, 11, 12};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(out[i], expected[i]) << i;
  EXPECT_EQ(ring.GetFilled(), 0u);
  EXPECT_EQ(ring.GetFreeRoom(), 7u);
}

TEST(RingBuffer, MatchesAQueueOverManyUnevenMoves) {
  LRingBufferThreadUnsafe<std::uint16_t> ring(37);
  std::deque<std::uint16_t> model;
  std::mt19937 rng(7);
  std::uint16_t next = 0;
  std::vector<std::uint16_t> buf(64);
  for (int step = 0; step < 5000; ++step) {
    if (rng() % 2) {
      std::uint32_t const n = rng() % (ring.GetFreeRoom() + 1);
      for (std::uint32_t i = 0; i < n; ++i) model.push_back(buf[i] = next++);
      ring.Write(buf.data(), n);
    } else {
      std::uint32_t const n = rng() % (ring.GetFilled() + 1);
      ring.Read(buf.data(), n);
      for (std::uint32_t i = 0; i < n; ++i) {
        ASSERT_EQ(buf[i], model.front()) << "step " << step;
        model.pop_front();
      }
    }
    ASSERT_EQ(ring.GetFilled(), model.size());
    ASSERT_EQ(ring.GetFreeRoom(), 36u - model.size());
  }
}
