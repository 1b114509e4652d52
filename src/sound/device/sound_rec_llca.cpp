#include "sound/device/sound_rec_llca.h"

#include <algorithm>
#include <cmath>

#include "sound/convert_rate.h"
#include "sound/device/sound_player_llca.h"

LSoundRecLLCA::LSoundRecLLCA() = default;

LSoundRecLLCA::~LSoundRecLLCA() {
  Close();
}

int LSoundRecLLCA::GetSupportedSampleRate(int rate) const {
  std::shared_ptr<LSoundRecordDeviceList const> list = LSoundRecordDeviceList::Get();
  return LSoundDeviceRateFor(list->GetEntry(device.no), rate);
}

bool LSoundRecLLCA::Open(LSoundSink const& sink, LThread* thread) {
  Close();
  if (sink->IsError() || sink->GetChannels() > 2) return false;
  std::shared_ptr<LSoundRecordDeviceList const> list = LSoundRecordDeviceList::Get();
  LSoundDeviceEntry const& entry = list->GetEntry(device.no);
  int const inputs = entry.nInputChannels;
  if (entry.iApi == LSoundServiceNone || inputs <= 0) return false;

  // The inputs, by the same rule as the outputs: two on one input move apart.
  int left = device.iInputChannelLeft;
  int right = device.iInputChannelRight;
  LSoundResolveOutputPair(inputs, left, right);
  nChans = sink->GetChannels();
  int const lo = nChans == 1 ? left : std::min(left, right);
  int const hi = nChans == 1 ? left : std::max(left, right);
  nStreamChans = hi - lo + 1;
  iLeft = left - lo;
  iRight = (nChans == 1 ? left : right) - lo;

  int const rate = LSoundDeviceRateFor(entry, sink->GetSampleRate());
  sSampleRate = rate;
  // Buffers of 20 ms, within what one buffer may be, and four seconds of them.
  iBufferFrames = std::clamp(static_cast<int>(0.02 * rate), 512, 8192);
  int const count = static_cast<int>(std::ceil(4.0 * rate / iBufferFrames));
  buffers = std::vector<Buffer>(static_cast<std::size_t>(count));
  for (Buffer& b : buffers)
    b.pData.reset(new float[static_cast<std::size_t>(iBufferFrames) * static_cast<std::size_t>(nChans)]());
  uFill = uTake = 0;
  iFillFrames = 0;
  soFilled.Reset();

  lsnk = LSinkConvertRate(rate).OpenSink(sink);
  pThread = thread;
  au = LSoundOpenInputStream(*this);
  LSoundStreamRequest request;
  request.iFirstChannel = lo;
  request.nChannels = nStreamChans;
  request.iRate = rate;
  request.iBufferFrames = 256;
  request.szClientName = "Tandrel In";
  if (!au || !au->Open(entry, request) || au->GetSampleRate() != rate) {
    Close();
    return false;
  }
  return true;
}

void LSoundRecLLCA::Close() {
  if (au) {
    au->Close();
    au.reset();
  }
  lsnk.Close();
  buffers.clear();
  pThread = nullptr;
}

bool LSoundRecLLCA::Start() {
  if (!au) return false;
  uTCFirstCallback = 0;
  bFirstCallback = true;
  return au->Start();
}

void LSoundRecLLCA::Stop() {
  if (au) au->Stop();
}

void LSoundRecLLCA::Capture(float const* in, int frames) noexcept {
  if (bFirstCallback.load(std::memory_order_relaxed)) {
    uTCFirstCallback = LGetTickCountMSAccurate();
    bFirstCallback = false;
  }
  if (buffers.empty()) return;
  std::size_t const streamCh = static_cast<std::size_t>(nStreamChans);
  int done = 0;
  while (done < frames) {
    Buffer& b = buffers[uFill];
    if (b.bFull.load(std::memory_order_acquire)) {
      // The recorder is four seconds behind: this input is lost, but the device's
      // thread does not wait for a disk.
      uOverruns.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    int const k = std::min(frames - done, iBufferFrames - iFillFrames);
    float* target = b.pData.get() + static_cast<std::size_t>(iFillFrames) * static_cast<std::size_t>(nChans);
    for (int f = 0; f < k; ++f) {
      float const* frame = in + static_cast<std::size_t>(done + f) * streamCh;
      target[static_cast<std::size_t>(f) * nChans] = frame[iLeft];
      if (nChans == 2) target[static_cast<std::size_t>(f) * 2 + 1] = frame[iRight];
    }
    iFillFrames += k;
    done += k;
    if (iFillFrames == iBufferFrames) {
      b.bFull.store(true, std::memory_order_release);
      uFill = (uFill + 1) % buffers.size();
      iFillFrames = 0;
      soFilled.Set();
    }
  }
}

int LSoundRecLLCA::ProcessBuffer(unsigned ms) {
  if (buffers.empty()) return 0;
  Buffer& b = buffers[uTake];
  if (!b.bFull.load(std::memory_order_acquire)) {
    soFilled.Reset();
    if (!b.bFull.load(std::memory_order_acquire)) {
      int const r = pThread ? pThread->ProcessWaitSignal(soFilled.GetRef(), ms)
                            : (soFilled.WaitSignal(ms) ? LProcessWaitSignaled : LProcessWaitTimedOut);
      if (r == LProcessWaitStopped) return -1;
      if (!b.bFull.load(std::memory_order_acquire)) return 0;
    }
  }
  lsnk->Write(b.pData.get(), iBufferFrames);
  b.bFull.store(false, std::memory_order_release);
  uTake = (uTake + 1) % buffers.size();
  return iBufferFrames;
}

void LSoundRecLLCA::Flush() {
  if (buffers.empty() || (au && au->IsRunning())) return;
  while (buffers[uTake].bFull.load(std::memory_order_acquire)) ProcessBuffer(0);
  if (iFillFrames > 0) {
    lsnk->Write(buffers[uFill].pData.get(), iFillFrames);
    iFillFrames = 0;
  }
  if (auto* convert = dynamic_cast<LSinkConvertRateBase*>(lsnk.Get())) convert->Flush();
}
