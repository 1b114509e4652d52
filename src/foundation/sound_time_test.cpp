#include "foundation/sound_time.h"

#include <gtest/gtest.h>

#include <limits>

TEST(SoundTime, FramesFromTimeTruncateTowardZeroThroughWholeSeconds) {
  EXPECT_EQ(LSoundTimeToFrames(1000, 44100), 44100);
  EXPECT_EQ(LSoundTimeToFrames(1500, 44100), 66150);
  EXPECT_EQ(LSoundTimeToFrames(1, 44100), 44);
  EXPECT_EQ(LSoundTimeToFrames(-1, 44100), -44);
  EXPECT_EQ(LSoundTimeToFrames(-1500, 44100), -66150);
  // 48000 * 3600000 is far beyond 32 bits; the result is not.
  EXPECT_EQ(LSoundTimeToFrames(3600000, 48000), 172800000);
  // A result that itself needs more than 32 bits.
  EXPECT_EQ(LSoundTimeToFrames(std::numeric_limits<LSoundTime>::max(), 192000), 412316860224LL);
}

TEST(SoundTime, TimeFromFrames) {
  EXPECT_EQ(LFramesToSoundTime(44100, 44100), 1000);
  EXPECT_EQ(LFramesToSoundTime(66150, 44100), 1500);
  EXPECT_EQ(LFramesToSoundTime(44099, 44100), 999);
  EXPECT_EQ(LFramesToSoundTime(-66150, 44100), -1500);
  EXPECT_EQ(LFramesToSoundTime(172800000, 48000), 3600000);
  EXPECT_EQ(LFramesToSoundTime(10000000000LL, 48000), 208333333);
  EXPECT_EQ(LFramesToSoundTime(12345, 0), 0);
  EXPECT_EQ(LFramesToSoundTime(12345, -8000), 0);
  EXPECT_EQ(LFramesToSoundTime(std::int64_t{1} << 60, 1000), std::numeric_limits<LSoundTime>::max());
  EXPECT_EQ(LFramesToSoundTime(-(std::int64_t{1} << 60), 1000), std::numeric_limits<LSoundTime>::min());
  for (LSoundTime s = -5; s <= 5; ++s) EXPECT_EQ(LFramesToSoundTime(LSoundTimeToFrames(s * 1000, 22050), 22050), s * 1000);
}

TEST(SoundTime, TextFormsAndTheirRounding) {
  EXPECT_EQ(_GetTextHMMSS(3723456), "1:02:03");
  EXPECT_EQ(_GetTextHMMSS(3723999), "1:02:03");
  EXPECT_EQ(_GetTextHMMSSF(3723449), "1:02:03.4");
  EXPECT_EQ(_GetTextHMMSSF(3723450), "1:02:03.5");
  EXPECT_EQ(_GetTextHMMSSF(59950), "0:01:00.0");  // the rounding carries into the minutes
  EXPECT_EQ(_GetTextHMMSSFFF(3723456), "1:02:03.456");
  EXPECT_EQ(_GetText(3723456), "1:02:03.456");
  EXPECT_EQ(_GetText(7), "0:00:00.007");
  EXPECT_EQ(_GetText2(3723454), "1:02:03.45");
  EXPECT_EQ(_GetText2(3723455), "1:02:03.46");
  EXPECT_EQ(_GetTextHMMSS(36000000), "10:00:00");
  EXPECT_EQ(_GetText(std::numeric_limits<LSoundTime>::max()), "596:31:23.647");
}

TEST(SoundTime, NegativeTextIsTheMirrorWithADash) {
  EXPECT_EQ(_GetTextHMMSS(-1), "-0:00:00");
  EXPECT_EQ(_GetTextHMMSSFFF(-1), "-0:00:00.001");
  EXPECT_EQ(_GetTextHMMSSF(-3723450), "-1:02:03.5");
  EXPECT_EQ(_GetText2(-3723455), "-1:02:03.46");
  EXPECT_EQ(_GetText(std::numeric_limits<LSoundTime>::min()), "-596:31:23.648");
}

TEST(SoundTime, SetTextParsesFieldsAndFraction) {
  struct Case {
    char const* text;
    LSoundTime ms;
  } const cases[] = {
      {"1:02:03.456", 3723456},
      {"1:02:03:456", 3723456},  // a third ':' starts the fraction
      {"1:02:03.4", 3723400},
      {"1:02:03.45678", 3723456},  // digits after the third add nothing
      {"90", 90000},
      {"1:30", 90000},
      {"-0:00:01.5", -1500},
      {"0:00:01.5-", -1500},  // '-' anywhere
      {"x1y:0z5", 65000},     // other characters are skipped
      {".25", 250},
      {"", 0},
      {"999999999999999999999", std::numeric_limits<LSoundTime>::max()},
  };
  for (Case const& c : cases) {
    LSoundTime t = 12345;
    SetText(t, c.text);
    EXPECT_EQ(t, c.ms) << '"' << c.text << '"';
  }
}

TEST(SoundTime, SetTextReadsBackEveryExactForm) {
  for (LSoundTime v : {0, 1, 999, 59999, 3723456, -3723456, 360000000, std::numeric_limits<LSoundTime>::max(),
                       std::numeric_limits<LSoundTime>::min()}) {
    LSoundTime t = 0;
    SetText(t, _GetText(v));
    EXPECT_EQ(t, v);
    SetText(t, _GetTextHMMSSFFF(v));
    EXPECT_EQ(t, v);
  }
}
