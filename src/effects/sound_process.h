#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "effects/effect_chunks.h"
#include "foundation/sdf.h"
#include "sound/sound_source.h"

// Process types: the number an effect chain stores for each effect.
enum LSoundProcessType : int {
  LSPT_None = 0,  // makes nothing; a load stops at it
  LSPT_Gain = 1,
  LSPT_DRCSimple = 2,
  LSPT_Echo = 3,
  LSPT_Chorus = 4,
  LSPT_Distortion = 5,
  LSPT_HighPass = 6,
  LSPT_Flanger = 7,
  LSPT_Reverb3 = 8,
  LSPT_PointListEq = 9,
  LSPT_ParametricEqBand = 10,
  LSPT_GraphicEqBand = 11,
  LSPT_EqPointLine = 12,
  LSPT_PitchSpeed = 13,
  LSPT_Pitch = 14,
  LSPT_LowPass = 15,
  LSPT_EqSimple = 16,
  LSPT_EqSimple3Band = 17,
  LSPT_Tremolo = 19,
  LSPT_Vibrato = 20,
  LSPT_Doppler = 21,
  LSPT_Wahwah = 22,
  LSPT_DRCPointLine = 23,
  LSPT_VoicePitch = 24,
  LSPT_ExternalPlugin = 32767,  // reserved: hosted plug-ins, whose editor is their own
};

// Value types of a parameter, as GetParameterByIndex describes them.
enum LSPValueType : int {
  LSPV_Int32 = 0,
  LSPV_Int16 = 1,
  LSPV_UInt8 = 2,
  LSPV_Double = 3,
  LSPV_DB = 4,  // LdB<signed char>: whole dB in a signed byte, -127 silence
  LSPV_Bool = 5,
  LSPV_Float = 6,
  LSPV_Time = 7,  // LSoundTime, milliseconds
  LSPV_UInt16 = 9,
};

// Size in bytes of one value of `type`; 0 for a number that is no type.
std::size_t LSPValueSize(int type);

// The self-description of one parameter, filled by GetParameterByIndex. Its
// minimum, maximum and current value are allocated here, in the parameter's own
// value type, and freed when the object is filled again or destroyed.
class LSoundProcessParameter {
 public:
  LSoundProcessParameter() = default;
  ~LSoundProcessParameter() { Free(); }
  LSoundProcessParameter(LSoundProcessParameter const&) = delete;
  LSoundProcessParameter& operator=(LSoundProcessParameter const&) = delete;

  // Frees what the object held and allocates three values of `type`, zeroed.
  void Allocate(int type);
  void Free();

  // The three values read as a double, whatever their type; 0 when empty.
  double GetMin() const { return ValueAsDouble(pMin); }
  double GetMax() const { return ValueAsDouble(pMax); }
  double GetValue() const { return ValueAsDouble(pValue); }

  int eType = -1;
  char szName[260] = {};
  char szUnits[16] = {};
  int iSize = 0;
  void* pMin = nullptr;
  void* pMax = nullptr;
  void* pValue = nullptr;
  bool bOwnsData = false;

 private:
  double ValueAsDouble(void const* p) const;
};

// Writes `value` as a value of `type` into `out`, which has room for it.
void LSPStoreValue(int type, double value, void* out);
// Reads a value of `type`.
double LSPLoadValue(int type, void const* in);

// The description of one effect: its parameters, presets and saved form. It does
// no signal work itself: OpenSource builds, from the values it holds at that
// moment, a source that does the work, so that a running graph never sees a
// parameter change and no lock is needed between the two threads.
class LSoundProcess : public LSPChunkFaces<LSoundProcess> {
 public:
  LSoundProcess() = default;
  virtual ~LSoundProcess() = default;
  LSoundProcess(LSoundProcess const&) = default;
  LSoundProcess& operator=(LSoundProcess const&) = default;

