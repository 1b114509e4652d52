#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

// An owned POSIX file descriptor with the few operations the audio files need.
// Nothing throws: failures come back as false or -1 and errno tells why. Reads and
// writes retry after EINTR and after short transfers, so a short count always
// means end of file (read) or a real failure such as a full disk (write).
class LFile {
 public:
  LFile() = default;
  // Takes over `fd` (which may be -1).
  explicit LFile(int fd) : iFd(fd) {}
  ~LFile() { Close(); }
  LFile(LFile const&) = delete;
  LFile& operator=(LFile const&) = delete;
  LFile(LFile&& other) noexcept : iFd(other.Release()) {}
  LFile& operator=(LFile&& other) noexcept;

  // open(2) with close-on-exec added; closes what was open before.
  bool Open(std::string const& path, int flags, unsigned mode = 0666);
  bool OpenRead(std::string const& path);
  // Create or truncate, read-write, mode 0666 less the umask.
  bool OpenCreate(std::string const& path);
  void Close();
  // Gives up ownership without closing.
  int Release();

  bool IsOpen() const { return iFd >= 0; }
  int Fd() const { return iFd; }

  // At the current file position; the position advances by what was moved.
  std::int64_t Read(void* buffer, std::size_t bytes);
  std::int64_t Write(void const* buffer, std::size_t bytes);
  // At an absolute offset; the file position is left alone.
  std::int64_t ReadAt(void* buffer, std::size_t bytes, std::int64_t offset) const;
  std::int64_t WriteAt(void const* buffer, std::size_t bytes, std::int64_t offset);
  // True only if all `bytes` came.
  bool ReadExactAt(void* buffer, std::size_t bytes, std::int64_t offset) const {
    return ReadAt(buffer, bytes, offset) == static_cast<std::int64_t>(bytes);
  }

  // lseek(2); returns the new position or -1.
  std::int64_t Seek(std::int64_t offset, int whence = 0);
  std::int64_t Tell() const;
  // The size as fstat sees it now, or -1.
  std::int64_t Size() const;
  bool Truncate(std::int64_t size);

  // An advisory whole-file lock (flock), tried until `timeoutMs` has passed.
  bool Lock(bool exclusive, int timeoutMs);
  void Unlock();

  static bool Remove(std::string const& path);
  static bool Exists(std::string const& path);

 private:
  int iFd = -1;
};
