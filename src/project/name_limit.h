#pragma once
#include <cstddef>
#include <string>
#include <string_view>

// Track and bookmark names were fixed 260-byte buffers in every file this program
// has written, so a name longer than 259 bytes could never be stored; we keep that
// limit visible even though the names now live in growing strings.
inline constexpr std::size_t kTDNameMaxBytes = 259;

// The longest prefix of text of at most kTDNameMaxBytes bytes that does not end
// inside a UTF-8 sequence.
std::string TDCutName(std::string_view text);