  // The source that runs the effect over `source`; by default `source` itself.
  virtual LSoundSource OpenSource(LSoundSource const& source);
  // Up to 259 bytes and a terminating zero into `name`.
  virtual void GetName(char* name) const;
  virtual int GetSoundProcessType() const { return LSPT_None; }
  virtual std::unique_ptr<LSoundProcess> GetNewCopy() const = 0;
  virtual bool IsValid() const { return true; }
  virtual int GetNumParameters() const { return 0; }
  // `value` points to a value of the parameter's own type. An index out of range
  // does nothing.
  virtual void SetParameterByIndex(int index, void const* value);
  // An index out of range leaves `parameter` as it was.
  virtual void GetParameterByIndex(int index, LSoundProcessParameter* parameter) const;

  // The chunks inside the chain's container for this effect. The base writes the
  // bypass flag alone; every effect of ours writes its header container first.
  virtual bool SaveChunks(LSPChunkWriter& writer) const;
  // Reads the chunks of the container `it` walks; chunks it does not know are
  // skipped. The base reads the bypass flag wherever it stands.
  virtual bool LoadChunks(LSPChunkCursor& it);
  // The oldest form: the effect's values one chunk after another in a fixed
  // order, no header, the cursor left on the chunk after the last one read.
  virtual bool LoadChunksPositional(LSPChunkCursor& it);

  // 1 the generic parameter editor; 3 bands, 4 visual equaliser, 5 graphic
  // compressor.
  virtual int GetEditorType() const { return 1; }
  virtual bool IsExternalGUI() const { return false; }
  virtual bool OpenEditor(void* window);
  virtual void CloseEditor() {}
  virtual void GetEditorSize(int& width, int& height) const;

  virtual int GetNumPresets() const { return 0; }
  virtual void GetPresetsName(int index, char* name) const;
  // An index past the table is ignored.
  virtual void SetPreset(int index);
  virtual void SetPresetData(void const*) {}
  // The first preset row equal to the current values, or -1.
  virtual int GetIndexInPreset() const { return -1; }

  std::string GetNameString() const;

  // Skipped when the chain opens; kept in the list and in the file.
  bool bBypass = false;

 protected:
  // The header container every effect of ours starts with.
  bool SaveHeader(LSPChunkWriter& writer) const;
  // Reads the header when `it` stands on it; true when it did.
  bool LoadHeader(LSPChunkCursor& it);
};

// Copies a name into the 260-byte buffers names are handed in.
void LSPCopyName(char* out, char const* name);

// Keeps an effect's saved chunks as they came and writes them back unchanged,
// the bypass flag apart, which it reads and writes in the header so a bypassed
// effect stays bypassed. Passes audio untouched and has no parameters.
class LSPKeptChunks : public LSoundProcess {
 public:
  LSPKeptChunks(int type, char const* name, int editorType);

  LSoundSource OpenSource(LSoundSource const& source) override { return source; }
  void GetName(char* name) const override { LSPCopyName(name, szName); }
  int GetSoundProcessType() const override { return iType; }
  std::unique_ptr<LSoundProcess> GetNewCopy() const override { return std::make_unique<LSPKeptChunks>(*this); }
  int GetEditorType() const override { return iEditorType; }
  bool SaveChunks(LSPChunkWriter& writer) const override;
  bool LoadChunks(LSPChunkCursor& it) override;
  // Effects kept this way have no known positional form: nothing is read and the
  // effect reports itself invalid, so an old chain stops there.
  bool LoadChunksPositional(LSPChunkCursor& it) override;
  bool IsValid() const override { return bValid; }

  LSDFUnknownChunkList const& GetHeaderChunks() const { return vHeader; }
  LSDFUnknownChunkList const& GetChunks() const { return vChunks; }

 private:
  int iType;
  char const* szName;
  int iEditorType;
  bool bValid = true;
  bool bHadHeader = false;
  LSDFUnknownChunkList vHeader;  // the header's children other than the bypass flag
  LSDFUnknownChunkList vChunks;  // everything after the header
};

// A type this build does not know, from a newer version or a damaged file. It
// keeps the type's number and every chunk, so a project survives a load and a
// save by a version that cannot play the effect.
class LSPUnknown final : public LSPKeptChunks {
 public:
  explicit LSPUnknown(int type) : LSPKeptChunks(type, "Unknown", 1) {}
  std::unique_ptr<LSoundProcess> GetNewCopy() const override { return std::make_unique<LSPUnknown>(*this); }
};
