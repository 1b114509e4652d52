#include "sound/audio_mixer.h"

#include <algorithm>

#include "sound/audio_buffer.h"
#include "sound/source_format.h"

void LAudioMixerSource::SetDefaultChanMap(int outputChannels) {
  vMap.clear();
  int const in = lssSource->GetChannels();
  if (in == 1) {
    for (int o = 0; o < outputChannels; ++o) vMap.push_back({0, o, 1.0f});
    return;
  }
  for (int c = 0; c < std::min(in, outputChannels); ++c) vMap.push_back({c, c, 1.0f});
}

LAudioMixerSourceBase::LAudioMixerSourceBase(int rate, int channels, std::vector<LAudioMixerSource> inputs)
    : LSoundSourceBase(rate, channels, LSoundPeakUnknown), vInputs(std::move(inputs)) {
  for (LAudioMixerSource& input : vInputs) {
    int const in = input.GetSource()->GetChannels();
    if (!input.GetSource()->IsError()) iWorkChannels = std::max(iWorkChannels, in);
    // Routes that lead nowhere go now, so that Read need not test them.
    std::vector<LAudioMixerSource::Designation> kept;
    for (auto const& d : input.GetChanMap()) {
      if (d.iInput >= 0 && d.iInput < in && d.iOutput >= 0 && d.iOutput < nChans) kept.push_back(d);
    }
    input.ClearChanMap();
    for (auto const& d : kept) input.AddDesignation(d.iInput, d.iOutput, d.fVolume);
  }
  pWork.reset(new float[static_cast<std::size_t>(iWorkChannels) * LSoundMaxReadFrames]);
}

void LAudioMixerSourceBase::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const out = nChans;
  LZeroFrames(buffer, frames, out);
  float* const work = pWork.get();
  for (LAudioMixerSource const& input : vInputs) {
    LSoundSourceBase& s = *input.GetSource();
    if (s.IsError() || s.GetSampleRate() != sSampleRate) continue;
    int const in = s.GetChannels();
    s.Read(work, frames);
    for (auto const& d : input.GetChanMap()) {
      float const* from = work + d.iInput;
      float* to = buffer + d.iOutput;
      float const v = d.fVolume;
      for (int f = 0; f < frames; ++f) to[f * out] += from[f * in] * v;
    }
  }
  sPosition += frames;
}

int LAudioMixerSourceBase::GetEndSample() const {
  int end = 0;
  for (LAudioMixerSource const& input : vInputs) {
    if (!input.GetSource()->IsError()) end = std::max(end, input.GetSource()->GetEndSample());
  }
  return end;
}

void LAudioMixerSourceBase::Seek(int frame) {
  sPosition = frame;
  for (LAudioMixerSource& input : vInputs) input.GetSource()->Seek(frame);
}

bool LAudioMixerSourceBase::ControlMessage(int code, long* value) {
  bool all = true;
  for (LAudioMixerSource& input : vInputs) all = input.GetSource()->ControlMessage(code, value) && all;
  return all;
}

bool LAudioMixerSourceBase::IsStreaming() const {
  return std::any_of(vInputs.begin(), vInputs.end(),
                     [](LAudioMixerSource const& input) { return input.GetSource()->IsStreaming(); });
}

bool LAudioMixerSourceBase::UpdateSource(long id, LSoundSource const& source) {
  for (LAudioMixerSource& input : vInputs) {
    if (input.GetId() != id) continue;
    if (!source->IsError() && (source->GetSampleRate() != sSampleRate || source->GetChannels() > iWorkChannels)) {
      return false;
    }
    source->Seek(sPosition);
    input.SetSource(source);
    return true;
  }
  return false;
}

void LAudioMixer::AddSource(LSoundSource const& source, long id) {
  LSoundSource s = source;
  LSPConvertSourceRate(iRate, s);
  vSources.push_back(Entry{LAudioMixerSource(s, id), true});
  vSources.back().source.SetDefaultChanMap(iChannels);
}

LAudioMixer::Entry* LAudioMixer::Find(long id) {
  for (Entry& e : vSources) {
    if (e.source.GetId() == id) return &e;
  }
  return nullptr;
}

bool LAudioMixer::UpdateSource(long id, LSoundSource const& source) {
  Entry* e = Find(id);
  if (e == nullptr) return false;
  LSoundSource s = source;
  LSPConvertSourceRate(iRate, s);
  e->source.SetSource(s);
  if (e->bDefaultMap) e->source.SetDefaultChanMap(iChannels);
  if (lssOpened.GetTyped() != nullptr) lssOpened->UpdateSource(id, s);
  return true;
}

bool LAudioMixer::DoesSourceExist(long id) const {
  return std::any_of(vSources.begin(), vSources.end(), [&](Entry const& e) { return e.source.GetId() == id; });
}

bool LAudioMixer::AddChannelDesignation(long id, int input, int output, float volume) {
  Entry* e = Find(id);
  if (e == nullptr) return false;
  if (e->bDefaultMap) {
    e->source.ClearChanMap();
    e->bDefaultMap = false;
  }
  e->source.AddDesignation(input, output, volume);
  return true;
}

void LAudioMixer::Clear() {
  vSources.clear();
  lssOpened.Close();
}

LSoundSource LAudioMixer::OpenSource() {
  if (vSources.empty()) {
    lssOpened.Close();
    return LSoundSource::Make<LSilenceSourceBase>(iRate, iChannels, 0);
  }
  std::vector<LAudioMixerSource> inputs;
  inputs.reserve(vSources.size());
  for (Entry const& e : vSources) inputs.push_back(e.source);
  lssOpened = LSoundSourceTransparent<LAudioMixerSourceBase>(
      new LAudioMixerSourceBase(iRate, iChannels, std::move(inputs)));
  return lssOpened;
}
