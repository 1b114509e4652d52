#pragma once
// Four floats worked on at once, through the compiler's vector extensions: SSE
// registers on x86-64, NEON on ARM, plain scalar code where there is neither, from
// one source. GCC 12 and clang both take this form.
#include <cstdint>
#include <cstring>

typedef float LMP3Vec4 __attribute__((vector_size(16)));
typedef std::int32_t LMP3Int4 __attribute__((vector_size(16)));

inline LMP3Vec4 LMP3Load4(float const* p) {
  LMP3Vec4 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline void LMP3Store4(float* p, LMP3Vec4 v) { std::memcpy(p, &v, sizeof v); }

inline LMP3Vec4 LMP3Splat4(float x) { return LMP3Vec4{x, x, x, x}; }

// Rows a, b, c, d become columns: afterwards a holds the first element of each.
inline void LMP3Transpose4(LMP3Vec4& a, LMP3Vec4& b, LMP3Vec4& c, LMP3Vec4& d) {
  LMP3Vec4 const ab0 = __builtin_shufflevector(a, b, 0, 4, 1, 5);
  LMP3Vec4 const ab1 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
  LMP3Vec4 const cd0 = __builtin_shufflevector(c, d, 0, 4, 1, 5);
  LMP3Vec4 const cd1 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
  a = __builtin_shufflevector(ab0, cd0, 0, 1, 4, 5);
  b = __builtin_shufflevector(ab0, cd0, 2, 3, 6, 7);
  c = __builtin_shufflevector(ab1, cd1, 0, 1, 4, 5);
  d = __builtin_shufflevector(ab1, cd1, 2, 3, 6, 7);
}

inline LMP3Vec4 LMP3Reverse4(LMP3Vec4 v) { return __builtin_shufflevector(v, v, 3, 2, 1, 0); }

// Lanes of a where the mask is all ones, of b where it is zero.
inline LMP3Vec4 LMP3Select4(LMP3Int4 mask, LMP3Vec4 a, LMP3Vec4 b) {
  // Casts between vectors of one size keep the bits.
  return (LMP3Vec4)(((LMP3Int4)a & mask) | ((LMP3Int4)b & ~mask));
}
