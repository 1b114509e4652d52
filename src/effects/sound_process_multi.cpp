#include "effects/sound_process_multi.h"

#include <strings.h>
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "effects/table_effects.h"

LSoundProcessMulti::LSoundProcessMulti(LSoundProcessMulti const& other) {
  *this = other;
}

LSoundProcessMulti& LSoundProcessMulti::operator=(LSoundProcessMulti const& other) {
  if (this == &other) return *this;
  std::vector<std::unique_ptr<LSoundProcess>> copies;
  copies.reserve(other.vProcesses.size());
  for (auto const& p : other.vProcesses) copies.push_back(p->GetNewCopy());
  vProcesses = std::move(copies);
  return *this;
}

LSoundProcess* LSoundProcessMulti::GetAt(int index) const {
  if (index < 0 || index >= GetCount()) return nullptr;
  return vProcesses[static_cast<std::size_t>(index)].get();
}

LSoundProcess* LSoundProcessMulti::Append(std::unique_ptr<LSoundProcess> process) {
  return Insert(GetCount(), std::move(process));
}

LSoundProcess* LSoundProcessMulti::Insert(int index, std::unique_ptr<LSoundProcess> process) {
  if (!process) return nullptr;
  index = std::clamp(index, 0, GetCount());
  LSoundProcess* p = process.get();
  vProcesses.insert(vProcesses.begin() + index, std::move(process));
  return p;
}

std::unique_ptr<LSoundProcess> LSoundProcessMulti::Detach(int index) {
  if (index < 0 || index >= GetCount()) return nullptr;
  std::unique_ptr<LSoundProcess> p = std::move(vProcesses[static_cast<std::size_t>(index)]);
  vProcesses.erase(vProcesses.begin() + index);
  return p;
}

LSoundSource LSoundProcessMulti::OpenSource(LSoundSource const& source) const {
  LSoundSource current = source;
  for (auto const& p : vProcesses) {
    if (!p->bBypass) current = p->OpenSource(current);
  }
  return current;
}

bool LSoundProcessMulti::SaveChunks(LSPChunkWriter& writer) const {
  bool ok = true;
  for (auto const& p : vProcesses) {
    ok = ok && writer.WriteInt(LSPChunk::ChainType, p->GetSoundProcessType()) &&
         writer.StartContainer(LSPChunk::ChainEffect) && p->SaveChunks(writer) &&
         writer.EndContainer(LSPChunk::ChainEffect);
  }
  return ok;
}

bool LSoundProcessMulti::LoadChunks(LSPChunkCursor& it) {
  std::int32_t type = LSPT_None;
  for (; it.IsValid(); it.Next()) {
    if (it.GetChunkID() == LSPChunk::ChainType && it.GetChunkType() == LSDFTypeInt) {
      it.ReadInt(type);
    } else if (it.GetChunkID() == LSPChunk::ChainEffect && it.GetChunkType() == LSDFTypeContainer) {
      std::unique_ptr<LSoundProcess> p = CreateSoundProcessByType(type);
      if (!p) return true;
      std::unique_ptr<LSPChunkCursor> inner = it.Enter();
      p->LoadChunks(*inner);
      type = LSPT_None;
      if (p->GetSoundProcessType() != LSPT_PointListEq) Append(std::move(p));
    }
  }
  return true;
}

bool LSoundProcessMulti::LoadChunksPositional(LSPChunkCursor& it) {
  std::int32_t count = 0;
  if (!it.IsValid() || !it.ReadInt(count)) return false;
  it.Next();
  for (std::int32_t i = 0; i < count; ++i) {
    std::int32_t type = 0;
    if (!it.IsValid() || !it.ReadInt(type)) return false;
    it.Next();
    if (type == LSPT_PointListEq) return true;
    std::unique_ptr<LSoundProcess> p = CreateSoundProcessByType(type);
    if (!p) return true;
    // Where an effect's values end is known only to the effect, so one that
    // could not read its own is the end of what can be read.
    if (!p->LoadChunksPositional(it) || !p->IsValid()) return true;
    Append(std::move(p));
  }
  return true;
}

