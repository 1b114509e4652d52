#include "effects/table_effects.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <mutex>

#include "effects/one_pole_filters.h"
#include "foundation/db.h"
#include "sound/gain_sources.h"

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
constexpr double k2Pow24 = 1.0 / 16777216.0;  // the fixed point of old integer gains
constexpr double k2Pow17 = 1.0 / 131072.0;
constexpr double kKmhToMs = 1.0 / 3.6;

constexpr std::uint16_t kInt = LSDFTypeInt;
constexpr std::uint16_t kFloat = LSDFTypeFloat;
constexpr std::uint16_t kBool = LSDFTypeBool;

// A plain field: held as shown, saved in one chunk.
constexpr LSPFieldDesc Field(char const* label, LSPValueType type, double lo, double hi, char const* units,
                             double initial, std::uint16_t chunk, std::uint16_t chunkType = kInt) {
  return LSPFieldDesc{label, type, lo, hi, units, initial, LSPForm::Plain, 1.0, chunk, chunkType};
}

// A level in whole dB saved as its linear gain, with the older fixed-point chunk.
constexpr LSPFieldDesc LinearDB(char const* label, double lo, double hi, double initial, std::uint16_t chunk,
                                std::uint16_t oldChunk) {
  return LSPFieldDesc{
      label,    LSPV_DB, lo, hi, "dB", initial, LSPForm::Plain, 1.0, chunk, kFloat, LSPFileForm::DBAsLinear,
      oldChunk, k2Pow24};
}

constexpr LSPFieldDesc Scaled(char const* label, LSPValueType type, double lo, double hi, char const* units,
                              double initial, double scale, std::uint16_t chunk) {
  return LSPFieldDesc{label, type, lo, hi, units, initial, LSPForm::Scaled, scale, chunk, kFloat};
}

// ---- Amplify ----
constexpr LSPFieldDesc kGainFields[] = {{"Gain Percentage", LSPV_Int32, 1, 400, "%", 1.0, LSPForm::ScaledCeil, 0.01,
                                         8193, kFloat, LSPFileForm::Same, 8192, k2Pow24}};
constexpr LSPPresetDesc kGainPresets[] = {
    {"Quarter Volume", {25}}, {"Half Volume", {50}}, {"Double Volume", {200}}, {"Triple Volume", {300}}};

// ---- Compressor ----
constexpr LSPFieldDesc kDRCFields[] = {
    LinearDB("Threshold", -60, 0, -60, 8196, 8192),
    {"Ratio", LSPV_Double, 1.0, 5.0, "", 1.0, LSPForm::RatioGain, 1.0, 8193, kFloat},
    Field("Attack Time", LSPV_Time, 1, 1000, "", 20, 8194),
    LinearDB("Limit", -60, 0, 0, 8197, 8195),
    Field("Release Time", LSPV_Time, 1, 1000, "", 500, 8198),
};
constexpr int kDRCSaveOrder[] = {0, 1, 2, 4, 3};
// Kept in the table and honoured by SetPreset and GetIndexInPreset, never offered.
constexpr LSPPresetDesc kDRCPresets[] = {
    {"Gentle", {-20, 2.0, 20, 0, 500}},
    {"Firm", {-30, 4.0, 10, -1, 300}},
};

// ---- Echo ----
constexpr LSPFieldDesc kEchoFields[] = {
    Field("Gain", LSPV_Int32, 1, 99, "%", 50, 8193),
    {"Time", LSPV_Time, 1, 4000, "ms", 100, LSPForm::Plain, 1.0, 8194, kInt, LSPFileForm::Same, 0, 1.0, true},
};
constexpr LSPPresetDesc kEchoPresets[] = {{"Living Room", {10, 50}}, {"Cave", {40, 400}}, {"Grand Canyon", {75, 750}}};

