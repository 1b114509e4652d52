#include "foundation/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <utility>

namespace {

LFileStamp StampOf(const struct stat& st) {
  LFileStamp s;
  s.bExists = true;
  s.uDevice = static_cast<std::uint64_t>(st.st_dev);
  s.uInode = static_cast<std::uint64_t>(st.st_ino);
  s.uSize = static_cast<std::uint64_t>(st.st_size);
  s.iModifiedSec = static_cast<std::int64_t>(st.st_mtim.tv_sec);
  s.iModifiedNsec = static_cast<std::int64_t>(st.st_mtim.tv_nsec);
  return s;
}

bool WriteAll(int fd, const char* p, std::size_t left) {
  while (left > 0) {
    const ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  return true;
}

// The rename is only durable once the folder that holds the name is synced too.
void SyncFolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);  // best effort: the new file is in place either way
  ::close(fd);
}

}  // namespace

LFileStamp LFileStampOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return {};
  return StampOf(st);
}

LReadResult LReadSmallFile(const std::string& path, std::size_t maxBytes, std::string& out, LFileStamp* stamp) {
  out.clear();
  if (stamp) *stamp = {};
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? LReadResult::Missing : LReadResult::Failed;

  struct stat st {};
  LReadResult result = LReadResult::Read;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    result = LReadResult::Failed;
  } else if (static_cast<std::uint64_t>(st.st_size) > maxBytes) {
    result = LReadResult::TooLarge;
  } else {
    // Read to the end rather than trusting the size: the file may be growing.
    // One byte past the bound is enough to know it is too large.
    std::string data(static_cast<std::size_t>(st.st_size) + 1, '\0');
    std::size_t have = 0;
    for (;;) {
      if (have == data.size()) {
        if (data.size() > maxBytes) break;
        data.resize(std::min(data.size() * 2, maxBytes + 1));
      }
      const ssize_t n = ::read(fd, data.data() + have, data.size() - have);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        result = LReadResult::Failed;
        break;
      }
      if (n == 0) break;
      have += static_cast<std::size_t>(n);
    }
    if (result == LReadResult::Read && have > maxBytes) result = LReadResult::TooLarge;
    if (result == LReadResult::Read) {
      data.resize(have);
      out = std::move(data);
      if (stamp && ::fstat(fd, &st) == 0) *stamp = StampOf(st);
    }
  }
  ::close(fd);
  return result;
}

bool LWriteFileAtomically(const std::string& path, std::string_view data, unsigned mode, LFileStamp* stamp) {
  // A name of our own, so that two writers never share a temporary file; hidden,
  // so that a leftover from a crash does not clutter a listing.
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  std::string tmp = folder + "." + name + ".XXXXXX";
  const int fd = ::mkostemp(tmp.data(), O_CLOEXEC);
  if (fd < 0) return false;

  bool ok = ::fchmod(fd, static_cast<mode_t>(mode)) == 0;
  ok = ok && WriteAll(fd, data.data(), data.size());
  ok = ok && ::fsync(fd) == 0;
  struct stat st {};
  ok = ok && ::fstat(fd, &st) == 0;  // renaming keeps inode and time
  ok = (::close(fd) == 0) && ok;
  if (!ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
    ::unlink(tmp.c_str());
    return false;
  }
  SyncFolderOf(path);
  if (stamp) *stamp = StampOf(st);
  return true;
}

LFileLock::LFileLock(const std::string& lockPath) {
  fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return;
  while (::flock(fd, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    ::close(fd);  // a file system without locks: go on unguarded
    fd = -1;
    return;
  }
}

LFileLock::~LFileLock() {
  if (fd >= 0) ::close(fd);  // closing releases the lock
}
