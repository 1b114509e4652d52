#include "project/clip_audio.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "project/cut_list_load_save.h"
#include "project/track.h"
#include "sound/envelope_sources.h"
#include "sound/source_format.h"

// ---- stretching ----

namespace {

// Claims another rate for the same frames: played back and converted to the old
// rate, the sound runs faster or slower, pitch and all.
class LSRCClaimRate : public LSoundProcessBase {
 public:
  LSRCClaimRate(LSoundSource const& source, int rate) : LSoundProcessBase(source) {
    if (rate < 1) {
      uErrorState = LSoundErrorParameters;
    } else {
      sSampleRate = rate;
    }
  }
  void Read(float* buffer, int frames) override { lssSource->Read(buffer, frames); }
};

LSoundSource PlainSpeedChange(LSoundSource const& source, double ratio, bool keepPitch) {
  if (keepPitch || !(ratio > 0.0)) return LSoundSource();
  int const rate = source->GetSampleRate();
  LSoundSource out = LSoundSource::Make<LSRCClaimRate>(source, static_cast<int>(std::lround(rate * ratio)));
  LSPConvertSourceRateChannels(rate, source->GetChannels(), out);
  return out;
}

TDStretchSourceMaker& StretchMaker() {
  static TDStretchSourceMaker maker = PlainSpeedChange;
  return maker;
}

}  // namespace

void TDSetStretchSourceMaker(TDStretchSourceMaker maker) {
  StretchMaker() = maker ? std::move(maker) : TDStretchSourceMaker(PlainSpeedChange);
}

LSoundSource TDMakeStretchSource(LSoundSource const& source, double ratio, bool keepPitch) {
  return StretchMaker()(source, ratio, keepPitch);
}

// ---- the sound of a clip ----

namespace {

// The chain a clip plays through: its audio, brought to stereo, shaped by its
// lines, and converted to what the mix asks. Whether each line applies is decided
// by whoever opens it (for playing, the track's switches as they stand then).
// Everything is built here; Read only passes the call down the chain.
class TDClipSource : public LSoundSourceBase {
 public:
  TDClipSource(TDClipAudio const& clip, int rate, int channels, bool volume, bool pan)
      : LSoundSourceBase(rate, channels, LSoundPeakUnknown) {
    LSoundSource chain = clip.GetCutListAudio().OpenSource();
    if (chain->GetChannels() != 2) LSPConvertSourceRateChannels(chain->GetSampleRate(), 2, chain);
    // The points are ms from the clip's start, and the chain's frame 0 is the
    // clip's first frame, so they go in as they are.
    if (volume) {
      std::vector<LEnvelopePointVol> points;
      for (TDClipFadePoint const& p : clip.GetFadeListByType(FadeTypeVolume)) points.emplace_back(p.dValue, p.iPosition);
      if (!points.empty()) chain = LSoundSource::Make<LSRCGainEnvelope>(chain, points);
    }
    if (pan && chain->GetChannels() >= 2) {
      std::vector<LEnvelopePointPan> points;
      for (TDClipFadePoint const& p : clip.GetFadeListByType(FadeTypePan)) points.emplace_back(p.dValue, p.iPosition);
      if (!points.empty()) chain = LSoundSource::Make<LSRCPanEnvelope>(chain, points);
    }
    LSPConvertSourceRateChannels(rate, channels, chain);
    chain->Seek(0);
    lssChain = chain;
    if (lssChain->IsError()) uErrorState = LSoundErrorBelow;
    fPeakBound = lssChain->GetPeakBound();
  }

  void Read(float* buffer, int frames) override { lssChain->Read(buffer, frames); }
  int GetPositionSample() const override { return lssChain->GetPositionSample(); }
  int GetEndSample() const override { return lssChain->GetEndSample(); }
  void Seek(int frame) override { lssChain->Seek(frame); }
  bool ControlMessage(int code, long* value) override { return lssChain->ControlMessage(code, value); }

