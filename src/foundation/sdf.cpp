#include "foundation/sdf.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "foundation/byte_order.h"
#include "foundation/file.h"

namespace {

constexpr unsigned char kMagic[4] = {'l', 's', 'd', 'f'};

// The largest chunk ReadData hands out: sizes beyond this come from damage or
// from data that no caller keeps in one piece.
constexpr std::uint64_t kMaxDataSize = 0xFFFFFFFFu;

void PutLE64(unsigned char* p, std::uint64_t v) {
  LWriteLE32(p, static_cast<std::uint32_t>(v));
  LWriteLE32(p + 4, static_cast<std::uint32_t>(v >> 32));
}

std::uint64_t GetLE64(unsigned char const* p) {
  return static_cast<std::uint64_t>(LReadLE32(p)) | (static_cast<std::uint64_t>(LReadLE32(p + 4)) << 32);
}

void PutChunkHeader(unsigned char* p, std::uint16_t id, std::uint16_t type, std::uint64_t size) {
  LWriteLE16(p, id);
  LWriteLE16(p + 2, type);
  PutLE64(p + 4, size);
}

}  // namespace

// ---- LSDFWriter

template <class Stream>
bool LSDFWriter<Stream>::Fail() {
  bOk = false;
  return false;
}

template <class Stream>
bool LSDFWriter<Stream>::Put(void const* data, std::size_t size) {
  if (!bOk) return false;
  if (!pStream->Write(data, size)) return Fail();
  return true;
}

template <class Stream>
bool LSDFWriter<Stream>::Open(Stream& stream, std::uint32_t fileType, std::uint16_t formatVersion) {
  static LSDFUnknownChunkList const none;
  return Open(stream, fileType, formatVersion, none);
}

template <class Stream>
bool LSDFWriter<Stream>::Open(Stream& stream, std::uint32_t fileType, std::uint16_t formatVersion,
                              LSDFUnknownChunkList const& rootUnknown) {
  pStream = &stream;
  bOk = true;
  bOpened = true;
  wFormatVersion = formatVersion;
  vOpen.clear();

  unsigned char header[LSDFFileHeaderSize + LSDFChunkHeaderSize];
  std::memcpy(header, kMagic, 4);
  LWriteLE16(header + 4, LSDFContainerVersion);
  LWriteLE32(header + 6, fileType);
  LWriteLE16(header + 10, formatVersion);
  PutChunkHeader(header + LSDFFileHeaderSize, 0, LSDFTypeContainer, 0);
  if (!Put(header, sizeof header)) return false;
  vOpen.push_back(OpenChunk{LSDFChunkInfo(0, LSDFTypeContainer, pStream->Tell(), 0), &rootUnknown, 0, 0});
  WriteDueUnknownChunks(vOpen.back(), -1);
  return bOk;
}

template <class Stream>
void LSDFWriter<Stream>::WriteDueUnknownChunks(OpenChunk& container, int position) {
  if (container.pUnknown == nullptr) return;
  LSDFUnknownChunkList const& list = *container.pUnknown;
  while (bOk && container.iNextUnknown < list.size()) {
    LSDFUnknownChunk const& chunk = list[container.iNextUnknown];
    // position -1 is the start of a container: only the unbroken run from 0.
    bool const due = position < 0 ? chunk.iPosition == container.iChildren
                                  : chunk.iPosition < position || chunk.iPosition <= container.iChildren;
    if (!due) break;
    ++container.iNextUnknown;
    WriteUnknownChunk(chunk);
  }
}

template <class Stream>
void LSDFWriter<Stream>::WritePendingUnknownChunks(OpenChunk& container) {
  if (container.pUnknown == nullptr) return;
  LSDFUnknownChunkList const& list = *container.pUnknown;
  while (bOk && container.iNextUnknown < list.size()) WriteUnknownChunk(list[container.iNextUnknown++]);
}

