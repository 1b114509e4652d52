#pragma once
#include <algorithm>
#include <atomic>

#include "foundation/db.h"
#include "foundation/lock_object.h"
#include "foundation/run_on_main_thread.h"
#include "foundation/signal_object.h"
#include "foundation/sound_time.h"
#include "foundation/thread.h"
#include "sound/cross_fade_source.h"
#include "sound/peak_limit.h"
#include "sound/sound_source.h"

// What a player tells its owner, always on the main thread. The long is the
// owner's own number, given with SetNotify.
class LSoundPlayerNotify {
 public:
  virtual ~LSoundPlayerNotify() = default;
  virtual void spntfPlay(long) {}
  virtual void spntfStop(long) {}
  virtual void spntfCue(long) {}
  virtual void spntfPause(long) {}
  virtual void spntfTime(LSoundTime, long) {}
  virtual void spntfLevel(LDBMultiChannel<LdB<signed char>> const&, long) {}
};

template <class T>
class LSoundPlayerTemplate;

// Waits for the device's level ticks (30 a second) and turns each into a wake-up of
// the pump and a time and level notification on the main thread. It also watches
// whether the pump keeps up.
template <class T>
class LSoundPlayerDoneHandlerThread : public LThread {
 public:
  explicit LSoundPlayerDoneHandlerThread(LSoundPlayerTemplate<T>& player) : LThread("LSPDoneHandler"), rPlayer(player) {}
  ~LSoundPlayerDoneHandlerThread() override { StopThreadNow(); }

 protected:
  void ThreadFunction() override { rPlayer.DoneHandlerFunction(*this); }

 private:
  LSoundPlayerTemplate<T>& rPlayer;
};

// The player: a pump thread that reads the source into the device layer's ring
// (`T`, LSoundPlayerLLCA), a done handler thread that turns the device's ticks into
// notifications, and the swap of sources while playing under a cross-fade.
//
// Locks: loSuspend keeps the pump out of the source while the main thread seeks or
// replaces it; it is taken before the device layer's loResync. The main thread may
// hold loSuspend across calls (Suspend .. Resume), which bSuspended records.
//
// The chain the pump reads: the source as the device takes it (its channels and
// rate, T::ConformSource), a peak limiter when the source can pass full scale, and
// the cross-fade. At low latency (scrubbing) neither limiter nor cross-fade is put
// on: the limiter's look-ahead would be heard, and the scrub fades by itself.
template <class T>
class LSoundPlayerTemplate : public LThread, public LThreadQueuedNotify, public LSoundPlayerNotify {
 public:
  // Frames the pump reads at most at a time.
  static constexpr int BlockFrames = 8192;
  static constexpr int BlockFramesLowLatency = 512;

  LSoundPlayerTemplate() : LThread("LSoundPlayer<T>"), spll(soFillStarted.GetRef(), soFillFinished.GetRef()), done(*this) {}
  ~LSoundPlayerTemplate() override {
    ThreadRunOnMainThreadDestroy();
    pNotify = nullptr;
    Stop();
  }

  void SetNotify(LSoundPlayerNotify* notify, long userData) {
    pNotify = notify;
    iNotifyUserData = userData;
  }
  // Only while stopped.
  void SetLowLatency(bool on) {
    bLowLatency = on;
    spll.SetLowLatency(on);
  }
  bool IsLowLatency() const { return bLowLatency; }

  // Plays `source` from where it stands. Mode 1 opens paused. False when the source
  // is in error or the device cannot be opened; nothing then plays.
  bool Start(LSoundSource const& source, unsigned short mode = 0) {
    Stop();
    if (source->IsError()) return false;
    LSoundSource s = Wrap(spll.ConformSource(source));
    if (s->IsError()) return false;
    lssSource = s;
    if (!spll.Init(lssSource, mode, this)) {
      lssSource.Close();
      cfs.Clear();
      return false;
    }
    soFillStarted.Reset();
    soFillFinished.Reset();
    soBufferReady.Reset();
    bDeviceLost = false;
    bPlaying = true;
    if (!LThread::Start(LThreadPriorityNormal) || !spll.Start()) {
      bPlaying = false;  // it never played: no stop to tell
      Stop();
      return false;
    }
    if (pNotify) pNotify->spntfPlay(iNotifyUserData);
    return true;
  }

  // Stops the pump and the device and lets the source go; tells spntfStop when it
  // was playing.
  void Stop() {
    Resume();
    StopThreadNow();
    spll.Stop();
    lssSource.Close();
    cfs.Clear();
    bNotifyStop = false;
    bNotifyTimeLevel = false;
    bNotifyError = false;
    bool const was = bPlaying;
    bPlaying = false;
    if (was && pNotify) pNotify->spntfStop(iNotifyUserData);
  }

  bool IsPlaying() const { return bPlaying; }
  // Whether the last stop came from the device going away while it played (a
  // sound server that died): the owner says so, where a stop by hand or at the end
  // says nothing. Cleared by the next Start.
  bool IsDeviceLost() const { return bDeviceLost; }