// ---- Chorus ----
constexpr LSPFieldDesc kChorusFields[] = {
    Field("Gain Percentage", LSPV_Int32, 1, 100, "%", 70, 8195),
    Field("Delay Time", LSPV_Int32, 10, 100, "ms", 40, 8192),
    Field("Modulation Frequency", LSPV_Double, 0.0, 2.0, "Hz", 0.5, 8193, kFloat),
    Field("Modulation Depth", LSPV_Int32, 0, 30, "%", 5, 8194),
};
constexpr int kChorusSaveOrder[] = {1, 2, 3, 0};
constexpr LSPPresetDesc kChorusPresets[] = {
    {"Strong", {80, 40, 0.5, 5}}, {"Medium", {80, 65, 0.5, 5}}, {"Soft", {50, 40, 0.5, 5}}};

// ---- Flanger ----
constexpr LSPFieldDesc kFlangerFields[] = {
    Field("Delay", LSPV_Int32, 0, 100, "ms", 5, 8192),
    Field("Modulation Frequency", LSPV_Double, 0.0, 10.0, "Hz", 5.0, 8193, kFloat),
    Field("Modulation Depth", LSPV_Int32, 0, 100, "%", 70, 8194),
    Field("Gain", LSPV_Int32, 0, 100, "%", 60, 8195),
};
constexpr LSPPresetDesc kFlangerPresets[] = {
    {"Strong", {5, 5.0, 70, 100}}, {"Medium", {5, 5.0, 70, 90}}, {"Soft", {5, 5.0, 70, 50}}};

// ---- Reverb ----
constexpr LSPFieldDesc kReverbFields[] = {
    Field("Decay", LSPV_Int32, 1, 4000, "ms", 100, 8193),
    Field("Diffusion", LSPV_UInt8, 0, 100, "", 20, 8194),
    LinearDB("Wet", -127, 127, 0, 8197, 8195),
    LinearDB("Dry", -127, 127, 0, 8198, 8196),
};
constexpr LSPPresetDesc kReverbPresets[] = {{"Living Room", {50, 50, 0, 0}},
                                            {"Bathroom", {250, 50, 0, 0}},
                                            {"Auditorium", {500, 50, 0, 0}},
                                            {"Hangar", {1000, 50, 0, 0}}};

// ---- Distortion ----
constexpr LSPFieldDesc kDistortionFields[] = {
    {"Degree", LSPV_Double, 0.0, 100.0, "%", 0.5, LSPForm::Scaled, 0.01, 8192, kFloat},
    {"Level", LSPV_DB, -32, 0, "dB", 0.1, LSPForm::GainDB, 1.0, 8194, kFloat, LSPFileForm::Same, 8193, k2Pow17},
};
constexpr LSPPresetDesc kDistortionPresets[] = {
    {"Clip", {100, -32}}, {"Heavy", {60, -24}}, {"Medium", {30, -18}}, {"Light", {10, -12}}};

// ---- Filters ----
constexpr LSPFieldDesc kHighPassFields[] = {Field("Frequency", LSPV_Int32, 1, 20000, "Hz", 50, 8192)};
constexpr LSPPresetDesc kHighPassPresets[] = {{"General Audio Cleanup", {200}},
                                              {"Radio / Telephone Quality Audio", {4000}}};
constexpr LSPFieldDesc kLowPassFields[] = {Field("Frequency", LSPV_Int32, 1, 20000, "Hz", 1600, 8192)};

// ---- Pitch ----
constexpr LSPFieldDesc kPitchSpeedFields[] = {Field("Pitch", LSPV_Double, 0.1, 2.0, "", 1.0, 8192, kFloat)};
constexpr LSPFieldDesc kPitchFields[] = {Field("Pitch Shift", LSPV_Double, 0.6, 2.0, "", 1.0, 8192, kFloat)};
constexpr LSPFieldDesc kVoicePitchFields[] = {
    Scaled("Pitch", LSPV_Double, 50.0, 400.0, "%", 1.0, 0.01, 8192),
    Field("Preserve Formants", LSPV_Bool, 0, 1, "", 1, 8193, kBool),
};

// ---- Modulation ----
constexpr LSPFieldDesc kTremoloFields[] = {
    Field("Frequency", LSPV_Double, 1.0, 15.0, "Hz", 1.0, 8193, kFloat),
    Field("Depth", LSPV_UInt16, 0, 100, "%", 100, 8194),
};
constexpr LSPPresetDesc kTremoloPresets[] = {{"Strong", {12, 100}}, {"Medium", {8, 75}}, {"Soft", {4, 50}}};

