#pragma once

// Small loops over interleaved float buffers, shared by the sources and the player.

// Sets `frames` frames of `channels` floats to zero.
void LZeroFrames(float* buffer, int frames, int channels);

// Multiplies `count` floats by `gain` in place. A gain of exactly 1 leaves the
// buffer untouched.
void GainAudioBufferQuick(float* buffer, int count, float gain);

// Adds `count` floats of `from` onto `to`: the inner loop of every mix.
void LAddBuffer(float* to, float const* from, int count);

// The greatest absolute value of one channel over `frames` interleaved frames.
float GetBufferPeakChan(float const* buffer, int frames, int channels, int channel);

// A peak as the play meters show it, in whole dB: below 4.467e-7 (about -127 dB)
// it is silence (-127); otherwise 20 log10(peak) rounded to the nearest whole dB,
// halves away from 0 dB, held to 127.
signed char LPeakToMeterDB(float peak);
