#pragma once
#include <cstdint>
#include <functional>
#include <span>

#include "effects/sound_process.h"

// Most effects are a handful of numbers with a label, a range and a chunk each.
// They share one implementation driven by a description table; the classes below
// only name their description and, where they do signal work, open their source.

// How a parameter's value is held, relative to what the user sees.
enum class LSPForm : std::uint8_t {
  Plain,       // held as shown
  Scaled,      // held = shown * dScale
  ScaledCeil,  // held = shown * dScale in float; shown rounded up, so a percentage survives float error
  GainDB,      // held as the linear gain of the dB shown; shown as the rounded dB, -127 for no gain
  RatioGain,   // held = 10^(-shown / 20); shown back clamped to the range
};

// How a held value stands in its chunk.
enum class LSPFileForm : std::uint8_t {
  Same,        // as held
  DBAsLinear,  // held in whole dB, saved as the linear gain, back toward zero
};

struct LSPFieldDesc {
  char const* szLabel;
  LSPValueType eType;
  double dMin, dMax;
  char const* szUnits;
  double dDefault;  // as held
  LSPForm eForm = LSPForm::Plain;
  double dScale = 1.0;
  std::uint16_t wChunk = 0;  // 0: saved by the effect itself
  std::uint16_t wChunkType = LSDFTypeInt;
  LSPFileForm eFileForm = LSPFileForm::Same;
  // An older integer form still read: the chunk's int times dOldScale is the value
  // the current chunk would hold.
  std::uint16_t wOldChunk = 0;
  double dOldScale = 1.0;
  bool bClampOnSet = false;
};

inline constexpr int LSPMaxFields = 5;

// One row of a preset table, in the values the user sees, field by field.
struct LSPPresetDesc {
  char const* szName;
  double dValues[LSPMaxFields];
};

struct LSPEffectDesc {
  int iType;
  char const* szName;
  std::span<LSPFieldDesc const> Fields;
  std::span<LSPPresetDesc const> Presets;  // a NaN leaves its field alone and is not compared
  // How many presets the list offers; a table may hold rows it does not offer.
  int iOfferedPresets;
  // The order the fields' chunks are written in, which old positional files
  // follow too; empty for the order of the fields.
  std::span<int const> SaveOrder = {};
};

// The description of every table-driven effect, by type; null for the others.
LSPEffectDesc const* LSPFindEffectDesc(int type);

class LSPTableEffect : public LSoundProcess {
 public:
  void GetName(char* name) const override { LSPCopyName(name, pDesc->szName); }
  int GetSoundProcessType() const override { return pDesc->iType; }
  bool IsValid() const override { return bValid; }
  int GetNumParameters() const override { return static_cast<int>(pDesc->Fields.size()); }
  void SetParameterByIndex(int index, void const* value) override;
  void GetParameterByIndex(int index, LSoundProcessParameter* parameter) const override;
  bool SaveChunks(LSPChunkWriter& writer) const override;
  bool LoadChunks(LSPChunkCursor& it) override;
  bool LoadChunksPositional(LSPChunkCursor& it) override;
  int GetNumPresets() const override { return pDesc->iOfferedPresets; }
  void GetPresetsName(int index, char* name) const override;
  void SetPreset(int index) override;
  int GetIndexInPreset() const override;

  LSPEffectDesc const& GetDesc() const { return *pDesc; }
  // A field as held (the saved form) and as shown to the user.
  double GetHeld(int field) const { return dHeld[field]; }
  void SetHeld(int field, double value);
  double GetShown(int field) const;
  void SetShown(int field, double value);

 protected:
  explicit LSPTableEffect(LSPEffectDesc const& desc);
  bool bValid = true;

 private:
  LSPEffectDesc const* pDesc;
  double dHeld[LSPMaxFields] = {};
};

template <class Self>
class LSPTableEffectOf : public LSPTableEffect {
 public:
  std::unique_ptr<LSoundProcess> GetNewCopy() const override {
    return std::make_unique<Self>(static_cast<Self const&>(*this));
  }

