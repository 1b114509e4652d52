#pragma once
#include <cstdint>
#include <memory>

#include "foundation/sdf.h"

// The chunk writer and reader as an effect sees them. The chunk container is a
// template over its stream (files for the program, memory for tests), while an
// effect's save and load are virtual; these two faces let one virtual serve every
// stream. The adapters below are made on the stack by the chain and the effect's
// own SaveToSDF and LoadFromSDF templates; nothing on the audio path uses them.

// Chunk ids every effect shares.
namespace LSPChunk {
inline constexpr std::uint16_t Header = 4096;       // container: the bypass flag, then nothing else of ours
inline constexpr std::uint16_t Bypass = 8192;       // bool, inside Header
inline constexpr std::uint16_t ChainType = 8192;    // int, the process type of the effect that follows
inline constexpr std::uint16_t ChainEffect = 4096;  // container, one effect's chunks
}  // namespace LSPChunk

class LSPChunkWriter {
 public:
  virtual ~LSPChunkWriter() = default;
  virtual bool StartContainer(std::uint16_t id) = 0;
  virtual bool EndContainer(std::uint16_t id) = 0;
  virtual bool WriteBool(std::uint16_t id, bool value) = 0;
  virtual bool WriteInt(std::uint16_t id, std::int32_t value) = 0;
  virtual bool WriteFloat(std::uint16_t id, float value) = 0;
  virtual bool WriteUnknownChunk(LSDFUnknownChunk const& chunk) = 0;
};

// Walks the children of one container, or, in the positional form of old files,
// a run of chunks that the caller goes on reading after the effect is done.
class LSPChunkCursor {
 public:
  virtual ~LSPChunkCursor() = default;
  virtual bool IsValid() const = 0;
  virtual bool Next() = 0;
  virtual std::uint16_t GetChunkID() = 0;
  virtual std::uint16_t GetChunkType() = 0;
  virtual bool ReadBool(bool& value) = 0;
  virtual bool ReadInt(std::int32_t& value) = 0;
  virtual bool ReadFloat(float& value) = 0;
  virtual bool ReadUnknownChunk(LSDFUnknownChunk& chunk) = 0;
  // The children of the chunk the cursor stands on; an empty walk when it is no
  // container or the cursor was made without its reader.
  virtual std::unique_ptr<LSPChunkCursor> Enter() = 0;
};

template <class Stream>
class LSPChunkWriterOf final : public LSPChunkWriter {
 public:
  explicit LSPChunkWriterOf(LSDFWriter<Stream>& writer) : Writer(writer) {}
  bool StartContainer(std::uint16_t id) override { return Writer.StartContainer(id); }
  bool EndContainer(std::uint16_t id) override { return Writer.EndContainer(id); }
  bool WriteBool(std::uint16_t id, bool value) override { return Writer.WriteBool(id, value); }
  bool WriteInt(std::uint16_t id, std::int32_t value) override { return Writer.WriteInt(id, value); }
  bool WriteFloat(std::uint16_t id, float value) override { return Writer.WriteFloat(id, value); }
  bool WriteUnknownChunk(LSDFUnknownChunk const& chunk) override { return Writer.WriteUnknownChunk(chunk); }

 private:
  LSDFWriter<Stream>& Writer;
};

template <class Stream>
class LSPChunkCursorOf final : public LSPChunkCursor {
 public:
  // Over the caller's iterator, which moves as the cursor does. `reader` may be
  // null when nested containers need not be entered.
  LSPChunkCursorOf(LSDFReader<Stream>* reader, LSDFReaderChunkIterator<Stream>& it) : pReader(reader), pIt(&it) {}
  // Over the children of `container`.
  LSPChunkCursorOf(LSDFReader<Stream>& reader, LSDFReaderChunk<Stream> const& container)
      : pReader(&reader), pOwn(std::make_unique<LSDFReaderChunkIterator<Stream>>(reader, container)), pIt(pOwn.get()) {}

  bool IsValid() const override { return pIt->IsValid(); }
  bool Next() override { return pIt->Next(); }
  std::uint16_t GetChunkID() override { return (*pIt)->GetChunkID(); }
  std::uint16_t GetChunkType() override { return (*pIt)->GetChunkType(); }
  bool ReadBool(bool& value) override { return (*pIt)->ReadBool(value); }
  bool ReadInt(std::int32_t& value) override { return (*pIt)->ReadInt(value); }
  bool ReadFloat(float& value) override { return (*pIt)->ReadFloat(value); }
  bool ReadUnknownChunk(LSDFUnknownChunk& chunk) override { return (*pIt)->ReadUnknownChunk(chunk); }
  std::unique_ptr<LSPChunkCursor> Enter() override {
    if (pReader == nullptr || GetChunkType() != LSDFTypeContainer) return std::make_unique<LSPChunkCursorEmpty>();
    return std::make_unique<LSPChunkCursorOf<Stream>>(*pReader, **pIt);
  }

 private:
  struct LSPChunkCursorEmpty final : LSPChunkCursor {
    bool IsValid() const override { return false; }
    bool Next() override { return false; }
    std::uint16_t GetChunkID() override { return 0; }
    std::uint16_t GetChunkType() override { return 0; }
    bool ReadBool(bool&) override { return false; }
    bool ReadInt(std::int32_t&) override { return false; }
    bool ReadFloat(float&) override { return false; }
    bool ReadUnknownChunk(LSDFUnknownChunk&) override { return false; }
    std::unique_ptr<LSPChunkCursor> Enter() override { return std::make_unique<LSPChunkCursorEmpty>(); }
  };

  LSDFReader<Stream>* pReader;
  std::unique_ptr<LSDFReaderChunkIterator<Stream>> pOwn;
  LSDFReaderChunkIterator<Stream>* pIt;
};

// The stream-generic faces of a saved structure made of chunks: `Self` provides
// SaveChunks, LoadChunks (a container's children) and LoadChunksPositional (the
// oldest, positional form).
template <class Self>
class LSPChunkFaces {
 public:
  template <class Stream>
  bool SaveToSDF(LSDFWriter<Stream>& writer) const {
    LSPChunkWriterOf<Stream> w(writer);
    return static_cast<Self const*>(this)->SaveChunks(w);
  }
  // `it` walks the container that holds the structure.
  template <class Stream>
  bool LoadFromSDF(LSDFReader<Stream>& reader, LSDFReaderChunkIterator<Stream>& it) {
    LSPChunkCursorOf<Stream> c(&reader, it);
    return static_cast<Self*>(this)->LoadChunks(c);
  }
  template <class Stream>
  bool LoadFromSDF(LSDFReaderChunkIterator<Stream>& it) {
    LSPChunkCursorOf<Stream> c(nullptr, it);
    return static_cast<Self*>(this)->LoadChunksPositional(c);
  }
};
