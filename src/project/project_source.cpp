#include "project/project_source.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "project/clip_mixer.h"
#include "project/project.h"
#include "project/track_source.h"
#include "sound/audio_buffer.h"

namespace {

// Every clip is opened in stereo, so every track gives two channels until it is
// spread onto surround speakers.
constexpr int kTrackChannels = 2;

inline float Max(float a, float b) { return a > b ? a : b; }

// Adds a stereo block onto a stereo output and finds each side's peak on the
// way, in one pass over the track's samples: the common case of the mix, unrolled
// so that the adds and the comparisons of four frames go side by side.
void AddStereoWithPeaks(float* to, float const* from, int frames, float& left, float& right) {
  float l0 = 0.0f, l1 = 0.0f, r0 = 0.0f, r1 = 0.0f;
  int const count = 2 * frames;
  int i = 0;
  for (; i + 8 <= count; i += 8) {
    float const a0 = from[i], b0 = from[i + 1], a1 = from[i + 2], b1 = from[i + 3];
    float const a2 = from[i + 4], b2 = from[i + 5], a3 = from[i + 6], b3 = from[i + 7];
    to[i] += a0;
    to[i + 1] += b0;
    to[i + 2] += a1;
    to[i + 3] += b1;
    to[i + 4] += a2;
    to[i + 5] += b2;
    to[i + 6] += a3;
    to[i + 7] += b3;
    l0 = Max(l0, Max(std::fabs(a0), std::fabs(a2)));
    l1 = Max(l1, Max(std::fabs(a1), std::fabs(a3)));
    r0 = Max(r0, Max(std::fabs(b0), std::fabs(b2)));
    r1 = Max(r1, Max(std::fabs(b1), std::fabs(b3)));
  }
  for (; i < count; i += 2) {
    to[i] += from[i];
    to[i + 1] += from[i + 1];
    l0 = Max(l0, std::fabs(from[i]));
    r0 = Max(r0, std::fabs(from[i + 1]));
  }
  left = Max(l0, l1);
  right = Max(r0, r1);
}

}  // namespace

TDProjectSource::TDProjectSource(int rate, int channels)
    : LSoundSourceBase(rate, channels, LSoundPeakUnknown),
      // 50 ms, but never more than one read may ask of a track: above 163840 Hz
      // the blocks are shorter.
      iBlockSize(std::clamp(sSampleRate / 20, 1, LSoundMaxReadFrames)),
      pTracksDB(std::make_unique<TDTracksDB>()) {
  // Room for a block of a stereo track, of the metronome, and of what the monitor
  // or the stream have ready.
  pWork.reset(new float[static_cast<std::size_t>(std::max<int>(nChans, kTrackChannels)) << 13]);
}

TDProjectSource::~TDProjectSource() = default;

