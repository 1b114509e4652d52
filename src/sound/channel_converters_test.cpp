#include "sound/channel_converters.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <typeinfo>

#include "sound/channels_mapping_source.h"
#include "sound/convert_rate.h"
#include "sound/source_format.h"
#include "sound/testing_sources.h"

namespace {

// Channel c carries 2^c scaled by a per-frame factor: every channel has its own
// weight in the sum, so a wrong factor or a swapped channel shows in the result.
float Pattern(int frame, int channel) {
  return static_cast<float>(1 << channel) / 256.0f * static_cast<float>(1 + frame % 5) * (frame % 2 ? -1.0f : 1.0f);
}

LSoundSource PatternSource(int channels, int end = 100000, float peak = LSoundPeakInRange) {
  return LSoundSource::Make<LTestFunctionSource>(48000, channels, end, Pattern, peak);
}

using Formula = std::function<void(double const* s, double* o)>;

struct Row {
  int from;
  int to;
  std::type_info const& type;
  Formula formula;
};

constexpr double R = 0.7071;

std::vector<Row> const& Table() {
  static std::vector<Row> const rows = {
      {1, 2, typeid(LSRCConvMonoStereo), [](double const* s, double* o) { o[0] = o[1] = s[0]; }},
      {4, 2, typeid(LSRCConvChannelsQuadStereo),
       [](double const* s, double* o) {
         o[0] = (s[0] + s[2]) * 0.5;
         o[1] = (s[1] + s[3]) * 0.5;
       }},
      {6, 2, typeid(LSRCConvChannels51Stereo),
       [](double const* s, double* o) {
         o[0] = s[0] + (s[2] + s[4]) * R + s[3] * 0.5;
         o[1] = s[1] + (s[2] + s[5]) * R + s[3] * 0.5;
       }},
      {8, 2, typeid(LSRCConvChannels71Stereo),
       [](double const* s, double* o) {
         o[0] = s[0] + (s[2] + s[4]) * R + (s[3] + s[6]) * 0.5;
         o[1] = s[1] + (s[2] + s[5]) * R + (s[3] + s[7]) * 0.5;
       }},
      {8, 6, typeid(LSRCConvChannels71To51),
       [](double const* s, double* o) {
         for (int c = 0; c < 4; ++c) o[c] = s[c];
         o[4] = (s[4] + s[6]) * R;
         o[5] = (s[5] + s[7]) * R;
       }},
      {2, 1, typeid(LSRCConvStereoMono), [](double const* s, double* o) { o[0] = (s[0] + s[1]) * 0.5; }},
      {6, 1, typeid(LSRCConvChannels51Mono),
       [](double const* s, double* o) { o[0] = (s[0] + s[1] + s[3] + (s[4] + s[5]) * R) * 0.5 + s[2] * R; }},
      {8, 1, typeid(LSRCConvChannels71Mono),
       [](double const* s, double* o) {
         o[0] = (s[0] + s[1] + s[3] + (s[6] + s[7]) * 0.5 + (s[4] + s[5]) * R) * 0.5 + s[2] * R;
       }},
      {3, 1, typeid(LSRCConvChannelsNMono), [](double const* s, double* o) { o[0] = (s[0] + s[1] + s[2]) / 3; }},
      {5, 1, typeid(LSRCConvChannelsNMono),
       [](double const* s, double* o) { o[0] = (s[0] + s[1] + s[2] + s[3] + s[4]) / 5; }},
      {2, 3, typeid(LSRCConvChannelsN),
       [](double const* s, double* o) {
         o[0] = s[0];
         o[1] = s[1];
         o[2] = s[0];  // repeats the first
       }},
      {3, 2, typeid(LSRCConvChannelsN),
       [](double const* s, double* o) {
         o[0] = s[0];
         o[1] = s[1];
       }},
      {1, 6, typeid(LSRCConvChannelsN), [](double const* s, double* o) { std::fill(o, o + 6, s[0]); }},
      {6, 8, typeid(LSRCConvChannelsN),
       [](double const* s, double* o) {
         for (int c = 0; c < 8; ++c) o[c] = s[c % 6];
       }},
  };
  return rows;
}

}  // namespace

