#include "foundation/db.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(DbTables, SilenceEntriesAreExactlyZero) {
  for (int dB : {-128, -127}) {
    EXPECT_EQ(LdBAmplitudeOf(static_cast<signed char>(dB)), 0.0f);
    EXPECT_EQ(LdBPowerOf(static_cast<signed char>(dB)), 0.0f);
  }
  EXPECT_EQ(LdB<signed char>(-127).GetAmplitude(), 0.0f);
}

TEST(DbTables, EntriesFollowTheFormula) {
  EXPECT_NEAR(LdBAmplitudeOf(-126), std::pow(10.0, -6.3), 1e-12);
  EXPECT_NEAR(LdBPowerOf(-126), std::pow(10.0, -12.6), 1e-18);
  EXPECT_NEAR(LdBAmplitudeOf(-125), std::pow(10.0, -6.25), 1e-12);
  EXPECT_NEAR(LdBPowerOf(-125), std::pow(10.0, -12.5), 1e-18);
  EXPECT_EQ(LdBAmplitudeOf(0), 1.0f);
  EXPECT_EQ(LdBPowerOf(0), 1.0f);
  for (int dB = -124; dB <= 127; ++dB) {
    double const amp = std::pow(10.0, dB / 20.0);
    double const pow = std::pow(10.0, dB / 10.0);
    EXPECT_NEAR(LdBAmplitudeOf(static_cast<signed char>(dB)), amp, amp * 1e-5) << dB;
    EXPECT_NEAR(LdBPowerOf(static_cast<signed char>(dB)), pow, pow * 1e-5) << dB;
  }
  // Rising all the way: a table indexed off by one or a wrong sign would break this.
  for (int dB = -126; dB < 127; ++dB) {
    EXPECT_LT(LdBAmplitudeOf(static_cast<signed char>(dB)), LdBAmplitudeOf(static_cast<signed char>(dB + 1)));
  }
}

TEST(Db, FloatLevels) {
  EXPECT_TRUE(LdB<float>().IsSilence());
  EXPECT_EQ(LdB<float>(-127.0f).GetAmplitude(), 0.0f);
  EXPECT_EQ(LdB<float>(-200.0f).GetPower(), 0.0f);
  EXPECT_NEAR(LdB<float>(-6.0206f).GetAmplitude(), 0.5f, 1e-5f);
  EXPECT_NEAR(LdB<float>(10.0f).GetPower(), 10.0f, 1e-4f);
}

TEST(Db, MultiChannelStartsSilentAndKeepsCountInAByte) {
  LDBMultiChannel<LdB<signed char>> m(2);
  EXPECT_EQ(m.GetChannels(), 2);
  EXPECT_TRUE(m[0].IsSilence());
  EXPECT_TRUE(m[255].IsSilence());
  m.SetChannels(300);
  EXPECT_EQ(m.GetChannels(), 255);
}
