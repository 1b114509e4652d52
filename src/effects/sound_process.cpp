#include "effects/sound_process.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "foundation/db.h"
#include "foundation/sound_time.h"

std::size_t LSPValueSize(int type) {
  switch (type) {
    case LSPV_Int32: return sizeof(std::int32_t);
    case LSPV_Int16: return sizeof(std::int16_t);
    case LSPV_UInt8: return sizeof(std::uint8_t);
    case LSPV_Double: return sizeof(double);
    case LSPV_DB: return sizeof(LdB<signed char>);
    case LSPV_Bool: return sizeof(bool);
    case LSPV_Float: return sizeof(float);
    case LSPV_Time: return sizeof(LSoundTime);
    case LSPV_UInt16: return sizeof(std::uint16_t);
    default: return 0;
  }
}

namespace {

template <class T>
T Whole(double value) {
  return static_cast<T>(std::lround(value));
}

}  // namespace

void LSPStoreValue(int type, double value, void* out) {
  switch (type) {
    case LSPV_Int32: *static_cast<std::int32_t*>(out) = Whole<std::int32_t>(value); break;
    case LSPV_Int16: *static_cast<std::int16_t*>(out) = Whole<std::int16_t>(value); break;
    case LSPV_UInt8: *static_cast<std::uint8_t*>(out) = Whole<std::uint8_t>(value); break;
    case LSPV_Double: *static_cast<double*>(out) = value; break;
    case LSPV_DB: *static_cast<LdB<signed char>*>(out) = LdB<signed char>(Whole<signed char>(value)); break;
    case LSPV_Bool: *static_cast<bool*>(out) = value != 0.0; break;
    case LSPV_Float: *static_cast<float*>(out) = static_cast<float>(value); break;
    case LSPV_Time: *static_cast<LSoundTime*>(out) = Whole<LSoundTime>(value); break;
    case LSPV_UInt16: *static_cast<std::uint16_t*>(out) = Whole<std::uint16_t>(value); break;
    default: break;
  }
}

double LSPLoadValue(int type, void const* in) {
  switch (type) {
    case LSPV_Int32: return *static_cast<std::int32_t const*>(in);
    case LSPV_Int16: return *static_cast<std::int16_t const*>(in);
    case LSPV_UInt8: return *static_cast<std::uint8_t const*>(in);
    case LSPV_Double: return *static_cast<double const*>(in);
    case LSPV_DB: return static_cast<LdB<signed char> const*>(in)->Get();
    case LSPV_Bool: return *static_cast<bool const*>(in) ? 1.0 : 0.0;
    case LSPV_Float: return *static_cast<float const*>(in);
    case LSPV_Time: return *static_cast<LSoundTime const*>(in);
    case LSPV_UInt16: return *static_cast<std::uint16_t const*>(in);
    default: return 0.0;
  }
}

// ---- LSoundProcessParameter ----

void LSoundProcessParameter::Allocate(int type) {
  Free();
  std::size_t const size = LSPValueSize(type);
  eType = type;
  iSize = static_cast<int>(size);
  if (size == 0) return;
  pMin = std::calloc(1, size);
  pMax = std::calloc(1, size);
  pValue = std::calloc(1, size);
  bOwnsData = true;
}

void LSoundProcessParameter::Free() {
  if (bOwnsData) {
    std::free(pMin);
    std::free(pMax);
    std::free(pValue);
  }
  pMin = pMax = pValue = nullptr;
  bOwnsData = false;
  iSize = 0;
}

double LSoundProcessParameter::ValueAsDouble(void const* p) const {
  return p == nullptr ? 0.0 : LSPLoadValue(eType, p);
}

// ---- LSoundProcess ----

void LSPCopyName(char* out, char const* name) {
  std::size_t const n = std::min<std::size_t>(std::strlen(name), 259);
  std::memcpy(out, name, n);
  out[n] = '\0';
}

LSoundSource LSoundProcess::OpenSource(LSoundSource const& source) {
  return source;
}

void LSoundProcess::GetName(char* name) const {
  LSPCopyName(name, "Unnamed Effect");
}

