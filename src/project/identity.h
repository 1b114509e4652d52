#pragma once
#include <cstdint>

// Process-wide sources of identity. A clip names its track by index and by id;
// the index changes whenever tracks are inserted, deleted or moved, the id never
// does. Both counters are saved with the project and read back, so that ids given
// after a load never collide with ids already in the file. 0 is kept to mean
// "no id yet" and is never handed out.
//
// Only the main thread changes the model, so the counters need no lock.
struct TDID {
  static std::uint64_t uIdNext;

  static std::uint64_t GetNewId();
  // Adopts a counter read from a project file. A file that carries 0 gives no
  // information, and adopting it would let 0 be handed out, so it is ignored.
  static void SetNextFromLoad(std::uint64_t next);
};

struct TDClipID {
  static std::uint32_t uIdNext;

  static std::uint32_t GetNewId();
  static void SetNextFromLoad(std::uint32_t next);
};
