#include "sound/sink_to_source.h"

#include <algorithm>
#include <cstring>

#include "sound/audio_buffer.h"

LSinkToSourceBase::LSinkToSourceBase(int sampleRate, int channels, std::size_t ringBytes)
    : sSampleRate(sampleRate < 1 ? 44100 : sampleRate), nChans(channels < 1 || channels > 255 ? 1 : channels) {
  std::size_t frames = ringBytes / (sizeof(float) * static_cast<std::size_t>(nChans));
  std::size_t const most = (std::size_t{1} << 31) / static_cast<std::size_t>(nChans);
  frames = std::clamp<std::size_t>(frames, 2, most);
  uCapacity = static_cast<std::uint32_t>(frames * static_cast<std::size_t>(nChans));
  pRing.reset(new float[uCapacity]());
}

LCountedPtr<LSinkToSourceBase> LSinkToSourceBase::Create(int sampleRate, int channels, std::size_t ringBytes) {
  return LCountedPtr<LSinkToSourceBase>(new LSinkToSourceBase(sampleRate, channels, ringBytes));
}

LSoundSink LSinkToSourceBase::OpenSink() {
  return LSoundSink::Make<LSinkToSourceSink>(LCountedPtr<LSinkToSourceBase>(this));
}

LSoundSource LSinkToSourceBase::OpenSource() {
  return LSoundSource::Make<LSinkToSourceSource>(LCountedPtr<LSinkToSourceBase>(this));
}

std::uint32_t LSinkToSourceBase::FilledFloats() const {
  std::int64_t const w = uWriteIndex.load(std::memory_order_acquire);
  std::int64_t const r = uReadIndex.load(std::memory_order_acquire);
  std::int64_t filled = w - r;
  if (filled < 0) filled += uCapacity;
  return static_cast<std::uint32_t>(filled);
}

std::uint32_t LSinkToSourceBase::FreeFloats() const {
  std::int64_t const w = uWriteIndex.load(std::memory_order_acquire);
  std::int64_t const r = uReadIndex.load(std::memory_order_acquire);
  std::int64_t room = r - w - 1;
  if (room < 0) room += uCapacity;
  return static_cast<std::uint32_t>(room - room % nChans);
}

void LSinkToSourceBase::Write(float const* buffer, int frames) {
  if (frames <= 0) return;
  std::size_t left = static_cast<std::size_t>(frames) * static_cast<std::size_t>(nChans);
  while (left > 0) {
    std::size_t placed = 0;
    {
      std::lock_guard<std::mutex> lock(mtxWrite);
      std::size_t const room = FreeFloats();
      if (room > 0) {
        placed = std::min(room, left);
        std::uint32_t const w = uWriteIndex.load(std::memory_order_relaxed);
        std::size_t const first = std::min<std::size_t>(placed, uCapacity - w);
        std::memcpy(pRing.get() + w, buffer, first * sizeof(float));
        if (placed > first) std::memcpy(pRing.get(), buffer + first, (placed - first) * sizeof(float));
        uWriteIndex.store(static_cast<std::uint32_t>((w + placed) % uCapacity), std::memory_order_release);
      }
    }
    if (placed > 0) {
      soData.Set();
      buffer += placed;
      left -= placed;
      continue;
    }
    if (!IsSourceOpen()) return;  // nobody will make room
    // Reset before the second look, so that a read in between is not missed.
    soRoom.Reset();
    if (FreeFloats() == 0 && IsSourceOpen()) soRoom.WaitSignal(200);
  }
}

void LSinkToSourceBase::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  std::size_t left = static_cast<std::size_t>(frames) * static_cast<std::size_t>(nChans);
  while (left > 0) {
    std::size_t const filled = FilledFloats();
    if (filled == 0) {
      if (!IsSinkOpen() && FilledFloats() == 0) {
        std::memset(buffer, 0, left * sizeof(float));
        return;
      }
      soData.Reset();
      if (FilledFloats() == 0 && IsSinkOpen()) soData.WaitSignal(1000);
      continue;
    }
    std::size_t const n = std::min(filled, left);
    std::uint32_t const r = uReadIndex.load(std::memory_order_relaxed);
    std::size_t const first = std::min<std::size_t>(n, uCapacity - r);
    std::memcpy(buffer, pRing.get() + r, first * sizeof(float));
    if (n > first) std::memcpy(buffer + first, pRing.get(), (n - first) * sizeof(float));
    uReadIndex.store(static_cast<std::uint32_t>((r + n) % uCapacity), std::memory_order_release);
    soRoom.Set();
    buffer += n;
    left -= n;
  }
}

LSinkToSourceSink::LSinkToSourceSink(LCountedPtr<LSinkToSourceBase> const& bridge)
    : LSoundSinkBase(bridge->GetSampleRate(), bridge->GetChannels()), pBridge(bridge) {
  pBridge->iSinkFaces.fetch_add(1);
}

LSinkToSourceSink::~LSinkToSourceSink() {
  pBridge->iSinkFaces.fetch_sub(1);
  pBridge->soData.Set();  // a reader waiting for data learns that no more will come
}

void LSinkToSourceSink::Write(float const* buffer, int frames) {
  if (frames <= 0) return;
  pBridge->Write(buffer, frames);
  sPosition += frames;
}

LSinkToSourceSource::LSinkToSourceSource(LCountedPtr<LSinkToSourceBase> const& bridge)
    : LSoundSourceBase(bridge->GetSampleRate(), bridge->GetChannels(), LSoundPeakUnknown), pBridge(bridge) {
  pBridge->iSourceFaces.fetch_add(1);
}

LSinkToSourceSource::~LSinkToSourceSource() {
  pBridge->iSourceFaces.fetch_sub(1);
  pBridge->soRoom.Set();  // a writer waiting for room gives up instead of waiting on
}

void LSinkToSourceSource::Read(float* buffer, int frames) { pBridge->Read(buffer, frames); }

int LSinkToSourceSource::GetEndSample() const {
  pBridge->soData.Reset();
  return pBridge->GetFilledFrames();
}

bool LSinkToSourceSource::IsStreaming() const { return pBridge->IsSinkOpen(); }

void LSinkToSourceSource::WaitForStreamingData(int ms) {
  if (ms > 0) pBridge->soData.WaitSignal(static_cast<unsigned int>(ms));
}