 private:
  LSoundSource lssChain;
};

// A fresh list filled from `source` by the copy job, under `title`.
LProcessResult FillList(LProcessInterface& pi, char const* title, LSoundSource const& source, LCutListAudio& out) {
  LCutListAudioLoadSource job{title, &out, source};
  LProcessResult const r = Process(pi, job);
  if (r == LProcessFailed && !out.GetErrorText().empty()) pi.SetError(out.GetErrorText().c_str());
  return r;
}

std::int64_t Modulo(std::int64_t a, std::int64_t m) { return ((a % m) + m) % m; }

// A clip's line of `type`, or a flat one over its length when it has none.
TDClipFadePoints LinesOrFlat(TDClipAudio const& clip, FadeType type) {
  TDClipFadePoints const& list = clip.GetFadeListByType(type);
  if (list.size() >= 2) {
    TDClipFadePoints sorted = list;
    LSortEnvelopePoints(sorted);
    return sorted;
  }
  return {TDClipFadePoint{0.0, 0, type}, TDClipFadePoint{0.0, clip.GetEnd(), type}};
}

}  // namespace

// ---- TDClipAudio ----

TDClipAudio::TDClipAudio() = default;

TDClipAudio::TDClipAudio(LCutListAudio const& list) { SetCutListAudio(list); }

TDClipAudio::~TDClipAudio() = default;

std::unique_ptr<TDClip> TDClipAudio::Clone() const { return std::unique_ptr<TDClip>(new TDClipAudio(*this)); }

std::string TDClipAudio::GetTitle() const {
  if (IsTake()) return szName + " Take " + std::to_string(iTakeNumber);
  return szName;
}

void TDClipAudio::SetCutListAudio(LCutListAudio const& list) {
  clCurrent = list;
  clBase = list;
  clOriginal = list;
  bWaveformStale = true;
}

LSoundTime TDClipAudio::GetEnd() const {
  int const rate = std::max(1, clCurrent.GetSampleRate());
  std::int64_t const frames = clCurrent.GetEndSample();
  return static_cast<LSoundTime>((frames * 2000 + rate) / (2 * static_cast<std::int64_t>(rate)));
}

void TDClipAudio::SetAsTrimOrExpandBase() {
  clBase = clCurrent;
  iPendingTrimStart = iPendingTrimEnd = 0;
  iTrimStartTotal = iTrimEndTotal = 0;
}

void TDClipAudio::TrimOrExpand() {
  if (iPendingTrimStart == 0 && iPendingTrimEnd == 0) return;
  std::int64_t const length = clBase.GetEndSample();
  if (length <= 0) return;
  int const rate = clBase.GetSampleRate();
  // The lines follow the edge that moves, measured against the clip as it stands:
  // the position moves only after this returns.
  LSoundTime const start = iPosition;
  LSoundTime const end = GetEndTime();
  if (iPendingTrimEnd < 0) TrimFadePoints(start, end + iPendingTrimEnd);
  if (iPendingTrimEnd > 0) ExpandFadepoints(start, end + iPendingTrimEnd);
  if (iPendingTrimStart > 0) TrimFadePoints(start + iPendingTrimStart, end);
  if (iPendingTrimStart < 0) ExpandFadepoints(start + iPendingTrimStart, end);
  // The totals already hold the change; the pending values say how large it was.
  std::int64_t const oldFrom = TDTimeToFrames(iTrimStartTotal - iPendingTrimStart, rate);
  std::int64_t const newFrom = TDTimeToFrames(iTrimStartTotal, rate);
  std::int64_t const oldTo = length + TDTimeToFrames(iTrimEndTotal - iPendingTrimEnd, rate);
  std::int64_t const newTo = length + TDTimeToFrames(iTrimEndTotal, rate);
  // Only the edge that moved changes: what plays keeps its own edits (a silenced
  // stretch stays silent), and new frames come from the repeated base.
  if (newTo < oldTo) {
    clCurrent.EfTrimEnd(static_cast<int>(std::max<std::int64_t>(0, newTo - oldFrom)));
  } else if (newTo > oldTo) {
    clCurrent.EfInsert(clCurrent.GetEndSample(), Window(std::max(oldTo, oldFrom), newTo));
  }
  if (newFrom > oldFrom) {
    clCurrent.EfTrimStart(static_cast<int>(newFrom - oldFrom));
  } else if (newFrom < oldFrom) {
    clCurrent.EfInsert(0, Window(newFrom, oldFrom));
  }
  FitFadePointsToEnd();
  bWaveformStale = true;
}