TEST(ChannelConverters, EachPairGetsItsConverterAndFormula) {
  for (Row const& row : Table()) {
    SCOPED_TRACE(testing::Message() << row.from << " -> " << row.to);
    LSoundSource src = PatternSource(row.from);
    src->Seek(3);
    LSoundSource conv = LSPConvChannels(row.to).OpenSource(src);
    ASSERT_EQ(typeid(*conv), row.type);
    ASSERT_NE(dynamic_cast<LSRCConvChannels*>(conv.Get()), nullptr);
    EXPECT_FALSE(conv->IsError());
    EXPECT_EQ(conv->GetChannels(), row.to);
    EXPECT_EQ(conv->GetSampleRate(), 48000);
    EXPECT_EQ(conv->GetPositionSample(), 3);

    int const frames = 12;
    std::vector<float> out = ReadAll(conv, frames, 5);
    EXPECT_EQ(conv->GetPositionSample(), 3 + frames);
    for (int f = 0; f < frames; ++f) {
      std::array<double, 8> s{}, o{};
      for (int c = 0; c < row.from; ++c) s[static_cast<std::size_t>(c)] = Pattern(3 + f, c);
      row.formula(s.data(), o.data());
      for (int c = 0; c < row.to; ++c) {
        EXPECT_NEAR(out[static_cast<std::size_t>(f * row.to + c)], o[static_cast<std::size_t>(c)], 1e-6)
            << "frame " << f << " channel " << c;
      }
    }
  }
}

TEST(ChannelConverters, SourceComesBackAsItIsWhenNothingIsToDo) {
  LSoundSource stereo = PatternSource(2);
  EXPECT_EQ(LSPConvChannels(2).OpenSource(stereo).Get(), stereo.Get());
  EXPECT_EQ(LSPConvChannels(0).OpenSource(stereo).Get(), stereo.Get());
  LSoundSource bad;
  EXPECT_EQ(LSPConvChannels(2).OpenSource(bad).Get(), bad.Get());
}

TEST(ChannelConverters, DownMixesRaiseThePeakBound) {
  EXPECT_NEAR(LSPConvChannels(2).OpenSource(PatternSource(6, 10, 1.0f))->GetPeakBound(), 1 + 2 * R + 0.5, 1e-4);
  EXPECT_NEAR(LSPConvChannels(1).OpenSource(PatternSource(8, 10, 1.0f))->GetPeakBound(), 2 + 2 * R, 1e-4);
  EXPECT_EQ(LSPConvChannels(2).OpenSource(PatternSource(1, 10, 0.5f))->GetPeakBound(), 0.5f);
}

TEST(ChannelConverters, AWrongInputCountGivesSilenceNotAnOverrun) {
  LSRCConvChannels51Stereo conv(PatternSource(2));
  EXPECT_EQ(conv.GetErrorState(), LSoundErrorParameters);
  std::vector<float> out(20, 1.0f);
  conv.Read(out.data(), 10);
  for (float v : out) EXPECT_EQ(v, 0.0f);
}

TEST(ChannelConverters, FullBlocksAndMore) {
  // The largest read the contract allows, and one beyond it, both filled in full.
  LSoundSource conv = LSPConvChannels(2).OpenSource(PatternSource(1));
  for (int n : {LSoundMaxReadFrames, LSoundMaxReadFrames + 100}) {
    std::vector<float> out(static_cast<std::size_t>(n) * 2);
    int const at = conv->GetPositionSample();
    conv->Read(out.data(), n);
    EXPECT_EQ(out[out.size() - 1], Pattern(at + n - 1, 0));
  }
}

