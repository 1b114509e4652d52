// Project files, effect chains, kits and patterns come from disk and from other
// people: the chunk reader must take any bytes, walk what it can and stop cleanly
// at damage, never reading or allocating beyond what is there.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/byte_order.h"
#include "foundation/sdf.h"

namespace {

using Reader = LSDFReader<LInputStreamMemory>;
using Iterator = LSDFReaderChunkIterator<LInputStreamMemory>;

void Walk(Reader& reader, Iterator it) {
  for (; it.IsValid(); it.Next()) {
    bool b;
    std::int32_t i;
    std::int64_t l;
    float f;
    std::string s;
    char name[16];
    unsigned char head[8];
    std::vector<unsigned char> data;
    LSDFUnknownChunk unknown;
    switch (it->GetChunkType()) {
      case LSDFTypeContainer: Walk(reader, Iterator(reader, *it)); break;
      case LSDFTypeBool: it->ReadBool(b); break;
      case LSDFTypeInt: it->ReadInt(i); break;
      case LSDFTypeInt64: it->ReadInt64(l); break;
      case LSDFTypeFloat: it->ReadFloat(f); break;
      case LSDFTypeString:
        it->ReadString(s);
        if (it->ReadString(name, sizeof name) && std::strlen(name) >= sizeof name) __builtin_trap();
        break;
      case LSDFTypeBlob:
        it->ReadBlob(head, sizeof head);
        it->ReadData(data);
        if (data.size() != it->GetDataSize() && it->GetDataSize() <= 0xFFFFFFFFu) __builtin_trap();
        break;
      default: it->ReadUnknownChunk(unknown); break;
    }
    it->Skip();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Take the file type from the bytes, so that inputs get past the type check.
  std::uint32_t const type = size >= 10 ? LReadLE32(data + 6) : 0;

  {
    LInputStreamMemory in(data, size);
    Reader reader;
    if (!reader.Open(in, type)) return 0;
    Walk(reader, Iterator(reader));
    reader.Close();
  }

  // The root's children kept as foreign chunks and written back must give the
  // same bytes, as far as the trailer, whenever the file was whole. Empty chunks
  // stand for no chunk and are not written back, so those files are left out.
  LInputStreamMemory in(data, size);
  Reader reader;
  if (!reader.Open(in, type)) __builtin_trap();  // it opened a moment ago
  LSDFUnknownChunkList children;
  bool anyEmpty = false;
  for (Iterator it(reader); it.IsValid(); it.Next()) {
    if (!it->ReadUnknownChunk(children)) __builtin_trap();  // the reader vouched for its bounds
    anyEmpty = anyEmpty || it->GetDataSize() == 0;
  }
  std::int64_t const end = reader.GetRootChunk().GetEndStreamPosition() + static_cast<std::int64_t>(LSDFTrailerSize);
  std::uint16_t const version = reader.GetFormatVersion();
  if (!reader.Close() || anyEmpty) return 0;

  LOutputStreamMemory out;
  LSDFWriter<LOutputStreamMemory> writer;
  writer.Open(out, type, version, children);
  if (!writer.Close()) __builtin_trap();
  std::vector<unsigned char> const& written = out.GetData();
  if (static_cast<std::int64_t>(written.size()) != end || std::memcmp(written.data(), data, written.size()) != 0) {
    __builtin_trap();
  }
  return 0;
}
