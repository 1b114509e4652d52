#include "project/metronome_source.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "foundation/app_paths.h"
#include "sound/aif_file.h"
#include "sound/au_file.h"
#include "sound/audio_buffer.h"
#include "sound/source_format.h"
#include "sound/wave_file.h"

namespace {

// A sample this small is silence to the meters; a click's tail of such samples
// need not be played.
constexpr float kSilent = 4.467e-7f;

std::string LowerExtension(std::string const& path) {
  std::size_t const dot = path.find_last_of('.');
  std::size_t const slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  std::string ext = path.substr(dot);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

}  // namespace

std::vector<float> TDLoadClickSound(std::string const& path, int rate, int channels, int maxFrames) {
  // Clicks are short PCM files; the readers of the sound layer are all they need.
  std::string const ext = LowerExtension(path);
  LSoundSource source;
  if (ext == ".wav" || ext == ".wave") {
    source = LWaveFile::OpenSource(path);
  } else if (ext == ".aif" || ext == ".aiff" || ext == ".aifc") {
    source = LAifFile::OpenSource(path);
  } else if (ext == ".au" || ext == ".snd") {
    source = LAuFile::OpenSource(path);
  }
  if (!source.IsGood()) return {};
  LSPConvertSourceRateChannels(rate, channels, source);
  if (!source.IsGood()) return {};
  int const frames = std::clamp(source->GetEndSample() - source->GetPositionSample(), 0, std::max(0, maxFrames));
  std::vector<float> out(static_cast<std::size_t>(frames) * channels);
  for (int done = 0; done < frames;) {
    int const n = std::min(LSoundMaxReadFrames, frames - done);
    source->Read(out.data() + static_cast<std::size_t>(done) * channels, n);
    done += n;
  }
  return out;
}

std::string TDDefaultMetronomeSoundPath(char const* name) {
  return LAppPaths::SharedDataFolder() + "/sounds/" + name;
}

LSRCMetronomeMultiTempo::LSRCMetronomeMultiTempo(int rate, int channels, std::vector<LTempoChange> const& tempos,
                                                 int beatsPerBar, std::vector<float> beat, std::vector<float> accent,
                                                 int startFrame, int boundaryStart, int boundaryEnd)
    : LSoundSourceBase(rate, channels, LSoundPeakUnknown),
      iBeatsPerBar(std::max(1, beatsPerBar)),
      vBeat(std::move(beat)),
      vAccent(std::move(accent)),
      iBoundaryStart(boundaryStart),
      iBoundaryEnd(boundaryEnd) {
  std::vector<LTempoChange> list = tempos;
  if (list.empty()) list.push_back(LTempoChange{TDProjectMetronomeFeature::kFirstTempoPosition, 120.0});
  std::stable_sort(list.begin(), list.end(),
                   [](LTempoChange const& a, LTempoChange const& b) { return a.dBeatPosition < b.dBeatPosition; });

  double slowest = kMaxBPM;
  vSegments.reserve(list.size());
  for (LTempoChange const& t : list) {
    double const bpm = std::clamp(std::isfinite(t.dBPM) ? t.dBPM : kMaxBPM, kMinBPM, kMaxBPM);
    slowest = std::min(slowest, bpm);
    vSegments.push_back(Segment{t.dBeatPosition, 0.0, 60.0 * sSampleRate / bpm});
  }
  // Frames are counted from beat 0 at frame 0, outwards from the segment that
  // holds beat 0, so that the frames near the start carry no rounding from the
  // far past.
  std::size_t zero = 0;
  for (std::size_t i = 0; i < vSegments.size(); ++i) {
    if (vSegments[i].dBeat <= 0.0) zero = i;
  }
  vSegments[zero].dFrame = vSegments[zero].dBeat * vSegments[zero].dFramesPerBeat;
  for (std::size_t i = zero + 1; i < vSegments.size(); ++i) {
    Segment const& before = vSegments[i - 1];
    vSegments[i].dFrame = before.dFrame + (vSegments[i].dBeat - before.dBeat) * before.dFramesPerBeat;
  }
  for (std::size_t i = zero; i-- > 0;) {
    Segment const& after = vSegments[i + 1];
    vSegments[i].dFrame = after.dFrame - (after.dBeat - vSegments[i].dBeat) * vSegments[i].dFramesPerBeat;
  }

  // A click longer than the longest beat would always be cut by the next one.
  int const longest = static_cast<int>(std::ceil(60.0 * sSampleRate / slowest));
  Fit(vBeat, iBeatFrames, longest);
  Fit(vAccent, iAccentFrames, longest);
  if (iBeatFrames == 0 && iAccentFrames == 0) uErrorState = LSoundErrorFailed;
  Seek(startFrame);
}

void LSRCMetronomeMultiTempo::Fit(std::vector<float>& click, int& frames, int maxFrames) const {
  int const ch = nChans;
  frames = std::min(static_cast<int>(click.size() / static_cast<std::size_t>(ch)), maxFrames);
  while (frames > 0) {
    float const* last = click.data() + static_cast<std::size_t>(frames - 1) * ch;
    if (std::any_of(last, last + ch, [](float v) { return std::fabs(v) >= kSilent; })) break;
    --frames;
  }
  click.resize(static_cast<std::size_t>(frames) * ch);
  click.shrink_to_fit();
}

void LSRCMetronomeMultiTempo::SetBoundary(int start, int end) {
  iBoundaryStart = start;
  iBoundaryEnd = end;
}

double LSRCMetronomeMultiTempo::GetFrameOfBeat(double beat) const {
  // Tempo lists are short and a read meets a beat or two: walking down from the
  // last segment is quicker than a search.
  std::size_t i = vSegments.size() - 1;
  while (i > 0 && vSegments[i].dBeat > beat) --i;
  Segment const& s = vSegments[i];
  return s.dFrame + (beat - s.dBeat) * s.dFramesPerBeat;
}

double LSRCMetronomeMultiTempo::GetBeatOfFrame(double frame) const {
  std::size_t i = vSegments.size() - 1;
  while (i > 0 && vSegments[i].dFrame > frame) --i;
  Segment const& s = vSegments[i];
  return s.dBeat + (frame - s.dFrame) / s.dFramesPerBeat;
}

std::int64_t LSRCMetronomeMultiTempo::GetBeatFrame(std::int64_t beat) const {
  return std::llround(GetFrameOfBeat(static_cast<double>(beat)));
}

std::int64_t LSRCMetronomeMultiTempo::GetFirstBeatAtOrAfter(std::int64_t frame) const {
  auto beat = static_cast<std::int64_t>(std::ceil(GetBeatOfFrame(static_cast<double>(frame))));
  // The estimate is off by one at most where rounding to frames decides.
  while (GetBeatFrame(beat) < frame) ++beat;
  while (GetBeatFrame(beat - 1) >= frame) --beat;
  return beat;
}

bool LSRCMetronomeMultiTempo::IsAccent(std::int64_t beat) const {
  std::int64_t const m = beat % iBeatsPerBar;
  return m == 0;
}

float const* LSRCMetronomeMultiTempo::ClickOf(std::int64_t beat, int& frames) const {
  std::int64_t const at = GetBeatFrame(beat);
  frames = 0;
  if (at < iBoundaryStart || at >= iBoundaryEnd) return nullptr;
  if (IsAccent(beat)) {
    frames = iAccentFrames;
    return iAccentFrames > 0 ? vAccent.data() : nullptr;
  }
  frames = iBeatFrames;
  return iBeatFrames > 0 ? vBeat.data() : nullptr;
}

void LSRCMetronomeMultiTempo::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const ch = nChans;
  LZeroFrames(buffer, frames, ch);
  std::int64_t const start = sPosition;
  std::int64_t const end = start + frames;
  std::int64_t beat = GetFirstBeatAtOrAfter(start);
  std::int64_t next = GetBeatFrame(beat);
  std::int64_t at = start;
  for (;;) {
    std::int64_t const stop = std::min(end, next);
    if (pTick != nullptr && stop > at) {
      int const n = static_cast<int>(std::min<std::int64_t>(stop - at, iTickFrames - iTickOffset));
      float const* from = pTick + static_cast<std::size_t>(iTickOffset) * ch;
      float* to = buffer + static_cast<std::size_t>(at - start) * ch;
      std::copy(from, from + static_cast<std::size_t>(n) * ch, to);
      iTickOffset += n;
      if (iTickOffset >= iTickFrames) pTick = nullptr;
    }
    at = stop;
    if (next >= end) break;
    // A beat outside the boundary starts nothing; a click still sounding goes on.
    int clickFrames = 0;
    if (float const* click = ClickOf(beat, clickFrames)) {
      pTick = click;
      iTickFrames = clickFrames;
      iTickOffset = 0;
    }
    next = GetBeatFrame(++beat);
  }
  sPosition = static_cast<int>(std::min<std::int64_t>(end, INT32_MAX));
}

void LSRCMetronomeMultiTempo::Seek(int frame) {
  sPosition = frame;
  pTick = nullptr;
  // The last beat before the new place may still be sounding there; so is the
  // one on the place itself, which the next Read starts.
  std::int64_t const before = GetFirstBeatAtOrAfter(frame) - 1;
  int clickFrames = 0;
  float const* click = ClickOf(before, clickFrames);
  std::int64_t const into = frame - GetBeatFrame(before);
  if (click != nullptr && into < clickFrames) {
    pTick = click;
    iTickFrames = clickFrames;
    iTickOffset = static_cast<int>(into);
  }
}