void TDProjectSource::Init(TDProject& project, TDProjectSourceNotify* notify) {
  int const rate = sSampleRate;
  pNotify = notify;
  sPosition = 0;

  // An export never clicks, whatever the metronome is set to.
  bMetronomeOn = false;
  if (!ExportOptions.bExport && project.Metronome.bMetronomeOn) {
    lssMetronome = project.Metronome.GetMetronomeSource();
    fMetronomeGain = project.Metronome.GetMetronomeGain();
    bMetronomeOn = lssMetronome.IsGood() && lssMetronome->GetSampleRate() == rate &&
                   lssMetronome->GetChannels() == nChans;
  }

  if (lssMonitor.IsGood() || lssMIDIStream.IsGood()) {
    // Live input has no end: the stream stops when it is told to.
    sEnd = 0x7FFFFFFF;
  } else if (ExportOptions.bExport) {
    sEnd = project.GetProjectExportEnd(rate);
    if (ExportOptions.bSelectionOnly) sEnd = std::min(sEnd, TDTimeToFrames(project.WorkRegion.GetEnd(), rate));
  } else {
    sEnd = project.GetProjectSoundSourceEnd(rate);
  }

  // Surround projects are spread onto their speakers by a later stage; until it
  // exists they play in stereo.
  bSurround = false;

  TDTracksManager const& tracks = project.Tracks;
  int const trackCount = tracks.GetTrackCount();
  std::vector<TDClipMixer> mixers(static_cast<std::size_t>(trackCount));
  for (auto const& clip : project.Clips.GetClips()) {
    // MIDI clips reach the mix as the MIDI stream; takes that are not active and
    // clips of muted tracks are not heard.
    if (clip->IsMidi() || !clip->IsPlayable()) continue;
    TDTrack const* track = tracks.GetTrack(clip->iTrackIndex);
    if (track == nullptr || track->bMute) continue;
    LSoundSource const source = clip->OpenSource(rate, kTrackChannels);
    // A clip that cannot be opened is silent; the rest of the project still plays.
    if (!source.IsGood()) continue;
    mixers[static_cast<std::size_t>(clip->iTrackIndex)].AddSource(source, clip->iPosition,
                                                                  static_cast<long>(clip->uClipId));
  }

  vOpenSources.clear();
  vOpenSources.reserve(static_cast<std::size_t>(trackCount));
  for (int i = 0; i < trackCount; ++i) {
    TDClipMixer const& mixer = mixers[static_cast<std::size_t>(i)];
    if (mixer.GetCount() == 0) continue;
    TDTrack const& track = *tracks.GetTrack(i);
    LSoundSource const chain = TDWrapTrackSource(track, mixer.OpenSource(nullptr));
    if (!chain.IsGood() || chain->GetChannels() != kTrackChannels) continue;
    TDOpenSource open;
    open.iTrackIndex = i;
    open.lssSource = chain;
    open.iEnd = chain->GetEndSample();
    open.bSolo = track.bSolo;
    vOpenSources.push_back(open);
  }
  bAnyTrackSolo = tracks.IsAnyTrackSolo();

  for (auto& record : pTracksDB->Tracks) record.SetChannels(bSurround ? nChans : kTrackChannels);

  if (ExportOptions.bExport && ExportOptions.bSelectionOnly) Seek(TDTimeToFrames(project.WorkRegion.GetStart(), rate));
}

bool TDProjectSource::SetTrackOutputChannels(int track, int left, int right) {
  for (TDOpenSource& open : vOpenSources) {
    if (open.iTrackIndex != track) continue;
    auto wrap = [this](int c) { return ((c % nChans) + nChans) % nChans; };
    open.iLeftChannel = wrap(left);
    open.iRightChannel = wrap(right);
    return true;
  }
  return false;
}

bool TDProjectSource::NeedsPlayingAt(TDOpenSource const& open, int position) const {
  return position >= 0 && position < open.iEnd && (open.bSolo || !bAnyTrackSolo);
}

bool TDProjectSource::DoesTrackNeedPlaying(TDOpenSource const& open) const { return NeedsPlayingAt(open, sPosition); }

void TDProjectSource::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  TDTracksDB& db = *pTracksDB;
  db.iCurrentTime = 0;
  for (auto& record : db.Tracks) std::fill(std::begin(record.DBBuffer), std::end(record.DBBuffer), LdB<signed char>());

  int const ch = nChans;
  LZeroFrames(buffer, frames, ch);
  int remaining = frames;
  while (remaining > 0) {
    int const block = std::min(remaining, iBlockSize);
    MixTrackSources(buffer, block);
    MixMetronome(buffer, block);
    // What runs in real time may have more ready than this block: it goes in at
    // once, a little ahead of the timeline.
    MixMonitor(buffer, remaining);
    MixMIDIStream(buffer, remaining);
    sPosition += block;
    buffer += static_cast<std::size_t>(block) * ch;
    remaining -= block;
  }
  db.iCurrentTime = TDFramesToTime(sPosition, sSampleRate);
  if (pNotify != nullptr) pNotify->mpSRCntfTrackLevel(db);
}

void TDProjectSource::MixTrackSources(float* buffer, int frames) {
  // Before the project's start only the metronome sounds: that is the pre-roll.
  // A block that reaches across the start takes the tracks from frame 0 on, so
  // they come in exactly on time.
  std::int64_t const end = std::int64_t{sPosition} + frames;
  if (end <= 0) return;
  int const skip = sPosition < 0 ? -sPosition : 0;
  float* const at = buffer + static_cast<std::size_t>(skip) * nChans;
  // A surround mix will spread its tracks onto the speakers here, by bSurround;
  // until that stage exists every mix is laid out as stereo pairs.
  MixTracksInStereo(at, frames - skip, sPosition + skip);
}

