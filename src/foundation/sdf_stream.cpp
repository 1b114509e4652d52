#include "foundation/sdf_stream.h"

#include <algorithm>
#include <cstring>

// ---- LOutputStreamFile

bool LOutputStreamFile::Open(std::string const& path) {
  Close();
  vBuffer.clear();
  vBuffer.reserve(kBufferSize);
  iFlushed = 0;
  bOk = File.OpenCreate(path);
  return bOk;
}

bool LOutputStreamFile::Close() {
  if (!File.IsOpen()) return true;
  bool const flushed = Flush();
  File.Close();
  vBuffer.clear();
  return flushed;
}

bool LOutputStreamFile::Flush() {
  if (!bOk) return false;
  if (!vBuffer.empty()) {
    if (File.Write(vBuffer.data(), vBuffer.size()) != static_cast<std::int64_t>(vBuffer.size())) {
      bOk = false;
      return false;
    }
    iFlushed += static_cast<std::int64_t>(vBuffer.size());
    vBuffer.clear();
  }
  return true;
}

bool LOutputStreamFile::Write(void const* data, std::size_t size) {
  if (!bOk) return false;
  if (vBuffer.size() + size > kBufferSize && !Flush()) return false;
  if (size >= kBufferSize) {
    if (File.Write(data, size) != static_cast<std::int64_t>(size)) {
      bOk = false;
      return false;
    }
    iFlushed += static_cast<std::int64_t>(size);
    return true;
  }
  auto const* p = static_cast<unsigned char const*>(data);
  vBuffer.insert(vBuffer.end(), p, p + size);
  return true;
}

bool LOutputStreamFile::WriteAt(std::int64_t offset, void const* data, std::size_t size) {
  if (!bOk) return false;
  if (offset < 0 || offset + static_cast<std::int64_t>(size) > Tell()) return false;
  auto const* p = static_cast<unsigned char const*>(data);
  // The part before the buffer is in the file already, the rest still in memory.
  std::size_t inFile = 0;
  if (offset < iFlushed) {
    inFile = static_cast<std::size_t>(std::min<std::int64_t>(iFlushed - offset, static_cast<std::int64_t>(size)));
    if (File.WriteAt(p, inFile, offset) != static_cast<std::int64_t>(inFile)) {
      bOk = false;
      return false;
    }
  }
  if (inFile < size) {
    std::size_t const at = static_cast<std::size_t>(offset + static_cast<std::int64_t>(inFile) - iFlushed);
    std::memcpy(vBuffer.data() + at, p + inFile, size - inFile);
  }
  return true;
}

// ---- LOutputStreamMemory

bool LOutputStreamMemory::Write(void const* data, std::size_t size) {
  auto const* p = static_cast<unsigned char const*>(data);
  vData.insert(vData.end(), p, p + size);
  return true;
}

bool LOutputStreamMemory::WriteAt(std::int64_t offset, void const* data, std::size_t size) {
  if (offset < 0 || offset + static_cast<std::int64_t>(size) > Tell()) return false;
  if (size != 0) std::memcpy(vData.data() + offset, data, size);
  return true;
}

// ---- LInputStreamFile

bool LInputStreamFile::Open(std::string const& path) {
  Close();
  if (!File.OpenRead(path)) return false;
  iSize = File.Size();
  if (iSize < 0) {
    File.Close();
    iSize = 0;
    return false;
  }
  return true;
}

void LInputStreamFile::Close() {
  File.Close();
  vBuffer.clear();
  iBufferStart = 0;
  iPosition = 0;
  iSize = 0;
}

bool LInputStreamFile::Seek(std::int64_t position) {
  if (!File.IsOpen() || position < 0 || position > iSize) return false;
  iPosition = position;
  return true;
}

bool LInputStreamFile::Read(void* data, std::size_t size) {
  if (!File.IsOpen()) return false;
  if (static_cast<std::uint64_t>(size) > static_cast<std::uint64_t>(iSize - iPosition)) return false;
  auto* out = static_cast<unsigned char*>(data);
  std::int64_t const bufferEnd = iBufferStart + static_cast<std::int64_t>(vBuffer.size());
  if (iPosition >= iBufferStart && iPosition + static_cast<std::int64_t>(size) <= bufferEnd) {
    if (size != 0) std::memcpy(out, vBuffer.data() + (iPosition - iBufferStart), size);
    iPosition += static_cast<std::int64_t>(size);
    return true;
  }
  if (size >= kBufferSize) {
    if (!File.ReadExactAt(out, size, iPosition)) return false;
    iPosition += static_cast<std::int64_t>(size);
    return true;
  }
  // Refill from the current position: the reader mostly moves forward.
  std::size_t const fill = static_cast<std::size_t>(std::min<std::int64_t>(kBufferSize, iSize - iPosition));
  vBuffer.resize(fill);
  if (!File.ReadExactAt(vBuffer.data(), fill, iPosition)) {
    vBuffer.clear();
    return false;
  }
  iBufferStart = iPosition;
  std::memcpy(out, vBuffer.data(), size);
  iPosition += static_cast<std::int64_t>(size);
  return true;
}

// ---- LInputStreamMemory

bool LInputStreamMemory::Seek(std::int64_t position) {
  if (position < 0 || position > iSize) return false;
  iPosition = position;
  return true;
}

bool LInputStreamMemory::Read(void* data, std::size_t size) {
  if (static_cast<std::uint64_t>(size) > static_cast<std::uint64_t>(iSize - iPosition)) return false;
  if (size != 0) std::memcpy(data, pData + iPosition, size);
  iPosition += static_cast<std::int64_t>(size);
  return true;
}
