#include "project/clip_mixer.h"

#include <algorithm>
#include <cstdint>

#include "project/clip.h"
#include "sound/audio_buffer.h"

namespace {
// The arrays grow in steps rather than doubling: a track holds tens of clips, a
// long session a few hundred.
constexpr std::size_t kGrowth = 128;
}  // namespace

TDClipMixer::TDClipMixer() {
  vSources.reserve(kGrowth);
  vStarts.reserve(kGrowth);
  vIds.reserve(kGrowth);
}

void TDClipMixer::AddSource(LSoundSource const& source, LSoundTime start, long id) {
  if (vSources.size() == vSources.capacity()) {
    std::size_t const grown = vSources.capacity() + kGrowth;
    vSources.reserve(grown);
    vStarts.reserve(grown);
    vIds.reserve(grown);
  }
  vSources.push_back(source);
  vStarts.push_back(start);
  vIds.push_back(id);
}

LSoundSource TDClipMixer::OpenSource(TDSrcMixerNotify* notify) const {
  if (vSources.empty()) return LSoundSource();
  int const rate = vSources.front()->GetSampleRate();
  std::vector<int> starts;
  starts.reserve(vStarts.size());
  for (LSoundTime t : vStarts) starts.push_back(TDTimeToFrames(t, rate));
  return LSoundSource::Make<TDSRCClipMixer>(vSources, std::move(starts), vIds, notify);
}

TDSRCClipMixer::TDSRCClipMixer(std::vector<LSoundSource> sources, std::vector<int> starts, std::vector<long> ids,
                               TDSrcMixerNotify* notify)
    : LSoundSourceBase(sources.empty() ? 0 : sources.front()->GetSampleRate(),
                       sources.empty() ? 0 : sources.front()->GetChannels(), LSoundPeakUnknown),
      pNotify(notify) {
  std::size_t const n = std::min({sources.size(), starts.size(), ids.size()});
  vClips.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    LSoundSource const& s = sources[i];
    if (s->GetSampleRate() != sSampleRate || s->GetChannels() != nChans) uErrorState = LSoundErrorParameters;
    std::int64_t const end = std::int64_t{starts[i]} + std::max(0, s->GetEndSample());
    vClips.push_back(Clip{s, starts[i], static_cast<int>(std::min<std::int64_t>(end, INT32_MAX)), ids[i]});
  }
  // In order of start, so that a read can stop at the first clip still to come.
  std::stable_sort(vClips.begin(), vClips.end(), [](Clip const& a, Clip const& b) { return a.iStart < b.iStart; });
  for (Clip const& c : vClips) sEnd = std::max(sEnd, c.iEnd);
  pWork.reset(new float[static_cast<std::size_t>(nChans) * LSoundMaxReadFrames]);
  Seek(0);
}

void TDSRCClipMixer::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const ch = nChans;
  float* const work = pWork.get();
  while (frames > 0) {
    int const block = std::min(frames, LSoundMaxReadFrames);
    std::int64_t const blockEnd = std::int64_t{sPosition} + block;
    // Most of the time one clip sounds: the first clip of a block is read right
    // where the sum goes, and only the others take the way through the work
    // buffer.
    bool filled = false;
    for (Clip const& clip : vClips) {
      if (clip.iStart >= blockEnd) break;
      if (sPosition >= clip.iEnd) continue;
      float* const into = filled ? work : buffer;
      int offset = 0;
      if (clip.iStart > sPosition) {
        // Starts inside this block: silence up to its first frame.
        offset = clip.iStart - sPosition;
        LZeroFrames(into, offset, ch);
      }
      clip.lss->Read(into + static_cast<std::size_t>(offset) * ch, block - offset);
      if (pNotify != nullptr) NotifyLevel(clip, into, block);
      if (filled) LAddBuffer(buffer, work, block * ch);
      filled = true;
    }
    if (!filled) LZeroFrames(buffer, block, ch);
    sPosition += block;
    buffer += static_cast<std::size_t>(block) * ch;
    frames -= block;
  }
}

void TDSRCClipMixer::NotifyLevel(Clip const& clip, float const* work, int frames) const {
  LDBMultiChannel<LdB<signed char>> levels(nChans);
  for (int c = 0; c < nChans; ++c) levels[c] = LPeakToMeterDB(GetBufferPeakChan(work, frames, nChans, c));
  pNotify->mpSRCntfClipLevel(levels, clip.lId, TDFramesToTime(sPosition, sSampleRate));
}

void TDSRCClipMixer::Seek(int frame) {
  sPosition = frame;
  for (Clip const& clip : vClips) clip.lss->Seek(clip.iStart < frame ? frame - clip.iStart : 0);
}
