#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/process_interface.h"
#include "foundation/sdf_stream.h"

// The chunk container that every saved structure is written in: project files,
// effect chains, kits, patterns. A file is a 12-byte header, one root container
// chunk and a 4-byte trailer:
//
//   "lsdf", container version (u16, 1), file type (u32), format version (u16),
//   root chunk (id 0, type container), "lsdf"
//
// A chunk is id (u16), type (u16), data size (u64), data. All integers are
// little-endian. Sizes are 64-bit so that a blob holding a whole MIDI or audio
// file needs no special case. The writer makes one forward pass and patches each
// size when its chunk ends; the reader walks containers with iterators and bounds
// every chunk by its parent and by the real length of the stream, so a damaged or
// hostile file ends a walk early instead of sending it astray.
//
// A reader keeps the chunks it does not know (LSDFUnknownChunk) together with
// their place among their siblings, and a writer puts them back at that place, so
// that an older program saving a newer program's file loses nothing.

inline constexpr std::uint16_t LSDFTypeContainer = 0;
inline constexpr std::uint16_t LSDFTypeBool = 1;
inline constexpr std::uint16_t LSDFTypeInt = 2;
inline constexpr std::uint16_t LSDFTypeInt64 = 3;
inline constexpr std::uint16_t LSDFTypeFloat = 4;
inline constexpr std::uint16_t LSDFTypeString = 6;
inline constexpr std::uint16_t LSDFTypeBlob = 7;

inline constexpr std::uint16_t LSDFContainerVersion = 1;
inline constexpr std::size_t LSDFFileHeaderSize = 12;
inline constexpr std::size_t LSDFChunkHeaderSize = 12;
inline constexpr std::size_t LSDFTrailerSize = 4;

// Where a chunk stands in its stream: its header fields and the offset of its data.
class LSDFChunkInfo {
 public:
  LSDFChunkInfo() = default;
  LSDFChunkInfo(std::uint16_t id, std::uint16_t type, std::int64_t dataPosition, std::uint64_t dataSize)
      : wID(id), wType(type), iDataPosition(dataPosition), uDataSize(dataSize), bValid(true) {}

  std::uint16_t GetChunkID() const { return wID; }
  std::uint16_t GetChunkType() const { return wType; }
  std::uint64_t GetDataSize() const { return uDataSize; }
  std::int64_t GetDataStreamPosition() const { return iDataPosition; }
  // The first byte after the data; a size beyond what a stream can hold gives the
  // largest position, which no stream reaches.
  std::int64_t GetEndStreamPosition() const {
    std::uint64_t const room = static_cast<std::uint64_t>(INT64_MAX - iDataPosition);
    return uDataSize > room ? INT64_MAX : iDataPosition + static_cast<std::int64_t>(uDataSize);
  }
  // False for an info that no header has been read into.
  bool IsValid() const { return bValid; }

 private:
  std::uint16_t wID = 0;
  std::uint16_t wType = 0;
  std::int64_t iDataPosition = 0;
  std::uint64_t uDataSize = 0;
  bool bValid = false;
};

// A chunk that the reading program did not know, held as its bytes, and its
// ordinal among its siblings when it was read. A container's foreign children
// come back inside it unchanged, since they were never looked into.
struct LSDFUnknownChunk {
  std::uint16_t wID = 0;
  std::uint16_t wType = 0;
  std::vector<unsigned char> vData;
  int iPosition = -1;

  std::uint64_t GetDataSize() const { return vData.size(); }
};

// Kept in the order they were read, which is ascending by position.
using LSDFUnknownChunkList = std::vector<LSDFUnknownChunk>;

// Writes one chunk file in one forward pass.
//
// Failures: the first write that fails clears the ok flag and every later call
// does nothing, so a caller writes a whole tree and tests once, by Close. Chunks
// must end in the reverse order they started; an EndChunk with the wrong id is a
// failure too.
//
// The `position` argument of the chunk writers is the ordinal the caller gives the
// chunk among its siblings, or -1 when foreign chunks may not be put before it.
// Before a chunk with a position, the foreign chunks still pending in the
// enclosing container are written whose ordinal is below that position or has
// been reached by the siblings written so far. The writer counts those itself,
// foreign ones included, so a foreign chunk returns to the very ordinal it was read
// at whenever the known chunks are written in the order they were read, whether
// the caller numbers them as in the file it read or only among themselves.
template <class Stream>
class LSDFWriter {
 public:
  LSDFWriter() = default;
  LSDFWriter(LSDFWriter const&) = delete;
  LSDFWriter& operator=(LSDFWriter const&) = delete;

