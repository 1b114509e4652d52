#pragma once
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/db.h"
#include "foundation/lock_object.h"
#include "foundation/signal_object.h"
#include "foundation/thread.h"
#include "sound/device/ca_ring_buffer.h"
#include "sound/device/sound_devices.h"
#include "sound/device/sound_service.h"
#include "sound/sound_source.h"

// The device side of the player: it owns the output stream and the ring the pump
// fills, and its render callback drains the ring, meters it and applies the output
// volume. The pump (LSoundPlayerTemplate) decides when to write; this class knows
// how.
//
// Threads: the render callback runs on the device's thread and holds loResync for
// its whole run; the pump writes the ring and reads the source without that lock,
// since each side moves only its own count. Whoever seeks or replaces the source
// holds the pump's suspension lock; a jump (ResyncStart .. ResyncFinish) holds
// loResync as well, which keeps the callback out while the ring is cut.
class LSoundPlayerLLCA : public LSoundRenderCallback {
 public:
  // Bits of the status.
  static constexpr unsigned StatusPlaying = 1;
  static constexpr unsigned StatusPaused = 2;
  static constexpr unsigned StatusCueing = 4;
  // The error Play leaves when the pump gave it nothing to play in time.
  static constexpr int ErrorNoFill = 9;
  // The error of a stream that opened but would not start.
  static constexpr int ErrorNoStart = 10;
  // The error of a stream that went away while playing (IsDeviceLost).
  static constexpr int ErrorDeviceLost = 11;
  // How long Play waits for the pump's first block.
  static constexpr unsigned FillWaitMs = 5000;
  // Level ticks a second.
  static constexpr int TicksPerSecond = 30;
  // How long WaitForEmptyBuffer waits for a tick: several ticks' time, so that a
  // device gone quiet is noticed soon.
  static constexpr unsigned TickWaitMs = 250;
  // The ring of normal play and the one of low latency (scrubbing), in floats of a
  // stereo stream, with the pump's block in frames.
  static constexpr std::uint32_t RingFloats = 262144;
  static constexpr int RingBlockFrames = 8192;
  static constexpr std::uint32_t RingFloatsLowLatency = 4096;
  static constexpr int RingBlockFramesLowLatency = 512;

  // `fillStarted` is set by the pump after each write; Play waits for it.
  // `fillFinished` is the pump's, kept for whoever waits for the end of a fill.
  LSoundPlayerLLCA(LSignalObjectRef fillStarted, LSignalObjectRef fillFinished);
  ~LSoundPlayerLLCA() override;
  LSoundPlayerLLCA(LSoundPlayerLLCA const&) = delete;
  LSoundPlayerLLCA& operator=(LSoundPlayerLLCA const&) = delete;

  // The source as the chosen device will take it: more channels than it has are
  // mixed down, a mono source is spread on the output pair, and a rate the device
  // does not run at (a JACK server has one rate) is converted. The player builds its
  // limiter and cross-fade over this, so that everything behind it counts frames
  // at the device's rate.
  LSoundSource ConformSource(LSoundSource const& source) const;

  // Opens the device for the source (conforming it first) and takes it. False when
  // no stream can be opened: the caller says "Cannot open sound device for playing."
  bool Init(LSoundSource& source, unsigned short mode, LThread* thread);
  // Takes `source`. A rate or channel count other than the stream's reopens the
  // stream for it, empties the ring and goes on playing if it played.
  bool SetSoundSource(LSoundSource& source);
  LSoundSource const& GetSoundSource() const { return lss; }

  // Mode 1 starts paused; any other plays.
  bool Start();
  // Waits up to FillWaitMs for the pump's first block, then starts the stream. On a
  // time-out the error is ErrorNoFill and nothing sounds.
  bool Play();
  void Pause();
  // Pauses, empties the ring and lets the source go.
  void Stop();
  // Pauses and empties the ring.
  void _Stop();

  // The ring in use: the low-latency one while scrubbing. Only while stopped.
  void SetLowLatency(bool on);
  bool IsLowLatency() const { return bLowLatency; }

  // The pump's side.
  bool IsNextBufferReady() const { return Ring().IsNextBufferReady(); }
  // Moves up to min(frames, rate / 30) frames from the source into the ring.
  void WriteBuffer(int frames);
  // Whether frames still wait to be played: in the ring, or in the device's own
  // buffer, which is played out when a callback after the ring ran dry has come.
  bool PlayRemainingBuffer() const {
    return Ring().GetFilledFrames() > 0 ||
           ((status.load() & StatusPlaying) && uCallbacksSinceDry.load(std::memory_order_acquire) < 2);
  }
  // Waits for the next level tick. False when `thread` is told to stop or
  // TickWaitMs passed without one (the caller then looks at its stop, and whether
  // the device is still there, and waits again).
  bool WaitForEmptyBuffer(LThread& thread);
  int GetBlockFrames() const { return Ring().GetBlockFrames(); }
  // The ring's half point in blocks: how far the pump may fall behind.
  int GetBufferBlocks() const;

  // Frames between what the pump wrote last and what the listener hears: the ring's
  // content, 0 when not playing.
  int GetLagToPlayCursor() const;
  // The part of that lag that can still be replaced: less the device's own buffer.
  int GetLagToWriteCursor() const;
  // The source's position where the listener is, folded through loops. Call with the
  // pump held off (its suspension lock), or from the pump.
  int _GetPositionSample() const;

