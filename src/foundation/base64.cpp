#include "foundation/base64.h"

#include <cstdint>
#include <utility>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The 6-bit value of an alphabet character, or -1.
int ValueOf(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

std::string LBase64Encode(const void* data, std::size_t size) {
  const auto* in = static_cast<const std::uint8_t*>(data);
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    const std::uint32_t v = (std::uint32_t{in[i]} << 16) | (std::uint32_t{in[i + 1]} << 8) | in[i + 2];
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (const std::size_t left = size - i; left > 0) {
    std::uint32_t v = std::uint32_t{in[i]} << 16;
    if (left == 2) v |= std::uint32_t{in[i + 1]} << 8;
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += left == 2 ? kAlphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

bool LBase64Decode(std::string_view text, std::string& out) {
  out.clear();
  if (text.size() % 4 != 0) return false;
  std::size_t pad = 0;
  if (!text.empty() && text.back() == '=') pad = text[text.size() - 2] == '=' ? 2 : 1;

  std::string result;
  result.reserve(text.size() / 4 * 3);
  for (std::size_t g = 0; g < text.size(); g += 4) {
    const bool last = g + 4 == text.size();
    const std::size_t digits = last ? 4 - pad : 4;
    std::uint32_t v = 0;
    for (std::size_t j = 0; j < digits; ++j) {
      const int d = ValueOf(text[g + j]);
      if (d < 0) return false;  // also an '=' anywhere but the end
      v = (v << 6) | static_cast<std::uint32_t>(d);
    }
    v <<= 6 * (4 - digits);
    // What the padding leaves over must be zero, or two texts would mean the same bytes.
    if ((digits == 2 && (v & 0xFFFF) != 0) || (digits == 3 && (v & 0xFF) != 0)) return false;
    result += static_cast<char>(v >> 16);
    if (digits >= 3) result += static_cast<char>((v >> 8) & 0xFF);
    if (digits == 4) result += static_cast<char>(v & 0xFF);
  }
  out = std::move(result);
  return true;
}