constexpr LSPFieldDesc kVibratoFields[] = {
    Field("Frequency (Hz)", LSPV_Double, 1.0, 15.0, "", 1.0, 8193, kFloat),
    Field("Depth (Semitone)", LSPV_Double, 0.01, 0.9, "", 0.01, 8194, kFloat),
};
constexpr LSPPresetDesc kVibratoPresets[] = {{"Strong", {10, 0.9}}, {"Medium", {6, 0.5}}, {"Soft", {3, 0.25}}};

constexpr LSPFieldDesc kDopplerFields[] = {
    Scaled("Velocity (Km/h)", LSPV_Double, 1.0, 1000.0, "", kKmhToMs, kKmhToMs, 8193),
    Field("Listener Horz Pos (%)", LSPV_UInt16, 0, 100, "", 0, 8194),
    Field("Listener Vert Pos (m)", LSPV_UInt16, 1, 100, "", 1, 8195),
    Field("Envelope Change", LSPV_Bool, 0, 1, "", 1, 8196, kBool),
};
constexpr LSPPresetDesc kDopplerPresets[] = {
    {"Strong", {1000, 50, 100, kNone}}, {"Medium", {100, 50, 75, kNone}}, {"Soft", {50, 50, 50, kNone}}};

constexpr LSPFieldDesc kWahwahFields[] = {
    Field("Resonance", LSPV_UInt16, 1, 100, "%", 80, 8193),
    Field("Depth", LSPV_UInt16, 1, 100, "%", 100, 8194),
    Field("Center Frequency", LSPV_UInt16, 1, 5000, "Hz", 500, 8195),
    Field("Wah Frequency", LSPV_Double, 0.001, 10.0, "Hz", 5.0, 8196, kFloat),
};
constexpr LSPPresetDesc kWahwahPresets[] = {
    {"Strong", {75, 100, 500, 5}}, {"Medium", {60, 80, 450, 5}}, {"Soft", {50, 70, 400, 4}}};

// ---- 3 band equaliser: its own chunks ----
constexpr LSPFieldDesc kEq3Fields[] = {
    Field("Gain (100 Hz)", LSPV_DB, -127, 12, "dB", 0, 0),
    Field("Gain (900 Hz)", LSPV_DB, -127, 12, "dB", 0, 0),
    Field("Gain (2500 Hz)", LSPV_DB, -127, 12, "dB", 0, 0),
};

constexpr LSPEffectDesc kEffects[] = {
    {LSPT_Gain, "Amplify", kGainFields, kGainPresets, 4},
    {LSPT_DRCSimple, "Compressor", kDRCFields, kDRCPresets, 0, kDRCSaveOrder},
    {LSPT_Echo, "Echo", kEchoFields, kEchoPresets, 3},
    {LSPT_Chorus, "Chorus", kChorusFields, kChorusPresets, 3, kChorusSaveOrder},
    {LSPT_Distortion, "Distortion", kDistortionFields, kDistortionPresets, 4},
    {LSPT_HighPass, "High Pass", kHighPassFields, kHighPassPresets, 2},
    {LSPT_Flanger, "Flanger", kFlangerFields, kFlangerPresets, 3},
    {LSPT_Reverb3, "Reverb", kReverbFields, kReverbPresets, 4},
    {LSPT_PitchSpeed, "Pitch and Speed", kPitchSpeedFields, {}, 0},
    {LSPT_Pitch, "Pitch Shifter", kPitchFields, {}, 0},
    {LSPT_LowPass, "Low Pass", kLowPassFields, {}, 0},
    {LSPT_EqSimple3Band, "3 Band Equalizer", kEq3Fields, {}, 0},
    {LSPT_Tremolo, "Tremolo", kTremoloFields, kTremoloPresets, 3},
    {LSPT_Vibrato, "Vibrato", kVibratoFields, kVibratoPresets, 3},
    {LSPT_Doppler, "Doppler", kDopplerFields, kDopplerPresets, 3},
    {LSPT_Wahwah, "Wah-Wah", kWahwahFields, kWahwahPresets, 3},
    {LSPT_VoicePitch, "Voice Pitch", kVoicePitchFields, {}, 0},
};

