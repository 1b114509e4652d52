#include "sound/audio_mixer.h"

#include <gtest/gtest.h>

#include "foundation/testing_allocations.h"
#include "sound/testing_sources.h"

namespace {

// Channel 0 of a mono ramp is frame * 16; a stereo ramp adds the channel.
LSoundSource Ramp(int channels, int end, int rate = 48000) { return MakeRampSource(rate, channels, end); }

TEST(AudioMixer, SumsInputsByTheirChannelMaps) {
  LAudioMixer mixer(48000, 2);
  mixer.AddSource(Ramp(1, 100), 1);   // mono: to both outputs
  mixer.AddSource(Ramp(2, 300), 2);   // stereo: side to side
  mixer.AddSource(Ramp(2, 50), 3);
  // Source 3's right goes to the left output at half, and nowhere else.
  EXPECT_TRUE(mixer.AddChannelDesignation(3, 1, 0, 0.5f));
  EXPECT_FALSE(mixer.AddChannelDesignation(4, 0, 0));
  EXPECT_TRUE(mixer.DoesSourceExist(2));
  EXPECT_FALSE(mixer.DoesSourceExist(4));

  LSoundSource const mix = mixer.OpenSource();
  ASSERT_TRUE(mix.IsGood());
  EXPECT_EQ(mix->GetEndSample(), 300);  // the longest input
  std::vector<float> const out = ReadAll(mix, 400, 77);
  for (int f = 0; f < 400; ++f) {
    auto in = [&](int end, int c) { return f < end ? TestRamp(f, c) : 0.0f; };
    ASSERT_EQ(out[static_cast<std::size_t>(2 * f)], in(100, 0) + in(300, 0) + in(50, 1) * 0.5f) << f;
    ASSERT_EQ(out[static_cast<std::size_t>(2 * f + 1)], in(100, 0) + in(300, 1)) << f;
  }
  EXPECT_EQ(mix->GetPositionSample(), 400);
  mix->Seek(40);
  std::vector<float> const again = ReadAll(mix, 1);
  EXPECT_EQ(again[1], TestRamp(40, 0) + TestRamp(40, 1));
}

TEST(AudioMixer, ConvertsRatesAndSwapsASourceWhilePlaying) {
  LAudioMixer mixer(48000, 2);
  mixer.AddSource(Ramp(2, 24000, 24000), 1);  // converted up to 48 kHz
  LSoundSource const mix = mixer.OpenSource();
  EXPECT_EQ(mix->GetEndSample(), 48000);
  ReadAll(mix, 1000);

  // The new sound comes in at the mix's place, with the same routes.
  EXPECT_TRUE(mixer.UpdateSource(1, Ramp(2, 5000)));
  EXPECT_FALSE(mixer.UpdateSource(9, Ramp(2, 5000)));
  std::vector<float> const out = ReadAll(mix, 10);
  for (int f = 0; f < 10; ++f) EXPECT_EQ(out[static_cast<std::size_t>(2 * f + 1)], TestRamp(1000 + f, 1));
  // A source wider than the mix was made for cannot go in under it.
  auto* base = dynamic_cast<LAudioMixerSourceBase*>(mix.Get());
  ASSERT_NE(base, nullptr);
  EXPECT_FALSE(base->UpdateSource(1, Ramp(6, 5000)));

  mixer.Clear();
  EXPECT_EQ(mixer.GetCount(), 0);
  LSoundSource const empty = mixer.OpenSource();
  EXPECT_TRUE(empty.IsGood());
  EXPECT_EQ(empty->GetEndSample(), 0);
}

TEST(AudioMixer, ControlMessagesReachEveryInput) {
  auto* a = new LTestFunctionSource(48000, 2, 100, TestRamp);
  auto* b = new LTestFunctionSource(48000, 2, 100, TestRamp);
  a->iTakeCode = 4;
  LAudioMixer mixer(48000, 2);
  mixer.AddSource(LSoundSource(a), 1);
  mixer.AddSource(LSoundSource(b), 2);
  LSoundSource const mix = mixer.OpenSource();
  long v = 0;
  EXPECT_FALSE(mix->ControlMessage(4, &v));  // b did not take it
  b->iTakeCode = 4;
  EXPECT_TRUE(mix->ControlMessage(4, &v));
  EXPECT_EQ(a->codes, (std::vector<int>{4, 4}));
  EXPECT_EQ(b->codes, (std::vector<int>{4, 4}));
}

// Plain sources, so that only the mixer's own work is watched.
class Steady : public LSoundSourceBase {
 public:
  explicit Steady(int channels) : LSoundSourceBase(48000, channels, LSoundPeakInRange) {}
  void Read(float* buffer, int frames) override {
    std::fill(buffer, buffer + static_cast<std::size_t>(frames) * nChans, 0.125f);
  }
  int GetPositionSample() const override { return 0; }
  int GetEndSample() const override { return 1 << 20; }
};

TEST(AudioMixer, ReadAllocatesNothing) {
  LAudioMixer mixer(48000, 2);
  mixer.AddSource(LSoundSource::Make<Steady>(1), 1);
  mixer.AddSource(LSoundSource::Make<Steady>(4), 2);
  mixer.AddChannelDesignation(2, 3, 1, 2.0f);
  LSoundSource const mix = mixer.OpenSource();
  std::vector<float> buffer(2 * LSoundMaxReadFrames);
  LAllocationWatch watch;
  for (int i = 0; i < 10; ++i) mix->Read(buffer.data(), LSoundMaxReadFrames - i);
  EXPECT_EQ(watch.Count(), 0);
  EXPECT_EQ(buffer[0], 0.125f);
  EXPECT_EQ(buffer[1], 0.125f + 0.25f);
}

}  // namespace