LCutListAudio TDClipAudio::Window(std::int64_t from, std::int64_t to) const {
  // Frames [from, to) of the base repeated for ever both ways: a piece from the
  // right phase of the base, whole copies, and a head of the base to finish.
  LCutListAudio out = clBase;
  out.Clear();
  std::int64_t const length = clBase.GetEndSample();
  if (length <= 0) return out;
  LCutListAudio piece;
  for (std::int64_t at = from; at < to;) {
    std::int64_t const phase = Modulo(at, length);
    std::int64_t const take = std::min(length - phase, to - at);
    if (phase == 0 && take == length) {
      out.EfInsert(out.GetEndSample(), clBase);
    } else {
      clBase.EfCopy(static_cast<int>(phase), static_cast<int>(phase + take), piece);
      out.EfInsert(out.GetEndSample(), piece);
    }
    at += take;
  }
  return out;
}

void TDClipAudio::ReCreateCutListAudio() {
  std::int64_t const length = clBase.GetEndSample();
  if (length <= 0) return;
  int const rate = clBase.GetSampleRate();
  clCurrent = Window(TDTimeToFrames(iTrimStartTotal, rate), length + TDTimeToFrames(iTrimEndTotal, rate));
}

std::unique_ptr<TDClipAudio> TDClipAudio::Split(LSoundTime time) {
  if (time <= iPosition || time >= GetEndTime()) return nullptr;
  int const frames = TDTimeToFrames(time - iPosition, GetSampleRate());
  if (frames <= 0 || frames >= clCurrent.GetEndSample()) return nullptr;
  std::unique_ptr<TDClipAudio> right(new TDClipAudio(*this));
  // Each part keeps the lines over its own sound, cut at the split with the
  // level they had there; both are cut while still standing where this clip does.
  right->TrimFadePoints(time, GetEndTime());
  TrimFadePoints(iPosition, time);
  clCurrent.EfTrimEnd(frames);
  right->clCurrent.EfTrimStart(frames);
  SetAsTrimOrExpandBase();
  right->SetAsTrimOrExpandBase();
  FitFadePointsToEnd();
  right->FitFadePointsToEnd();
  bWaveformStale = right->bWaveformStale = true;
  return right;
}

void TDClipAudio::CutFromMiddle(LSoundTime start, LSoundTime end) {
  start = std::clamp(start, iPosition, GetEndTime());
  end = std::clamp(end, iPosition, GetEndTime());
  if (start >= end) return;
  if (start == iPosition) {
    SetTrimOrExpandStart(end - start);
    TrimOrExpandStart();
  } else if (end == GetEndTime()) {
    SetTrimOrExpandEnd(start - end);
    TrimOrExpandEnd();
  } else {
    int const rate = GetSampleRate();
    CutFadePointsFromMiddle(start - iPosition, end - iPosition);
    clCurrent.EfDelete(TDTimeToFrames(start - iPosition, rate), TDTimeToFrames(end - iPosition, rate));
    SetAsTrimOrExpandBase();
    FitFadePointsToEnd();
  }
  bWaveformStale = true;
  ReCreateWaveProfile();
}

void TDClipAudio::SilenceRegion(LSoundTime start, LSoundTime end) {
  start = std::clamp(start, iPosition, GetEndTime());
  end = std::clamp(end, iPosition, GetEndTime());
  if (start >= end) return;
  int const rate = GetSampleRate();
  clCurrent.EfSilence(TDTimeToFrames(start - iPosition, rate), TDTimeToFrames(end - iPosition, rate));
  bWaveformStale = true;
  ReCreateWaveProfile();
}

bool TDClipAudio::Join(TDClip const& clip, bool before) {
  auto const* other = dynamic_cast<TDClipAudio const*>(&clip);
  if (other == nullptr || other == this) return false;
  LCutListAudio const& theirs = other->clCurrent;
  if (theirs.GetSampleRate() != clCurrent.GetSampleRate() || theirs.GetChannels() != clCurrent.GetChannels()) {
    return false;
  }
  // The lines of the part that comes second move on by the length of the first.
  // A clip that never had lines brings flat ones, so that each part keeps its own
  // level up to the joint.
  LSoundTime const firstLength = before ? other->GetEnd() : GetEnd();
  for (FadeType type : {FadeTypeVolume, FadeTypePan}) {
    TDClipFadePoints thisLine = LinesOrFlat(*this, type);
    TDClipFadePoints otherLine = LinesOrFlat(*other, type);
    TDClipFadePoints& second = before ? thisLine : otherLine;
    for (TDClipFadePoint& p : second) p.iPosition += firstLength;
    TDClipFadePoints& list = GetFadeListByType(type);
    list = before ? std::move(otherLine) : std::move(thisLine);
    list.insert(list.end(), second.begin(), second.end());
    // Where the two ends meet, equal levels make one point and a step keeps
    // both, a millisecond apart.
    AdjustRedundantFadePoints(type);
  }
  LCutListAudio joined = clCurrent;
  joined.EfInsert(before ? 0 : joined.GetEndSample(), theirs);
  clCurrent = joined;
  clOriginal = joined;
  SetAsTrimOrExpandBase();
  FitFadePointsToEnd();
  bWaveformStale = true;
  ReCreateWaveProfile();
  return true;
}