TEST(SourceFormat, ReducesWidensAndConvertsTheRateOnTheFewestChannels) {
  LSoundSource s = PatternSource(6);
  LSPConvertSourceRateChannels(48000, 2, s);
  EXPECT_EQ(typeid(*s), typeid(LSRCConvChannels51Stereo));
  EXPECT_FALSE(s->IsError());

  LSoundSource m = PatternSource(1);
  LSPConvertSourceRateChannels(48000, 2, m);
  EXPECT_EQ(typeid(*m), typeid(LSRCConvMonoStereo));

  LSoundSource same = PatternSource(2);
  LSoundSourceBase* before = same.Get();
  LSPConvertSourceRateChannels(48000, 2, same);
  EXPECT_EQ(same.Get(), before);

  // Down to stereo first, then the rate on two channels.
  LSoundSource down = PatternSource(6);
  LSPConvertSourceRateChannels(44100, 2, down);
  ASSERT_FALSE(down->IsError());
  EXPECT_EQ(down->GetSampleRate(), 44100);
  EXPECT_EQ(down->GetChannels(), 2);
  auto* rate = dynamic_cast<LSRCConvertRate*>(down.Get());
  ASSERT_NE(rate, nullptr);
  EXPECT_EQ(typeid(*rate->GetSource()), typeid(LSRCConvChannels51Stereo));
  EXPECT_EQ(down->GetEndSample(), 91875);  // 100000 frames at 48000, in time at 44100

  // The rate on the one channel, then widened.
  LSoundSource up = PatternSource(1);
  LSPConvertSourceRateChannels(44100, 2, up);
  ASSERT_EQ(typeid(*up), typeid(LSRCConvMonoStereo));
  EXPECT_EQ(up->GetSampleRate(), 44100);
  auto const* widened = static_cast<LSRCConvMonoStereo*>(up.Get());
  ASSERT_NE(dynamic_cast<LSRCConvertRate*>(widened->GetSource().Get()), nullptr);
  EXPECT_EQ(widened->GetSource()->GetChannels(), 1);

  // A bad source comes back as it was, still in error.
  LSoundSource bad;
  LSoundSourceBase* badBefore = bad.Get();
  LSPConvertSourceRateChannels(44100, 2, bad);
  EXPECT_EQ(bad.Get(), badBefore);
  EXPECT_TRUE(bad->IsError());
}

TEST(ChannelsMapping, RoutesAndSumsChannels) {
  int const map[] = {0, 1, 0, -1};  // 4 inputs onto 2 outputs; the third joins the first
  LSoundSource s = LSoundSource::Make<LChannelsMappingSourceBase>(PatternSource(4), 3, map);
  EXPECT_FALSE(s->IsError());
  EXPECT_EQ(s->GetChannels(), 3);
  EXPECT_EQ(s->GetPeakBound(), 2 * LSoundPeakInRange);
  s->Seek(2);
  std::vector<float> out = ReadAll(s, 6, 4);
  for (int f = 0; f < 6; ++f) {
    EXPECT_EQ(out[static_cast<std::size_t>(3 * f)], Pattern(2 + f, 0) + Pattern(2 + f, 2));
    EXPECT_EQ(out[static_cast<std::size_t>(3 * f + 1)], Pattern(2 + f, 1));
    EXPECT_EQ(out[static_cast<std::size_t>(3 * f + 2)], 0.0f);
  }
  EXPECT_EQ(s->GetPositionSample(), 8);
}

TEST(ChannelsMapping, ShortTablesAndBadOutputs) {
  int const shortMap[] = {1};
  LChannelsMappingSourceBase partial(PatternSource(3), 2, shortMap);
  EXPECT_FALSE(partial.IsError());
  EXPECT_EQ(partial.GetOutputOf(0), 1);
  EXPECT_EQ(partial.GetOutputOf(2), -1);

  int const badMap[] = {0, 5};
  LChannelsMappingSourceBase bad(PatternSource(2), 2, badMap);
  EXPECT_EQ(bad.GetErrorState(), LSoundErrorParameters);
  float out[4];
  bad.Read(out, 2);  // the bad entry is dropped, not written out of bounds
  EXPECT_EQ(out[0], Pattern(0, 0));
  EXPECT_EQ(out[1], 0.0f);
}
