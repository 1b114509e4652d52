#include "project/work_region.h"

#include <algorithm>
#include <utility>

void TDWorkRegionInfo::Set(LSoundTime start, LSoundTime end) {
  if (end < start) std::swap(start, end);
  iStart = start;
  iEnd = end;
}

void TDWorkRegionInfo::ClampToLimits() {
  const LSoundTime low = GetMinWorkRegionStart();
  const LSoundTime high = std::max(low, GetMaxWorkRegionEnd());
  iStart = std::clamp(iStart, low, high);
  iEnd = std::clamp(iEnd, low, high);
}