LSPEffectDesc const& Desc(int type) {
  return *LSPFindEffectDesc(type);
}

bool IsDecimal(LSPValueType type) {
  return type == LSPV_Double || type == LSPV_Float;
}

// Whole dB from a linear gain, toward zero. A gain saved as a float misses its
// level by a hair either way; the nudge keeps -4 dB from coming back as -3
// while a level that really lies between two whole dB still goes toward zero.
double DBFromLinear(double gain) {
  if (!(gain > 0.0)) return LdB<signed char>::Silence;
  double const dB = 20.0 * std::log10(gain);
  double const nudged = std::trunc(dB + (dB < 0 ? -1e-3 : 1e-3));
  return std::clamp(nudged, -127.0, 127.0);
}

std::mutex gDistortionMutex;
std::function<LSPDistortionDefaults()> gDistortionDefaults;

}  // namespace

LSPEffectDesc const* LSPFindEffectDesc(int type) {
  for (LSPEffectDesc const& d : kEffects) {
    if (d.iType == type) return &d;
  }
  return nullptr;
}

// ---- LSPTableEffect ----

LSPTableEffect::LSPTableEffect(LSPEffectDesc const& desc) : pDesc(&desc) {
  for (std::size_t i = 0; i < desc.Fields.size(); ++i) SetHeld(static_cast<int>(i), desc.Fields[i].dDefault);
}

void LSPTableEffect::SetHeld(int field, double value) {
  LSPFieldDesc const& f = pDesc->Fields[static_cast<std::size_t>(field)];
  if (f.eType == LSPV_DB && f.eForm == LSPForm::Plain) value = std::clamp(std::round(value), -127.0, 127.0);
  if (f.wChunkType == LSDFTypeFloat) {
    value = static_cast<float>(value);
  } else if (f.wChunkType == LSDFTypeBool) {
    value = value != 0.0 ? 1.0 : 0.0;
  } else if (!IsDecimal(f.eType)) {
    value = std::round(value);
  }
  dHeld[field] = value;
}

double LSPTableEffect::GetShown(int field) const {
  LSPFieldDesc const& f = pDesc->Fields[static_cast<std::size_t>(field)];
  double const held = dHeld[field];
  switch (f.eForm) {
    case LSPForm::Plain: return held;
    case LSPForm::Scaled: return held / f.dScale;
    case LSPForm::ScaledCeil: return std::ceil(static_cast<float>(held) * static_cast<float>(1.0 / f.dScale));
    case LSPForm::GainDB:
      return held > 0.0 ? std::round(20.0 * std::log10(held)) : static_cast<double>(LdB<signed char>::Silence);
    case LSPForm::RatioGain: return held > 0.0 ? std::clamp(-20.0 * std::log10(held), f.dMin, f.dMax) : f.dMax;
  }
  return held;
}

void LSPTableEffect::SetShown(int field, double value) {
  LSPFieldDesc const& f = pDesc->Fields[static_cast<std::size_t>(field)];
  if (f.bClampOnSet) value = std::clamp(value, f.dMin, f.dMax);
  switch (f.eForm) {
    case LSPForm::Plain: break;
    case LSPForm::Scaled: value *= f.dScale; break;
    // In float, as the gain is held: 0.07 * 100 in double would come back as 8 %.
    case LSPForm::ScaledCeil: value = static_cast<float>(value) * static_cast<float>(f.dScale); break;
    case LSPForm::GainDB: value = std::pow(10.0, value * 0.05); break;
    case LSPForm::RatioGain: value = std::pow(10.0, -0.05 * value); break;
  }
  SetHeld(field, value);
}

void LSPTableEffect::SetParameterByIndex(int index, void const* value) {
  if (index < 0 || index >= GetNumParameters() || value == nullptr) return;
  SetShown(index, LSPLoadValue(pDesc->Fields[static_cast<std::size_t>(index)].eType, value));
}

