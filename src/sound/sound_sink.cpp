#include "sound/sound_sink.h"

LSoundSinkBase::LSoundSinkBase(int sampleRate, int channels) : sSampleRate(sampleRate), nChans(0) {
  if (sampleRate < 1) {
    sSampleRate = 44100;
    uErrorFlags |= LSoundSinkErrorFailed;
  }
  if (channels < 1 || channels > 255) {
    nChans = 1;
    uErrorFlags |= LSoundSinkErrorFailed;
  } else {
    nChans = static_cast<std::uint8_t>(channels);
  }
}

LSoundSinkBase::~LSoundSinkBase() = default;

void LSoundSinkBase::Seek(int) {}

bool LSoundSinkBase::Finish() { return !IsError(); }

LSoundSink::LSoundSink() : p(new LSoundSinkError()) {}

LSoundSink::LSoundSink(LSoundSinkBase* sink) : p(sink != nullptr ? sink : new LSoundSinkError()) {}

void LSoundSink::Close() { p.Reset(new LSoundSinkError()); }

LSoundSinkError::LSoundSinkError() : LSoundSinkBase(44100, 1) { uErrorFlags = LSoundSinkErrorFailed; }

void LSoundSinkError::Write(float const*, int) {}

LSoundSinkStubBase::LSoundSinkStubBase(int sampleRate, int channels) : LSoundSinkBase(sampleRate, channels) {}

void LSoundSinkStubBase::Write(float const*, int frames) {
  if (frames > 0) sPosition += frames;
}