template <class Stream>
bool LSDFWriter<Stream>::StartChunk(std::uint16_t id, std::uint16_t type, int position) {
  if (!bOk) return false;
  if (vOpen.empty()) return Fail();  // not open, or closed already
  if (position != -1) WriteDueUnknownChunks(vOpen.back(), position);
  unsigned char header[LSDFChunkHeaderSize];
  PutChunkHeader(header, id, type, 0);
  if (!Put(header, sizeof header)) return false;
  ++vOpen.back().iChildren;
  vOpen.push_back(OpenChunk{LSDFChunkInfo(id, type, pStream->Tell(), 0), nullptr, 0, 0});
  return true;
}

template <class Stream>
bool LSDFWriter<Stream>::EndChunk(std::uint16_t id) {
  if (!bOk) return false;
  // The root is ended by Close alone.
  if (vOpen.size() < 2 || vOpen.back().Info.GetChunkID() != id) return Fail();
  WritePendingUnknownChunks(vOpen.back());
  if (!bOk) return false;
  std::int64_t const start = vOpen.back().Info.GetDataStreamPosition();
  vOpen.pop_back();
  unsigned char size[8];
  PutLE64(size, static_cast<std::uint64_t>(pStream->Tell() - start));
  if (!pStream->WriteAt(start - 8, size, sizeof size)) return Fail();
  return true;
}

template <class Stream>
bool LSDFWriter<Stream>::StartContainer(std::uint16_t id, int position) {
  return StartChunk(id, LSDFTypeContainer, position);
}

template <class Stream>
bool LSDFWriter<Stream>::StartContainer(std::uint16_t id, LSDFUnknownChunkList const& unknown, int position) {
  if (!StartChunk(id, LSDFTypeContainer, position)) return false;
  vOpen.back().pUnknown = &unknown;
  WriteDueUnknownChunks(vOpen.back(), -1);
  return bOk;
}

template <class Stream>
bool LSDFWriter<Stream>::EndContainer(std::uint16_t id) {
  if (!bOk) return false;
  if (vOpen.empty() || vOpen.back().Info.GetChunkType() != LSDFTypeContainer) return Fail();
  return EndChunk(id);
}

template <class Stream>
bool LSDFWriter<Stream>::WriteBool(std::uint16_t id, bool value, int position) {
  unsigned char const byte = value ? 1 : 0;
  return StartChunk(id, LSDFTypeBool, position) && WriteData(&byte, 1) && EndChunk(id);
}

template <class Stream>
bool LSDFWriter<Stream>::WriteInt(std::uint16_t id, std::int32_t value, int position) {
  unsigned char bytes[4];
  LWriteLE32(bytes, static_cast<std::uint32_t>(value));
  return StartChunk(id, LSDFTypeInt, position) && WriteData(bytes, 4) && EndChunk(id);
}

template <class Stream>
bool LSDFWriter<Stream>::WriteInt64(std::uint16_t id, std::int64_t value, int position) {
  unsigned char bytes[8];
  PutLE64(bytes, static_cast<std::uint64_t>(value));
  return StartChunk(id, LSDFTypeInt64, position) && WriteData(bytes, 8) && EndChunk(id);
}

template <class Stream>
bool LSDFWriter<Stream>::WriteFloat(std::uint16_t id, float value, int position) {
  unsigned char bytes[4];
  LWriteLE32(bytes, std::bit_cast<std::uint32_t>(value));
  return StartChunk(id, LSDFTypeFloat, position) && WriteData(bytes, 4) && EndChunk(id);
}

template <class Stream>
bool LSDFWriter<Stream>::WriteString(std::uint16_t id, std::string_view value, int position) {
  unsigned char const zero = 0;
  return StartChunk(id, LSDFTypeString, position) && WriteData(value.data(), value.size()) && WriteData(&zero, 1) &&
         EndChunk(id);
}

template <class Stream>
bool LSDFWriter<Stream>::WriteBlob(std::uint16_t id, void const* data, std::size_t size, int position) {
  return StartChunk(id, LSDFTypeBlob, position) && WriteData(data, size) && EndChunk(id);
}

