#include "project/name_limit.h"

namespace {

bool IsContinuationByte(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

std::string TDCutName(std::string_view text) {
  if (text.size() <= kTDNameMaxBytes) return std::string(text);

  // The first dropped byte tells whether the cut falls inside a character: if it
  // continues a sequence, back up to that sequence's lead byte. A UTF-8 sequence
  // has at most three continuation bytes; anything longer is not UTF-8 and is cut
  // at the byte limit rather than eaten away.
  std::size_t cut = kTDNameMaxBytes;
  std::size_t backed = 0;
  while (cut > 0 && backed < 3 && IsContinuationByte(text[cut])) {
    --cut;
    ++backed;
  }
  if (IsContinuationByte(text[cut])) cut = kTDNameMaxBytes;
  return std::string(text.substr(0, cut));
}