  // Writes the file header and starts the root container. The stream must be
  // empty, and it and `rootUnknown` must outlive the writer's Close.
  bool Open(Stream& stream, std::uint32_t fileType, std::uint16_t formatVersion);
  bool Open(Stream& stream, std::uint32_t fileType, std::uint16_t formatVersion,
            LSDFUnknownChunkList const& rootUnknown);

  bool StartChunk(std::uint16_t id, std::uint16_t type, int position = -1);
  bool EndChunk(std::uint16_t id);
  // The container's foreign chunks whose ordinals run 0, 1, 2... from the head of
  // the list are written at once; the others wait for their ordinal to come up or
  // for EndContainer. The list must outlive the container.
  bool StartContainer(std::uint16_t id, int position = -1);
  bool StartContainer(std::uint16_t id, LSDFUnknownChunkList const& unknown, int position = -1);
  bool EndContainer(std::uint16_t id);

  bool WriteBool(std::uint16_t id, bool value, int position = -1);
  bool WriteInt(std::uint16_t id, std::int32_t value, int position = -1);
  bool WriteInt64(std::uint16_t id, std::int64_t value, int position = -1);
  bool WriteFloat(std::uint16_t id, float value, int position = -1);
  // The bytes and a terminating zero.
  bool WriteString(std::uint16_t id, std::string_view value, int position = -1);
  bool WriteBlob(std::uint16_t id, void const* data, std::size_t size, int position = -1);
  // Raw bytes into the chunk that is open.
  bool WriteData(void const* data, std::size_t size);
  // An empty one (size 0) stands for no chunk and writes nothing.
  bool WriteUnknownChunk(LSDFUnknownChunk const& chunk);
  // Copies the file at `path` into a blob, `blockSize` bytes at a time, polling
  // for a stop and reporting the fraction of the file copied after each block.
  // LProcessFinished, or LProcessStopped or LProcessFailed, either of which ends
  // the writer as a failed write does.
  LProcessResult WriteBlob(LProcessInterface& process, std::uint16_t id, std::string const& path, std::size_t blockSize,
                           int position = -1);

  // Ends the root and writes the trailer. True when the whole file was written;
  // also true for a writer that was never opened, as there was nothing to lose.
  bool Close();

  bool IsOk() const { return bOk; }
  std::uint16_t GetFormatVersion() const { return wFormatVersion; }

 private:
  struct OpenChunk {
    LSDFChunkInfo Info;
    LSDFUnknownChunkList const* pUnknown = nullptr;  // foreign children still to place
    std::size_t iNextUnknown = 0;
    int iChildren = 0;  // children written so far, foreign ones included
  };

  bool Put(void const* data, std::size_t size);
  bool Fail();
  void WriteDueUnknownChunks(OpenChunk& container, int position);
  void WritePendingUnknownChunks(OpenChunk& container);

  Stream* pStream = nullptr;
  bool bOk = true;
  bool bOpened = false;
  std::uint16_t wFormatVersion = 0;
  std::vector<OpenChunk> vOpen;
};

template <class Stream>
class LSDFReader;

// The chunk an iterator stands on. The typed reads look only at this chunk's data,
// from its start, and can be repeated; they fail, leaving the target as it was,
// when the chunk is too short for the value. A read that meets the end of the
// stream (a file changed underneath) also marks the reader failed.
template <class Stream>
class LSDFReaderChunk {
 public:
  LSDFChunkInfo const& GetInfo() const { return Info; }
  std::uint16_t GetChunkID() const { return Info.GetChunkID(); }
  std::uint16_t GetChunkType() const { return Info.GetChunkType(); }
  std::uint64_t GetDataSize() const { return Info.GetDataSize(); }
  std::int64_t GetDataStreamPosition() const { return Info.GetDataStreamPosition(); }
  // Ordinal among its siblings, from 0.
  int GetPosition() const { return iPosition; }
  bool IsValid() const { return Info.IsValid(); }

