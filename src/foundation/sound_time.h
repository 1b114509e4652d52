#pragma once
#include <cstdint>
#include <string>
#include <string_view>

// Milliseconds on the project's timeline. Signed: positions before zero are legal
// (pre-roll, a seek before the first clip).
using LSoundTime = std::int32_t;

// Time to frames at `rate`. The whole seconds are scaled first and the remaining
// milliseconds after, both truncating toward zero, so the result is the same on
// every path (timeline, engine, files) and is exact for whole seconds. The result is
// 64-bit: 60 hours at 48 kHz do not fit in 32 bits.
std::int64_t LSoundTimeToFrames(LSoundTime ms, int rate);

// Frames to time at `rate`, again through whole seconds; a rate of 0 or less gives 0.
// A result beyond the range of LSoundTime saturates.
LSoundTime LFramesToSoundTime(std::int64_t frames, int rate);

// Text forms, all "h:mm:ss" with a fraction; a negative time is written as '-'
// followed by the form of its absolute value.
std::string _GetTextHMMSS(LSoundTime time);     // "0:01:02", truncated to the second
std::string _GetTextHMMSSF(LSoundTime time);    // "0:01:02.3", rounded to the tenth
std::string _GetTextHMMSSFFF(LSoundTime time);  // "0:01:02.345"
std::string _GetText(LSoundTime time);          // "0:01:02.345"
std::string _GetText2(LSoundTime time);         // "0:01:02.35", rounded to the hundredth

// Parses what the forms above write, and looser input typed by a user: fields
// separated by ':' (a third ':' starts the milliseconds, as in "h:mm:ss:fff"), a
// fraction after '.', a '-' anywhere for a negative time; other characters are
// ignored. A result beyond the range of LSoundTime saturates.
void SetText(LSoundTime& time, std::string_view text);
