// Anything that reaches the single-instance socket comes from outside the
// program; the decoder must take any bytes without crashing or over-reading.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "shell/single_instance.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> args;
  std::string message(reinterpret_cast<const char*>(data), size);
  if (LSingleInstanceDecode(message, args)) {
    // What decodes must encode back to the same bytes.
    if (LSingleInstanceEncode(args) != message) __builtin_trap();
  }
  return 0;
}
