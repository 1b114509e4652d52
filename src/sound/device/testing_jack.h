#pragma once
// A JACK server of the test's own with the dummy driver, and a JACK client that
// records what reaches its ports: for this folder's tests only. Each test process
// starts a server under a name of its own, so tests run side by side.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <jack/jack.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/main_thread_queue.h"
#include "sound/device/sound_devices.h"
#include "sound/sound_sink.h"

class LTestJackServer {
 public:
  // A server under a name of its own, or under `name` (a server started again
  // after the last one under that name went away).
  explicit LTestJackServer(int rate = 48000, int period = 256, std::string name = "")
      : szName(std::move(name)), iRate(rate), iPeriod(period) {
    static int serial = 0;
    // The clock too: a server killed hard leaves files named after it, and process
    // numbers come round again.
    if (szName.empty()) {
      auto const now = std::chrono::steady_clock::now().time_since_epoch();
      szName = "tandrel-test-" + std::to_string(::getpid()) + "-" + std::to_string(++serial) + "-" +
               std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count() % 1000000);
    }
    Start();
  }
  ~LTestJackServer() {
    Kill(SIGTERM);
    ::unsetenv("JACK_DEFAULT_SERVER");
    LSoundPlayDeviceList::Refresh();
  }
  LTestJackServer(LTestJackServer const&) = delete;
  LTestJackServer& operator=(LTestJackServer const&) = delete;

  // Ends the server with `signal` (SIGKILL: it dies without a word to its
  // clients) and waits for it to be gone.
  void Kill(int signal) {
    if (pid > 0) {
      ::kill(pid, signal);
      int st = 0;
      ::waitpid(pid, &st, 0);
      // A server that could not clean up leaves its shared memory and its clients'
      // semaphores behind, which one of the same name would find again.
      std::error_code ignored;
      for (auto const& f : std::filesystem::directory_iterator("/dev/shm", ignored)) {
        std::string const file = f.path().filename().string();
        if (file.find("_" + szName + "_") != std::string::npos) std::filesystem::remove(f.path(), ignored);
      }
    }
    pid = -1;
    bUp = false;
  }
  // Starts the server again under the same name, as a user would after it died.
  bool Restart() {
    Kill(SIGTERM);
    Start();
    return bUp;
  }

  bool IsUp() const { return bUp; }
  std::string const& GetName() const { return szName; }

 private:
  void Start() {
    std::string const r = std::to_string(iRate), p = std::to_string(iPeriod);
    pid = ::fork();
    if (pid == 0) {
      // The server dies with the test, even one that crashes.
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
      int const null = ::open("/dev/null", O_WRONLY);
      if (null >= 0) {
        ::dup2(null, 1);
        ::dup2(null, 2);
      }
      ::execlp("jackd", "jackd", "-n", szName.c_str(), "-r", "-d", "dummy", "-r", r.c_str(), "-p", p.c_str(),
               static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::setenv("JACK_DEFAULT_SERVER", szName.c_str(), 1);
    ::setenv("JACK_NO_START_SERVER", "1", 1);
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (pid > 0 && std::chrono::steady_clock::now() < deadline) {
      jack_status_t status{};
      jack_client_t* probe = jack_client_open("tandrel-probe", JackNoStartServer, &status);
      if (probe) {
        jack_client_close(probe);
        bUp = true;
        break;
      }
      int st = 0;
      if (::waitpid(pid, &st, WNOHANG) == pid) {
        pid = -1;  // it could not start (jackd missing?)
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    // The device lists are read again, now with this server in them.
    LSoundPlayDeviceList::Refresh();
  }

  std::string szName;
  int iRate;
  int iPeriod;
  pid_t pid = -1;
  bool bUp = false;
};

// A JACK client with `channels` input ports "in_1".., recording interleaved frames
// into storage made up front. To RtAudio it is a device named after the client
// with that many outputs, so the player can be pointed at it by name.
class LTestJackCapture {
 public:
  LTestJackCapture(char const* name, int channels, int maxFrames)
      : nChans(channels), iMaxFrames(maxFrames), frames(static_cast<std::size_t>(channels) * maxFrames) {
    jack_status_t status{};
    pClient = jack_client_open(name, static_cast<jack_options_t>(JackNoStartServer | JackUseExactName), &status);
    if (!pClient) return;
    for (int c = 0; c < channels; ++c) {
      std::string const port = "in_" + std::to_string(c + 1);
      ports.push_back(jack_port_register(pClient, port.c_str(), JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0));
    }
    jack_set_process_callback(pClient, &LTestJackCapture::Process, this);
    jack_set_xrun_callback(pClient, &LTestJackCapture::Xrun, this);
    jack_on_shutdown(pClient, &LTestJackCapture::Shutdown, this);
    bActive = jack_activate(pClient) == 0;
  }
  ~LTestJackCapture() {
    // A client whose server died is left as it is: jackd's library crashes in
    // both deactivating and closing it. A test that kills its server leaks it.
    if (pClient && !bServerGone.load()) {
      jack_deactivate(pClient);
      jack_client_close(pClient);
    }
  }

  bool IsActive() const { return bActive; }
  int GetRate() const { return pClient ? static_cast<int>(jack_get_sample_rate(pClient)) : 0; }
  // Frames recorded so far, interleaved.
  std::vector<float> Frames() const {
    int const n = iFilled.load();
    return std::vector<float>(frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(n) * nChans);
  }
  int GetFilled() const { return iFilled.load(); }
  // One sample recorded; `frame` below GetFilled().
  float Sample(int frame, int channel) const {
    return frames[static_cast<std::size_t>(frame) * static_cast<std::size_t>(nChans) + static_cast<std::size_t>(channel)];
  }
  // Cycles the server reported late: a frame lost then is the machine's, not ours.
  int GetXruns() const { return iXruns.load(); }
  // Changes the server's period for every client, as a user's patchbay may.
  bool SetServerPeriod(int frames) { return jack_set_buffer_size(pClient, static_cast<jack_nframes_t>(frames)) == 0; }
  // Connects output port `from` (full name) to our input `channel`.
  bool Connect(std::string const& from, int channel) {
    return jack_connect(pClient, from.c_str(), jack_port_name(ports[static_cast<std::size_t>(channel)])) == 0;
  }

 private:
  static void Shutdown(void* self) { static_cast<LTestJackCapture*>(self)->bServerGone = true; }
  static int Xrun(void* self) {
    static_cast<LTestJackCapture*>(self)->iXruns.fetch_add(1);
    return 0;
  }
  static int Process(jack_nframes_t n, void* self) {
    auto* me = static_cast<LTestJackCapture*>(self);
    int at = me->iFilled.load(std::memory_order_relaxed);
    int const take = std::min(static_cast<int>(n), me->iMaxFrames - at);
    for (int c = 0; c < me->nChans; ++c) {
      auto const* in = static_cast<float const*>(jack_port_get_buffer(me->ports[static_cast<std::size_t>(c)], n));
      for (int f = 0; f < take; ++f) me->frames[static_cast<std::size_t>(at + f) * me->nChans + c] = in[f];
    }
    me->iFilled.store(at + std::max(take, 0), std::memory_order_release);
    return 0;
  }

  int nChans;
  int iMaxFrames;
  std::vector<float> frames;
  std::atomic<int> iFilled{0};
  std::atomic<int> iXruns{0};
  std::atomic<bool> bServerGone{false};
  jack_client_t* pClient = nullptr;
  std::vector<jack_port_t*> ports;
  bool bActive = false;
};

// The index of the play device of this name, reading the list again for up to two
// seconds: a busy server may answer a listing late. -1 when it never shows.
inline int FindPlayDevice(char const* name) {
  for (int tries = 0; tries < 20; ++tries) {
    LSoundPlayDeviceList::Refresh();
    int const index = LSoundPlayDeviceList::Get()->FindByName(name);
    if (index > 0) return index;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return -1;
}

// Runs what other threads posted to the main thread until `done` or `ms` passed.
inline bool PumpUntil(LPumpedMainThreadQueue& queue, std::function<bool()> const& done, int ms) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    queue.WaitPumping(LSignalObjectRef(), LSignalObjectRef(), 10);
  }
  return true;
}

// Keeps what is written, for a recording test.
class LTestMemorySink : public LSoundSinkBase {
 public:
  LTestMemorySink(int rate, int channels) : LSoundSinkBase(rate, channels) {}
  void Write(float const* buffer, int frames) override {
    data.insert(data.end(), buffer, buffer + static_cast<std::ptrdiff_t>(frames) * nChans);
    sPosition += frames;
  }
  std::vector<float> data;
};
