#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "effects/sound_process.h"

// An effect chain: an ordered list of effects, top first, which is also the
// order of the signal. It owns its effects; a copy clones each of them, so an
// undo snapshot or a duplicated track never shares an effect with the original.
class LSoundProcessMulti : public LSPChunkFaces<LSoundProcessMulti> {
 public:
  LSoundProcessMulti() = default;
  LSoundProcessMulti(LSoundProcessMulti const& other);
  LSoundProcessMulti& operator=(LSoundProcessMulti const& other);
  LSoundProcessMulti(LSoundProcessMulti&&) noexcept = default;
  LSoundProcessMulti& operator=(LSoundProcessMulti&&) noexcept = default;

  int GetCount() const { return static_cast<int>(vProcesses.size()); }
  bool IsEmpty() const { return vProcesses.empty(); }
  // Null out of range.
  LSoundProcess* GetAt(int index) const;
  LSoundProcess* Append(std::unique_ptr<LSoundProcess> process);
  // An index past the end appends.
  LSoundProcess* Insert(int index, std::unique_ptr<LSoundProcess> process);
  // Takes the effect out of the list; null out of range.
  std::unique_ptr<LSoundProcess> Detach(int index);
  void Clear() { vProcesses.clear(); }

  // The effects that are not bypassed, each over the one before. With none, the
  // very source given comes back.
  LSoundSource OpenSource(LSoundSource const& source) const;

  // For each effect, an int chunk with its type and a container with its chunks,
  // into the container that is open.
  bool SaveChunks(LSPChunkWriter& writer) const;
  // Appends the effects of a saved chain. A type 0 before an effect's container
  // ends the walk, keeping what came before; the old point list equaliser (type
  // 9) is read and dropped, as it is replaced by the newer equalisers.
  bool LoadChunks(LSPChunkCursor& it);
  // The oldest form: an int count, then per effect an int type and its values
  // one chunk after another. Stops at type 9 and at any effect it cannot place.
  bool LoadChunksPositional(LSPChunkCursor& it);

  // A new effect of `type` with its defaults; null for type 0. Types this build
  // does not know come back as LSPUnknown.
  static std::unique_ptr<LSoundProcess> CreateSoundProcessByType(int type);

 private:
  std::vector<std::unique_ptr<LSoundProcess>> vProcesses;
};

// Whether the effect of `type` does its signal work in this build. Only those are
// offered to the user; the others are kept, saved, loaded and edited, and pass
// their audio through unchanged until their sources exist.
bool LSPHasSignalWork(int type);

// Effect chain files (".ecf"): a chunk file whose root holds one saved chain.
inline constexpr std::uint32_t LSPChainFileType = 11;
inline constexpr std::uint16_t LSPChainFileVersion = 1;
inline constexpr char LSPChainFileExtension[] = ".ecf";
inline constexpr char LSPChainFileDescription[] = "Effects Chain File *.ecf";

bool LSPSaveChainFile(LSoundProcessMulti const& chain, std::string const& path);
// Appends the file's effects to `chain`. False when the file cannot be opened or
// is not a chain file of this version.
bool LSPLoadChainFile(LSoundProcessMulti& chain, std::string const& path);

// An effect as the oldest projects recorded it: named values and an enabled flag.
struct LSoundProcessChainItem {
  std::map<std::string, std::string> Values;
  bool bEnabled = true;

  // The effect the record describes, or null for a type this build cannot make.
  std::unique_ptr<LSoundProcess> ConvertToSoundProcess() const;
  // The value of `key`, or `fallback` when it is missing.
  int GetInt(char const* key, int fallback) const;
};
