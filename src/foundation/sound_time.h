#pragma once
#include <cstdint>

// Milliseconds on the project's timeline. Signed: positions before zero are legal
// (pre-roll, a seek before the first clip).
using LSoundTime = std::int32_t;
