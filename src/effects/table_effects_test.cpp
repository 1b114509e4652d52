#include "effects/table_effects.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "effects/testing_chains.h"
#include "foundation/db.h"

namespace {

struct Expected {
  int type;
  char const* name;
  int parameters;
  int presets;
};

// The process types with their names and counts, as the user meets them.
constexpr Expected kTypes[] = {
    {1, "Amplify", 1, 4},          {2, "Compressor", 5, 0},     {3, "Echo", 2, 3},      {4, "Chorus", 4, 3},
    {5, "Distortion", 2, 4},       {6, "High Pass", 1, 2},      {7, "Flanger", 4, 3},   {8, "Reverb", 4, 4},
    {13, "Pitch and Speed", 1, 0}, {14, "Pitch Shifter", 1, 0}, {15, "Low Pass", 1, 0}, {17, "3 Band Equalizer", 3, 0},
    {19, "Tremolo", 2, 3},         {20, "Vibrato", 2, 3},       {21, "Doppler", 4, 3},  {22, "Wah-Wah", 4, 3},
    {24, "Voice Pitch", 2, 0},
};

double Shown(LSoundProcess const& p, int index) {
  LSoundProcessParameter param;
  p.GetParameterByIndex(index, &param);
  return param.GetValue();
}

void SetShown(LSoundProcess& p, int index, double value) {
  LSoundProcessParameter param;
  p.GetParameterByIndex(index, &param);
  LSPStoreValue(param.eType, value, param.pValue);
  p.SetParameterByIndex(index, param.pValue);
}

bool IsDecimal(int type) {
  return type == LSPV_Double || type == LSPV_Float;
}

// Doubles are held in floats in their chunks; the presets treat them as equal
// within 0.01, and so does this.
void ExpectShown(LSoundProcess const& p, int index, int type, double want, char const* where) {
  if (IsDecimal(type)) {
    EXPECT_NEAR(Shown(p, index), want, 0.01) << where;
  } else {
    EXPECT_EQ(Shown(p, index), want) << where;
  }
}

TEST(EffectParameterTable, EveryParameterRoundTripsAtItsEndsAndPresets) {
  for (Expected const& e : kTypes) {
    SCOPED_TRACE(e.name);
    std::unique_ptr<LSoundProcess> p = LSoundProcessMulti::CreateSoundProcessByType(e.type);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->GetSoundProcessType(), e.type);
    EXPECT_EQ(p->GetNameString(), e.name);
    ASSERT_EQ(p->GetNumParameters(), e.parameters);
    EXPECT_EQ(p->GetNumPresets(), e.presets);
    EXPECT_EQ(p->GetEditorType(), 1);

    for (int i = 0; i < e.parameters; ++i) {
      LSoundProcessParameter param;
      p->GetParameterByIndex(i, &param);
      SCOPED_TRACE(param.szName);
      ASSERT_TRUE(param.bOwnsData);
      EXPECT_EQ(static_cast<std::size_t>(param.iSize), LSPValueSize(param.eType));
      ASSERT_LT(param.GetMin(), param.GetMax());
      for (double end : {param.GetMin(), param.GetMax()}) {
        SetShown(*p, i, end);
        ExpectShown(*p, i, param.eType, end, "set");
        ExpectShown(*SavedAndLoaded(*p), i, param.eType, end, "saved and loaded");
      }
    }

    for (int row = 0; row < e.presets; ++row) {
      SCOPED_TRACE(row);
      p->SetPreset(row);
      EXPECT_EQ(p->GetIndexInPreset(), row);
      std::unique_ptr<LSoundProcess> back = SavedAndLoaded(*p);
      EXPECT_EQ(back->GetIndexInPreset(), row);
      for (int i = 0; i < e.parameters; ++i) EXPECT_NEAR(Shown(*back, i), Shown(*p, i), 0.01) << i;
    }
    // A preset past the table changes nothing.
    std::unique_ptr<LSoundProcess> before = p->GetNewCopy();
    p->SetPreset(e.presets + 5);
    for (int i = 0; i < e.parameters; ++i) EXPECT_EQ(Shown(*p, i), Shown(*before, i));
  }
}