LProcessResult TDClipAudio::RestoreToOriginal(LProcessInterface&) {
  clCurrent = clOriginal;
  clBase = clOriginal;
  iPendingTrimStart = iPendingTrimEnd = 0;
  iTrimStartTotal = iTrimEndTotal = 0;
  ValidateFadePoints();
  bWaveformStale = true;
  ReCreateWaveProfile();
  return LProcessFinished;
}

LProcessResult TDClipAudio::Stretch(LProcessInterface& pi, LSoundTime length, bool keepPitch) {
  LSoundTime const old = GetEnd();
  if (length <= 0 || old <= 0) return LProcessFailed;
  double ratio = static_cast<double>(old) / static_cast<double>(length);
  if (!keepPitch) ratio = std::max(ratio, 0.1);
  int const rate = GetSampleRate();
  int const channels = GetChansRequired();
  LSoundSource stretched = TDMakeStretchSource(OpenSourceNoFades(rate, channels), ratio, keepPitch);
  if (stretched->IsError()) {
    pi.SetError("This clip cannot be stretched that way in this version of Tandrel.");
    return LProcessFailed;
  }
  LCutListAudio result = clCurrent;
  result.Clear();
  LProcessResult const r = FillList(pi, "Stretching Clip...", stretched, result);
  if (r != LProcessFinished) return r;
  // The lines stretch with the sound, in proportion to the frames.
  double const scale = static_cast<double>(result.GetEndSample()) / static_cast<double>(clCurrent.GetEndSample());
  SetCutListAudio(result);
  SetAsTrimOrExpandBase();
  ChangeFadepointsProportional(scale);
  FitFadePointsToEnd();
  ReCreateWaveProfile();
  return LProcessFinished;
}

LProcessResult TDClipAudio::ConvertRateAndChannel(LProcessInterface& pi, int rate, int channels) {
  if (clOriginal.GetSampleRate() != rate || clOriginal.GetChannels() != channels) {
    LSoundSource source = clOriginal.OpenSource();
    LSPConvertSourceRateChannels(rate, channels, source);
    if (source->IsError()) return LProcessFailed;
    LCutListAudio converted = clOriginal;
    converted.Clear();
    LProcessResult const r = FillList(pi, "Changing rate and channels", source, converted);
    if (r != LProcessFinished) return r;
    // The base repeats what trimming shows: it must be at the new rate too, and the
    // trims, kept in ms, then show the same stretch of sound.
    clOriginal = converted;
    clBase = converted;
  }
  LSoundTime const before = GetEnd();
  ReCreateCutListAudio();
  // Only rounding can move the end here; the end points follow it.
  if (GetEnd() != before) FitFadePointsToEnd();
  bWaveformStale = true;
  ReCreateWaveProfile();
  return LProcessFinished;
}

LSoundSource TDClipAudio::OpenSource(int rate, int channels) {
  SortFadePoints();
  int const innerRate = std::min(rate, GetSampleRate());
  int const innerChannels = std::min(channels, std::max(2, GetChansRequired()));
  bool const volume = pTrack == nullptr || pTrack->bVolumeEnvelopeOn;
  bool const pan = pTrack == nullptr || pTrack->bPanEnvelopeOn;
  LSoundSource source = LSoundSource::Make<TDClipSource>(*this, innerRate, innerChannels, volume, pan);
  LSPConvertSourceRateChannels(rate, channels, source);
  return source;
}

