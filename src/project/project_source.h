#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/db.h"
#include "sound/sound_source.h"

class TDProject;

// The meters of every track for the last mix block of a Read: the time it was
// read at, then one record per track index. Written in place by the mix and
// handed to its notify, so its size is part of what each Read costs.
struct TDTracksDB {
  static constexpr int MaxTracks = 256;

  std::int32_t iCurrentTime = 0;  // ms
  LDBMultiChannel<LdB<signed char>> Tracks[MaxTracks];
};
static_assert(sizeof(TDTracksDB) == 65796, "the meter records are copied into a ring as they stand");

// Hears the track meters of every Read of a mix, on the reading thread; the
// receiver copies what it needs and returns.
class TDProjectSourceNotify {
 public:
  virtual ~TDProjectSourceNotify() = default;
  virtual void mpSRCntfTrackLevel(TDTracksDB const& levels) = 0;
};

// How a mix is opened for export: then the end is that of the last audible clip
// (or of the selection), and the metronome is silent.
struct TDProjectSourceExportOptions {
  bool bExport = false;
  bool bSelectionOnly = false;
};

// One track that has something to play: its whole chain (its clips summed, its
// volume and pan, effects and automation), the end of that chain, and where on
// the output its two channels go.
struct TDOpenSource {
  int iTrackIndex = 0;
  LSoundSource lssSource;
  int iEnd = 0;
  bool bSolo = false;
  int iLeftChannel = 0;
  int iRightChannel = 1;
};

// The whole project as one source: the tracks summed onto the output channels,
// then the metronome, the input monitor and the MIDI stream on top. It is built
// from the project when it opens and never looks at the project again, so an edit
// reaches the ear only when the mix is opened anew.
//
// Read mixes in blocks of 50 ms. A track past its end, or silenced by another
// track's solo, is not read at all; it does not move either, and stays in step
// only because every Seek reaches every track. No stage clips: the peak bound is
// 16, and the limiter that the player or the copy puts after the mix does the
// only limiting.
//
// Not built here yet: spreading tracks onto surround speakers (a surround project
// plays in stereo for now); the monitor and MIDI stream sources are taken as
// given, from whoever produces them.
class TDProjectSource : public LSoundSourceBase {
 public:
  TDProjectSource(int rate, int channels);
  ~TDProjectSource() override;

  // Set before Init: the input monitor and the MIDI stream (either may be an
  // error source, meaning none), and the export options.
  void SetMonitorSource(LSoundSource const& source) { lssMonitor = source; }
  void SetMIDIStreamSource(LSoundSource const& source) { lssMIDIStream = source; }
  void SetExportOptions(TDProjectSourceExportOptions options) { ExportOptions = options; }

  // Builds the mix from the project as it stands. `notify` may be null. The mix
  // takes the project's metronome source as the opener left it.
  void Init(TDProject& project, TDProjectSourceNotify* notify);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return sEnd; }
  // Every track goes to the new place (or its start, for a place before 0); the
  // metronome follows too, so that a loop or a restart keeps it on the beat. The
  // monitor and the MIDI stream run in real time and are not moved.
  void Seek(int frame) override;

  // Sends a track's two channels to another pair of the output (channels outside
  // the output are taken modulo its count). False for a track with nothing to
  // play. Made for whoever lays tracks out on more than two channels; call it
  // before the mix is read.
  bool SetTrackOutputChannels(int track, int left, int right);
  // Bounds the mix's end, as a selection does when play should stop at its end.
  void SetEndSample(int end) { sEnd = end; }

  std::vector<TDOpenSource> const& GetOpenSources() const { return vOpenSources; }
  int GetMixBlockFrames() const { return iBlockSize; }
  bool IsAnyTrackSolo() const { return bAnyTrackSolo; }
  TDTracksDB const& GetTracksDB() const { return *pTracksDB; }

  // Whether the track would be read at the current position.
  bool DoesTrackNeedPlaying(TDOpenSource const& open) const;

 private:
  bool NeedsPlayingAt(TDOpenSource const& open, int position) const;
  void MixTrackSources(float* buffer, int frames);
  // Adds the tracks to `frames` frames of `buffer`, which stand at timeline
  // frame `position`.
  void MixTracksInStereo(float* buffer, int frames, int position);
  void MixMetronome(float* buffer, int frames);
  void MixMonitor(float* buffer, int frames);
  void MixMIDIStream(float* buffer, int frames);
  // The track's meter from what it gave for this block.
  void CalculateTrackDB(TDOpenSource const& open, float const* samples, int frames, int channels);
  void SetTrackDB(TDOpenSource const& open, float const* peaks, int channels);

  int sPosition = 0;
  int sEnd = 0;
  int iBlockSize;
  std::unique_ptr<float[]> pWork;
  std::vector<TDOpenSource> vOpenSources;
  LSoundSource lssMetronome;
  bool bMetronomeOn = false;
  float fMetronomeGain = 1.0f;
  bool bAnyTrackSolo = false;
  LSoundSource lssMonitor;
  LSoundSource lssMIDIStream;
  TDProjectSourceNotify* pNotify = nullptr;
  std::unique_ptr<TDTracksDB> pTracksDB;
  bool bSurround = false;
  TDProjectSourceExportOptions ExportOptions;
};
