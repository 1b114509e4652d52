#pragma once
#include <cstdint>
#include <map>
#include <string>

#include "foundation/lock_object.h"

// The number of an audio file pair in the data folder. Cut lists name their audio
// by these numbers; the files themselves never change once written.
using LAudioCutRef = std::uint16_t;

// Stands for silence: a segment with this cut reads zeros.
inline constexpr LAudioCutRef LAudioCutRefNull = 65535;
// Handed out when every number is taken.
inline constexpr LAudioCutRef LAudioCutRefFull = 65534;
// The highest number a file can have.
inline constexpr LAudioCutRef LAudioCutRefMax = 65533;

// Hands out audio numbers, counts the references cut lists hold on each, and
// removes a file pair from the working folder the moment its last reference goes,
// unless the number was marked preserved (saved work, undo snapshots).
//
// One instance serves the process (LAudioCutTank::Instance()). Counts and flags are
// guarded by one recursive mutex, since job and recorder threads take and drop
// references too; files are removed after the lock is released, so a slow disk
// never holds up another thread's count.
class LAudioCutTank {
 public:
  LAudioCutTank();
  ~LAudioCutTank();
  LAudioCutTank(LAudioCutTank const&) = delete;
  LAudioCutTank& operator=(LAudioCutTank const&) = delete;

  static LAudioCutTank& Instance();

  // The data folder in use. While it is empty nothing is ever deleted, and DecRef
  // does not count down.
  void SetWorkingFolder(std::string const& path);
  std::string GetWorkingFolder() const;

  // The lowest free number, with its count set to 1; LAudioCutRefFull when all are
  // taken. A file left on disk under that number is overwritten by its new writer.
  LAudioCutRef CreateNewRefAndIncRef();
  // Numbers above LAudioCutRefMax are ignored; a count that reached 65534 stays
  // there, so a number referenced that often never dies.
  void IncRef(LAudioCutRef number);
  void DecRef(LAudioCutRef number);
  int GetRefCount(LAudioCutRef number) const;

  // A preserved file outlives its references.
  void DisallowCacheDelete(LAudioCutRef number);
  void PreserveEntireCache();
  bool IsPreserved(LAudioCutRef number) const;

  // "<folder>/<number><extension>", or the overriding base path of the number when
  // one is set; empty for LAudioCutRefNull.
  std::string GetFilePath(LAudioCutRef number, char const* extension) const;
  // The number a path in the data folder names, or -1 when its extension is not
  // ".aud", ".grf" or ".fft" (any case) or its base name is not a number.
  int GetAudioNoFromPath(std::string const& path) const;
  // Gives `number` files under `basePath` (path without extension) instead of the
  // numbered names in the working folder.
  void SetNameOverride(LAudioCutRef number, std::string const& basePath);

  // Removes every file of the working folder matching `pattern` (fnmatch) whose
  // number has no reference and is not preserved.
  void DeleteCachedFiles(char const* pattern);
  // The same for "*.aud" and "*.grf", when a working folder is set.
  void DeleteCachedFiles();

  // Whether the destructor sweeps the working folder: only the first instance of
  // the program may, as a second one may share nothing but would race the first.
  void SetDeleteCachedFilesOnExit(bool on) { bDeleteOnExit = on; }

  // Back to the state at start: no folder, no counts, no flags. For tests.
  void Reset();

 private:
  std::string FilePathLocked(LAudioCutRef number, char const* extension) const;

  mutable LLockObject loLock;
  std::string szWorkingFolder;
  std::uint16_t wRefCount[65536] = {};
  std::uint8_t bPreserved[65536] = {};
  std::map<LAudioCutRef, std::string> mNames;
  // No number below this one is free; keeps CreateNewRefAndIncRef from scanning
  // the whole table on every call.
  int iLowestMaybeFree = 0;
  bool bDeleteOnExit = false;
};