LProcessResult TDClipAudio::RenderFadepoints(LProcessInterface& pi, std::vector<TDTimeSegment> const& segments) {
  int const rate = GetSampleRate();
  int const channels = GetChansRequired();
  int const frames = clCurrent.GetEndSample();
  if (frames <= 0) return LProcessFailed;
  // Only a line the track plays is heard, and a pan cannot be kept in one channel.
  bool const volume = pTrack == nullptr || pTrack->bVolumeEnvelopeOn;
  bool const pan = (pTrack == nullptr || pTrack->bPanEnvelopeOn) && channels >= 2;
  SortFadePoints();
  LSoundSource const source = LSoundSource::Make<TDClipSource>(*this, rate, channels, volume, pan);
  if (source->IsError()) return LProcessFailed;
  std::string const title = "Applying fade points for " + szName;
  LCutListAudio rendered = clCurrent;
  rendered.Clear();
  LProcessResult const r = FillList(pi, title.c_str(), source, rendered);
  if (r != LProcessFinished) return r;

  // The parts of the segments on the clip, in ms from its start, in order, with
  // those that meet or overlap made one: each stretch's edges must lie on sound
  // the line still shapes.
  LSoundTime const length = GetEnd();
  std::vector<TDTimeSegment> stretches;
  for (auto [start, end] : segments) {
    if (start > end) std::swap(start, end);
    start = std::clamp(start - iPosition, LSoundTime(0), length);
    end = std::clamp(end - iPosition, LSoundTime(0), length);
    if (start < end) stretches.emplace_back(start, end);
  }
  std::sort(stretches.begin(), stretches.end());
  std::vector<TDTimeSegment> merged;
  for (TDTimeSegment const& s : stretches) {
    if (!merged.empty() && s.first <= merged.back().second) {
      merged.back().second = std::max(merged.back().second, s.second);
    } else {
      merged.push_back(s);
    }
  }
  for (auto const& [start, end] : merged) {
    int const from = TDTimeToFrames(start, rate);
    int const to = end >= length ? frames : std::min(frames, TDTimeToFrames(end, rate));
    LCutListAudio piece;
    rendered.EfCopy(from, to, piece);
    clCurrent.EfPasteOver(from, to, piece);
    if (volume) FlattenFadePoints(start, end, FadeTypeVolume);
    if (pan) FlattenFadePoints(start, end, FadeTypePan);
  }
  SetAsTrimOrExpandBase();
  ValidateFadePoints();
  bWaveformStale = true;
  ReCreateWaveProfile();
  return LProcessFinished;
}

void TDClipAudio::FlattenFadePoints(LSoundTime start, LSoundTime end, FadeType type) {
  TDClipFadePoints& list = GetFadeListByType(type);
  SortFadePoints(type);
  if (list.size() < 2) return;  // a line without points shaped nothing
  double const before = GetAmplitudeAtPos(list, start);
  double const after = GetAmplitudeAtPos(list, end);
  std::erase_if(list, [&](TDClipFadePoint const& p) { return p.iPosition >= start && p.iPosition <= end; });
  // Outside, the line keeps its course right up to each edge; inside, it is
  // unity (the centre, for pan). It turns within the millisecond inside each
  // edge, where the sound has the line already.
  LSoundTime const length = GetEnd();
  LSoundTime const innerStart = start > 0 ? start + 1 : start;
  LSoundTime const innerEnd = end < length ? end - 1 : end;
  if (start > 0) AddFadePoint(TDClipFadePoint{before, start, type});
  if (innerStart <= innerEnd) {
    AddFadePoint(TDClipFadePoint{0.0, innerStart, type});
    AddFadePoint(TDClipFadePoint{0.0, innerEnd, type});
  }
  if (end < length) AddFadePoint(TDClipFadePoint{after, end, type});
  AdjustRedundantFadePoints(type);
}

LSoundSource TDClipAudio::OpenSourceNoFades(int rate, int channels) const {
  LSoundSource source = clCurrent.OpenSource();
  LSPConvertSourceRateChannels(rate, channels, source);
  return source;
}

void TDClipAudio::PreserveCutList() const {
  clCurrent.DisallowCacheDelete();
  clBase.DisallowCacheDelete();
  clOriginal.DisallowCacheDelete();
}

