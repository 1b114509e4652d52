#include "project/cut_list_files.h"

#include <fcntl.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>

static_assert(std::endian::native == std::endian::little, ".aud files are written as the machine holds floats");

std::uint8_t LGrfPeakByte(float peak) {
  if (peak == 0.0f || std::isnan(peak)) return 0;
  if (peak >= 1.0f) return 255;
  int const v = static_cast<int>(static_cast<double>(peak) * 255.0);
  return v <= 0 ? 1 : static_cast<std::uint8_t>(v);
}

LGrfAccumulator::LGrfAccumulator(int channels)
    : nChannels(channels), vMax(static_cast<std::size_t>(channels)), vMin(static_cast<std::size_t>(channels)) {}

void LGrfAccumulator::Add(float const* samples, int frames) {
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < nChannels; ++c) {
      float const s = *samples++;
      if (s > vMax[static_cast<std::size_t>(c)]) vMax[static_cast<std::size_t>(c)] = s;
      if (s < vMin[static_cast<std::size_t>(c)]) vMin[static_cast<std::size_t>(c)] = s;
    }
  }
}

void LGrfAccumulator::TakeRecord(std::uint8_t* out) {
  for (int c = 0; c < nChannels; ++c) {
    *out++ = LGrfPeakByte(vMax[static_cast<std::size_t>(c)]);
    *out++ = LGrfPeakByte(-vMin[static_cast<std::size_t>(c)]);
  }
  Clear();
}

void LGrfAccumulator::Clear() {
  std::fill(vMax.begin(), vMax.end(), 0.0f);
  std::fill(vMin.begin(), vMin.end(), 0.0f);
}

// ---- LCutListAudioSink ----

namespace {
// Records gathered before one write to the .grf.
constexpr std::size_t kGrfRecordsPerWrite = 128;
}  // namespace

LCutListAudioSink::LCutListAudioSink(LCutListAudio& target, int sampleRate, int channels)
    : LSoundSinkBase(sampleRate, channels),
      clTarget(target),
      segment(LCutListSegment::Adopt(LAudioCutTank::Instance().CreateNewRefAndIncRef(), 0, 0)),
      accumulator(nChans),
      vGrfBuffer(kGrfRecordsPerWrite * nChans * 2) {
  LAudioCutTank const& tank = LAudioCutTank::Instance();
  int const flags = O_RDWR | O_CREAT | O_TRUNC;
  if (!fAud.Open(tank.GetFilePath(segment.GetCut(), ".aud"), flags, 0666) ||
      !fGrf.Open(tank.GetFilePath(segment.GetCut(), ".grf"), flags, 0666)) {
    uErrorFlags |= LSoundSinkErrorFailed;
  }
}

LCutListAudioSink::~LCutListAudioSink() {
  if (iPending > 0 && !IsError()) {
    std::size_t const size = static_cast<std::size_t>(nChans) * 2;
    if (iGrfUsed + size > vGrfBuffer.size()) FlushGrf();
    accumulator.TakeRecord(vGrfBuffer.data() + iGrfUsed);
    iGrfUsed += size;
  }
  FlushGrf();
  fAud.Close();
  fGrf.Close();
  // The list takes a reference of its own before the sink's goes with `segment`,
  // so the file lives on in the list.
  LCutListSegment const last = CurrentSegment();
  if (pTargetLock != nullptr) {
    LLockObjectHold hold(*pTargetLock);
    clTarget.SetSingleCutListSegment(last, sSampleRate, nChans);
  } else {
    clTarget.SetSingleCutListSegment(last, sSampleRate, nChans);
  }
}

LCutListSegment LCutListAudioSink::CurrentSegment() const {
  LCutListSegment s = segment;
  s.iLength = sPosition - segment.iStart;
  return s;
}

void LCutListAudioSink::FlushGrf() {
  if (iGrfUsed == 0) return;
  if (fGrf.Write(vGrfBuffer.data(), iGrfUsed) != static_cast<std::int64_t>(iGrfUsed)) {
    uErrorFlags |= LSoundSinkErrorFailed;
  }
  iGrfUsed = 0;
}