std::string LSoundProcess::GetNameString() const {
  char name[260];
  GetName(name);
  return name;
}

void LSoundProcess::SetParameterByIndex(int, void const*) {}
void LSoundProcess::GetParameterByIndex(int, LSoundProcessParameter*) const {}

bool LSoundProcess::SaveChunks(LSPChunkWriter& writer) const {
  return writer.WriteBool(LSPChunk::Bypass, bBypass);
}

bool LSoundProcess::LoadChunks(LSPChunkCursor& it) {
  for (; it.IsValid(); it.Next()) {
    if (it.GetChunkID() == LSPChunk::Bypass && it.GetChunkType() == LSDFTypeBool) it.ReadBool(bBypass);
  }
  return true;
}

bool LSoundProcess::LoadChunksPositional(LSPChunkCursor&) {
  return true;
}

bool LSoundProcess::OpenEditor(void*) {
  return false;
}

void LSoundProcess::GetEditorSize(int& width, int& height) const {
  int const type = GetEditorType();
  if (type == 3 || type == 4 || type == 5) {
    width = 500;
    height = 250;
  } else {
    width = height = 0;
  }
}

void LSoundProcess::GetPresetsName(int, char* name) const {
  name[0] = '\0';
}

void LSoundProcess::SetPreset(int) {}

bool LSoundProcess::SaveHeader(LSPChunkWriter& writer) const {
  return writer.StartContainer(LSPChunk::Header) && writer.WriteBool(LSPChunk::Bypass, bBypass) &&
         writer.EndContainer(LSPChunk::Header);
}

bool LSoundProcess::LoadHeader(LSPChunkCursor& it) {
  if (it.GetChunkID() != LSPChunk::Header || it.GetChunkType() != LSDFTypeContainer) return false;
  std::unique_ptr<LSPChunkCursor> inner = it.Enter();
  for (; inner->IsValid(); inner->Next()) {
    if (inner->GetChunkID() == LSPChunk::Bypass && inner->GetChunkType() == LSDFTypeBool) inner->ReadBool(bBypass);
  }
  return true;
}

// ---- LSPKeptChunks ----

LSPKeptChunks::LSPKeptChunks(int type, char const* name, int editorType)
    : iType(type), szName(name), iEditorType(editorType) {}

bool LSPKeptChunks::SaveChunks(LSPChunkWriter& writer) const {
  bool ok = true;
  if (bHadHeader) {
    ok = writer.StartContainer(LSPChunk::Header) && writer.WriteBool(LSPChunk::Bypass, bBypass);
    for (LSDFUnknownChunk const& c : vHeader) ok = ok && writer.WriteUnknownChunk(c);
    ok = ok && writer.EndContainer(LSPChunk::Header);
  }
  for (LSDFUnknownChunk const& c : vChunks) ok = ok && writer.WriteUnknownChunk(c);
  return ok;
}

bool LSPKeptChunks::LoadChunks(LSPChunkCursor& it) {
  vHeader.clear();
  vChunks.clear();
  bHadHeader = false;
  for (; it.IsValid(); it.Next()) {
    if (!bHadHeader && it.GetChunkID() == LSPChunk::Header && it.GetChunkType() == LSDFTypeContainer) {
      bHadHeader = true;
      std::unique_ptr<LSPChunkCursor> inner = it.Enter();
      for (; inner->IsValid(); inner->Next()) {
        if (inner->GetChunkID() == LSPChunk::Bypass && inner->GetChunkType() == LSDFTypeBool) {
          inner->ReadBool(bBypass);
          continue;
        }
        LSDFUnknownChunk c;
        if (inner->ReadUnknownChunk(c)) vHeader.push_back(std::move(c));
      }
      continue;
    }
    LSDFUnknownChunk c;
    if (it.ReadUnknownChunk(c)) vChunks.push_back(std::move(c));
  }
  return true;
}

bool LSPKeptChunks::LoadChunksPositional(LSPChunkCursor&) {
  bValid = false;
  return false;
}