std::unique_ptr<LSoundProcess> LSoundProcessMulti::CreateSoundProcessByType(int type) {
  switch (type) {
    case LSPT_None: return nullptr;
    case LSPT_Gain: return std::make_unique<LSPGain>();
    case LSPT_DRCSimple: return std::make_unique<LSPDRCSimple>();
    case LSPT_Echo: return std::make_unique<LSPEcho>();
    case LSPT_Chorus: return std::make_unique<LSPChorus>();
    case LSPT_Distortion: return std::make_unique<LSPDistortion>();
    case LSPT_HighPass: return std::make_unique<LSPHighPass>();
    case LSPT_Flanger: return std::make_unique<LSPFlanger>();
    case LSPT_Reverb3: return std::make_unique<LSPReverb3>();
    case LSPT_PitchSpeed: return std::make_unique<LSPPitchSpeed>();
    case LSPT_Pitch: return std::make_unique<LSPPitch>();
    case LSPT_LowPass: return std::make_unique<LSPLowPass>();
    case LSPT_EqSimple3Band: return std::make_unique<LSPEqSimple3Band>();
    case LSPT_Tremolo: return std::make_unique<LSPTremolo>();
    case LSPT_Vibrato: return std::make_unique<LSPVibrato>();
    case LSPT_Doppler: return std::make_unique<LSPDoppler>();
    case LSPT_Wahwah: return std::make_unique<LSPWahwah>();
    case LSPT_VoicePitch: return std::make_unique<LSPVoicePitch>();
    // The equalisers and the graphic compressor keep their saved form until
    // their editors and sources exist.
    case LSPT_PointListEq: return std::make_unique<LSPKeptChunks>(type, "Equalizer", 1);
    case LSPT_ParametricEqBand: return std::make_unique<LSPKeptChunks>(type, "Parametric EQ", 3);
    case LSPT_GraphicEqBand: return std::make_unique<LSPKeptChunks>(type, "Graphic EQ", 3);
    case LSPT_EqPointLine: return std::make_unique<LSPKeptChunks>(type, "Visual EQ", 4);
    case LSPT_EqSimple: return std::make_unique<LSPKeptChunks>(type, "Band Equalizer", 1);
    case LSPT_DRCPointLine: return std::make_unique<LSPKeptChunks>(type, "Graphic Compressor", 5);
    default: return std::make_unique<LSPUnknown>(type);
  }
}

bool LSPHasSignalWork(int type) {
  return type == LSPT_Gain || type == LSPT_HighPass || type == LSPT_LowPass;
}

// ---- chain files ----

bool LSPSaveChainFile(LSoundProcessMulti const& chain, std::string const& path) {
  LOutputStreamFile stream;
  if (!stream.Open(path)) return false;
  LSDFWriter<LOutputStreamFile> writer;
  bool ok = writer.Open(stream, LSPChainFileType, LSPChainFileVersion) && chain.SaveToSDF(writer);
  ok = writer.Close() && ok;
  return stream.Close() && ok;
}

bool LSPLoadChainFile(LSoundProcessMulti& chain, std::string const& path) {
  LInputStreamFile stream;
  if (!stream.Open(path)) return false;
  LSDFReader<LInputStreamFile> reader;
  if (!reader.Open(stream, LSPChainFileType) || reader.GetFormatVersion() != LSPChainFileVersion) return false;
  LSDFReaderChunkIterator<LInputStreamFile> it(reader);
  return chain.LoadFromSDF(reader, it);
}

// ---- the oldest records ----

int LSoundProcessChainItem::GetInt(char const* key, int fallback) const {
  auto const found = Values.find(key);
  return found == Values.end() ? fallback : std::atoi(found->second.c_str());
}

std::unique_ptr<LSoundProcess> LSoundProcessChainItem::ConvertToSoundProcess() const {
  auto const t = Values.find("type");
  std::string const type = t == Values.end() ? "UNKOWN" : t->second;
  auto is = [&](char const* name) { return ::strcasecmp(type.c_str(), name) == 0; };

  std::unique_ptr<LSPTableEffect> p;
  if (is("High Pass")) {
    p = std::make_unique<LSPHighPass>(GetInt("Frequency", 50), 100);
  } else if (is("Amplify")) {
    p = std::make_unique<LSPGain>();
    p->SetShown(0, GetInt("Gain", 100));
  } else if (is("Compressor")) {
    p = std::make_unique<LSPDRCSimple>();
    p->SetHeld(0, static_cast<signed char>(GetInt("Threshold", 0)));
    p->SetHeld(1, std::pow(10.0, GetInt("Ratio", 100) * 0.01 * -0.05));
    p->SetHeld(2, 100);
    p->SetHeld(3, static_cast<signed char>(GetInt("Limit", 127)));
    p->SetHeld(4, 500);
  } else if (is("Echo")) {
    p = std::make_unique<LSPEcho>();
    p->SetHeld(0, GetInt("Gain", 50));
    p->SetHeld(1, GetInt("Delay", 100));
  } else if (is("Distortion")) {
    p = std::make_unique<LSPDistortion>(GetInt("Degree", 50) * 0.01,
                                        static_cast<float>(std::pow(10.0, GetInt("Level", 0) * 0.05)), 100);
  } else if (is("Flanger")) {
    p = std::make_unique<LSPFlanger>();
    p->SetHeld(0, GetInt("Delay", 5));
    p->SetHeld(1, GetInt("Modulation", 5));
    p->SetHeld(2, GetInt("Depth", 50));
    p->SetHeld(3, GetInt("Gain", 50));
  } else if (is("Chorus")) {
    p = std::make_unique<LSPChorus>();
    p->SetHeld(1, GetInt("Delay", 40));
    p->SetHeld(2, GetInt("Modulation", 50) * 0.01);
    p->SetHeld(3, GetInt("Depth", 5));
    p->SetHeld(0, GetInt("Gain", 70));
  } else if (is("Reverb 3")) {
    p = std::make_unique<LSPReverb3>();
    p->SetHeld(0, GetInt("Decay", 100));
    p->SetHeld(1, GetInt("Diffusion", 20));
    p->SetHeld(2, GetInt("DBWet", 0));
    p->SetHeld(3, GetInt("DBDry", 0));
  } else {
    return nullptr;
  }
  p->bBypass = !bEnabled;
  return p;
}
