#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Small files that are read whole and replaced whole: the settings stores.

// One version of a file on disk. Replacing a file by rename gives it a new inode,
// and a change in place a new size or time, so two equal stamps mean nobody has
// written the file in between.
struct LFileStamp {
  bool bExists = false;
  std::uint64_t uDevice = 0;
  std::uint64_t uInode = 0;
  std::uint64_t uSize = 0;
  std::int64_t iModifiedSec = 0;
  std::int64_t iModifiedNsec = 0;

  friend bool operator==(const LFileStamp&, const LFileStamp&) = default;
};

// The stamp of what is at `path` now; bExists false when there is nothing there.
LFileStamp LFileStampOf(const std::string& path);

enum class LReadResult { Read, Missing, TooLarge, Failed };

// Reads a regular file of at most maxBytes into `out` (empty unless Read). The
// stamp, when asked for, describes exactly the version that was read.
LReadResult LReadSmallFile(const std::string& path, std::size_t maxBytes, std::string& out,
                           LFileStamp* stamp = nullptr);

// Writes `data` to a new file beside `path`, syncs it, and renames it over
// `path`, so a reader or a crash sees the old file or the new one, never a
// mixture. The folder must exist. On failure `path` is left as it was. The stamp,
// when asked for, is set to the file just written, and left alone on failure.
bool LWriteFileAtomically(const std::string& path, std::string_view data, unsigned mode = 0600,
                          LFileStamp* stamp = nullptr);

// An exclusive advisory lock (flock) on a lock file, held while the object lives,
// so that two processes never read, change and rewrite the same file at once.
// Locks of other open files in this process are not seen: guard threads apart.
// Waits for the lock; IsLocked is false when the lock file cannot be opened,
// and the caller then goes on without it.
class LFileLock {
 public:
  explicit LFileLock(const std::string& lockPath);
  ~LFileLock();
  LFileLock(const LFileLock&) = delete;
  LFileLock& operator=(const LFileLock&) = delete;

  bool IsLocked() const { return fd >= 0; }

 private:
  int fd = -1;
};
