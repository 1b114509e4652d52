#include "foundation/sound_time.h"

#include <cstdio>
#include <limits>

namespace {

LSoundTime Saturate(std::int64_t v) {
  if (v > std::numeric_limits<LSoundTime>::max()) return std::numeric_limits<LSoundTime>::max();
  if (v < std::numeric_limits<LSoundTime>::min()) return std::numeric_limits<LSoundTime>::min();
  return static_cast<LSoundTime>(v);
}

struct Clock {
  bool negative;
  std::int64_t hours;
  std::int64_t minutes;
  int seconds;
  int millis;
};

// Splits |time| + roundMs; the rounding is applied to the magnitude so that a
// negative time reads like its positive mirror.
Clock Split(LSoundTime time, int roundMs) {
  Clock c{};
  std::int64_t t = time;
  c.negative = t < 0;
  if (c.negative) t = -t;
  t += roundMs;
  c.hours = t / 3600000;
  c.minutes = (t / 60000) % 60;
  c.seconds = static_cast<int>((t / 1000) % 60);
  c.millis = static_cast<int>(t % 1000);
  return c;
}

std::string Finish(Clock const& c, int written, char const* buf) {
  std::string s;
  if (c.negative) s.push_back('-');
  if (written > 0) s.append(buf, static_cast<std::size_t>(written));
  return s;
}

}  // namespace

std::int64_t LSoundTimeToFrames(LSoundTime ms, int rate) {
  std::int64_t const r = rate;
  return r * (ms / 1000) + (r * (ms % 1000)) / 1000;
}

LSoundTime LFramesToSoundTime(std::int64_t frames, int rate) {
  if (rate <= 0) return 0;
  std::int64_t const seconds = frames / rate;
  // Beyond this many seconds the result saturates anyway; stopping here keeps the
  // multiplication below from overflowing for absurd frame counts.
  constexpr std::int64_t kLimit = std::int64_t{std::numeric_limits<LSoundTime>::max()} / 1000 + 1;
  if (seconds > kLimit) return std::numeric_limits<LSoundTime>::max();
  if (seconds < -kLimit) return std::numeric_limits<LSoundTime>::min();
  return Saturate(seconds * 1000 + ((frames % rate) * 1000) / rate);
}

std::string _GetTextHMMSS(LSoundTime time) {
  Clock const c = Split(time, 0);
  char buf[48];
  int n = std::snprintf(buf, sizeof buf, "%lld:%.2lld:%.2d", static_cast<long long>(c.hours),
                        static_cast<long long>(c.minutes), c.seconds);
  return Finish(c, n, buf);
}

std::string _GetTextHMMSSF(LSoundTime time) {
  Clock const c = Split(time, 50);
  char buf[48];
  int n = std::snprintf(buf, sizeof buf, "%lld:%.2lld:%.2d.%.1d", static_cast<long long>(c.hours),
                        static_cast<long long>(c.minutes), c.seconds, c.millis / 100);
  return Finish(c, n, buf);
}

std::string _GetTextHMMSSFFF(LSoundTime time) {
  Clock const c = Split(time, 0);
  char buf[48];
  int n = std::snprintf(buf, sizeof buf, "%lld:%.2lld:%.2d.%.3d", static_cast<long long>(c.hours),
                        static_cast<long long>(c.minutes), c.seconds, c.millis);
  return Finish(c, n, buf);
}

std::string _GetText(LSoundTime time) {
  // Same shape as _GetTextHMMSSFFF; kept as its own name because callers ask for
  // "the full form" without caring how it is spelled.
  return _GetTextHMMSSFFF(time);
}

std::string _GetText2(LSoundTime time) {
  Clock const c = Split(time, 5);
  char buf[48];
  int n = std::snprintf(buf, sizeof buf, "%lld:%.2lld:%.2d.%.2d", static_cast<long long>(c.hours),
                        static_cast<long long>(c.minutes), c.seconds, c.millis / 10);
  return Finish(c, n, buf);
}

void SetText(LSoundTime& time, std::string_view text) {
  // 64-bit accumulation with a cap far above any valid time, so that a long string
  // of digits cannot overflow before the final saturation.
  constexpr std::int64_t kCap = std::int64_t{1} << 40;
  std::int64_t seconds = 0;  // fields before the current one, already in seconds
  std::int64_t field = 0;    // the field being read
  std::int64_t fraction = 0;
  int fractionWeight = 100;
  int colons = 0;
  bool inFraction = false;
  bool negative = false;

  for (char ch : text) {
    if (ch == '-') {
      negative = true;
    } else if (ch >= '0' && ch <= '9') {
      int const d = ch - '0';
      if (inFraction) {
        fraction += d * fractionWeight;
        fractionWeight /= 10;  // after the third digit the weight is 0
      } else if (field < kCap) {
        field = field * 10 + d;
      }
    } else if (inFraction) {
      continue;
    } else if (ch == ':') {
      if (++colons == 3) {
        inFraction = true;
      } else {
        seconds = seconds + field;
        if (seconds < kCap) seconds *= 60;
        field = 0;
      }
    } else if (ch == '.') {
      inFraction = true;
    }
  }
  std::int64_t ms = (seconds + field) * 1000 + fraction;
  time = Saturate(negative ? -ms : ms);
}
