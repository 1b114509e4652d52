#pragma once
#include <cstddef>
#include <string>
#include <string_view>

// Base64 of RFC 4648 section 4: the alphabet A-Z a-z 0-9 + /, and '=' padding
// to a whole number of four-character groups. No line breaks.
std::string LBase64Encode(const void* data, std::size_t size);

// Accepts only what LBase64Encode could have written: no spaces or line
// breaks, padding only at the end, and zero bits in what padding leaves over.
// Being that strict means one text has one meaning, and damaged text is found
// out instead of decoding to something. False, with `out` empty, otherwise.
bool LBase64Decode(std::string_view text, std::string& out);