  // A change of source while playing. ResyncStart takes loResync and returns how
  // many of the frames waiting in the ring can be dropped: all but a short stretch
  // (the device's buffer twice, at least 50 ms) that keeps playing while new frames
  // come. With `jump` the kept stretch belongs to the old place, and the position
  // does not count it. ResyncBuffer drops the frames and notes the source's new
  // position; ResyncFinish lets the callback go on and, if asked, writes the first
  // new block.
  int ResyncStart(bool jump);
  void ResyncBuffer(bool refill);
  void ResyncFinish();

  // Same device: the channels are mapped anew; another device: the stream reopens.
  // The device is remembered by its name as well: when the list is read again and
  // the index names another device, the one of that name is played to.
  void SetDevice(LSoundPlayDevice const& device);
  LSoundPlayDevice const& GetDevice() const { return device; }

  // Whether the stream that plays has gone from under us (the service closed it, or
  // it stopped calling back). The error is then ErrorDeviceLost. Asked by the
  // player's done handler when the ticks stop coming.
  bool IsDeviceLost();
  // Where each channel of a surround source plays; empty for channel i on output i.
  void SetSpeakerOutputs(std::vector<int> outputs);

  void SetPlayVolumeStandard(LdB<signed char> const& volume);
  LdB<signed char> GetPlayVolume() const { return dbVolume; }

  // The levels of the last tick, one per channel of the source.
  LDBMultiChannel<LdB<signed char>> GetLevels();
  unsigned GetStatus() const { return status.load(); }
  int GetError() const { return iError; }
  int GetSampleRate() const { return sSampleRate; }
  int GetChannels() const { return nChans; }
  int GetDeviceBufferFrames() const;
  // Milliseconds (LGetTickCountMSAccurate) of the first callback after Play, 0 before.
  std::int64_t GetPlayingStartTick() const { return uTCPlayingStart.load(); }
  // The kernel's id of the device's thread, seen at the first callback; -1 before.
  pid_t GetRenderThreadId() const { return tidRender.load(); }
  // Level ticks since the stream opened.
  std::uint64_t GetTickCount() const { return uTicks.load(); }
  // Callbacks that found the ring short.
  std::uint64_t GetUnderrunCount() const { return uUnderruns.load(); }

  void Render(float* out, int frames) noexcept override;

 private:
  LCARingBuffer& Ring() { return bLowLatency ? caRingBufferLowLatency : caRingBuffer; }
  LCARingBuffer const& Ring() const { return bLowLatency ? caRingBufferLowLatency : caRingBuffer; }
  // The list's entry of the chosen device.
  LSoundDeviceEntry const& ChosenEntry(LSoundPlayDeviceList const& list) const;
  // Opens (or keeps) a stream for `rate` and `channels` on the chosen device.
  bool OpenStreamFor(int rate, int channels);
  void CloseStream();
  void ResetLevelSums();

  LLockObject loResync;
  LSignalObjectRef soFillStarted;
  LSignalObjectRef soFillFinished;
  std::unique_ptr<LSoundStream> au;
  LSoundSource lss;
  LSoundPlayDevice device;
  std::string szDeviceName;  // the chosen device's name when it was chosen
  LThread* pInterface = nullptr;
  std::atomic<unsigned> status{0};
  std::atomic<int> sPosition{0};
  int sSampleRate = 0;
  int nChans = 0;
  LCARingBuffer caRingBuffer{RingFloats, RingBlockFrames};
  LCARingBuffer caRingBufferLowLatency{RingFloatsLowLatency, RingBlockFramesLowLatency};
  LSignalObject soBufReady;
  LDBMultiChannel<LdB<signed char>> db;
  LdB<signed char> dbVolume{0};
  std::atomic<float> sgqVolume{1.0f};
  unsigned short InitialMode = 0;
  int sFramesRead = 0;
  int iLevelReadCount = 0;
  double dSumLevel[255] = {};
  bool bLowLatency = false;
  std::atomic<bool> bRunningOnLatency{false};
  std::atomic<int> sLatencyRemaining{0};
  std::atomic<bool> bRecordTime{false};
  std::atomic<std::int64_t> uTCPlayingStart{0};

  // The stream as opened: its device, its first output and width, and where each
  // channel of the ring goes in it.
  std::string szStreamDevice;
  int iStreamApi = 0;
  int iFirstOutput = 0;
  int nStreamChans = 0;
  bool bStreamLowLatency = false;
  std::vector<int> iOutputOf;  // per ring channel, the stream channel or -1
  bool bDirectOut = false;     // the ring's channels are the stream's, in order
  std::vector<int> speakerOutputs;
  int iLevelFrames = 1600;     // frames per level tick
  int iScratchFrames = 0;
  std::unique_ptr<float[]> pScratch;      // one piece of the callback's read
  std::unique_ptr<float[]> pWriteBuffer;  // one block of the pump's read
  signed char iLastLevel[255] = {};
  int iDropFrames = 0;
  bool bRefillPending = false;
  std::atomic<int> iError{0};
  std::atomic<pid_t> tidRender{-1};
  std::atomic<std::uint64_t> uTicks{0};
  std::atomic<std::uint64_t> uUnderruns{0};
  std::atomic<unsigned> uCallbacksSinceDry{0};  // callbacks since the ring was found short
};

// Milliseconds of a monotonic clock, for comparing when streams started.
std::int64_t LGetTickCountMSAccurate();
