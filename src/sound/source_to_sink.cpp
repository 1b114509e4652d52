#include "sound/source_to_sink.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "sound/cross_mix.h"
#include "sound/sink_limit.h"
#include "sound/source_format.h"

namespace {

bool SinkFailed(LSoundSink const& sink) {
  return (sink->GetErrorFlags() & LSoundSinkErrorFailed) != 0;
}

// The opening shared by both copies: titles, the first checks, and the source brought
// to what the sink takes. Returns -1 to go on, or the job's result.
int Prepare(LProcessInterface& pi, char const* title, LSoundSource& source, LSoundSink const& sink) {
  pi.SetStatus(title ? title : "", 0);
  pi.SetStatus("Please wait...", 1);
  pi.SetProgress(0.0);
  pi.SetProgressIndeterminateOn();
  if (pi.IsToStop()) return LProcessStopped;
  if (source->IsError() || SinkFailed(sink)) return LProcessFailed;
  LSPConvertSourceRateChannels(sink->GetSampleRate(), sink->GetChannels(), source);
  if (source->IsError()) return LProcessFailed;
  return -1;
}

std::unique_ptr<float[]> AllocateFrames(int channels, int frames) {
  return std::unique_ptr<float[]>(
      new (std::nothrow) float[static_cast<std::size_t>(channels) * static_cast<std::size_t>(frames)]);
}

}  // namespace

LProcessResult Process(LProcessInterface& pi, LPRSourceToSink& job) {
  LSoundSource source = job.lssSource;
  LSoundSink const& sink = job.lsnkSink;
  if (int const r = Prepare(pi, job.szTitle, source, sink); r >= 0) return r;

  std::int64_t const total =
      static_cast<std::int64_t>(source->GetEndSample()) - static_cast<std::int64_t>(source->GetPositionSample());

  if (total <= 0) return LProcessFinished;
  if (job.bCrossMix) {
    LSoundSource second = job.lssCrossMix;
    LSPConvertSourceRateChannels(sink->GetSampleRate(), sink->GetChannels(), second);
    if (second->IsError()) return LProcessFailed;
    int const length = static_cast<int>(
        std::clamp<std::int64_t>(source->GetSampleRate() / 10, 1, std::max<std::int64_t>(1, total / 10)));
    source = LSPCrossMix(length, second).OpenSource(source);
    if (source->IsError()) return LProcessFailed;
  }
  // Last of all the limiter, so that nothing the join adds can reach the file as an over.
  LPRLimitForSink(source);

  // Reads and writes go in bursts of several blocks so that a disk does not seek
  // between the input file and the output file for every block. When memory for a
  // burst is short, one block at a time still works.
  int const channels = sink->GetChannels();
  int burstBlocks = LPRCopyBurstBlocks;
  std::unique_ptr<float[]> buffer = AllocateFrames(channels, burstBlocks * LPRCopyBlockFrames);
  if (!buffer) {
    burstBlocks = 1;
    buffer = AllocateFrames(channels, LPRCopyBlockFrames);
    if (!buffer) return LProcessFailed;
  }

  std::int64_t done = 0;
  while (done < total) {
    if (pi.IsToStop()) return LProcessStopped;
    int framesIn = 0;
    for (int b = 0; b < burstBlocks && done + framesIn < total; ++b) {
      int const n = static_cast<int>(std::min<std::int64_t>(LPRCopyBlockFrames, total - done - framesIn));
      source->Read(buffer.get() + static_cast<std::size_t>(framesIn) * static_cast<std::size_t>(channels), n);
      framesIn += n;
      if (pi.IsToStop()) return LProcessStopped;
    }
    for (int at = 0; at < framesIn; at += LPRCopyBlockFrames) {
      int const n = std::min(LPRCopyBlockFrames, framesIn - at);
      sink->Write(buffer.get() + static_cast<std::size_t>(at) * static_cast<std::size_t>(channels), n);
      if (SinkFailed(sink)) return LProcessFailed;
      if (pi.IsToStop()) return LProcessStopped;
    }
    done += framesIn;
    pi.SetProgressIndeterminateOff();
    pi.SetProgress(static_cast<double>(done) / static_cast<double>(total));
  }
  return LProcessFinished;
}

LProcessResult Process(LProcessInterface& pi, LPRSourceToSinkStreaming& job) {
  LSoundSource source = job.lssSource;
  LSoundSink const& sink = job.lsnkSink;
  if (int const r = Prepare(pi, job.szTitle, source, sink); r >= 0) return r;
  LPRLimitForSink(source);
  source->Seek(0);

  bool const indeterminate = job.tTotal <= 0;
  if (indeterminate) {
    pi.SetProgressIndeterminateOn();
  } else {
    pi.SetProgressIndeterminateOff();
  }

  int const channels = sink->GetChannels();
  int const rate = source->GetSampleRate();
  std::unique_ptr<float[]> buffer = AllocateFrames(channels, LPRCopyBlockFrames);
  if (!buffer) return LProcessFailed;

  using Clock = std::chrono::steady_clock;
  constexpr auto kStatusEvery = std::chrono::milliseconds(200);
  auto lastStatus = Clock::now();
  std::string const title = job.szTitle ? job.szTitle : "";

  for (;;) {
    if (pi.IsToStop()) return LProcessStopped;
    if (Clock::now() - lastStatus >= kStatusEvery) {
      lastStatus = Clock::now();
      std::string const text =
          "Read " + _GetTextHMMSS(LFramesToSoundTime(source->GetPositionSample(), rate)) + " of " + title;
      pi.SetStatus(text.c_str(), 0);
    }

    std::int64_t const left =
        static_cast<std::int64_t>(source->GetEndSample()) - static_cast<std::int64_t>(source->GetPositionSample());
    if (left < 1) {
      if (!source->IsStreaming()) {
        if (indeterminate) pi.SetProgressIndeterminateOff();
        return LProcessFinished;
      }
      if (pi.IsToStop()) return LProcessStopped;
      source->WaitForStreamingData(150);
      continue;
    }

    int const n = static_cast<int>(std::min<std::int64_t>(left, LPRCopyBlockFrames));
    source->Read(buffer.get(), n);
    sink->Write(buffer.get(), n);
    if (SinkFailed(sink)) return LProcessFailed;
    if (!indeterminate) {
      double const written = LFramesToSoundTime(sink->GetPositionSample(), sink->GetSampleRate());
      pi.SetProgress(std::min(1.0, written / job.tTotal));
    }
  }
}