  // Holds the pump off across calls of the main thread.
  void Suspend() {
    if (bSuspended) return;
    loSuspend.lock();
    bSuspended = true;
  }
  void Resume() {
    if (!bSuspended) return;
    bSuspended = false;
    loSuspend.unlock();
  }
  bool IsSuspended() const { return bSuspended; }

  // An edit while playing: `source` takes over at the very frame the listener would
  // have heard next from the old one. The ring keeps a short stretch of the old
  // sound, and the new source's first block fades in over the old one's
  // continuation, so there is neither a gap nor a click. A source of another
  // format restarts the stream at the same place instead. False when it could not
  // be taken (the old one plays on, or, after a failed restart, nothing does).
  bool ReplaceSource(LSoundSource const& source) { return Swap(source, false, 0); }
  // The same with a jump: the new source plays from `time`, fading in over the old
  // one's continuation after the kept stretch.
  bool JumpTo(LSoundSource const& source, LSoundTime time) { return Swap(source, true, time); }

  // What the listener hears now, in frames of the device's rate (GetSampleRate).
  int GetPositionSample() {
    LLockObjectHold hold(loSuspend);
    return spll._GetPositionSample();
  }
  LSoundTime GetPositionTime() { return LFramesToSoundTime(GetPositionSample(), GetSampleRate()); }
  int GetSampleRate() const { return lssSource->GetSampleRate(); }
  LSoundSource const& GetSoundSource() const { return lssSource; }

  T& GetDeviceLayer() { return spll; }
  T const& GetDeviceLayer() const { return spll; }
  LCrossFadeSource& GetCrossFade() { return cfs; }
  LLockObject& GetSuspendLock() { return loSuspend; }
  LSignalObjectRef GetBufferReadySignal() const { return soBufferReady.GetRef(); }
  bool IsPumpRealTime() const { return bRealTimePump; }
  bool IsDoneHandlerRealTime() const { return bRealTimeDoneHandler; }

 protected:
  void ThreadFunction() override {
    done.Start(LThreadPriorityNormal);
    uBlocksSinceIdle = 0;
    int const blockMax = bLowLatency ? BlockFramesLowLatency : BlockFrames;
    while (!IsToStop()) {
      loSuspend.lock();
      LSoundSource const& src = spll.GetSoundSource();
      std::int64_t const left = std::int64_t{src->GetEndSample()} - src->GetPositionSample();
      if (left < 1) {
        if (src->IsStreaming()) {
          // More is coming (a recording being monitored): the pump is what must be quick.
          GivePumpPriority(true);
          loSuspend.unlock();
          src->WaitForStreamingData(150);
          continue;
        }
        if (spll.PlayRemainingBuffer()) {
          bNotifyTimeLevel = true;
          soBufferReady.Reset();
          loSuspend.unlock();
          Post();
          ProcessWaitSignal(soBufferReady.GetRef(), 1000);
          continue;
        }
        // The last frame has been heard, or there was none (a play past the end):
        // the device's start must not wait for a fill that will never come.
        soFillStarted.Set();
        bNotifyStop = true;
        loSuspend.unlock();
        Post();
        break;
      }
      if (!spll.IsNextBufferReady()) {
        uBlocksSinceIdle = 0;
        GivePumpPriority(false);
        soBufferReady.Reset();
        // Look again after the reset, or a tick in between would be missed.
        bool const ready = spll.IsNextBufferReady();
        loSuspend.unlock();
        if (!ready) ProcessWaitSignal(soBufferReady.GetRef(), 1000);
        continue;
      }
      spll.WriteBuffer(static_cast<int>(std::min<std::int64_t>(left, blockMax)));
      soFillStarted.Set();
      loSuspend.unlock();
      ProcessWait(5);
    }
    soFillFinished.Set();
    done.StopThreadNow();
  }

  void EvNotify() override {
    bNotifyPosted = false;
    if (bNotifyStop.exchange(false)) {
      if (pNotify && bPlaying) {
        LSoundTime const end = LFramesToSoundTime(lssSource->GetEndSample(), GetSampleRate());
        pNotify->spntfTime(end, iNotifyUserData);
      }
      Stop();
      return;
    }
    if (bNotifyError.exchange(false)) {
      bDeviceLost = true;
      Stop();
      return;
    }
    if (bNotifyTimeLevel.exchange(false) && bPlaying) {
      if (pNotify) pNotify->spntfTime(GetPositionTime(), iNotifyUserData);
      LDBMultiChannel<LdB<signed char>> levels = spll.GetLevels();
      bool atFullScale = false;
      for (int c = 0; c < levels.GetChannels(); ++c) atFullScale = atFullScale || levels[c].Get() >= 0;
      if (atFullScale) {
        long limited = 0;
        {
          LLockObjectHold hold(loSuspend);
          lssSource->ControlMessage(LSoundControl::GetLimitingFlag, &limited);
        }
        // The clip lamps light at +1 dB: the limiter has had to act.
        if (limited & 0xFF) levels.SetAll(LdB<signed char>(1));
      }
      if (pNotify) pNotify->spntfLevel(levels, iNotifyUserData);
    }
  }

 private:
  friend class LSoundPlayerDoneHandlerThread<T>;