void LSPTableEffect::GetParameterByIndex(int index, LSoundProcessParameter* parameter) const {
  if (index < 0 || index >= GetNumParameters() || parameter == nullptr) return;
  LSPFieldDesc const& f = pDesc->Fields[static_cast<std::size_t>(index)];
  parameter->Allocate(f.eType);
  LSPCopyName(parameter->szName, f.szLabel);
  LSPCopyName(parameter->szUnits, f.szUnits);
  LSPStoreValue(f.eType, f.dMin, parameter->pMin);
  LSPStoreValue(f.eType, f.dMax, parameter->pMax);
  LSPStoreValue(f.eType, GetShown(index), parameter->pValue);
}

namespace {

// Walks the fields in the order their chunks are written.
template <class Action>
void ForEachInSaveOrder(LSPEffectDesc const& desc, Action action) {
  if (desc.SaveOrder.empty()) {
    for (std::size_t i = 0; i < desc.Fields.size(); ++i) action(static_cast<int>(i));
  } else {
    for (int i : desc.SaveOrder) action(i);
  }
}

// The value a chunk of the cursor holds for field `f`, in the form the current
// chunk would hold it; false when the chunk is not one of the field's.
bool ReadFieldChunk(LSPChunkCursor& it, LSPFieldDesc const& f, bool byPosition, double& value) {
  std::uint16_t const id = it.GetChunkID();
  std::uint16_t const type = it.GetChunkType();
  if ((byPosition || id == f.wChunk) && type == f.wChunkType) {
    bool b = false;
    std::int32_t i = 0;
    float x = 0.0f;
    if (type == LSDFTypeBool && it.ReadBool(b)) return value = b ? 1.0 : 0.0, true;
    if (type == LSDFTypeInt && it.ReadInt(i)) return value = i, true;
    if (type == LSDFTypeFloat && it.ReadFloat(x)) return value = x, true;
    return false;
  }
  std::int32_t old = 0;
  if (f.wOldChunk != 0 && (byPosition || id == f.wOldChunk) && type == LSDFTypeInt && it.ReadInt(old)) {
    value = old * f.dOldScale;
    return true;
  }
  return false;
}

}  // namespace

bool LSPTableEffect::SaveChunks(LSPChunkWriter& writer) const {
  bool ok = SaveHeader(writer);
  ForEachInSaveOrder(*pDesc, [&](int i) {
    LSPFieldDesc const& f = pDesc->Fields[static_cast<std::size_t>(i)];
    double const held = dHeld[i];
    if (!ok || f.wChunk == 0) return;
    if (f.eFileForm == LSPFileForm::DBAsLinear) {
      ok = writer.WriteFloat(f.wChunk, LdB<signed char>(static_cast<signed char>(held)).GetAmplitude());
    } else if (f.wChunkType == LSDFTypeFloat) {
      ok = writer.WriteFloat(f.wChunk, static_cast<float>(held));
    } else if (f.wChunkType == LSDFTypeBool) {
      ok = writer.WriteBool(f.wChunk, held != 0.0);
    } else {
      ok = writer.WriteInt(f.wChunk, static_cast<std::int32_t>(held));
    }
  });
  return ok;
}

namespace {

double HeldFromFile(LSPFieldDesc const& f, double value) {
  return f.eFileForm == LSPFileForm::DBAsLinear ? DBFromLinear(value) : value;
}

}  // namespace

bool LSPTableEffect::LoadChunks(LSPChunkCursor& it) {
  for (; it.IsValid(); it.Next()) {
    if (LoadHeader(it)) continue;
    for (std::size_t i = 0; i < pDesc->Fields.size(); ++i) {
      LSPFieldDesc const& f = pDesc->Fields[i];
      double value = 0.0;
      if (f.wChunk != 0 && ReadFieldChunk(it, f, false, value)) {
        SetHeld(static_cast<int>(i), HeldFromFile(f, value));
        break;
      }
    }
  }
  return true;
}

