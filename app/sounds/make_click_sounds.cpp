// Writes the metronome's two click sounds, "beat.wav" and "accent.wav", into the
// folder given on the command line. Both are made here, as sine bursts that die
// away quickly, so the program ships sounds of its own and the build can remake
// them at any time:
//
//   make_click_sounds OUTPUT_FOLDER
//
// The accent is higher and louder than the beat, so the first beat of a bar
// stands out without a second look at the counter.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr int kRate = 44100;
constexpr double kPi = 3.14159265358979323846;

struct Click {
  const char* name;
  double frequency;  // Hz
  double peak;       // of full scale
  double decay;      // seconds for the level to fall to 1/e
  double length;     // seconds
};

// 16-bit mono samples of one click: a raised-cosine attack of one millisecond
// (a sine starting at full level would click twice), the exponential decay, and
// a fade over the last five milliseconds so it ends on silence.
std::vector<std::int16_t> Synthesise(const Click& c) {
  const int frames = static_cast<int>(c.length * kRate);
  const int attack = kRate / 1000;
  const int release = kRate / 200;
  std::vector<std::int16_t> out(static_cast<std::size_t>(frames));
  for (int i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / kRate;
    double level = c.peak * std::exp(-t / c.decay);
    if (i < attack) level *= 0.5 - 0.5 * std::cos(kPi * i / attack);
    if (i >= frames - release) level *= static_cast<double>(frames - 1 - i) / release;
    const double v = level * std::sin(2.0 * kPi * c.frequency * t);
    out[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(std::lround(v * 32767.0));
  }
  return out;
}

void PutLE(std::FILE* f, std::uint32_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) std::fputc(static_cast<int>((v >> (8 * i)) & 0xFF), f);
}

bool WriteWav(const std::string& path, const std::vector<std::int16_t>& samples) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  const auto dataBytes = static_cast<std::uint32_t>(samples.size() * 2);
  std::fwrite("RIFF", 1, 4, f);
  PutLE(f, 36 + dataBytes, 4);
  std::fwrite("WAVEfmt ", 1, 8, f);
  PutLE(f, 16, 4);
  PutLE(f, 1, 2);  // PCM
  PutLE(f, 1, 2);  // mono
  PutLE(f, kRate, 4);
  PutLE(f, kRate * 2, 4);
  PutLE(f, 2, 2);
  PutLE(f, 16, 2);
  std::fwrite("data", 1, 4, f);
  PutLE(f, dataBytes, 4);
  for (std::int16_t s : samples) PutLE(f, static_cast<std::uint16_t>(s), 2);
  return std::fclose(f) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_click_sounds OUTPUT_FOLDER\n");
    return 2;
  }
  const Click clicks[] = {
      {"beat.wav", 1000.0, 0.45, 0.008, 0.040},
      {"accent.wav", 1600.0, 0.70, 0.010, 0.050},
  };
  for (const Click& c : clicks) {
    const std::string path = std::string(argv[1]) + "/" + c.name;
    if (!WriteWav(path, Synthesise(c))) {
      std::fprintf(stderr, "make_click_sounds: cannot write %s\n", path.c_str());
      return 1;
    }
  }
  return 0;
}