void LCutListAudioSink::Write(float const* buffer, int frames) {
  if (frames <= 0 || IsError()) return;
  sPosition += frames;
  std::size_t const bytes = static_cast<std::size_t>(frames) * nChans * sizeof(float);
  if (fAud.Write(buffer, bytes) != static_cast<std::int64_t>(bytes)) {
    uErrorFlags |= LSoundSinkErrorFailed;
    return;
  }
  std::size_t const recordSize = static_cast<std::size_t>(nChans) * 2;
  while (frames > 0) {
    int const piece = std::min(frames, LGrfFramesPerRecord - iPending);
    accumulator.Add(buffer, piece);
    buffer += static_cast<std::size_t>(piece) * nChans;
    frames -= piece;
    iPending += piece;
    if (iPending == LGrfFramesPerRecord) {
      accumulator.TakeRecord(vGrfBuffer.data() + iGrfUsed);
      iGrfUsed += recordSize;
      iPending = 0;
      if (iGrfUsed + recordSize > vGrfBuffer.size()) FlushGrf();
    }
  }
}

void LCutListAudioSink::Seek(int frame) {
  if (IsError() || frame < 0) return;
  FlushGrf();
  fAud.Seek(static_cast<std::int64_t>(frame) * nChans * static_cast<std::int64_t>(sizeof(float)));
  fGrf.Seek(static_cast<std::int64_t>(frame / LGrfFramesPerRecord) * nChans * 2);
  accumulator.Clear();
  iPending = frame % LGrfFramesPerRecord;
  sPosition = frame;
}

LSoundSink LCutListAudio::OpenSink(int rate, int channels) {
  return LSoundSink::Make<LCutListAudioSink>(*this, rate, channels);
}

// ---- the shared list of a recording ----

void TDCutListShared::GetCutListAudio(LCutListAudio& out) const {
  LLockObjectHold hold(loLock);
  out = static_cast<LCutListAudio const&>(*this);
}

TDCutListSinkShared::TDCutListSinkShared(TDCutListShared& target, int sampleRate, int channels)
    : LCutListAudioSink(target, sampleRate, channels), clShared(target) {
  // The last update, in the base's destructor, must not be seen halfway either.
  pTargetLock = &target.GetLock();
}


void TDCutListSinkShared::Write(float const* buffer, int frames) {
  LCutListAudioSink::Write(buffer, frames);
  LCutListSegment const current = CurrentSegment();
  LLockObjectHold hold(clShared.GetLock());
  clShared.SetSingleCutListSegment(current, sSampleRate, nChans);
}

// ---- rebuilding a .grf ----

LProcessResult Process(LProcessInterface& pi, LCLACreateGrfFromAud& job) {
  if (job.szAudPath.empty() || job.iChannels < 1 || job.iChannels > 255) return LProcessFailed;
  LFile aud;
  if (!aud.OpenRead(job.szAudPath)) return LProcessFailed;
  // A reader's lock: a writer still filling the file would give a torn summary.
  aud.Lock(false, 1000);
  std::string grfPath = job.szAudPath;
  std::size_t const dot = grfPath.find_last_of('.');
  std::size_t const slash = grfPath.find_last_of('/');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) grfPath.erase(dot);
  grfPath += ".grf";
  LFile grf;
  if (!grf.OpenCreate(grfPath)) return LProcessFailed;

  pi.SetStatus("Rebuilding the waveform...", 1);
  std::size_t const channels = static_cast<std::size_t>(job.iChannels);
  std::size_t const frameBytes = channels * sizeof(float);
  std::int64_t const totalFrames = aud.Size() / static_cast<std::int64_t>(frameBytes);
  constexpr int kBlock = 8192;  // a whole number of records
  std::unique_ptr<float[]> samples(new float[kBlock * channels]);
  std::vector<std::uint8_t> records(kBlock / LGrfFramesPerRecord * channels * 2);
  LGrfAccumulator accumulator(job.iChannels);
  std::int64_t done = 0;
  while (done < totalFrames) {
    if (pi.IsToStop()) return LProcessStopped;
    std::int64_t const got = aud.Read(samples.get(), kBlock * frameBytes);
    if (got <= 0) break;
    int const frames = static_cast<int>(got / static_cast<std::int64_t>(frameBytes));
    // Only whole groups of 256 make a record; the last partial one is dropped.
    int const whole = frames / LGrfFramesPerRecord;
    for (int r = 0; r < whole; ++r) {
      accumulator.Add(samples.get() + static_cast<std::size_t>(r) * LGrfFramesPerRecord * channels,
                      LGrfFramesPerRecord);
      accumulator.TakeRecord(records.data() + static_cast<std::size_t>(r) * channels * 2);
    }
    std::size_t const bytes = static_cast<std::size_t>(whole) * channels * 2;
    if (bytes > 0 && grf.Write(records.data(), bytes) != static_cast<std::int64_t>(bytes)) break;
    done += frames;
    pi.SetProgress(totalFrames > 0 ? static_cast<double>(done) / static_cast<double>(totalFrames) : 1.0);
    if (frames < kBlock) break;
  }
  return LProcessFinished;
}