bool LSPTableEffect::LoadChunksPositional(LSPChunkCursor& it) {
  ForEachInSaveOrder(*pDesc, [&](int i) {
    LSPFieldDesc const& f = pDesc->Fields[static_cast<std::size_t>(i)];
    if (!bValid || f.wChunk == 0) return;
    double value = 0.0;
    if (!it.IsValid() || !ReadFieldChunk(it, f, true, value)) {
      bValid = false;
      return;
    }
    SetHeld(i, HeldFromFile(f, value));
    it.Next();
  });
  return bValid;
}

void LSPTableEffect::GetPresetsName(int index, char* name) const {
  if (index < 0 || index >= static_cast<int>(pDesc->Presets.size())) {
    name[0] = '\0';
    return;
  }
  LSPCopyName(name, pDesc->Presets[static_cast<std::size_t>(index)].szName);
}

void LSPTableEffect::SetPreset(int index) {
  if (index < 0 || index >= static_cast<int>(pDesc->Presets.size())) return;
  LSPPresetDesc const& row = pDesc->Presets[static_cast<std::size_t>(index)];
  for (int i = 0; i < GetNumParameters(); ++i) {
    if (!std::isnan(row.dValues[i])) SetShown(i, row.dValues[i]);
  }
}

int LSPTableEffect::GetIndexInPreset() const {
  for (std::size_t r = 0; r < pDesc->Presets.size(); ++r) {
    LSPPresetDesc const& row = pDesc->Presets[r];
    bool same = true;
    for (int i = 0; i < GetNumParameters() && same; ++i) {
      double const want = row.dValues[i];
      if (std::isnan(want)) continue;
      double const have = GetShown(i);
      same = IsDecimal(pDesc->Fields[static_cast<std::size_t>(i)].eType) ? std::fabs(have - want) <= 0.01
                                                                         : std::lround(have) == std::lround(want);
    }
    if (same) return static_cast<int>(r);
  }
  return -1;
}

// ---- the effects ----

LSPGain::LSPGain() : LSPTableEffectOf(Desc(LSPT_Gain)) {}
LSPGain::LSPGain(float gain) : LSPTableEffectOf(Desc(LSPT_Gain)) {
  SetHeld(0, gain);
}
LSPDRCSimple::LSPDRCSimple() : LSPTableEffectOf(Desc(LSPT_DRCSimple)) {}
LSPEcho::LSPEcho() : LSPTableEffectOf(Desc(LSPT_Echo)) {}
LSPChorus::LSPChorus() : LSPTableEffectOf(Desc(LSPT_Chorus)) {}
LSPFlanger::LSPFlanger() : LSPTableEffectOf(Desc(LSPT_Flanger)) {}
LSPReverb3::LSPReverb3() : LSPTableEffectOf(Desc(LSPT_Reverb3)) {}
LSPPitchSpeed::LSPPitchSpeed() : LSPTableEffectOf(Desc(LSPT_PitchSpeed)) {}
LSPPitch::LSPPitch() : LSPTableEffectOf(Desc(LSPT_Pitch)) {}
LSPVoicePitch::LSPVoicePitch() : LSPTableEffectOf(Desc(LSPT_VoicePitch)) {}
LSPTremolo::LSPTremolo() : LSPTableEffectOf(Desc(LSPT_Tremolo)) {}
LSPVibrato::LSPVibrato() : LSPTableEffectOf(Desc(LSPT_Vibrato)) {}
LSPDoppler::LSPDoppler() : LSPTableEffectOf(Desc(LSPT_Doppler)) {}
LSPWahwah::LSPWahwah() : LSPTableEffectOf(Desc(LSPT_Wahwah)) {}

LSPHighPass::LSPHighPass(int frequency, int strength) : LSPTableEffectOf(Desc(LSPT_HighPass)), iStrength(strength) {
  SetHeld(0, frequency);
}

LSPLowPass::LSPLowPass(int frequency) : LSPTableEffectOf(Desc(LSPT_LowPass)) {
  SetHeld(0, frequency);
}

void LSPSetDistortionDefaultsProvider(std::function<LSPDistortionDefaults()> provider) {
  std::lock_guard<std::mutex> lock(gDistortionMutex);
  gDistortionDefaults = std::move(provider);
}

namespace {

LSPDistortionDefaults DistortionDefaults() {
  std::lock_guard<std::mutex> lock(gDistortionMutex);
  return gDistortionDefaults ? gDistortionDefaults() : LSPDistortionDefaults{};
}

}  // namespace

