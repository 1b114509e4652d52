#pragma once
#include "foundation/sound_time.h"

// The range of the timeline that plays, loops and records takes. Equal ends mean
// there is none. It may reach from 0 to the project's end, which it follows by
// reference because the end moves under it.
class TDWorkRegionInfo {
 public:
  explicit TDWorkRegionInfo(const LSoundTime& projectEnd) : m_ProjectEnd(projectEnd) {}
  TDWorkRegionInfo(const TDWorkRegionInfo&) = delete;
  TDWorkRegionInfo& operator=(const TDWorkRegionInfo&) = delete;

  LSoundTime GetMaxWorkRegionEnd() const { return m_ProjectEnd; }
  LSoundTime GetMinWorkRegionStart() const { return 0; }

  LSoundTime GetStart() const { return iStart; }
  LSoundTime GetEnd() const { return iEnd; }
  bool IsEmpty() const { return iStart == iEnd; }
  // Stored in order; the caller keeps it within the limits.
  void Set(LSoundTime start, LSoundTime end);
  void Clear() { iStart = iEnd = 0; }
  // Pulls both ends within the limits, after the project got shorter.
  void ClampToLimits();

 private:
  const LSoundTime& m_ProjectEnd;
  LSoundTime iStart = 0;
  LSoundTime iEnd = 0;
};
