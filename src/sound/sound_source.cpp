#include "sound/sound_source.h"

#include "sound/audio_buffer.h"

#include <errno.h>
#include <time.h>

#include <cstring>

LSoundSourceBase::LSoundSourceBase(int sampleRate, int channels, float peakBound)
    : sSampleRate(sampleRate), nChans(0), fPeakBound(peakBound) {
  if (sampleRate < 1) {
    sSampleRate = 44100;
    uErrorState = LSoundErrorParameters;
  }
  if (channels < 1 || channels > 255) {
    nChans = 1;
    uErrorState = LSoundErrorParameters;
  } else {
    nChans = static_cast<std::uint8_t>(channels);
  }
}

LSoundSourceBase::~LSoundSourceBase() = default;

void LSoundSourceBase::Seek(int) {}

bool LSoundSourceBase::ControlMessage(int, long*) { return false; }

int LSoundSourceBase::AdjustRelativeOffset(int offset, int) { return offset; }

bool LSoundSourceBase::IsStreaming() const { return false; }

void LSoundSourceBase::WaitForStreamingData(int ms) {
  if (ms <= 0) return;
  timespec left{ms / 1000, static_cast<long>(ms % 1000) * 1000000L};
  // nanosleep reports the time still to sleep when a signal cuts it short.
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

LSoundSource::LSoundSource() : p(new LSoundSourceError()) {}

LSoundSource::LSoundSource(LSoundSourceBase* source)
    : p(source != nullptr ? source : new LSoundSourceError()) {}

void LSoundSource::Close() { p.Reset(new LSoundSourceError()); }

LSoundSourceError::LSoundSourceError() : LSoundSourceBase(11025, 1, LSoundPeakUnknown) {
  uErrorState = LSoundErrorFailed;
}

void LSoundSourceError::Read(float* buffer, int frames) {
  if (frames > 0) std::memset(buffer, 0, sizeof(float) * static_cast<std::size_t>(frames));
}

LSoundProcessBase::LSoundProcessBase(LSoundSource const& source)
    : LSoundProcessBase(source, source->GetChannels(), source->GetPeakBound()) {}

LSoundProcessBase::LSoundProcessBase(LSoundSource const& source, int channels, float peakBound)
    : LSoundSourceBase(source->GetSampleRate(), channels, peakBound), lssSource(source) {
  if (source->IsError()) uErrorState = LSoundErrorBelow;
}

int LSoundProcessBase::GetPositionSample() const { return lssSource->GetPositionSample(); }

int LSoundProcessBase::GetEndSample() const { return lssSource->GetEndSample(); }

void LSoundProcessBase::Seek(int frame) { lssSource->Seek(frame); }

bool LSoundProcessBase::ControlMessage(int code, long* value) {
  return lssSource->ControlMessage(code, value);
}

int LSoundProcessBase::AdjustRelativeOffset(int offset, int position) {
  return lssSource->AdjustRelativeOffset(offset, position);
}

bool LSoundProcessBase::IsStreaming() const { return lssSource->IsStreaming(); }

void LSoundProcessBase::WaitForStreamingData(int ms) { lssSource->WaitForStreamingData(ms); }

LSilenceSourceBase::LSilenceSourceBase(int sampleRate, int channels, int endFrames)
    : LSoundSourceBase(sampleRate, channels, LSoundPeakInRange), sEnd(endFrames) {}

void LSilenceSourceBase::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  LZeroFrames(buffer, frames, nChans);
  sPosition += frames;
}