LSPDistortion::LSPDistortion() : LSPTableEffectOf(Desc(LSPT_Distortion)) {
  LSPDistortionDefaults const d = DistortionDefaults();
  SetHeld(0, d.dDegree);
  SetHeld(1, d.fLevel);
  iGain = d.iGain;
}

LSPDistortion::LSPDistortion(double degree, float level, int gain) : LSPTableEffectOf(Desc(LSPT_Distortion)) {
  SetHeld(0, degree);
  SetHeld(1, level);
  iGain = gain;
}

// ---- 3 band equaliser ----

namespace LSPEqSimpleChunk {
constexpr std::uint16_t Count = 8192;
constexpr std::uint16_t Frequency = 8194;
constexpr std::uint16_t Gain = 8195;
constexpr std::uint16_t Q = 8196;
}  // namespace LSPEqSimpleChunk

LSPEqSimple3Band::LSPEqSimple3Band() : LSPTableEffectOf(Desc(LSPT_EqSimple3Band)) {}

float LSPEqSimple3Band::BandQ() {
  return std::bit_cast<float>(std::uint32_t{0x41266666});
}

bool LSPEqSimple3Band::SaveChunks(LSPChunkWriter& writer) const {
  bool ok = SaveHeader(writer) && writer.WriteInt(LSPEqSimpleChunk::Count, 3);
  for (int b = 0; b < 3 && ok; ++b) {
    ok = writer.WriteInt(LSPEqSimpleChunk::Frequency, kFrequencies[b]) &&
         writer.WriteInt(LSPEqSimpleChunk::Gain, static_cast<std::int32_t>(GetHeld(b))) &&
         writer.WriteFloat(LSPEqSimpleChunk::Q, BandQ());
  }
  return ok;
}

namespace {

// The field of the band at `frequency`, or -1: bands are matched by frequency,
// since a band list comes back reversed from an older load.
int BandOf(std::int32_t frequency) {
  for (int b = 0; b < 3; ++b) {
    if (LSPEqSimple3Band::kFrequencies[b] == frequency) return b;
  }
  return -1;
}

}  // namespace

bool LSPEqSimple3Band::LoadChunks(LSPChunkCursor& it) {
  int band = -1;
  for (; it.IsValid(); it.Next()) {
    if (LoadHeader(it)) continue;
    std::int32_t v = 0;
    if (it.GetChunkType() != LSDFTypeInt || !it.ReadInt(v)) continue;
    if (it.GetChunkID() == LSPEqSimpleChunk::Frequency) band = BandOf(v);
    if (it.GetChunkID() == LSPEqSimpleChunk::Gain && band >= 0) SetHeld(band, v);
  }
  return true;
}

bool LSPEqSimple3Band::LoadChunksPositional(LSPChunkCursor& it) {
  std::int32_t count = 0;
  if (!it.IsValid() || !it.ReadInt(count) || count < 0) return bValid = false;
  it.Next();
  for (std::int32_t i = 0; i < count; ++i) {
    std::int32_t frequency = 0, dB = 0;
    float q = 0.0f;
    if (!it.IsValid() || !it.ReadInt(frequency)) return bValid = false;
    it.Next();
    if (!it.IsValid() || !it.ReadInt(dB)) return bValid = false;
    it.Next();
    if (!it.IsValid() || !it.ReadFloat(q)) return bValid = false;
    it.Next();
    if (int const band = BandOf(frequency); band >= 0) SetHeld(band, dB);
  }
  return true;
}

// ---- signal work ----

LSoundSource LSPGain::OpenSource(LSoundSource const& source) {
  return LSoundSource::Make<LSRCGain>(source, GetGain());
}

LSoundSource LSPHighPass::OpenSource(LSoundSource const& source) {
  return LSoundSource::Make<LSRCHighPass>(source, GetFrequency(), iStrength);
}

LSoundSource LSPLowPass::OpenSource(LSoundSource const& source) {
  return LSoundSource::Make<LSRCLowPass>(source, GetFrequency());
}