bool TDClipAudio::CreateWaveProfileColumns(double framesPerPixel, int first, int count) {
  count = std::min(count, TDProfileMaxPixels);
  if (count <= 0 || !(framesPerPixel > 0) || first < 0) return false;
  bool const sameGrid = !bWaveformStale && framesPerPixel == dColumnFrames && iColumnCount > 0 && !vUpper.empty();
  if (sameGrid && first == iColumnFirst && count == iColumnCount) return false;
  vUpper.resize(TDProfileMaxPixels);
  vLower.resize(TDProfileMaxPixels);
  int const end = first + count;
  int const keptFrom = sameGrid ? std::max(first, iColumnFirst) : end;
  int const keptTo = sameGrid ? std::min(end, iColumnFirst + iColumnCount) : end;
  if (keptFrom < keptTo) {
    std::size_t const n = static_cast<std::size_t>(keptTo - keptFrom);
    std::memmove(vUpper.data() + (keptFrom - first), vUpper.data() + (keptFrom - iColumnFirst), n);
    std::memmove(vLower.data() + (keptFrom - first), vLower.data() + (keptFrom - iColumnFirst), n);
    BuildColumns(framesPerPixel, first, keptFrom, 0);
    BuildColumns(framesPerPixel, keptTo, end, keptTo - first);
  } else {
    BuildColumns(framesPerPixel, first, end, 0);
  }
  dColumnFrames = framesPerPixel;
  iColumnFirst = first;
  iColumnCount = count;
  // What the buffers hold is no longer the time-keyed outline.
  std::fill(iProfileKey, iProfileKey + 4, -1);
  bWaveformStale = false;
  return true;
}

void TDClipAudio::BuildColumns(double framesPerPixel, int from, int to, int at) {
  // Columns are made in fixed blocks of the grid, each always read as one run, so
  // a column comes out the same whichever scroll asked for it: a run's edges
  // would otherwise fall a frame either way and make peaks flicker.
  constexpr int kBlock = 64;
  std::int64_t const length = GetEndSample();
  std::uint8_t blockUp[kBlock];
  std::uint8_t blockDown[kBlock];
  for (int block = from / kBlock; block * kBlock < to; ++block) {
    int const c0 = block * kBlock;
    std::int64_t const start = static_cast<std::int64_t>(std::floor(c0 * framesPerPixel));
    // Past the clip's end the columns stay empty.
    int const withSound =
        std::clamp(static_cast<int>(std::ceil((length - start) / framesPerPixel)), 0, kBlock);
    std::memset(blockUp, 0, sizeof blockUp);
    std::memset(blockDown, 0, sizeof blockDown);
    if (withSound > 0) {
      std::int64_t const stop =
          std::min<std::int64_t>(length, static_cast<std::int64_t>(std::floor((c0 + withSound) * framesPerPixel)));
      if (stop > start) {
        if (framesPerPixel < TDProfileHighResThreshold) {
          TDProfileHighRes(clCurrent, start, stop, withSound, blockUp, blockDown);
        } else {
          TDProfileLowRes(clCurrent, start, stop, withSound, blockUp, blockDown);
        }
      }
    }
    int const copyFrom = std::max(from, c0);
    int const copyTo = std::min(to, c0 + kBlock);
    std::size_t const n = static_cast<std::size_t>(copyTo - copyFrom);
    std::memcpy(vUpper.data() + at + (copyFrom - from), blockUp + (copyFrom - c0), n);
    std::memcpy(vLower.data() + at + (copyFrom - from), blockDown + (copyFrom - c0), n);
  }
}

bool TDClipAudio::CreateWaveProfileIfChanged(LSoundTime start, int firstPixel, LSoundTime end, int lastPixel) {
  int const key[4] = {start, firstPixel, end, lastPixel};
  if (!bWaveformStale && std::equal(key, key + 4, iProfileKey)) return false;
  if (lastPixel <= firstPixel || end <= start) return false;
  iColumnCount = 0;  // the buffers now hold the time-keyed outline
  std::copy(key, key + 4, iProfileKey);
  iProfileKey[3] = firstPixel + std::min(lastPixel - firstPixel, TDProfileMaxPixels);
  BuildWaveProfile();
  return true;
}

void TDClipAudio::ReCreateWaveProfile() {
  if (iProfileKey[3] > iProfileKey[1]) BuildWaveProfile();
}

void TDClipAudio::BuildWaveProfile() {
  int const pixels = iProfileKey[3] - iProfileKey[1];
  vUpper.resize(TDProfileMaxPixels);
  vLower.resize(TDProfileMaxPixels);
  std::uint8_t* upper = vUpper.data();
  std::uint8_t* lower = vLower.data();
  int const rate = GetSampleRate();
  std::int64_t const from = TDTimeToFrames(iProfileKey[0], rate);
  std::int64_t const to = TDTimeToFrames(iProfileKey[2], rate);
  if (static_cast<double>(to - from) / pixels < TDProfileHighResThreshold) {
    TDProfileHighRes(clCurrent, from, to, pixels, upper, lower);
  } else {
    TDProfileLowRes(clCurrent, from, to, pixels, upper, lower);
  }
  bWaveformStale = false;
}