  // Non-zero is true.
  bool ReadBool(bool& value);
  bool ReadInt(std::int32_t& value);
  bool ReadInt64(std::int64_t& value);
  bool ReadFloat(float& value);
  // Up to the first zero byte or the end of the data.
  bool ReadString(std::string& value);
  // Into a fixed buffer: a longer text is cut to capacity - 1 bytes. The buffer is
  // always terminated; capacity 0 fails.
  bool ReadString(char* buffer, std::size_t capacity);
  // The first `size` bytes of the data; fails if the chunk has fewer.
  bool ReadBlob(void* data, std::size_t size);
  // All of the data. Fails for more than 4 GiB - 1.
  bool ReadData(std::vector<unsigned char>& data);
  // The whole chunk as bytes, with its ordinal.
  bool ReadUnknownChunk(LSDFUnknownChunk& chunk);
  // Appends it to the list.
  bool ReadUnknownChunk(LSDFUnknownChunkList& list);
  // Moves the stream to the end of the chunk.
  bool Skip();

 private:
  template <class>
  friend class LSDFReaderChunkIterator;

  bool ReadAtStart(void* data, std::size_t size);

  LSDFReader<Stream>* pReader = nullptr;
  LSDFChunkInfo Info;
  int iPosition = 0;
};

// Opens a chunk file and reads its headers. Valid from a successful Open until
// the first damage found: a header that can't be read, or a chunk that reaches
// beyond its container or the end of the stream. Once invalid, iterators yield
// nothing more and Close fails.
template <class Stream>
class LSDFReader {
 public:
  LSDFReader() = default;
  LSDFReader(LSDFReader const&) = delete;
  LSDFReader& operator=(LSDFReader const&) = delete;

  // Checks the magic, the container version, `fileType`, and reads the root's
  // header, which must be a container of id 0. A file cut short still opens: its
  // walk fails at the first chunk that isn't all there. The stream must outlive
  // the reader's Close.
  bool Open(Stream& stream, std::uint32_t fileType);
  std::uint16_t GetFormatVersion() const { return wFormatVersion; }
  bool IsValid() const { return bOk; }
  LSDFChunkInfo const& GetRootChunk() const { return Root; }

  // Reads the header at the stream's position. The chunk must lie within the
  // stream; the caller checks it against the container.
  bool StartNextChunk(LSDFChunkInfo& info);
  // Moves the stream to the end of the chunk, however much of it has been read.
  bool EndChunk(LSDFChunkInfo const& info);
  // Checks that the trailer follows the root. False too if the reader failed
  // anywhere since Open.
  bool Close();

  Stream* GetStream() const { return pStream; }
  // Marks the reader failed: the walk stops.
  void SetFailed() { bOk = false; }

 private:
  Stream* pStream = nullptr;
  bool bOk = false;
  std::uint16_t wFormatVersion = 0;
  LSDFChunkInfo Root;
};

// Walks the children of one container. Nested containers are walked by an
// iterator of their own made on the chunk; the outer Next then goes on after the
// container wherever the inner walk stopped.
//
//   for (LSDFReaderChunkIterator<LInputStreamFile> it(reader); it.IsValid(); it.Next()) {
//     switch (it->GetChunkID()) { ... }
//   }
//
// IsValid goes false at the end of the container and at damage; the reader's
// IsValid tells the two apart.
template <class Stream>
class LSDFReaderChunkIterator {
 public:
  // The root's children.
  explicit LSDFReaderChunkIterator(LSDFReader<Stream>& reader);
  // The children of `container`; nothing when it is not a container.
  LSDFReaderChunkIterator(LSDFReader<Stream>& reader, LSDFReaderChunk<Stream> const& container);
  LSDFReaderChunkIterator(LSDFReader<Stream>& reader, LSDFChunkInfo const& container);

  bool IsValid() const { return bValid; }
  LSDFReaderChunk<Stream>& operator*() { return Current; }
  LSDFReaderChunk<Stream>* operator->() { return &Current; }
  // Goes to the next sibling; false at the end or at damage.
  bool Next();

 private:
  void ReadHeader(std::int64_t position);

  LSDFReader<Stream>* pReader;
  LSDFReaderChunk<Stream> Current;
  std::int64_t iEnd = 0;
  bool bValid = false;
};

extern template class LSDFWriter<LOutputStreamFile>;
extern template class LSDFWriter<LOutputStreamMemory>;
extern template class LSDFReader<LInputStreamFile>;
extern template class LSDFReader<LInputStreamMemory>;
extern template class LSDFReaderChunk<LInputStreamFile>;
extern template class LSDFReaderChunk<LInputStreamMemory>;
extern template class LSDFReaderChunkIterator<LInputStreamFile>;
extern template class LSDFReaderChunkIterator<LInputStreamMemory>;