template <class Stream>
LProcessResult LSDFWriter<Stream>::WriteBlob(LProcessInterface& process, std::uint16_t id, std::string const& path,
                                             std::size_t blockSize, int position) {
  if (!bOk) return LProcessFailed;
  LFile file;
  std::vector<unsigned char> block;
  try {
    if (blockSize != 0) block.resize(blockSize);
  } catch (std::bad_alloc const&) {
  }
  if (block.empty() || !file.OpenRead(path)) {
    Fail();
    return LProcessFailed;
  }
  // The size only scales the progress: the copy runs to the end of the file as
  // it is read.
  std::int64_t const size = file.Size();
  if (!StartChunk(id, LSDFTypeBlob, position)) return LProcessFailed;
  std::int64_t done = 0;
  for (;;) {
    if (process.IsToStop()) {
      Fail();
      return LProcessStopped;
    }
    std::int64_t const n = file.Read(block.data(), block.size());
    if (n < 0) {
      Fail();
      return LProcessFailed;
    }
    if (n == 0) break;
    if (!WriteData(block.data(), static_cast<std::size_t>(n))) return LProcessFailed;
    done += n;
    if (size > 0) process.SetProgress(std::min(1.0, static_cast<double>(done) / static_cast<double>(size)));
  }
  return EndChunk(id) ? LProcessFinished : LProcessFailed;
}

template <class Stream>
bool LSDFWriter<Stream>::WriteData(void const* data, std::size_t size) {
  if (!bOk) return false;
  if (vOpen.empty()) return Fail();
  return size == 0 || Put(data, size);
}

template <class Stream>
bool LSDFWriter<Stream>::WriteUnknownChunk(LSDFUnknownChunk const& chunk) {
  if (!bOk) return false;
  if (vOpen.empty()) return Fail();
  if (chunk.vData.empty()) return true;
  unsigned char header[LSDFChunkHeaderSize];
  PutChunkHeader(header, chunk.wID, chunk.wType, chunk.vData.size());
  if (!Put(header, sizeof header) || !Put(chunk.vData.data(), chunk.vData.size())) return false;
  ++vOpen.back().iChildren;
  return true;
}

template <class Stream>
bool LSDFWriter<Stream>::Close() {
  if (!bOpened) return true;
  // Anything but the root still open means a chunk was never ended: the tree
  // written is not the one the caller meant.
  bool ok = bOk && vOpen.size() == 1;
  if (ok) {
    WritePendingUnknownChunks(vOpen.back());
    std::int64_t const start = vOpen.back().Info.GetDataStreamPosition();
    unsigned char size[8];
    PutLE64(size, static_cast<std::uint64_t>(pStream->Tell() - start));
    ok = bOk && pStream->WriteAt(start - 8, size, sizeof size) && Put(kMagic, 4) && pStream->Flush();
  }
  vOpen.clear();
  bOpened = false;
  bOk = ok;
  pStream = nullptr;
  return ok;
}

// ---- LSDFReader

template <class Stream>
bool LSDFReader<Stream>::Open(Stream& stream, std::uint32_t fileType) {
  pStream = &stream;
  bOk = false;
  wFormatVersion = 0;
  Root = LSDFChunkInfo();

  unsigned char header[LSDFFileHeaderSize + LSDFChunkHeaderSize];
  if (!stream.Seek(0) || !stream.Read(header, sizeof header)) return false;
  if (std::memcmp(header, kMagic, 4) != 0 || LReadLE16(header + 4) != LSDFContainerVersion ||
      LReadLE32(header + 6) != fileType) {
    return false;
  }
  unsigned char const* root = header + LSDFFileHeaderSize;
  if (LReadLE16(root) != 0 || LReadLE16(root + 2) != LSDFTypeContainer) return false;
  wFormatVersion = LReadLE16(header + 10);
  // The root's size is not held against the stream here: a file cut short still
  // opens, and its walk stops at the first chunk that isn't all there.
  Root = LSDFChunkInfo(0, LSDFTypeContainer, static_cast<std::int64_t>(sizeof header), GetLE64(root + 4));
  bOk = true;
  return true;
}

