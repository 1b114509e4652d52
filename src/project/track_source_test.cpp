#include "project/track_source.h"

#include <gtest/gtest.h>

#include <vector>

#include "effects/table_effects.h"
#include "project/automation.h"
#include "sound/gain_sources.h"

namespace {

// A constant 0.5 on every channel.
class Half : public LSoundSourceBase {
 public:
  explicit Half(int channels) : LSoundSourceBase(44100, channels, LSoundPeakInRange) {}
  void Read(float* buffer, int frames) override {
    for (int i = 0; i < frames * nChans; ++i) buffer[i] = 0.5f;
    iPosition += frames;
  }
  int GetPositionSample() const override { return iPosition; }
  int GetEndSample() const override { return 1000; }
  void Seek(int frame) override { iPosition = frame; }

 private:
  int iPosition = 0;
};

TEST(TrackSource, VolumeAndPanComeBeforeTheEffects) {
  TDTrack track;
  track.PannedVolume.fCentre = -6.5f;
  track.PannedVolume.dPan = 0.5;
  track.PannedVolume.ApplyCentreToLeftAndRight();
  track.EffectChain.Append(std::make_unique<LSPGain>(2.0f));
  track.EffectChain.Append(std::make_unique<LSPHighPass>(200))->bBypass = true;

  LSoundSource const mix = LSoundSource::Make<Half>(3);
  LSoundSource const out = TDWrapTrackSource(track, mix);
  // The gain stage is right under the chain's only working effect.
  auto* amplify = dynamic_cast<LSRCGain*>(out.Get());
  ASSERT_NE(amplify, nullptr);
  auto* gains = dynamic_cast<LSRCGainMultiChannels*>(amplify->GetSource().Get());
  ASSERT_NE(gains, nullptr);
  EXPECT_EQ(gains->GetSource().Get(), mix.Get());

  float frame[3];
  out->Read(frame, 1);
  // -6.5 dB lies halfway, in amplitude, between the table's -7 and -6 dB.
  float const halfway = 0.5f * (LdBAmplitudeOf(-7) + LdBAmplitudeOf(-6));
  EXPECT_FLOAT_EQ(frame[0], 0.5f * 2.0f * halfway);
  EXPECT_FLOAT_EQ(frame[1], 0.5f * 2.0f * LdBAmplitudeInterpolated(track.PannedVolume.fSecondChannelGain));
  EXPECT_LT(frame[1], frame[0]);  // panned left
  EXPECT_FLOAT_EQ(frame[2], frame[0]);
}

// A volume line rides what the chain made: with the chain doubling and the line
// silencing the start, the output is silent there and doubled after the line's
// last point, whichever order the stages would commute in for plain gains.
TEST(TrackSource, TheVolumeLineRidesTheChainsOutputOnTheProjectTimeline) {
  TDTrack track;
  track.EffectChain.Append(std::make_unique<LSPGain>(2.0f));
  TDTrackAutomation* line =
      track.Automation.GetAutomationTrack(track.Automation.AddTrackAutomation(TDMakeAutomation(TDAutomationTypeGain), 0));
  ASSERT_NE(line, nullptr);
  // 44.1 frames a millisecond: silence to 10 ms, unity from 20 ms.
  line->vPoints = {{-1.0, 0}, {-1.0, 10}, {0.0, 20}};
  LSoundSource const out = TDWrapTrackSource(track, LSoundSource::Make<Half>(2));
  std::vector<float> frames(2 * 1000);
  out->Read(frames.data(), 1000);
  EXPECT_EQ(frames[2 * 300], 0.0f);      // about 6.8 ms
  EXPECT_EQ(frames[2 * 900 + 1], 1.0f);  // about 20.4 ms: 0.5 doubled
  // Half way up the ramp in amplitude, not in decibels.
  EXPECT_NEAR(frames[2 * 661], (661.0 - 441) / 441, 0.01);
  // Seeking back replays the line from the project's start.
  out->Seek(0);
  out->Read(frames.data(), 1);
  EXPECT_EQ(frames[0], 0.0f);
}

TEST(TrackSource, CopyingATrackClonesItsEffects) {
  TDTrack source;
  source.EffectChain.Append(std::make_unique<LSPEcho>())->bBypass = true;
  source.EffectChain.Append(std::make_unique<LSPLowPass>(800));
  TDTrack copy;
  copy.EffectChain.Append(std::make_unique<LSPGain>());
  copy.CopyFromAnotherTrack(source);
  ASSERT_EQ(copy.EffectChain.GetCount(), 2);
  EXPECT_NE(copy.EffectChain.GetAt(1), source.EffectChain.GetAt(1));
  EXPECT_TRUE(copy.EffectChain.GetAt(0)->bBypass);
  EXPECT_EQ(static_cast<LSPLowPass*>(copy.EffectChain.GetAt(1))->GetFrequency(), 800);
}

}  // namespace
