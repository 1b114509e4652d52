#include "sound/sound_source.h"

#include <gtest/gtest.h>


#include "sound/audio_buffer.h"
#include "sound/sound_sink.h"
#include "sound/testing_sources.h"

namespace {

struct Tracked : LTestFunctionSource {
  explicit Tracked(int* destroyed) : LTestFunctionSource(44100, 2, 100, TestRamp), destroyed(destroyed) {}
  ~Tracked() override { ++*destroyed; }
  int* destroyed;
};

constexpr float kSentinel = -12345.0f;

}  // namespace

TEST(SoundSource, DefaultAndClosedHandlesHoldTheErrorSource) {
  int destroyed = 0;
  LSoundSource s(new Tracked(&destroyed));
  EXPECT_TRUE(s.IsGood());
  s.Close();
  EXPECT_EQ(destroyed, 1);

  for (LSoundSource const& h : {s, LSoundSource(), LSoundSource(nullptr)}) {
    EXPECT_EQ(h->GetErrorState(), LSoundErrorFailed);
    EXPECT_EQ(h->GetSampleRate(), 11025);
    EXPECT_EQ(h->GetChannels(), 1);
    EXPECT_EQ(h->GetPeakBound(), 16.0f);
    EXPECT_EQ(h->GetPositionSample(), 0);
    EXPECT_EQ(h->GetEndSample(), 0);
    float buf[5] = {1, 2, 3, 4, kSentinel};
    h->Read(buf, 4);
    EXPECT_EQ(buf[0] + buf[1] + buf[2] + buf[3], 0.0f);
    EXPECT_EQ(buf[4], kSentinel);  // mono: n floats and no more
    h->Read(buf, 4);
    EXPECT_EQ(h->GetPositionSample(), 0);
  }
}

TEST(SoundSource, HandlesShareOneObject) {
  int destroyed = 0;
  LSoundSource a(new Tracked(&destroyed));
  LSoundSource b = a;
  b->Seek(40);
  EXPECT_EQ(a->GetPositionSample(), 40);
  a = LSoundSource();
  EXPECT_EQ(destroyed, 0);
  LSoundSource& alias = b;
  b = alias;  // self-assignment keeps it
  EXPECT_EQ(destroyed, 0);
  b.Close();
  EXPECT_EQ(destroyed, 1);
}

TEST(SoundSource, InvalidConstructionParameters) {
  LTestFunctionSource badRate(0, 2, 0, TestRamp);
  EXPECT_EQ(badRate.GetSampleRate(), 44100);
  EXPECT_EQ(badRate.GetErrorState(), LSoundErrorParameters);
  LTestFunctionSource noChannels(48000, 0, 0, TestRamp);
  EXPECT_EQ(noChannels.GetChannels(), 1);
  EXPECT_EQ(noChannels.GetErrorState(), LSoundErrorParameters);
  LTestFunctionSource good(48000, 2, 0, TestRamp);
  EXPECT_FALSE(good.IsError());
}

namespace {

// A decorator that only doubles the samples: all else comes from the base.
class Doubler : public LSoundProcessBase {
 public:
  using LSoundProcessBase::LSoundProcessBase;
  void Read(float* buffer, int frames) override {
    lssSource->Read(buffer, frames);
    GainAudioBufferQuick(buffer, frames * nChans, 2.0f);
  }
};

}  // namespace

TEST(SoundProcess, ForwardsToTheSourceBelowAndInheritsItsFormat) {
  auto* below = new LTestFunctionSource(22050, 3, 50, TestRamp, 0.5f);
  below->bStreaming = true;
  below->iTakeCode = 4;
  LSoundSource inner(below);
  LSoundSource top = LSoundSource::Make<Doubler>(inner);
  EXPECT_EQ(top->GetSampleRate(), 22050);
  EXPECT_EQ(top->GetChannels(), 3);
  EXPECT_EQ(top->GetPeakBound(), 0.5f);
  EXPECT_FALSE(top->IsError());
  EXPECT_EQ(top->GetEndSample(), 50);
  EXPECT_TRUE(top->IsStreaming());
  top->Seek(7);
  EXPECT_EQ(top->GetPositionSample(), 7);
  float buf[6];
  top->Read(buf, 2);
  EXPECT_EQ(buf[4], 2 * TestRamp(8, 1));
  long v = 1;
  EXPECT_TRUE(top->ControlMessage(4, &v));
  EXPECT_EQ(v, 1001);
  EXPECT_FALSE(top->ControlMessage(9, &v));
}

TEST(SoundProcess, OverASourceInErrorTakesState2) {
  LSoundSource top = LSoundSource::Make<Doubler>(LSoundSource());
  EXPECT_EQ(top->GetErrorState(), LSoundErrorBelow);
  LSoundSource twice = LSoundSource::Make<Doubler>(top);
  EXPECT_EQ(twice->GetErrorState(), LSoundErrorBelow);
}

TEST(SoundSourceTransparent, KeepsTheTypedPointerBesideTheHandle) {
  LSoundSourceTransparent<LTestFunctionSource> none;
  EXPECT_EQ(none.GetTyped(), nullptr);
  EXPECT_EQ(none.GetSource()->GetErrorState(), LSoundErrorFailed);

  auto* raw = new LTestFunctionSource(48000, 1, 10, TestRamp);
  LSoundSourceTransparent<LTestFunctionSource> t(raw);
  LSoundSource plain = t;
  t->sEnd = 99;  // an operation of the concrete class
  EXPECT_EQ(plain->GetEndSample(), 99);
  EXPECT_EQ(plain.Get(), raw);
  t.Close();
  EXPECT_EQ(t.GetTyped(), nullptr);
  EXPECT_EQ(plain->GetEndSample(), 99);  // still held by `plain`
}

TEST(SilenceSource, ZerosWithoutLimitAndFreeSeek) {
  LSilenceSourceBase s(48000, 2, 10);
  EXPECT_FALSE(s.IsError());
  EXPECT_LE(s.GetPeakBound(), 1.0f);
  std::vector<float> buf(40, kSentinel);
  s.Read(buf.data(), 20);
  for (float v : buf) EXPECT_EQ(v, 0.0f);
  EXPECT_EQ(s.GetPositionSample(), 20);
  EXPECT_EQ(s.GetEndSample(), 10);
  s.Seek(-5);
  EXPECT_EQ(s.GetPositionSample(), -5);
}

TEST(SoundSink, ErrorSinkDiscardsAndStubCounts) {
  LSoundSink none;
  EXPECT_TRUE(none->IsError());
  EXPECT_EQ(none->GetSampleRate(), 44100);
  EXPECT_EQ(none->GetChannels(), 1);
  float buf[8] = {};
  none->Write(buf, 8);
  EXPECT_EQ(none->GetPositionSample(), 0);

  LSoundSink stub = LSoundSink::Make<LSoundSinkStubBase>(48000, 2);
  EXPECT_TRUE(stub.IsGood());
  stub->Write(buf, 4);
  stub->Write(buf, 3);
  EXPECT_EQ(stub->GetPositionSample(), 7);
  stub.Close();
  EXPECT_TRUE(stub->IsError());

  LSoundSinkStubBase noChannels(48000, 0);
  EXPECT_EQ(noChannels.GetChannels(), 1);
  EXPECT_EQ(noChannels.GetErrorFlags() & LSoundSinkErrorFailed, LSoundSinkErrorFailed);
}
