#include "foundation/db.h"

#include <cmath>

namespace {

LdBTables BuildTables() {
  LdBTables t{};
  t.amplitude[0] = t.power[0] = 0.0f;  // -128
  t.amplitude[1] = t.power[1] = 0.0f;  // -127: silence
  // The two levels just above silence come from exact exponents rather than the
  // single-precision product used above them, which would be off in the last bits.
  t.amplitude[2] = static_cast<float>(std::pow(10.0, -6.3));
  t.power[2] = static_cast<float>(std::pow(10.0, -12.6));
  t.amplitude[3] = static_cast<float>(std::pow(10.0, -6.25));
  t.power[3] = static_cast<float>(std::pow(10.0, -12.5));
  for (int dB = -124; dB <= 127; ++dB) {
    float const f = static_cast<float>(dB);
    t.amplitude[dB + 128] = std::pow(10.0f, f * 0.05f);
    t.power[dB + 128] = std::pow(10.0f, f * 0.1f);
  }
  return t;
}

}  // namespace

LdBTables const& LdBGetTables() {
  // A function-local static: built by whichever thread asks first, and the others
  // wait for it to finish.
  static LdBTables const tables = BuildTables();
  return tables;
}