TEST(EffectParameterTable, IndicesOutOfRangeChangeNothing) {
  LSPEcho echo;
  int const value = 77;
  echo.SetParameterByIndex(2, &value);
  echo.SetParameterByIndex(-1, &value);
  EXPECT_EQ(Shown(echo, 0), 50);
  EXPECT_EQ(Shown(echo, 1), 100);

  LSoundProcessParameter param;
  echo.GetParameterByIndex(1, &param);
  void* const held = param.pValue;
  echo.GetParameterByIndex(2, &param);
  EXPECT_EQ(param.pValue, held);
  EXPECT_STREQ(param.szName, "Time");
  EXPECT_STREQ(param.szUnits, "ms");
}

TEST(EffectParameterTable, HeldFormsAreTheOnesSaved) {
  // Amplify keeps a float gain and shows it rounded up, which every percentage
  // survives.
  LSPGain gain;
  for (int percent = 1; percent <= 400; ++percent) {
    SetShown(gain, 0, percent);
    ASSERT_EQ(Shown(gain, 0), percent);
  }
  SetShown(gain, 0, 250);
  EXPECT_FLOAT_EQ(gain.GetGain(), 2.5f);

  // The echo's time is clamped to its range; other values are taken as given.
  LSPEcho echo;
  SetShown(echo, 1, 9000);
  EXPECT_EQ(Shown(echo, 1), 4000);

  // A compressor ratio is held as a gain and comes back clamped.
  LSPDRCSimple drc;
  EXPECT_DOUBLE_EQ(drc.GetHeld(1), 1.0);
  EXPECT_NEAR(Shown(drc, 1), 1.0, 1e-9);
  SetShown(drc, 1, 3.0);
  EXPECT_NEAR(drc.GetHeld(1), std::pow(10.0, -0.15), 1e-6);

  // Distortion level is a linear gain shown in whole dB; no gain shows silence.
  LSPDistortion distortion(0.3, 0.0f, 100);
  EXPECT_EQ(Shown(distortion, 1), -127);
  EXPECT_NEAR(Shown(distortion, 0), 30.0, 1e-5);

  // Doppler's velocity is held in metres a second.
  LSPDoppler doppler;
  SetShown(doppler, 0, 36.0);
  EXPECT_NEAR(doppler.GetHeld(0), 10.0, 1e-5);

  // Every whole dB of a reverb level survives the trip through its linear chunk.
  LSPReverb3 reverb;
  for (int dB = -127; dB <= 127; ++dB) {
    SetShown(reverb, 2, dB);
    ASSERT_EQ(Shown(*SavedAndLoaded(reverb), 2), dB);
  }
}

TEST(EffectParameterTable, DistortionStartsFromTheUsersSettings) {
  LSPSetDistortionDefaultsProvider([] { return LSPDistortionDefaults{0.25, 0.5f, 80}; });
  LSPDistortion d;
  LSPSetDistortionDefaultsProvider(nullptr);
  EXPECT_NEAR(Shown(d, 0), 25.0, 1e-6);
  EXPECT_EQ(Shown(d, 1), -6);
  EXPECT_EQ(d.iGain, 80);
  EXPECT_NEAR(Shown(LSPDistortion(), 0), 50.0, 1e-6);
}

TEST(EffectParameterTable, TheCompressorHonoursPresetsItNeverOffers) {
  LSPDRCSimple drc;
  EXPECT_EQ(drc.GetNumPresets(), 0);
  EXPECT_EQ(drc.GetIndexInPreset(), -1);
  drc.SetPreset(1);
  EXPECT_EQ(drc.GetIndexInPreset(), 1);
  drc.SetPreset(0);
  EXPECT_EQ(drc.GetIndexInPreset(), 0);
}

