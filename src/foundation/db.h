#pragma once
#include <cmath>
#include <cstdint>
#include <type_traits>

// Linear factors of the whole-dB levels -128..127, built once on first use. Index
// with dB + 128. Entries -128 and -127 are exactly 0: -127 dB is how a level says
// "no signal", and the meters and faders rely on it reaching true silence.
struct LdBTables {
  float amplitude[256];  // 10^(dB/20)
  float power[256];      // 10^(dB/10)
};
LdBTables const& LdBGetTables();

inline float LdBAmplitudeOf(signed char dB) { return LdBGetTables().amplitude[dB + 128]; }
inline float LdBPowerOf(signed char dB) { return LdBGetTables().power[dB + 128]; }

// A level in decibels held as T: signed char for faders and play meters (whole dB),
// float for record meters. -127 means silence.
template <class T>
class LdB {
 public:
  static constexpr T Silence = T(-127);

  constexpr LdB() : dB(Silence) {}
  constexpr LdB(T value) : dB(value) {}  // NOLINT: a level is its number

  constexpr T Get() const { return dB; }
  constexpr void Set(T value) { dB = value; }
  constexpr operator T() const { return dB; }
  constexpr bool IsSilence() const { return dB <= Silence; }

  // 10^(dB/20); 0 for silence.
  float GetAmplitude() const {
    if constexpr (std::is_same_v<T, signed char>) {
      return LdBAmplitudeOf(dB);
    } else {
      if (IsSilence()) return 0.0f;
      return static_cast<float>(std::pow(10.0, static_cast<double>(dB) / 20.0));
    }
  }

  // 10^(dB/10); 0 for silence.
  float GetPower() const {
    if constexpr (std::is_same_v<T, signed char>) {
      return LdBPowerOf(dB);
    } else {
      if (IsSilence()) return 0.0f;
      return static_cast<float>(std::pow(10.0, static_cast<double>(dB) / 10.0));
    }
  }

  T dB;
};

// One level per channel: what a meter notification carries.
template <class T>
struct LDBMultiChannel {
  static constexpr int MaxChannels = 256;

  LDBMultiChannel() = default;
  explicit LDBMultiChannel(int channels) { SetChannels(channels); }

  int GetChannels() const { return nChans; }
  // Counts above 255 cannot be stored in the byte and are cut to 255.
  void SetChannels(int channels) {
    nChans = static_cast<std::uint8_t>(channels < 0 ? 0 : (channels > 255 ? 255 : channels));
  }
  void SetAll(T value) {
    for (T& v : DBBuffer) v = value;
  }
  T& operator[](int channel) { return DBBuffer[channel]; }
  T const& operator[](int channel) const { return DBBuffer[channel]; }

  std::uint8_t nChans = 0;
  T DBBuffer[MaxChannels];
};