  LSoundSource Wrap(LSoundSource s) {
    if (s->IsError() || bLowLatency) return s;
    if (s->GetPeakBound() > LSoundPeakInRange) s = LSPPeakLimit().OpenSource(s);
    return cfs.OpenSource(s);
  }

  bool Swap(LSoundSource const& source, bool jump, LSoundTime time) {
    if (!bPlaying || source->IsError()) return false;
    bool const held = bSuspended;
    if (!held) loSuspend.lock();
    LSoundSource conformed = spll.ConformSource(source);
    bool const sameFormat = conformed->GetSampleRate() == lssSource->GetSampleRate() &&
                            conformed->GetChannels() == lssSource->GetChannels();
    if (conformed->IsError() || !sameFormat || bLowLatency) {
      // No fade across formats: play on from the same place with a new stream.
      int const at = jump ? static_cast<int>(LSoundTimeToFrames(time, source->GetSampleRate()))
                          : static_cast<int>(LSoundTimeToFrames(LFramesToSoundTime(spll._GetPositionSample(),
                                                                                    GetSampleRate()),
                                                                source->GetSampleRate()));
      if (!held) loSuspend.unlock();
      if (conformed->IsError()) return false;
      LSoundSource restart = source;
      restart->Seek(at);
      bool const wasSuspended = held;
      bool const ok = StartQuietly(restart);
      if (wasSuspended) Suspend();
      return ok;
    }
    LSoundSource s = conformed;
    if (s->GetPeakBound() > LSoundPeakInRange) s = LSPPeakLimit().OpenSource(s);
    int const drop = spll.ResyncStart(jump);
    if (jump) {
      s->Seek(static_cast<int>(LSoundTimeToFrames(time, s->GetSampleRate())));
    } else {
      // Where the old source stood after the frames that stay in the ring.
      int const p = lssSource->GetPositionSample();
      s->Seek(p + lssSource->AdjustRelativeOffset(-drop, p));
    }
    cfs.ArmFade(drop);
    lssSource = cfs.OpenSource(s);
    spll.SetSoundSource(lssSource);
    spll.ResyncBuffer(true);
    spll.ResyncFinish();
    if (!held) loSuspend.unlock();
    return true;
  }

  // Start without telling the owner of a stop and a play: for the owner the play
  // goes on.
  bool StartQuietly(LSoundSource const& source) {
    LSoundPlayerNotify* const notify = pNotify;
    pNotify = nullptr;
    bool const ok = Start(source);
    pNotify = notify;
    if (!ok && notify) notify->spntfStop(iNotifyUserData);
    return ok;
  }

  void Post() {
    if (!bNotifyPosted.exchange(true)) PostQueueNotify();
  }

  // One of the two threads runs real time at a time: the pump while it must catch
  // up, the done handler while the pump waits for room.
  void GivePumpPriority(bool pump) {
    if (pump) {
      if (!bRealTimePump) SetPriority(LThreadPriorityRealTime);
      if (bRealTimeDoneHandler) done.SetPriority(LThreadPriorityNormal);
    } else {
      if (bRealTimePump) SetPriority(LThreadPriorityNormal);
      if (!bRealTimeDoneHandler) done.SetPriority(LThreadPriorityRealTime);
    }
    bRealTimePump = pump;
    bRealTimeDoneHandler = !pump;
  }

  void DoneHandlerFunction(LThread& self) {
    while (!self.IsToStop()) {
      if (!spll.WaitForEmptyBuffer(self)) {
        // No tick for a while: the device may be gone (a server that died
        // closes our stream, a stream that failed stops calling back). Nothing would
        // ever wake the pump again, so the main thread is told to stop.
        if (spll.IsDeviceLost()) {
          bNotifyError = true;
          Post();
        }
        continue;
      }
      soBufferReady.Set();
      bNotifyTimeLevel = true;
      Post();
      // Ticks with no idle turn of the pump: past half the ring in blocks it is
      // draining faster than the pump fills it.
      if (++uBlocksSinceIdle > static_cast<unsigned>(spll.GetBufferBlocks() / 2) && !bRealTimePump) {
        GivePumpPriority(true);
      }
    }
  }

  // Made before the device layer, which keeps references to two of them.
  LSignalObject soBufferReady;
  LSignalObject soFillStarted;
  LSignalObject soFillFinished;
  T spll;
  LSoundPlayerNotify* pNotify = nullptr;
  long iNotifyUserData = 0;
  LSoundSource lssSource;
  std::atomic<bool> bRealTimePump{false};
  std::atomic<bool> bRealTimeDoneHandler{false};
  std::atomic<unsigned> uBlocksSinceIdle{0};
  std::atomic<bool> bNotifyStop{false};
  std::atomic<bool> bNotifyTimeLevel{false};
  std::atomic<bool> bNotifyError{false};
  std::atomic<bool> bNotifyPosted{false};
  bool bSuspended = false;
  bool bPlaying = false;
  bool bDeviceLost = false;
  LLockObject loSuspend;
  LCrossFadeSource cfs;
  bool bLowLatency = false;
  LSoundPlayerDoneHandlerThread<T> done;
};
