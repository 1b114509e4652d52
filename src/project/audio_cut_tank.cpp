#include "project/audio_cut_tank.h"

#include <dirent.h>
#include <fnmatch.h>
#include <strings.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace {

std::string ParentFolder(std::string const& path) {
  std::size_t const slash = path.find_last_of('/');
  if (slash == std::string::npos) return std::string();
  return path.substr(0, slash);
}

std::string WithoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool SameFolder(std::string const& a, std::string const& b) {
  return strcasecmp(WithoutTrailingSlashes(a).c_str(), WithoutTrailingSlashes(b).c_str()) == 0;
}

}  // namespace

LAudioCutTank::LAudioCutTank() = default;

LAudioCutTank::~LAudioCutTank() {
  if (bDeleteOnExit) DeleteCachedFiles();
}

LAudioCutTank& LAudioCutTank::Instance() {
  static LAudioCutTank tank;
  return tank;
}

void LAudioCutTank::SetWorkingFolder(std::string const& path) {
  LLockObjectHold hold(loLock);
  szWorkingFolder = WithoutTrailingSlashes(path);
}

std::string LAudioCutTank::GetWorkingFolder() const {
  LLockObjectHold hold(loLock);
  return szWorkingFolder;
}

LAudioCutRef LAudioCutTank::CreateNewRefAndIncRef() {
  LLockObjectHold hold(loLock);
  for (int n = iLowestMaybeFree; n <= LAudioCutRefMax; ++n) {
    if (wRefCount[n] == 0) {
      wRefCount[n] = 1;
      iLowestMaybeFree = n + 1;
      return static_cast<LAudioCutRef>(n);
    }
  }
  iLowestMaybeFree = LAudioCutRefMax + 1;
  return LAudioCutRefFull;
}

void LAudioCutTank::IncRef(LAudioCutRef number) {
  if (number > LAudioCutRefMax) return;
  LLockObjectHold hold(loLock);
  if (wRefCount[number] < 65534) ++wRefCount[number];
}

void LAudioCutTank::DecRef(LAudioCutRef number) {
  if (number > LAudioCutRefMax) return;
  std::string aud;
  std::string grf;
  {
    LLockObjectHold hold(loLock);
    if (szWorkingFolder.empty()) return;
    std::uint16_t& count = wRefCount[number];
    if (count >= 65534) return;
    if (count >= 2) {
      --count;
      return;
    }
    count = 0;
    if (number < iLowestMaybeFree) iLowestMaybeFree = number;
    if (bPreserved[number]) return;
    aud = FilePathLocked(number, ".aud");
    grf = FilePathLocked(number, ".grf");
    // A file outside the folder in use belongs to another project (or to none
    // the tank knows): never ours to remove.
    if (!SameFolder(ParentFolder(aud), szWorkingFolder)) aud.clear();
    if (!SameFolder(ParentFolder(grf), szWorkingFolder)) grf.clear();
  }
  if (!aud.empty()) ::unlink(aud.c_str());
  if (!grf.empty()) ::unlink(grf.c_str());
}

int LAudioCutTank::GetRefCount(LAudioCutRef number) const {
  LLockObjectHold hold(loLock);
  return wRefCount[number];
}

void LAudioCutTank::DisallowCacheDelete(LAudioCutRef number) {
  if (number > LAudioCutRefMax) return;
  LLockObjectHold hold(loLock);
  bPreserved[number] = 1;
}

void LAudioCutTank::PreserveEntireCache() {
  LLockObjectHold hold(loLock);
  std::memset(bPreserved, 1, sizeof bPreserved);
}

bool LAudioCutTank::IsPreserved(LAudioCutRef number) const {
  LLockObjectHold hold(loLock);
  return bPreserved[number] != 0;
}

std::string LAudioCutTank::FilePathLocked(LAudioCutRef number, char const* extension) const {
  if (number == LAudioCutRefNull) return std::string();
  auto const named = mNames.find(number);
  if (named != mNames.end()) return named->second + extension;
  return szWorkingFolder + "/" + std::to_string(number) + extension;
}

std::string LAudioCutTank::GetFilePath(LAudioCutRef number, char const* extension) const {
  LLockObjectHold hold(loLock);
  return FilePathLocked(number, extension);
}

int LAudioCutTank::GetAudioNoFromPath(std::string const& path) const {
  std::size_t const slash = path.find_last_of('/');
  std::string const name = slash == std::string::npos ? path : path.substr(slash + 1);
  std::size_t const dot = name.find_last_of('.');
  if (dot == std::string::npos) return -1;
  char const* ext = name.c_str() + dot;
  if (strcasecmp(ext, ".aud") != 0 && strcasecmp(ext, ".grf") != 0 && strcasecmp(ext, ".fft") != 0) return -1;
  std::string const base = name.substr(0, dot);
  {
    LLockObjectHold hold(loLock);
    std::string const fullBase = path.substr(0, path.size() - (name.size() - dot));
    for (auto const& [number, basePath] : mNames) {
      if (basePath == fullBase || basePath == base) return number;
    }
  }
  // Only a plain decimal name is one of ours: "17.aud" is, "take 1.aud" is not, so
  // a sweep of the folder never mistakes a stranger's file for number 0.
  if (base.empty() || base.size() > 5) return -1;
  int value = 0;
  for (char c : base) {
    if (c < '0' || c > '9') return -1;
    value = value * 10 + (c - '0');
  }
  return value;
}

void LAudioCutTank::SetNameOverride(LAudioCutRef number, std::string const& basePath) {
  LLockObjectHold hold(loLock);
  if (basePath.empty()) {
    mNames.erase(number);
  } else {
    mNames[number] = basePath;
  }
}

void LAudioCutTank::DeleteCachedFiles(char const* pattern) {
  std::string const folder = GetWorkingFolder();
  if (folder.empty()) return;
  DIR* dir = ::opendir(folder.c_str());
  if (dir == nullptr) return;
  std::vector<std::string> doomed;
  while (dirent* entry = ::readdir(dir)) {
    if (::fnmatch(pattern, entry->d_name, 0) != 0) continue;
    int const number = GetAudioNoFromPath(entry->d_name);
    if (number < 0 || number > 65535) continue;
    LLockObjectHold hold(loLock);
    if (wRefCount[number] == 0 && !bPreserved[number]) doomed.push_back(folder + "/" + entry->d_name);
  }
  ::closedir(dir);
  for (std::string const& path : doomed) ::unlink(path.c_str());
}

void LAudioCutTank::DeleteCachedFiles() {
  if (GetWorkingFolder().empty()) return;
  DeleteCachedFiles("*.aud");
  DeleteCachedFiles("*.grf");
}

void LAudioCutTank::Reset() {
  LLockObjectHold hold(loLock);
  szWorkingFolder.clear();
  std::memset(wRefCount, 0, sizeof wRefCount);
  std::memset(bPreserved, 0, sizeof bPreserved);
  mNames.clear();
  iLowestMaybeFree = 0;
  bDeleteOnExit = false;
}
