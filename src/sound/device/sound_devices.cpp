#include "sound/device/sound_devices.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <mutex>

char const* LSoundServiceApiName(int api) {
  switch (api) {
    case LSoundServiceJack: return "JACK";
    case LSoundServicePulse: return "PulseAudio";
    case LSoundServiceAlsa: return "ALSA";
    default: return "none";
  }
}

int LSoundDeviceRateFor(LSoundDeviceEntry const& device, int rate) {
  if (device.bFixedRate && device.iPreferredRate > 0) return device.iPreferredRate;
  if (device.rates.empty()) return rate;
  if (std::find(device.rates.begin(), device.rates.end(), rate) != device.rates.end()) return rate;
  if (device.iPreferredRate > 0) return device.iPreferredRate;
  // The least rate above, so nothing of the source's band is lost; else the greatest.
  int best = 0;
  for (int r : device.rates)
    if (r > rate && (best == 0 || r < best)) best = r;
  if (best == 0) best = *std::max_element(device.rates.begin(), device.rates.end());
  return best;
}

void LSoundResolveOutputPair(int deviceOutputs, int& left, int& right) {
  if (deviceOutputs <= 1) {
    left = right = 0;
    return;
  }
  if (left < 0 || left >= deviceOutputs) left = 0;
  if (right < 0 || right >= deviceOutputs) right = left == 1 ? 0 : 1;
  if (left == right) right = left == 0 ? 1 : left - 1;
}

std::vector<int> LSoundMapChannelsToOutputs(int channels, int deviceOutputs, LSoundPlayDevice const& device,
                                            std::vector<int> const* speakerToOutput) {
  std::vector<int> map(static_cast<std::size_t>(std::max(channels, 0)), -1);
  if (channels <= 0 || deviceOutputs <= 0) return map;
  int left = device.iOutputChannelLeft;
  int right = device.iOutputChannelRight;
  LSoundResolveOutputPair(deviceOutputs, left, right);
  if (channels <= 2) {
    map[0] = left;
    if (channels == 2) map[1] = right;
    return map;
  }
  for (int c = 0; c < channels; ++c) {
    int out = c;
    if (speakerToOutput && static_cast<std::size_t>(c) < speakerToOutput->size()) out = (*speakerToOutput)[c];
    map[static_cast<std::size_t>(c)] = out >= 0 && out < deviceOutputs ? out : -1;
  }
  return map;
}

namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

bool SameIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  return true;
}

// The process's lists and the service reading that fills them, once for both.
struct DeviceLists {
  std::mutex mtx;
  std::shared_ptr<LSoundPlayDeviceList const> play;
  std::shared_ptr<LSoundRecordDeviceList const> record;

  void ReadLocked() {
    LSoundServiceDevices found = LSoundEnumerateDevices();
    play = std::make_shared<LSoundPlayDeviceList const>(found.defaultOutput, std::move(found.outputs));
    record = std::make_shared<LSoundRecordDeviceList const>(found.defaultInput, std::move(found.inputs));
  }
};

DeviceLists& Lists() {
  static DeviceLists lists;
  return lists;
}

}  // namespace

LSoundDeviceList::LSoundDeviceList(std::string defaultName, LSoundDeviceEntry const& defaultDevice,
                                   std::vector<LSoundDeviceEntry> devices) {
  LSoundDeviceEntry first = defaultDevice;
  first.szName = std::move(defaultName);
  entries.reserve(devices.size() + 1);
  entries.push_back(std::move(first));
  for (auto& d : devices) entries.push_back(std::move(d));
}

LSoundDeviceEntry const& LSoundDeviceList::GetEntry(int index) const {
  if (index < 0 || index >= GetCount()) index = 0;
  return entries[static_cast<std::size_t>(index)];
}

int LSoundDeviceList::GetChannels(int index) const {
  LSoundDeviceEntry const& e = GetEntry(index);
  return bOutput ? e.nOutputChannels : e.nInputChannels;
}

int LSoundDeviceList::FindByName(std::string_view name) const {
  for (int i = 0; i < GetCount(); ++i)
    if (entries[static_cast<std::size_t>(i)].szName == name) return i;
  std::string_view const wanted = Trim(name);
  if (wanted.empty()) return -1;
  for (int i = 0; i < GetCount(); ++i)
    if (SameIgnoringCase(Trim(entries[static_cast<std::size_t>(i)].szName), wanted)) return i;
  return -1;
}

LSoundPlayDeviceList::LSoundPlayDeviceList(LSoundDeviceEntry const& defaultDevice,
                                           std::vector<LSoundDeviceEntry> devices)
    : LSoundDeviceList(DefaultName, defaultDevice, std::move(devices)) {
  bOutput = true;
}

std::shared_ptr<LSoundPlayDeviceList const> LSoundPlayDeviceList::Get() {
  DeviceLists& l = Lists();
  std::lock_guard hold(l.mtx);
  if (!l.play) l.ReadLocked();
  return l.play;
}

void LSoundPlayDeviceList::Refresh() {
  DeviceLists& l = Lists();
  std::lock_guard hold(l.mtx);
  l.ReadLocked();
}

void LSoundPlayDeviceList::Install(std::shared_ptr<LSoundPlayDeviceList const> list) {
  DeviceLists& l = Lists();
  std::lock_guard hold(l.mtx);
  l.play = std::move(list);
}

int LSoundPlayDeviceList::IndexFromSetting(std::string_view value) const {
  if (value.empty() || value == DefaultSetting) return 0;
  int const i = FindByName(value);
  return i < 0 ? 0 : i;
}

std::string LSoundPlayDeviceList::SettingFromIndex(int index) const {
  if (index <= 0 || index >= GetCount()) return DefaultSetting;
  return GetName(index);
}

LSoundRecordDeviceList::LSoundRecordDeviceList(LSoundDeviceEntry const& defaultDevice,
                                               std::vector<LSoundDeviceEntry> devices)
    : LSoundDeviceList(DefaultName, defaultDevice, std::move(devices)) {
  bOutput = false;
}

std::shared_ptr<LSoundRecordDeviceList const> LSoundRecordDeviceList::Get() {
  DeviceLists& l = Lists();
  std::lock_guard hold(l.mtx);
  if (!l.record) l.ReadLocked();
  return l.record;
}

void LSoundRecordDeviceList::Refresh() {
  DeviceLists& l = Lists();
  std::lock_guard hold(l.mtx);
  l.ReadLocked();
}

void LSoundRecordDeviceList::Install(std::shared_ptr<LSoundRecordDeviceList const> list) {
  DeviceLists& l = Lists();
  std::lock_guard hold(l.mtx);
  l.record = std::move(list);
}
