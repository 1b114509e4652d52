// Encoder and decoder command lines carry file names the user chose, and no shell
// reads them: the splitter must take any text, and a name quoted for it must come
// back whole, whatever characters it holds.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/external_process.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string> args = LSplitCommandLine(text);
  // Each argument, quoted again, splits back to itself: quoting loses nothing.
  std::string line;
  for (const std::string& a : args) line += LQuoteArgument(a) + " ";
  if (LSplitCommandLine(line) != args) __builtin_trap();
  // The whole input as one name between two others.
  const std::vector<std::string> one = LSplitCommandLine("prog " + LQuoteArgument(text) + " -o x");
  if (one.size() != 4 || one[1] != text || one[3] != "x") __builtin_trap();
  return 0;
}
