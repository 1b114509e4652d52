#include "foundation/file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <utility>

LFile& LFile::operator=(LFile&& other) noexcept {
  if (this != &other) {
    Close();
    iFd = other.Release();
  }
  return *this;
}

bool LFile::Open(std::string const& path, int flags, unsigned mode) {
  Close();
  do {
    iFd = ::open(path.c_str(), flags | O_CLOEXEC, static_cast<mode_t>(mode));
  } while (iFd < 0 && errno == EINTR);
  return iFd >= 0;
}

bool LFile::OpenRead(std::string const& path) {
  return Open(path, O_RDONLY);
}

bool LFile::OpenCreate(std::string const& path) {
  return Open(path, O_CREAT | O_TRUNC | O_RDWR, 0666);
}

void LFile::Close() {
  if (iFd >= 0) {
    // Linux releases the descriptor even when close reports EINTR, so no retry.
    ::close(iFd);
    iFd = -1;
  }
}

int LFile::Release() {
  return std::exchange(iFd, -1);
}

std::int64_t LFile::Read(void* buffer, std::size_t bytes) {
  auto* p = static_cast<char*>(buffer);
  std::size_t done = 0;
  while (done < bytes) {
    ssize_t const n = ::read(iFd, p + done, bytes - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return done > 0 ? static_cast<std::int64_t>(done) : -1;
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t LFile::Write(void const* buffer, std::size_t bytes) {
  auto const* p = static_cast<char const*>(buffer);
  std::size_t done = 0;
  while (done < bytes) {
    ssize_t const n = ::write(iFd, p + done, bytes - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return done > 0 ? static_cast<std::int64_t>(done) : -1;
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t LFile::ReadAt(void* buffer, std::size_t bytes, std::int64_t offset) const {
  if (offset < 0) return -1;
  auto* p = static_cast<char*>(buffer);
  std::size_t done = 0;
  while (done < bytes) {
    ssize_t const n =
        ::pread(iFd, p + done, bytes - done, static_cast<off_t>(offset + static_cast<std::int64_t>(done)));
    if (n < 0) {
      if (errno == EINTR) continue;
      return done > 0 ? static_cast<std::int64_t>(done) : -1;
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t LFile::WriteAt(void const* buffer, std::size_t bytes, std::int64_t offset) {
  if (offset < 0) return -1;
  auto const* p = static_cast<char const*>(buffer);
  std::size_t done = 0;
  while (done < bytes) {
    ssize_t const n =
        ::pwrite(iFd, p + done, bytes - done, static_cast<off_t>(offset + static_cast<std::int64_t>(done)));
    if (n < 0) {
      if (errno == EINTR) continue;
      return done > 0 ? static_cast<std::int64_t>(done) : -1;
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t LFile::Seek(std::int64_t offset, int whence) {
  return static_cast<std::int64_t>(::lseek(iFd, static_cast<off_t>(offset), whence));
}

std::int64_t LFile::Tell() const {
  return static_cast<std::int64_t>(::lseek(iFd, 0, SEEK_CUR));
}

std::int64_t LFile::Size() const {
  struct stat st;
  if (::fstat(iFd, &st) != 0) return -1;
  return static_cast<std::int64_t>(st.st_size);
}

bool LFile::Truncate(std::int64_t size) {
  if (size < 0) return false;
  int r;
  do {
    r = ::ftruncate(iFd, static_cast<off_t>(size));
  } while (r != 0 && errno == EINTR);
  return r == 0;
}

bool LFile::Lock(bool exclusive, int timeoutMs) {
  int const op = (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
  timespec start;
  ::clock_gettime(CLOCK_MONOTONIC, &start);
  for (;;) {
    if (::flock(iFd, op) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    long const elapsedMs = (now.tv_sec - start.tv_sec) * 1000L + (now.tv_nsec - start.tv_nsec) / 1000000L;
    if (elapsedMs >= timeoutMs) return false;
    timespec const pause{0, 5 * 1000000L};
    ::nanosleep(&pause, nullptr);
  }
}

void LFile::Unlock() {
  ::flock(iFd, LOCK_UN);
}

bool LFile::Remove(std::string const& path) {
  return ::unlink(path.c_str()) == 0;
}

bool LFile::Exists(std::string const& path) {
  return ::access(path.c_str(), F_OK) == 0;
}
