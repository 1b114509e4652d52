#pragma once

// Small loops over interleaved float buffers, shared by the sources and the player.

// Sets `frames` frames of `channels` floats to zero.
void LZeroFrames(float* buffer, int frames, int channels);

// Multiplies `count` floats by `gain` in place. A gain of exactly 1 leaves the
// buffer untouched.
void GainAudioBufferQuick(float* buffer, int count, float gain);