 protected:
  using LSPTableEffect::LSPTableEffect;
};

// "Amplify": one gain.
class LSPGain final : public LSPTableEffectOf<LSPGain> {
 public:
  LSPGain();
  explicit LSPGain(float gain);
  LSoundSource OpenSource(LSoundSource const& source) override;
  float GetGain() const { return static_cast<float>(GetHeld(0)); }
};

// "Compressor". Its preset rows are kept but never offered.
class LSPDRCSimple final : public LSPTableEffectOf<LSPDRCSimple> {
 public:
  LSPDRCSimple();
};

class LSPEcho final : public LSPTableEffectOf<LSPEcho> {
 public:
  LSPEcho();
};

class LSPChorus final : public LSPTableEffectOf<LSPChorus> {
 public:
  LSPChorus();
};

class LSPFlanger final : public LSPTableEffectOf<LSPFlanger> {
 public:
  LSPFlanger();
};

class LSPReverb3 final : public LSPTableEffectOf<LSPReverb3> {
 public:
  LSPReverb3();
};

// What a new "Distortion" starts from: the user's settings, which the shell reads.
struct LSPDistortionDefaults {
  double dDegree = 0.5;
  float fLevel = 0.1f;  // linear gain
  int iGain = 100;
};
// The shell installs the reader of the user's settings; without one the values
// above are used.
void LSPSetDistortionDefaultsProvider(std::function<LSPDistortionDefaults()> provider);

class LSPDistortion final : public LSPTableEffectOf<LSPDistortion> {
 public:
  LSPDistortion();
  LSPDistortion(double degree, float level, int gain);
  // Not a parameter and saved in no chunk.
  int iGain = 100;
};

class LSPHighPass final : public LSPTableEffectOf<LSPHighPass> {
 public:
  explicit LSPHighPass(int frequency = 50, int strength = 100);
  LSoundSource OpenSource(LSoundSource const& source) override;
  int GetFrequency() const { return static_cast<int>(GetHeld(0)); }
  // Not a parameter and saved in no chunk: every user makes it 100.
  int iStrength;
};

class LSPLowPass final : public LSPTableEffectOf<LSPLowPass> {
 public:
  explicit LSPLowPass(int frequency = 1600);
  LSoundSource OpenSource(LSoundSource const& source) override;
  int GetFrequency() const { return static_cast<int>(GetHeld(0)); }
};

class LSPPitchSpeed final : public LSPTableEffectOf<LSPPitchSpeed> {
 public:
  LSPPitchSpeed();
};

class LSPPitch final : public LSPTableEffectOf<LSPPitch> {
 public:
  LSPPitch();
};

class LSPVoicePitch final : public LSPTableEffectOf<LSPVoicePitch> {
 public:
  LSPVoicePitch();
};

class LSPTremolo final : public LSPTableEffectOf<LSPTremolo> {
 public:
  LSPTremolo();
};

class LSPVibrato final : public LSPTableEffectOf<LSPVibrato> {
 public:
  LSPVibrato();
};

class LSPDoppler final : public LSPTableEffectOf<LSPDoppler> {
 public:
  LSPDoppler();
};

class LSPWahwah final : public LSPTableEffectOf<LSPWahwah> {
 public:
  LSPWahwah();
};

// Three gains at fixed frequencies, saved as the band list of the simple
// equaliser it belongs to.
class LSPEqSimple3Band final : public LSPTableEffectOf<LSPEqSimple3Band> {
 public:
  static constexpr int kFrequencies[3] = {100, 900, 2500};

  LSPEqSimple3Band();
  bool SaveChunks(LSPChunkWriter& writer) const override;
  bool LoadChunks(LSPChunkCursor& it) override;
  bool LoadChunksPositional(LSPChunkCursor& it) override;

  // The Q of every band: the float with the bits 0x41266666, the float nearest 10.4.
  static float BandQ();
};
