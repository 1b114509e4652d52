#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "foundation/file.h"

// The byte streams that chunk files are written to and read from. The chunk
// writer and reader are templates over these: the file streams are what the
// program saves through, the memory streams serve tests and the fuzzer.
//
// Output streams: Write appends at the end, WriteAt overwrites bytes already
// written (the size fields patched after a chunk is done), Tell is the end.
// Input streams: Read is all or nothing, Size is fixed when the stream opens, and
// nothing is ever read past it.

// A file written through a buffer of 64 KiB, so that the many small fields of a
// chunk tree don't each cost a system call. A patch that falls inside the buffer
// is made there; one further back goes to the file directly.
class LOutputStreamFile {
 public:
  LOutputStreamFile() = default;
  ~LOutputStreamFile() { Close(); }
  LOutputStreamFile(LOutputStreamFile const&) = delete;
  LOutputStreamFile& operator=(LOutputStreamFile const&) = delete;

  // Creates or truncates `path`.
  bool Open(std::string const& path);
  // Flushes and closes; false if anything written since Open was lost.
  bool Close();
  bool IsOpen() const { return File.IsOpen(); }

  bool Write(void const* data, std::size_t size);
  bool WriteAt(std::int64_t offset, void const* data, std::size_t size);
  std::int64_t Tell() const { return iFlushed + static_cast<std::int64_t>(vBuffer.size()); }
  bool Flush();

 private:
  static constexpr std::size_t kBufferSize = 64 * 1024;

  LFile File;
  std::vector<unsigned char> vBuffer;
  std::int64_t iFlushed = 0;  // bytes already in the file, all before the buffer
  bool bOk = false;
};

// A growing byte array.
class LOutputStreamMemory {
 public:
  bool Write(void const* data, std::size_t size);
  bool WriteAt(std::int64_t offset, void const* data, std::size_t size);
  std::int64_t Tell() const { return static_cast<std::int64_t>(vData.size()); }
  bool Flush() { return true; }

  std::vector<unsigned char> const& GetData() const { return vData; }
  std::vector<unsigned char> TakeData() { return std::move(vData); }

 private:
  std::vector<unsigned char> vData;
};

// A file read through a buffer of 64 KiB. Reads of the small fields of a chunk
// tree come from the buffer; reads larger than it go to the file directly.
class LInputStreamFile {
 public:
  LInputStreamFile() = default;
  LInputStreamFile(LInputStreamFile const&) = delete;
  LInputStreamFile& operator=(LInputStreamFile const&) = delete;

  bool Open(std::string const& path);
  void Close();
  bool IsOpen() const { return File.IsOpen(); }
  // For an advisory lock while the file is read.
  LFile& GetFile() { return File; }

  bool Read(void* data, std::size_t size);
  bool Seek(std::int64_t position);
  std::int64_t Tell() const { return iPosition; }
  std::int64_t Size() const { return iSize; }

 private:
  static constexpr std::size_t kBufferSize = 64 * 1024;

  LFile File;
  std::vector<unsigned char> vBuffer;
  std::int64_t iBufferStart = 0;  // file offset of vBuffer[0]
  std::int64_t iPosition = 0;
  std::int64_t iSize = 0;
};

// Bytes owned by the caller, which must outlive the stream.
class LInputStreamMemory {
 public:
  LInputStreamMemory(void const* data, std::size_t size)
      : pData(static_cast<unsigned char const*>(data)), iSize(static_cast<std::int64_t>(size)) {}
  explicit LInputStreamMemory(std::vector<unsigned char> const& data) : LInputStreamMemory(data.data(), data.size()) {}

  bool Read(void* data, std::size_t size);
  bool Seek(std::int64_t position);
  std::int64_t Tell() const { return iPosition; }
  std::int64_t Size() const { return iSize; }

 private:
  unsigned char const* pData;
  std::int64_t iSize;
  std::int64_t iPosition = 0;
};
