#pragma once
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// The sound devices the program can play to and record from, as lists the user
// picks from by name. The lists are read from the sound service at first use
// (sound_service.h); the logic here (names, defaults, the channel rules) knows
// nothing of the service, so it is the same for every back end.

// One device as the service shows it.
struct LSoundDeviceEntry {
  std::string szName;         // what the user sees and what the settings store
  std::string szServiceName;  // the back end's own name of it, found again by it at open
  int iApi = 0;             // which back end (LSoundServiceApi); 0 none
  unsigned uId = 0;         // the back end's number of the device
  int nOutputChannels = 0;  // outputs it offers
  int nInputChannels = 0;   // inputs it offers
  int iPreferredRate = 0;   // the rate it runs at by choice; 0 unknown
  std::vector<int> rates;   // the rates it takes; empty when any will do
  bool bFixedRate = false;  // it runs at one rate only, as a JACK server does
};

// The back ends, in the order the lists show them: a running JACK server first.
enum LSoundServiceApi : int {
  LSoundServiceNone = 0,
  LSoundServiceJack = 1,
  LSoundServicePulse = 2,
  LSoundServiceAlsa = 3,
};
char const* LSoundServiceApiName(int api);

// The rate a device plays a source of `rate` at: that rate when it takes it, else
// its preferred rate, else the nearest it has (above rather than below).
int LSoundDeviceRateFor(LSoundDeviceEntry const& device, int rate);

// The device chosen for playing: an index of LSoundPlayDeviceList and the pair of
// outputs a stereo source goes to.
struct LSoundPlayDevice {
  int no = 0;
  int iOutputChannelLeft = 0;
  int iOutputChannelRight = 1;

  bool operator==(LSoundPlayDevice const&) const = default;
};

// The device chosen for recording: an index of LSoundRecordDeviceList and the two
// inputs a stereo recording takes.
struct LSoundRecordDevice {
  int no = 0;
  int iInputChannelLeft = 0;
  int iInputChannelRight = 1;

  bool operator==(LSoundRecordDevice const&) const = default;
};

// The output pair a stereo source plays on, from the chosen pair and the outputs the
// device has. Outputs past the device's are taken back to its first pair. Both on
// one output clash: the second moves to the output before, or to output 1 when the
// first is output 0. A device of one output gives (0, 0): the source is made mono
// before it reaches it.
void LSoundResolveOutputPair(int deviceOutputs, int& left, int& right);

// Which device output each channel of a source goes to. A stereo source uses the
// resolved pair; a mono one both outputs of the pair; more channels go to outputs
// by `speakerToOutput` (channel i to entry i, outputs past the device's dropped as
// -1), or channel i to output i without a map. `channels` is what reaches the
// device, after any reduction to its outputs.
std::vector<int> LSoundMapChannelsToOutputs(int channels, int deviceOutputs, LSoundPlayDevice const& device,
                                            std::vector<int> const* speakerToOutput = nullptr);

// A list of devices of one direction. Entry 0 is always the system's default under
// its own name; the real devices follow in the service's order. Settings name a
// device by its name, never by index, since indices change as devices come and go.
class LSoundDeviceList {
 public:
  // Builds the list: the default entry named `defaultName` stands for `defaultDevice`
  // (an entry of `devices`, or an entry with no back end when there is none).
  LSoundDeviceList(std::string defaultName, LSoundDeviceEntry const& defaultDevice,
                   std::vector<LSoundDeviceEntry> devices);

  int GetCount() const { return static_cast<int>(entries.size()); }
  // The entry at `index`; entry 0 for an index out of range.
  LSoundDeviceEntry const& GetEntry(int index) const;
  std::string const& GetName(int index) const { return GetEntry(index).szName; }
  // Outputs of a play list's entry, inputs of a record list's.
  int GetChannels(int index) const;
  // The index of the device of this name, or -1. Exact match first; then a match that
  // ignores case and spaces at the ends, for a name typed by hand.
  int FindByName(std::string_view name) const;
  bool IsOutputList() const { return bOutput; }

 protected:
  bool bOutput = true;
  std::vector<LSoundDeviceEntry> entries;
};

// The devices one can play to. "[Default Sound Out]" in the setting "SoundOutDevice"
// (section "Settings") is entry 0, shown as "Default Playback Device".
class LSoundPlayDeviceList : public LSoundDeviceList {
 public:
  static constexpr char const* DefaultName = "Default Playback Device";
  static constexpr char const* DefaultSetting = "[Default Sound Out]";

  LSoundPlayDeviceList(LSoundDeviceEntry const& defaultDevice, std::vector<LSoundDeviceEntry> devices);

  // The process's list, read from the service at first use. The handle stays valid
  // when the list is read again.
  static std::shared_ptr<LSoundPlayDeviceList const> Get();
  // Reads the devices again (a device came or went), or puts `list` in place.
  static void Refresh();
  static void Install(std::shared_ptr<LSoundPlayDeviceList const> list);

  // The index a setting's value names: the default for "[Default Sound Out]", for an
  // empty value and for a device no longer there.
  int IndexFromSetting(std::string_view value) const;
  // The value to store for `index`.
  std::string SettingFromIndex(int index) const;
};

// The devices one can record from; entry 0 is the system's default input.
class LSoundRecordDeviceList : public LSoundDeviceList {
 public:
  static constexpr char const* DefaultName = "Default Recording Device";

  LSoundRecordDeviceList(LSoundDeviceEntry const& defaultDevice, std::vector<LSoundDeviceEntry> devices);

  static std::shared_ptr<LSoundRecordDeviceList const> Get();
  static void Refresh();
  static void Install(std::shared_ptr<LSoundRecordDeviceList const> list);
};

// What the service reports: every device of every back end that answers, and the
// default of each direction (the first back end with a device decides).
struct LSoundServiceDevices {
  std::vector<LSoundDeviceEntry> outputs;
  std::vector<LSoundDeviceEntry> inputs;
  LSoundDeviceEntry defaultOutput;
  LSoundDeviceEntry defaultInput;
};
// Asks the service (sound_service.cpp). Never throws; a back end that fails adds nothing.
LSoundServiceDevices LSoundEnumerateDevices();
