#pragma once
#include <cstdint>
#include <vector>

#include "foundation/file.h"
#include "project/cut_list_audio.h"
#include "sound/sound_source.h"

// Reads the .aud of one audio number as an endless stream: frames before 0 and
// past the file's end are zeros, and a file that is missing or cannot be opened
// plays as silence rather than failing, so a project with a lost file still opens
// and plays. Samples are multiplied by `gain` unless it is exactly 1.
class LCutListAudioCutSource : public LSoundSourceBase {
 public:
  LCutListAudioCutSource(LAudioCutRef cut, int sampleRate, int channels, float gain = 1.0f);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return iPosition; }
  // The frames the file holds now (it may still be growing).
  int GetEndSample() const override;
  void Seek(int frame) override { iPosition = frame; }

  bool IsFileOpen() const { return fAud.IsOpen(); }

 private:
  LFile fAud;
  float fGain;
  int iPosition = 0;
};

// One segment: its frames, positions counted from the segment's start. Silence
// for a null cut. Reading past the segment's end goes on in the file.
class LCutListSegmentSource : public LSoundSourceBase {
 public:
  LCutListSegmentSource(LCutListSegment const& segment, int sampleRate, int channels);

  void Read(float* buffer, int frames) override { lssInner->Read(buffer, frames); }
  int GetPositionSample() const override { return lssInner->GetPositionSample() - iStart; }
  int GetEndSample() const override { return iLength; }
  void Seek(int frame) override { lssInner->Seek(frame + iStart); }

 private:
  LSoundSource lssInner;
  int iStart;
  int iLength;
};

// A whole cut list, over a private copy made at construction: later edits of the
// list don't reach a running source, and the copy's references keep every file it
// reads on disk until the source goes.
//
// Every file the list names is opened once, when the source is made, so that Read
// only reads: no allocation, no open, no lock. Frames before 0 and past the end are
// zeros.
class LCutListAudioSource : public LSoundSourceBase {
 public:
  explicit LCutListAudioSource(LCutListAudio const& list);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return static_cast<int>(iPosition); }
  int GetEndSample() const override { return clList.GetEndSample(); }
  void Seek(int frame) override;

 private:
  struct Piece {
    std::int64_t iListStart;  // where the segment begins in the list
    int iFileStart;
    int iLength;
    float fGain;
    int iFile;  // index into vFiles, -1 for silence
  };

  // The piece that holds iPosition, or the count of pieces when none does.
  std::size_t FindPiece(std::int64_t position) const;

  LCutListAudio clList;
  std::vector<Piece> vPieces;
  std::vector<LFile> vFiles;
  std::int64_t iPosition = 0;
  std::size_t iCurrent = 0;
};