template <class Stream>
bool LSDFReader<Stream>::StartNextChunk(LSDFChunkInfo& info) {
  if (!bOk) return false;
  unsigned char header[LSDFChunkHeaderSize];
  if (!pStream->Read(header, sizeof header)) {
    bOk = false;
    return false;
  }
  std::int64_t const data = pStream->Tell();
  std::uint64_t const size = GetLE64(header + 4);
  if (size > static_cast<std::uint64_t>(pStream->Size() - data)) {
    bOk = false;
    return false;
  }
  info = LSDFChunkInfo(LReadLE16(header), LReadLE16(header + 2), data, size);
  return true;
}

template <class Stream>
bool LSDFReader<Stream>::EndChunk(LSDFChunkInfo const& info) {
  if (pStream == nullptr || !info.IsValid()) return false;
  if (!pStream->Seek(info.GetEndStreamPosition())) {
    bOk = false;
    return false;
  }
  return true;
}

template <class Stream>
bool LSDFReader<Stream>::Close() {
  if (pStream == nullptr) return false;
  bool ok = bOk;
  if (ok) {
    unsigned char trailer[LSDFTrailerSize];
    ok = pStream->Seek(Root.GetEndStreamPosition()) && pStream->Read(trailer, sizeof trailer) &&
         std::memcmp(trailer, kMagic, 4) == 0;
  }
  pStream = nullptr;
  bOk = false;
  return ok;
}

