#include "sound/device/sound_player_llca.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <mutex>

#include "foundation/log.h"
#include "sound/audio_buffer.h"
#include "sound/channel_converters.h"
#include "sound/convert_rate.h"

std::int64_t LGetTickCountMSAccurate() {
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

namespace {

// The level of one callback's frames of a channel: a full-scale sine reads 0 dB.
signed char LevelOfMeanSquare(double meanSquare) {
  if (meanSquare <= 0.0) return -127;
  double const dB = 10.0 * std::log10(2.0 * meanSquare);
  int const whole = static_cast<int>(dB);  // truncated toward zero
  return static_cast<signed char>(std::clamp(whole, -127, 127));
}

// The level of a tick from the mean of the callbacks' amplitudes.
signed char LevelOfAmplitude(double amplitude) {
  if (amplitude <= 0.0) return -127;
  long const dB = std::lround(20.0 * std::log10(amplitude));  // half away from zero
  return static_cast<signed char>(std::clamp<long>(dB, -127, 127));
}

// Frames a callback asks for are read from the ring in pieces of this many.
constexpr int kScratchFrames = 1024;

}  // namespace

LSoundPlayerLLCA::LSoundPlayerLLCA(LSignalObjectRef fillStarted, LSignalObjectRef fillFinished)
    : soFillStarted(fillStarted), soFillFinished(fillFinished) {
  // The level tables are built on first use; that must not be in the callback.
  LdBGetTables();
  db.SetChannels(0);
  db.SetAll(LdB<signed char>::Silence);
}

LSoundPlayerLLCA::~LSoundPlayerLLCA() {
  CloseStream();
}

LSoundDeviceEntry const& LSoundPlayerLLCA::ChosenEntry(LSoundPlayDeviceList const& list) const {
  int index = device.no;
  if (!szDeviceName.empty() && list.GetName(index) != szDeviceName) {
    int const found = list.FindByName(szDeviceName);
    if (found >= 0) index = found;
  }
  return list.GetEntry(index);
}

LSoundSource LSoundPlayerLLCA::ConformSource(LSoundSource const& source) const {
  if (source->IsError()) return source;
  std::shared_ptr<LSoundPlayDeviceList const> list = LSoundPlayDeviceList::Get();
  LSoundDeviceEntry const& entry = ChosenEntry(*list);
  LSoundSource s = source;
  int const outputs = entry.nOutputChannels;
  if (outputs > 0 && s->GetChannels() > outputs) {
    s = LSPConvChannels(outputs >= 2 ? 2 : 1).OpenSource(s);
  } else if (outputs >= 2 && s->GetChannels() == 1) {
    // A mono source sounds on both outputs of the pair, not on the left alone.
    s = LSPConvChannels(2).OpenSource(s);
  }
  int const rate = LSoundDeviceRateFor(entry, s->GetSampleRate());
  if (rate > 0 && rate != s->GetSampleRate()) s = LSPConvertRate(rate).OpenSource(s);
  return s;
}

bool LSoundPlayerLLCA::Init(LSoundSource& source, unsigned short mode, LThread* thread) {
  pInterface = thread;
  InitialMode = mode;
  iError = 0;
  source = ConformSource(source);
  if (source->IsError()) return false;
  if (!SetSoundSource(source)) return false;
  // What a stream kept open from the last play still held is not this source's.
  std::lock_guard<LLockObject> hold(loResync);
  Ring().Reset();
  bRunningOnLatency = false;
  uCallbacksSinceDry = 0;
  ResetLevelSums();
  sPosition = lss->GetPositionSample();
  return true;
}

bool LSoundPlayerLLCA::SetSoundSource(LSoundSource& source) {
  if (source->IsError()) return false;
  int const rate = source->GetSampleRate();
  int const channels = source->GetChannels();
  bool const sameFormat = au && au->IsOpen() && rate == sSampleRate && channels == nChans;
  if (sameFormat) {
    lss = source;
    return true;
  }
  bool const wasPlaying = (status.load() & StatusPlaying) != 0;
  if (wasPlaying) Pause();
  if (!OpenStreamFor(rate, channels)) {
    lss.Close();
    return false;
  }
  lss = source;
  sPosition = lss->GetPositionSample();
  if (wasPlaying) {
    WriteBuffer(GetBlockFrames());
    if (au->Start()) status = StatusPlaying;
  }
  return true;
}

bool LSoundPlayerLLCA::OpenStreamFor(int rate, int channels) {
  std::shared_ptr<LSoundPlayDeviceList const> list = LSoundPlayDeviceList::Get();
  LSoundDeviceEntry const& entry = ChosenEntry(*list);
  if (entry.iApi == LSoundServiceNone || entry.nOutputChannels <= 0 || channels < 1 || channels > 255) {
    LLog("sound: no stream of %d channels on \"%s\"", channels, entry.szName.c_str());
    return false;
  }
  std::vector<int> const map = LSoundMapChannelsToOutputs(channels, entry.nOutputChannels, device,
                                                          speakerOutputs.empty() ? nullptr : &speakerOutputs);
  int lo = -1, hi = -1;
  for (int o : map) {
    if (o < 0) continue;
    if (lo < 0 || o < lo) lo = o;
    if (o > hi) hi = o;
  }
  if (lo < 0) return false;
  std::vector<int> relative(map.size(), -1);
  for (std::size_t c = 0; c < map.size(); ++c)
    if (map[c] >= 0) relative[c] = map[c] - lo;
  int const span = hi - lo + 1;
  bool direct = span == channels;
  for (int c = 0; direct && c < channels; ++c) direct = relative[static_cast<std::size_t>(c)] == c;

  bool const same = au && au->IsOpen() && szStreamDevice == entry.szName && iStreamApi == entry.iApi &&
                    iFirstOutput == lo && nStreamChans == span && sSampleRate == rate && nChans == channels &&
                    bStreamLowLatency == bLowLatency;
  if (same) {
    std::lock_guard<LLockObject> hold(loResync);
    iOutputOf = relative;
    bDirectOut = direct;
    return true;
  }

  CloseStream();
  // Everything the callback and the pump use is made here, before the stream runs.
  caRingBuffer.Configure(channels);
  caRingBufferLowLatency.Configure(channels);
  pScratch.reset(new float[static_cast<std::size_t>(kScratchFrames) * static_cast<std::size_t>(channels)]);
  pWriteBuffer.reset(new float[static_cast<std::size_t>(RingBlockFrames) * static_cast<std::size_t>(channels)]);
  iScratchFrames = kScratchFrames;
  nChans = channels;
  sSampleRate = rate;
  iLevelFrames = std::max(1, rate / TicksPerSecond);
  iOutputOf = relative;
  bDirectOut = direct;
  iFirstOutput = lo;
  nStreamChans = span;
  db.SetChannels(channels);
  db.SetAll(LdB<signed char>::Silence);
  ResetLevelSums();

  au = LSoundOpenOutputStream(*this);
  LSoundStreamRequest request;
  request.iFirstChannel = lo;
  request.nChannels = span;
  request.iRate = rate;
  request.iBufferFrames = bLowLatency ? 256 : 1024;
  request.szClientName = "Tandrel";
  if (!au || !au->Open(entry, request) || au->GetSampleRate() != rate) {
    if (au && au->IsOpen()) LLog("sound: \"%s\" runs at %d Hz, not %d", entry.szName.c_str(), au->GetSampleRate(), rate);
    CloseStream();
    return false;
  }
  szStreamDevice = entry.szName;
  iStreamApi = entry.iApi;
  bStreamLowLatency = bLowLatency;
  return true;
}

void LSoundPlayerLLCA::CloseStream() {
  // Never under loResync: closing waits for a callback that may be waiting for it.
  if (au) {
    au->Close();
    au.reset();
  }
  status = 0;
  szStreamDevice.clear();
  iStreamApi = 0;
  nStreamChans = 0;
}

void LSoundPlayerLLCA::ResetLevelSums() {
  sFramesRead = 0;
  iLevelReadCount = 0;
  std::fill(std::begin(dSumLevel), std::end(dSumLevel), 0.0);
}

bool LSoundPlayerLLCA::Start() {
  if (InitialMode == 1) {
    Pause();
    return true;
  }
  return Play();
}

bool LSoundPlayerLLCA::Play() {
  if (!au || !au->IsOpen()) return false;
  if (!soFillStarted.WaitSignal(FillWaitMs)) {
    iError = ErrorNoFill;
    return false;
  }
  uTCPlayingStart = 0;
  tidRender = -1;
  bRecordTime = true;
  if (!au->Start()) {
    iError = ErrorNoStart;
    return false;
  }
  status = StatusPlaying;
  return true;
}

void LSoundPlayerLLCA::Pause() {
  if (au) au->Stop();
  status = (status.load() & ~StatusPlaying) | StatusPaused;
}

void LSoundPlayerLLCA::_Stop() {
  Pause();
  std::lock_guard<LLockObject> hold(loResync);
  Ring().Reset();
  bRunningOnLatency = false;
  db.SetAll(LdB<signed char>::Silence);
  ResetLevelSums();
}

void LSoundPlayerLLCA::Stop() {
  _Stop();
  lss.Close();
  // A stream that went away is not kept for the next play: that one opens anew,
  // on a server that may have come back or changed its period meanwhile.
  if (iError == ErrorDeviceLost) CloseStream();
  status = 0;
}

void LSoundPlayerLLCA::SetLowLatency(bool on) {
  bLowLatency = on;
}

void LSoundPlayerLLCA::WriteBuffer(int frames) {
  LCARingBuffer& ring = Ring();
  if (!pWriteBuffer || ring.GetChannels() != lss->GetChannels()) return;
  int n = std::min({frames, iLevelFrames, ring.GetBlockFrames(), static_cast<int>(ring.GetRoomFrames())});
  if (n <= 0) return;
  lss->Read(pWriteBuffer.get(), n);
  ring.Write(pWriteBuffer.get(), static_cast<std::uint32_t>(n));
  sPosition = lss->GetPositionSample();
}

bool LSoundPlayerLLCA::WaitForEmptyBuffer(LThread& thread) {
  if (thread.ProcessWaitSignal(soBufReady.GetRef(), TickWaitMs) != LProcessWaitSignaled) return false;
  soBufReady.Reset();
  return true;
}

int LSoundPlayerLLCA::GetBufferBlocks() const {
  return static_cast<int>(Ring().GetHalfPointFrames()) / std::max(1, Ring().GetBlockFrames());
}

int LSoundPlayerLLCA::GetDeviceBufferFrames() const {
  return au ? au->GetBufferFrames() : 0;
}

int LSoundPlayerLLCA::GetLagToPlayCursor() const {
  if (!(status.load() & StatusPlaying)) return 0;
  return static_cast<int>(Ring().GetFilledFrames());
}

int LSoundPlayerLLCA::GetLagToWriteCursor() const {
  return std::max(0, GetLagToPlayCursor() - GetDeviceBufferFrames());
}

int LSoundPlayerLLCA::_GetPositionSample() const {
  int lag = static_cast<int>(Ring().GetFilledFrames());
  if (bRunningOnLatency.load()) lag = std::max(0, lag - sLatencyRemaining.load());
  int const position = sPosition.load();
  return position + lss->AdjustRelativeOffset(-lag, position);
}

int LSoundPlayerLLCA::ResyncStart(bool jump) {
  loResync.lock();
  int const filled = static_cast<int>(Ring().GetFilledFrames());
  int const keepWanted = std::max(2 * GetDeviceBufferFrames(), sSampleRate / 20);
  int const keep = std::min(filled, keepWanted);
  sLatencyRemaining = keep;
  bRunningOnLatency = jump && keep > 0;
  iDropFrames = filled - keep;
  return iDropFrames;
}

void LSoundPlayerLLCA::ResyncBuffer(bool refill) {
  Ring().DropNewest(static_cast<std::uint32_t>(iDropFrames));
  iDropFrames = 0;
  sPosition = lss->GetPositionSample();
  bRefillPending = refill;
}

void LSoundPlayerLLCA::ResyncFinish() {
  bool const refill = bRefillPending;
  bRefillPending = false;
  loResync.unlock();
  // The kept stretch plays while the first new block is read.
  if (refill) WriteBuffer(GetBlockFrames());
}

void LSoundPlayerLLCA::SetDevice(LSoundPlayDevice const& d) {
  std::shared_ptr<LSoundPlayDeviceList const> list = LSoundPlayDeviceList::Get();
  std::string const name = list->GetName(d.no);
  if (d == device && name == szDeviceName) return;
  device = d;
  szDeviceName = name;
  if (!au || !au->IsOpen() || nChans <= 0) return;
  bool const wasPlaying = (status.load() & StatusPlaying) != 0;
  LSoundDeviceEntry const& entry = ChosenEntry(*list);
  if (entry.szName == szStreamDevice && entry.iApi == iStreamApi) {
    // The same device: the stream stays if the new outputs lie in it.
    std::vector<int> const map = LSoundMapChannelsToOutputs(nChans, entry.nOutputChannels, device,
                                                            speakerOutputs.empty() ? nullptr : &speakerOutputs);
    bool fits = true;
    std::vector<int> relative(map.size(), -1);
    for (std::size_t c = 0; c < map.size(); ++c) {
      if (map[c] < 0) continue;
      relative[c] = map[c] - iFirstOutput;
      fits = fits && relative[c] >= 0 && relative[c] < nStreamChans;
    }
    if (fits) {
      bool direct = nStreamChans == nChans;
      for (int c = 0; direct && c < nChans; ++c) direct = relative[static_cast<std::size_t>(c)] == c;
      std::lock_guard<LLockObject> hold(loResync);
      iOutputOf = relative;
      bDirectOut = direct;
      return;
    }
  }
  // Another device, or outputs outside the stream: it reopens at the rate it has.
  if (wasPlaying) Pause();
  if (!OpenStreamFor(sSampleRate, nChans)) return;
  if (wasPlaying) {
    WriteBuffer(GetBlockFrames());
    if (au->Start()) status = StatusPlaying;
  }
}

bool LSoundPlayerLLCA::IsDeviceLost() {
  if (!(status.load() & StatusPlaying) || !au || !au->IsLost()) return false;
  iError = ErrorDeviceLost;
  return true;
}

void LSoundPlayerLLCA::SetSpeakerOutputs(std::vector<int> outputs) {
  speakerOutputs = std::move(outputs);
}

void LSoundPlayerLLCA::SetPlayVolumeStandard(LdB<signed char> const& volume) {
  dbVolume = volume;
  sgqVolume = volume.GetAmplitude();
}

LDBMultiChannel<LdB<signed char>> LSoundPlayerLLCA::GetLevels() {
  std::lock_guard<LLockObject> hold(loResync);
  return db;
}

void LSoundPlayerLLCA::Render(float* out, int frames) noexcept {
  if (frames <= 0 || !out) return;
  std::lock_guard<LLockObject> hold(loResync);
  int const outCh = nStreamChans;
  std::size_t const outFloats = static_cast<std::size_t>(frames) * static_cast<std::size_t>(outCh);
  if (bRecordTime.load(std::memory_order_relaxed)) {
    uTCPlayingStart = LGetTickCountMSAccurate();
    tidRender = static_cast<pid_t>(::syscall(SYS_gettid));
    bRecordTime = false;
  }
  if (nChans <= 0 || (status.load(std::memory_order_relaxed) & StatusCueing)) {
    std::fill(out, out + outFloats, 0.0f);
    return;
  }
  LCARingBuffer& ring = Ring();
  int const n = std::min(static_cast<int>(ring.GetFilledFrames()), frames);
  float const gain = sgqVolume.load(std::memory_order_relaxed);
  std::size_t const ch = static_cast<std::size_t>(nChans);
  double sumSquares[255];
  std::fill(sumSquares, sumSquares + ch, 0.0);
  if (!bDirectOut) std::fill(out, out + outFloats, 0.0f);

  for (int done = 0; done < n;) {
    int const k = std::min(n - done, iScratchFrames);
    float* piece = bDirectOut ? out + static_cast<std::size_t>(done) * ch : pScratch.get();
    ring.Read(piece, static_cast<std::uint32_t>(k));
    // The meter reads the sound before the output volume.
    for (int f = 0; f < k; ++f) {
      float const* frame = piece + static_cast<std::size_t>(f) * ch;
      for (std::size_t c = 0; c < ch; ++c) sumSquares[c] += static_cast<double>(frame[c]) * frame[c];
    }
    GainAudioBufferQuick(piece, k * nChans, gain);
    if (!bDirectOut) {
      for (int f = 0; f < k; ++f) {
        float const* frame = piece + static_cast<std::size_t>(f) * ch;
        float* target = out + static_cast<std::size_t>(done + f) * static_cast<std::size_t>(outCh);
        for (std::size_t c = 0; c < ch; ++c) {
          int const o = iOutputOf[c];
          if (o >= 0) target[o] += frame[c];
        }
      }
    }
    done += k;
  }
  // An underrun is silence, not an error: time goes on and the pump catches up.
  if (n < frames) {
    if (bDirectOut) std::fill(out + static_cast<std::size_t>(n) * ch, out + outFloats, 0.0f);
    uUnderruns.fetch_add(1, std::memory_order_relaxed);
    uCallbacksSinceDry.fetch_add(1, std::memory_order_release);
  } else {
    uCallbacksSinceDry.store(0, std::memory_order_release);
  }
  for (std::size_t c = 0; c < ch; ++c) {
    signed char const level = n > 0 ? LevelOfMeanSquare(sumSquares[c] / n) : static_cast<signed char>(-127);
    iLastLevel[c] = level;
    dSumLevel[c] += LdBAmplitudeOf(level);
  }
  sFramesRead += frames;
  ++iLevelReadCount;
  if (bRunningOnLatency.load(std::memory_order_relaxed)) {
    int const left = sLatencyRemaining.load(std::memory_order_relaxed) - n;
    sLatencyRemaining.store(left > 0 ? left : 0, std::memory_order_relaxed);
    if (left <= 0) bRunningOnLatency.store(false, std::memory_order_relaxed);
  }
  if (sFramesRead < iLevelFrames && n == frames) return;

  // A level tick: the mean of the callbacks' amplitudes, in dB.
  for (std::size_t c = 0; c < ch; ++c) db[static_cast<int>(c)] = LevelOfAmplitude(dSumLevel[c] / iLevelReadCount);
  // What passed the tick's length counts toward the next, so that callbacks of any
  // size give 30 ticks a second on average.
  int const carry = std::clamp(sFramesRead - iLevelFrames, 0, iLevelFrames - 1);
  ResetLevelSums();
  sFramesRead = carry;
  uTicks.fetch_add(1, std::memory_order_relaxed);
  soBufReady.Set();
}