// A chain container holding one effect of `type` written with `chunks`.
template <class Body>
std::unique_ptr<LSoundProcess> LoadWritten(int type, Body chunks) {
  LOutputStreamMemory out;
  LSDFWriter<LOutputStreamMemory> w;
  w.Open(out, LSPChainFileType, LSPChainFileVersion);
  w.WriteInt(LSPChunk::ChainType, type);
  w.StartContainer(LSPChunk::ChainEffect);
  w.StartContainer(LSPChunk::Header);
  w.WriteBool(LSPChunk::Bypass, true);
  w.EndContainer(LSPChunk::Header);
  chunks(w);
  w.EndContainer(LSPChunk::ChainEffect);
  EXPECT_TRUE(w.Close());
  LSoundProcessMulti chain = LoadChainFromMemory(out.GetData());
  EXPECT_EQ(chain.GetCount(), 1);
  return chain.Detach(0);
}

TEST(EffectParameterTable, OlderIntegerChunksStillLoad) {
  constexpr double k24 = 16777216.0;
  auto gain = LoadWritten(LSPT_Gain, [&](auto& w) { w.WriteInt(8192, static_cast<std::int32_t>(1.5 * k24)); });
  EXPECT_TRUE(gain->bBypass);
  EXPECT_EQ(Shown(*gain, 0), 150);

  auto reverb = LoadWritten(LSPT_Reverb3, [&](auto& w) {
    w.WriteInt(8195, static_cast<std::int32_t>(0.5 * k24));  // -6.02 dB, toward zero: -6
    w.WriteInt(8196, 0);                                     // no gain: silence
  });
  EXPECT_EQ(Shown(*reverb, 2), -6);
  EXPECT_EQ(Shown(*reverb, 3), -127);

  auto distortion = LoadWritten(LSPT_Distortion, [&](auto& w) { w.WriteInt(8193, 131072 / 10); });
  EXPECT_EQ(Shown(*distortion, 1), -20);

  auto drc = LoadWritten(LSPT_DRCSimple, [&](auto& w) {
    w.WriteInt(8192, static_cast<std::int32_t>(0.1 * k24));
    w.WriteInt(8195, static_cast<std::int32_t>(k24));
    w.WriteInt(8199, 12345);  // not ours: skipped
  });
  EXPECT_EQ(Shown(*drc, 0), -20);
  EXPECT_EQ(Shown(*drc, 3), 0);

  // The three band equaliser finds its bands by frequency, in whatever order.
  auto eq = LoadWritten(LSPT_EqSimple3Band, [&](auto& w) {
    w.WriteInt(8192, 3);
    for (auto [hz, dB] : {std::pair{2500, -3}, {900, 6}, {100, -127}}) {
      w.WriteInt(8194, hz);
      w.WriteInt(8195, dB);
      w.WriteFloat(8196, LSPEqSimple3Band::BandQ());
    }
  });
  EXPECT_EQ(Shown(*eq, 0), -127);
  EXPECT_EQ(Shown(*eq, 1), 6);
  EXPECT_EQ(Shown(*eq, 2), -3);
  EXPECT_FLOAT_EQ(LSPEqSimple3Band::BandQ(), 10.4f);
}

TEST(EffectParameterTable, AParameterFreesWhatItHeldWhenFilledAgain) {
  LSPDoppler doppler;
  LSoundProcessParameter param;
  for (int i = 0; i < doppler.GetNumParameters(); ++i) {
    doppler.GetParameterByIndex(i, &param);
    EXPECT_EQ(static_cast<std::size_t>(param.iSize), LSPValueSize(param.eType));
  }
  EXPECT_EQ(param.eType, LSPV_Bool);
  EXPECT_EQ(param.GetValue(), 1.0);
  param.Free();
  EXPECT_FALSE(param.bOwnsData);
  EXPECT_EQ(param.pValue, nullptr);
}

}  // namespace