// ---- LSDFReaderChunk

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadAtStart(void* data, std::size_t size) {
  if (pReader == nullptr || !Info.IsValid() || size > Info.GetDataSize()) return false;
  Stream* stream = pReader->GetStream();
  if (stream == nullptr) return false;
  // The chunk was checked to lie within the stream, so this fails only if the
  // stream changed underneath; what follows can't be trusted then.
  if (!stream->Seek(Info.GetDataStreamPosition()) || !stream->Read(data, size)) {
    pReader->SetFailed();
    return false;
  }
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadBool(bool& value) {
  unsigned char byte = 0;
  if (!ReadAtStart(&byte, 1)) return false;
  value = byte != 0;
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadInt(std::int32_t& value) {
  unsigned char bytes[4] = {};
  if (!ReadAtStart(bytes, 4)) return false;
  value = static_cast<std::int32_t>(LReadLE32(bytes));
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadInt64(std::int64_t& value) {
  unsigned char bytes[8] = {};
  if (!ReadAtStart(bytes, 8)) return false;
  value = static_cast<std::int64_t>(GetLE64(bytes));
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadFloat(float& value) {
  unsigned char bytes[4] = {};
  if (!ReadAtStart(bytes, 4)) return false;
  value = std::bit_cast<float>(LReadLE32(bytes));
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadString(std::string& value) {
  std::string text;
  try {
    text.resize(static_cast<std::size_t>(Info.GetDataSize()));
  } catch (std::bad_alloc const&) {
    return false;
  }
  if (!ReadAtStart(text.data(), text.size())) return false;
  text.resize(std::strlen(text.c_str()));  // up to the terminating zero, or all if it is missing
  value.swap(text);
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadString(char* buffer, std::size_t capacity) {
  if (capacity == 0) return false;
  std::size_t const n = static_cast<std::size_t>(std::min<std::uint64_t>(Info.GetDataSize(), capacity - 1));
  std::vector<char> text(n + 1, '\0');
  if (!ReadAtStart(text.data(), n)) return false;
  std::memcpy(buffer, text.data(), n + 1);
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadBlob(void* data, std::size_t size) {
  return ReadAtStart(data, size);
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadData(std::vector<unsigned char>& data) {
  if (Info.GetDataSize() > kMaxDataSize) return false;
  std::vector<unsigned char> bytes;
  try {
    bytes.resize(static_cast<std::size_t>(Info.GetDataSize()));
  } catch (std::bad_alloc const&) {
    return false;
  }
  if (!ReadAtStart(bytes.data(), bytes.size())) return false;
  data.swap(bytes);
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadUnknownChunk(LSDFUnknownChunk& chunk) {
  LSDFUnknownChunk read;
  read.wID = Info.GetChunkID();
  read.wType = Info.GetChunkType();
  read.iPosition = iPosition;
  try {
    read.vData.resize(static_cast<std::size_t>(Info.GetDataSize()));
  } catch (std::bad_alloc const&) {
    return false;
  }
  if (!ReadAtStart(read.vData.data(), read.vData.size())) return false;
  chunk = std::move(read);
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::ReadUnknownChunk(LSDFUnknownChunkList& list) {
  LSDFUnknownChunk chunk;
  if (!ReadUnknownChunk(chunk)) return false;
  try {
    list.push_back(std::move(chunk));
  } catch (std::bad_alloc const&) {
    return false;
  }
  return true;
}

template <class Stream>
bool LSDFReaderChunk<Stream>::Skip() {
  return pReader != nullptr && pReader->EndChunk(Info);
}

// ---- LSDFReaderChunkIterator

template <class Stream>
LSDFReaderChunkIterator<Stream>::LSDFReaderChunkIterator(LSDFReader<Stream>& reader)
    : LSDFReaderChunkIterator(reader, reader.GetRootChunk()) {}

template <class Stream>
LSDFReaderChunkIterator<Stream>::LSDFReaderChunkIterator(LSDFReader<Stream>& reader,
                                                         LSDFReaderChunk<Stream> const& container)
    : LSDFReaderChunkIterator(reader, container.GetInfo()) {}

template <class Stream>
LSDFReaderChunkIterator<Stream>::LSDFReaderChunkIterator(LSDFReader<Stream>& reader, LSDFChunkInfo const& container)
    : pReader(&reader) {
  Current.pReader = &reader;
  if (!reader.IsValid() || !container.IsValid() || container.GetChunkType() != LSDFTypeContainer) return;
  iEnd = container.GetEndStreamPosition();
  ReadHeader(container.GetDataStreamPosition());
}

template <class Stream>
void LSDFReaderChunkIterator<Stream>::ReadHeader(std::int64_t position) {
  bValid = false;
  if (position >= iEnd) return;  // the end of the container
  Stream* stream = pReader->GetStream();
  LSDFChunkInfo info;
  if (stream == nullptr || !stream->Seek(position)) {
    pReader->SetFailed();  // the container reaches past the stream
    return;
  }
  if (!pReader->StartNextChunk(info)) return;
  // The child must end within its container, not merely within the stream.
  if (info.GetDataStreamPosition() > iEnd ||
      info.GetDataSize() > static_cast<std::uint64_t>(iEnd - info.GetDataStreamPosition())) {
    pReader->SetFailed();
    return;
  }
  Current.Info = info;
  bValid = true;
}

template <class Stream>
bool LSDFReaderChunkIterator<Stream>::Next() {
  if (!bValid) return false;
  if (!pReader->IsValid()) {
    bValid = false;
    return false;
  }
  ++Current.iPosition;
  ReadHeader(Current.Info.GetEndStreamPosition());
  return bValid;
}

template class LSDFWriter<LOutputStreamFile>;
template class LSDFWriter<LOutputStreamMemory>;
template class LSDFReader<LInputStreamFile>;
template class LSDFReader<LInputStreamMemory>;
template class LSDFReaderChunk<LInputStreamFile>;
template class LSDFReaderChunk<LInputStreamMemory>;
template class LSDFReaderChunkIterator<LInputStreamFile>;
template class LSDFReaderChunkIterator<LInputStreamMemory>;
