#include "project/identity.h"

std::uint64_t TDID::uIdNext = 1;
std::uint32_t TDClipID::uIdNext = 1;

namespace {

template <typename T>
T TakeNext(T& next) {
  // After a wrap the counter would reach 0, which means "none".
  if (next == 0) next = 1;
  return next++;
}

}  // namespace

std::uint64_t TDID::GetNewId() {
  return TakeNext(uIdNext);
}

void TDID::SetNextFromLoad(std::uint64_t next) {
  if (next != 0) uIdNext = next;
}

std::uint32_t TDClipID::GetNewId() {
  return TakeNext(uIdNext);
}

void TDClipID::SetNextFromLoad(std::uint32_t next) {
  if (next != 0) uIdNext = next;
}
