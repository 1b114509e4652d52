#pragma once
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>

// The ring between the player's pump and the device's render callback: interleaved
// float frames, one writer (the pump) and one reader (the callback). Each side moves
// only its own count, published with release and read with acquire, so neither
// takes a lock to move frames. The counts run freely in frames; the storage index is
// the count modulo the capacity, so the whole capacity is usable.
//
// The pump fills only up to the half point: what waits in the ring is what the
// listener hears late, and the half left free is where a block always fits.
// Dropping content (a stop, a jump) is done only with both sides held off: the
// callback by the player's resync lock, the pump by its suspension lock.
class LCARingBuffer {
 public:
  // `stereoFloats`: the ring's size for two channels; other counts keep its frames.
  // `blockFrames`: what the pump writes at most at a time.
  LCARingBuffer(std::uint32_t stereoFloats, int blockFrames)
      : uCapacityFrames(stereoFloats / 2), iBlockFrames(blockFrames) {}
  LCARingBuffer(LCARingBuffer const&) = delete;
  LCARingBuffer& operator=(LCARingBuffer const&) = delete;

  // Makes the storage for `channels` and empties the ring. Allocates: only when a
  // stream is opened, never while one runs.
  void Configure(int channels) {
    if (channels < 1) channels = 1;
    if (channels != nChans || !pBuffer) {
      pBuffer.reset(new float[static_cast<std::size_t>(uCapacityFrames) * static_cast<std::size_t>(channels)]());
      nChans = channels;
    }
    Reset();
  }

  int GetChannels() const { return nChans; }
  int GetBlockFrames() const { return iBlockFrames; }
  std::uint32_t GetCapacityFrames() const { return uCapacityFrames; }
  std::uint32_t GetHalfPointFrames() const { return uCapacityFrames / 2; }

  std::uint32_t GetFilledFrames() const {
    return static_cast<std::uint32_t>(uWrite.load(std::memory_order_acquire) -
                                      uRead.load(std::memory_order_acquire));
  }
  // Frames the pump may still write before the half point.
  std::uint32_t GetRoomFrames() const {
    std::uint32_t const filled = GetFilledFrames();
    return filled >= GetHalfPointFrames() ? 0 : GetHalfPointFrames() - filled;
  }
  // Whether a whole block fits below the half point.
  bool IsNextBufferReady() const { return GetRoomFrames() >= static_cast<std::uint32_t>(iBlockFrames); }

  // The pump's side. `count` must not pass the room.
  void Write(float const* frames, std::uint32_t count) {
    std::uint64_t const w = uWrite.load(std::memory_order_relaxed);
    Copy(w, count, [&](float* ring, std::size_t at, std::size_t n) {
      std::copy(frames + at, frames + at + n, ring);
    });
    uWrite.store(w + count, std::memory_order_release);
  }

  // The callback's side. `count` must not pass what is filled.
  void Read(float* frames, std::uint32_t count) {
    std::uint64_t const r = uRead.load(std::memory_order_relaxed);
    Copy(r, count, [&](float* ring, std::size_t at, std::size_t n) { std::copy(ring, ring + n, frames + at); });
    uRead.store(r + count, std::memory_order_release);
  }

  // Both sides held off: empties the ring.
  void Reset() { uRead.store(uWrite.load(std::memory_order_relaxed), std::memory_order_release); }
  // Both sides held off: forgets the newest `frames` written, so that they are
  // written again from another source.
  void DropNewest(std::uint32_t frames) {
    std::uint32_t const filled = GetFilledFrames();
    if (frames > filled) frames = filled;
    uWrite.store(uWrite.load(std::memory_order_relaxed) - frames, std::memory_order_release);
  }

 private:
  // Calls `move(ringPointer, offsetInFrames * channels, floats)` for the one or two
  // pieces that `count` frames from `counter` cover.
  template <class F>
  void Copy(std::uint64_t counter, std::uint32_t count, F&& move) {
    std::size_t const ch = static_cast<std::size_t>(nChans);
    std::uint32_t const at = static_cast<std::uint32_t>(counter % uCapacityFrames);
    std::uint32_t const first = count < uCapacityFrames - at ? count : uCapacityFrames - at;
    move(pBuffer.get() + at * ch, 0, first * ch);
    if (count > first) move(pBuffer.get(), first * ch, (count - first) * ch);
  }

  std::uint32_t uCapacityFrames;
  int iBlockFrames;
  int nChans = 0;
  std::unique_ptr<float[]> pBuffer;
  std::atomic<std::uint64_t> uRead{0};
  std::atomic<std::uint64_t> uWrite{0};
};
