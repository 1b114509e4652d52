#pragma once
#include <atomic>
#include <cstdint>
#include <memory>

#include "foundation/db.h"
#include "foundation/sound_time.h"

// The meters of every track for the last mix block of a read: the time it was
// read at, then one record per track index. The mix writes it in place and hands
// it over on the pump's thread, so its size is part of what each read costs.
struct TDTracksDB {
  static constexpr int MaxTracks = 256;

  std::int32_t iCurrentTime = 0;  // ms
  LDBMultiChannel<LdB<signed char>> Tracks[MaxTracks];
};
static_assert(sizeof(TDTracksDB) == 65796, "the meter records are copied into a ring as they stand");

// The track levels on their way from the pump to the meters. The pump reads the mix
// far ahead of what is heard, so the levels wait here until the listener reaches
// their time; the main thread then shows the latest one due and drops the older.
//
// One writer (the pump), one reader (the main thread). The records are made once,
// here: the pump copies into a free one, and when none is free (the main thread has
// not looked for a while) the levels of that block are not kept. Nothing is
// allocated while playing.
class TDTracksDBHistory {
 public:
  static constexpr std::uint32_t Capacity = 64;

  TDTracksDBHistory() : pRecords(new TDTracksDB[Capacity]) {}

  // The pump's side. False when the history is full and the record was dropped.
  bool Add(TDTracksDB const& record) {
    std::uint64_t const w = uWrite.load(std::memory_order_relaxed);
    if (w - uRead.load(std::memory_order_acquire) >= Capacity) return false;
    pRecords[w % Capacity] = record;
    uWrite.store(w + 1, std::memory_order_release);
    return true;
  }

  // The main thread's side: the latest record whose time is at or before `now`, with
  // all older ones dropped; null when none is due yet. The record stays valid until
  // the next call of Take or Clear.
  TDTracksDB const* Take(LSoundTime now) {
    std::uint64_t const w = uWrite.load(std::memory_order_acquire);
    std::uint64_t r = uRead.load(std::memory_order_relaxed);
    if (bHolding) ++r;  // the one handed out last time is done with
    bHolding = false;
    std::uint64_t due = w;
    for (std::uint64_t i = r; i < w && pRecords[i % Capacity].iCurrentTime <= now; ++i) due = i;
    if (due == w) {
      uRead.store(r, std::memory_order_release);
      return nullptr;
    }
    // Keep the due one out of the writer's reach until the next call.
    uRead.store(due, std::memory_order_release);
    bHolding = true;
    return &pRecords[due % Capacity];
  }

  // The main thread's side: forgets everything (a stop, a restart).
  void Clear() {
    uRead.store(uWrite.load(std::memory_order_acquire), std::memory_order_release);
    bHolding = false;
  }

  std::uint32_t GetCount() const {
    return static_cast<std::uint32_t>(uWrite.load(std::memory_order_acquire) - uRead.load(std::memory_order_acquire));
  }

 private:
  std::unique_ptr<TDTracksDB[]> pRecords;
  std::atomic<std::uint64_t> uRead{0};
  std::atomic<std::uint64_t> uWrite{0};
  bool bHolding = false;
};
