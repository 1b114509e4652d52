#pragma once
#include <string>
#include <string_view>

#include "foundation/sound_time.h"
#include "project/name_limit.h"
#include "project/rgb16.h"

// A named mark on the timeline.
struct LTimeLineBookmark {
  LSoundTime iPosition = 0;  // ms
  TDRGB16 Colour;

  const std::string& GetName() const { return szName; }
  // Cut like a track name.
  void SetName(std::string_view name) { szName = TDCutName(name); }

 private:
  std::string szName;
};
