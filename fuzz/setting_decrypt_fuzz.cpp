// A stored password comes from a file anyone can edit; deciphering must take
// any text without crashing or over-reading, and accept only what enciphering
// could have written.
#include <cstddef>
#include <cstdint>
#include <string>

#include "shell/user_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string stored(reinterpret_cast<const char*>(data), size);
  std::string text = stored;
  if (LSettingDecrypt(text)) {
    std::string again;
    LSettingEncrypt(again, text.c_str());
    if (again != stored) __builtin_trap();
  } else if (!text.empty()) {
    __builtin_trap();  // a refused value must leave nothing behind
  }
  return 0;
}
