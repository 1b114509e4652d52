#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/file.h"
#include "foundation/lock_object.h"
#include "foundation/process_interface.h"
#include "project/cut_list_audio.h"
#include "sound/sound_sink.h"

// The two files of an audio number in the data folder:
//
//   .aud  the frames, nothing else: `channels` little-endian 32-bit floats per
//         frame, interleaved, from offset 0. Rate and channel count live in the
//         cut list (and so in the project file), never in the file.
//   .grf  the waveform summary: per 256 frames one record of, per channel, a byte
//         for the positive peak and one for the negative peak (both floored at 0),
//         so drawing a clip zoomed out reads a 512th of the audio.

inline constexpr int LGrfFramesPerRecord = 256;

// A peak as a .grf byte: 0 only for true digital silence (or not a number), 255
// from full scale up, otherwise the truncated p x 255 but at least 1, so that any
// sound at all shows.
std::uint8_t LGrfPeakByte(float peak);

// Running positive and negative peaks of each channel over one group of frames.
class LGrfAccumulator {
 public:
  explicit LGrfAccumulator(int channels);
  // Takes `frames` frames, all of which belong to the group in progress.
  void Add(float const* samples, int frames);
  // The group's record (channels x 2 bytes) into `out`; then starts a new group.
  void TakeRecord(std::uint8_t* out);
  void Clear();

 private:
  int nChannels;
  std::vector<float> vMax;
  std::vector<float> vMin;
};

// Writes a new .aud/.grf pair under a fresh number and, when its last handle goes,
// makes the target list a single segment over the whole file. The number is the
// sink's until then, so a file in the making is never swept away.
//
// The target must outlive the sink. A sink whose files could not be made has its
// error flag set and writes nothing; a write that fails (a full disk) sets it too.
class LCutListAudioSink : public LSoundSinkBase {
 public:
  LCutListAudioSink(LCutListAudio& target, int sampleRate, int channels);
  ~LCutListAudioSink() override;

  void Write(float const* buffer, int frames) override;
  void Seek(int frame) override;

  LAudioCutRef GetCut() const { return segment.GetCut(); }

 protected:
  // The segment as it stands after the frames written so far.
  LCutListSegment CurrentSegment() const;
  LCutListAudio& GetTarget() const { return clTarget; }
  // Held around every change of the target, when the target is shared.
  LLockObject* pTargetLock = nullptr;

 private:
  void FlushGrf();

  LCutListAudio& clTarget;
  LCutListSegment segment;
  LFile fAud;
  LFile fGrf;
  LGrfAccumulator accumulator;
  int iPending = 0;  // frames of the group in progress
  std::vector<std::uint8_t> vGrfBuffer;
  std::size_t iGrfUsed = 0;
};

// A cut list with a lock, for a recording that the windows draw as it grows: the
// recorder's sink makes it valid after every block, and the main thread only ever
// reads it through GetCutListAudio.
class TDCutListShared : public LCutListAudio {
 public:
  // A copy of the list as it is now.
  void GetCutListAudio(LCutListAudio& out) const;
  LLockObject& GetLock() const { return loLock; }

 private:
  mutable LLockObject loLock;
};

// The recorder's sink: after each Write the shared list already covers everything
// written, so a recording can be drawn while it runs and rescued if it fails.
class TDCutListSinkShared : public LCutListAudioSink {
 public:
  TDCutListSinkShared(TDCutListShared& target, int sampleRate, int channels);
  void Write(float const* buffer, int frames) override;

 private:
  TDCutListShared& clShared;
};

// Rebuilds the .grf of an .aud from its samples. Unlike the sink, it drops a last
// group of fewer than 256 frames.
struct LCLACreateGrfFromAud {
  std::string szAudPath;
  int iChannels = 1;
};

// 2 when the .aud cannot be opened; 1 when stopped (the .grf is then partial);
// otherwise 0, even when reading ends early.
LProcessResult Process(LProcessInterface& pi, LCLACreateGrfFromAud& job);