void TDProjectSource::MixTracksInStereo(float* buffer, int frames, int position) {
  int const ch = nChans;
  float* const work = pWork.get();
  for (TDOpenSource const& open : vOpenSources) {
    if (!NeedsPlayingAt(open, position)) continue;
    open.lssSource->Read(work, frames);
    int const left = open.iLeftChannel;
    int const right = open.iRightChannel;
    if (ch == 2 && left == 0 && right == 1) {
      float peaks[2];
      AddStereoWithPeaks(buffer, work, frames, peaks[0], peaks[1]);
      SetTrackDB(open, peaks, kTrackChannels);
      continue;
    }
    CalculateTrackDB(open, work, frames, kTrackChannels);
    if (ch == 1) {
      // A mono output takes both sides at half, as a stereo to mono conversion does.
      for (int f = 0; f < frames; ++f) buffer[f] += (work[2 * f] + work[2 * f + 1]) * 0.5f;
    } else {
      for (int f = 0; f < frames; ++f) {
        buffer[f * ch + left] += work[2 * f];
        buffer[f * ch + right] += work[2 * f + 1];
      }
    }
  }
}

void TDProjectSource::CalculateTrackDB(TDOpenSource const& open, float const* samples, int frames, int channels) {
  float peaks[TDTracksDB::MaxTracks];
  for (int c = 0; c < channels; ++c) peaks[c] = GetBufferPeakChan(samples, frames, channels, c);
  SetTrackDB(open, peaks, channels);
}

void TDProjectSource::SetTrackDB(TDOpenSource const& open, float const* peaks, int channels) {
  if (open.iTrackIndex < 0 || open.iTrackIndex >= TDTracksDB::MaxTracks) return;
  auto& record = pTracksDB->Tracks[open.iTrackIndex];
  for (int c = 0; c < channels; ++c) record[c] = LPeakToMeterDB(peaks[c]);
}

void TDProjectSource::MixMetronome(float* buffer, int frames) {
  if (!bMetronomeOn) return;
  float* const work = pWork.get();
  lssMetronome->Read(work, frames);
  GainAudioBufferQuick(work, frames * nChans, fMetronomeGain);
  LAddBuffer(buffer, work, frames * nChans);
}

void TDProjectSource::MixMonitor(float* buffer, int frames) {
  if (!lssMonitor.IsGood() || lssMonitor->GetChannels() != nChans) return;
  std::int64_t const ready = std::int64_t{lssMonitor->GetEndSample()} - lssMonitor->GetPositionSample();
  int const m = static_cast<int>(std::clamp<std::int64_t>(ready, 0, std::min(frames, LSoundMaxReadFrames)));
  if (m == 0) return;
  float* const work = pWork.get();
  lssMonitor->Read(work, m);
  LAddBuffer(buffer, work, m * nChans);
}

void TDProjectSource::MixMIDIStream(float* buffer, int frames) {
  if (!lssMIDIStream.IsGood()) return;
  int const in = lssMIDIStream->GetChannels();
  std::int64_t const ready = std::int64_t{lssMIDIStream->GetEndSample()} - lssMIDIStream->GetPositionSample();
  // The work buffer holds 8192 frames of the wider of the mix and a stereo track;
  // a stream of more channels gets fewer frames a block.
  int const room = (std::max<int>(nChans, kTrackChannels) << 13) / in;
  int const m = static_cast<int>(std::clamp<std::int64_t>(ready, 0, std::min(frames, room)));
  if (m == 0) return;
  float* const work = pWork.get();
  lssMIDIStream->Read(work, m);
  // The synthesiser plays in stereo: its first two channels go to the first two.
  int const ch = nChans;
  int const shared = std::min({in, ch, 2});
  for (int f = 0; f < m; ++f) {
    for (int c = 0; c < shared; ++c) buffer[f * ch + c] += work[f * in + c];
  }
}

void TDProjectSource::Seek(int frame) {
  sPosition = frame;
  int const trackFrame = std::max(frame, 0);
  for (TDOpenSource const& open : vOpenSources) open.lssSource->Seek(trackFrame);
  if (bMetronomeOn) lssMetronome->Seek(frame);
}
