#pragma once
// Scripted stand-ins for the windows, the main loop and the engine, so that
// the controller's decisions can be checked without a display.
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "shell/engine_state.h"
#include "shell/main_window_view.h"

struct FakeView : TDMainWindowView {
  struct Message {
    std::string text, caption;
  };
  std::vector<Message> alerts;
  std::vector<Message> questions;
  std::vector<std::string> infoBar;
  std::vector<std::string> tips;
  std::vector<int> changedTracks;
  int addApplies = 0, deleteApplies = 0, stateApplies = 0, hideTips = 0;
  std::string caption;
  // Answers for the next questions, in order: the button index and the check box.
  std::deque<std::pair<int, bool>> answers;
  bool colourAnswer = false;
  unsigned short colour[3] = {0, 0, 0};

  void Alert(const std::string& text, const std::string& cap) override { alerts.push_back({text, cap}); }
  int Ask(const std::string& text, const std::string& cap, const std::vector<std::string>&, const std::string&,
          bool* checked) override {
    questions.push_back({text, cap});
    if (answers.empty()) return -1;
    auto [button, check] = answers.front();
    answers.pop_front();
    if (checked) *checked = check;
    return button;
  }
  void ShowTip(const std::string& text, int, unsigned) override { tips.push_back(text); }
  void HideTip() override { ++hideTips; }
  void InfoBar(const std::string& text) override { infoBar.push_back(text); }
  bool PickColor(unsigned short& r, unsigned short& g, unsigned short& b) override {
    if (!colourAnswer) return false;
    r = colour[0];
    g = colour[1];
    b = colour[2];
    return true;
  }
  void SetCaption(const std::string& c) override { caption = c; }
  void UITrackAddApply(int) override { ++addApplies; }
  void UITrackDeleteApply(int) override { ++deleteApplies; }
  void UITrackChangeApply(int track) override { changedTracks.push_back(track); }
  void UIProjectStateApply() override { ++stateApplies; }
  void UIClipsApply() override { ++clipApplies; }
  void UITransportApply() override { ++transportApplies; }
  void FlashLockedClips() override { ++flashes; }
  // Jobs run at once without a window; a test may press Stop for the next one.
  LProcessResult RunModalJob(const std::string& title,
                             const std::function<LProcessResult(LProcessInterface&)>& job) override {
    jobs.push_back(title);
    struct Progress : LProcessInterfaceVoid {
      bool stop = false;
      std::vector<std::string>* errors = nullptr;
      bool IsToStop() override { return stop; }
      void SetError(char const* text) override { errors->push_back(text); }
    } progress;
    progress.stop = stopNextJob;
    progress.errors = &jobErrors;
    stopNextJob = false;
    return job(progress);
  }
  std::string AskSaveFile(const std::string& title, const std::string&, const std::string& folder,
                          const std::string&) override {
    fileTitles.push_back(title);
    fileFolders.push_back(folder);
    return PopFile();
  }
  std::string AskOpenFile(const std::string& title, const std::string&, const std::string& folder) override {
    fileTitles.push_back(title);
    fileFolders.push_back(folder);
    return PopFile();
  }
  std::string PopFile() {
    if (fileAnswers.empty()) return {};
    std::string f = fileAnswers.front();
    fileAnswers.pop_front();
    return f;
  }
  // Paths the file choosers answer with, in order; none left means cancelled.
  std::deque<std::string> fileAnswers;
  std::vector<std::string> fileTitles, fileFolders;
  int clipApplies = 0, flashes = 0, transportApplies = 0;
  std::vector<std::string> jobs;
  std::vector<std::string> jobErrors;
  bool stopNextJob = false;

  // The export form: each scripted edit is applied to the options, then OK is
  // pressed until `accept` closes the form; no edits left means Cancel.
  bool AskExportOptions(TDExportOptions& options, const ExportAccept& accept) override {
    exportForms.push_back(options);
    while (!exportEdits.empty()) {
      TDExportOptions edited = options;
      exportEdits.front()(edited);
      exportEdits.pop_front();
      std::optional<std::string> const said = accept(edited);
      if (!said) {
        options = edited;
        return true;
      }
      exportFormTexts.push_back(*said);
    }
    return false;
  }
  std::deque<std::function<void(TDExportOptions&)>> exportEdits;
  std::vector<TDExportOptions> exportForms;
  std::vector<std::string> exportFormTexts;
  // Format settings forms: the edit to make, or none to cancel.
  bool EditFormatSettings(LFormatSettingsModel& model) override {
    settingsTitles.push_back(model.szTitle);
    if (!settingsEdit) return false;
    settingsEdit(model);
    return true;
  }
  std::function<void(LFormatSettingsModel&)> settingsEdit;
  std::vector<std::string> settingsTitles;

  std::string LastAlert() const { return alerts.empty() ? std::string() : alerts.back().text; }
};

struct FakeLoop : TDMainLoop {
  std::map<int, unsigned> armed;
  std::vector<std::function<void()>> posted;
  void SetTimer(int id, unsigned ms) override { armed[id] = ms; }
  void KillTimer(int id) override { armed.erase(id); }
  void PostToMainThread(std::function<void()> work) override { posted.push_back(std::move(work)); }
  bool IsArmed(int id) const { return armed.count(id) != 0; }
};

struct FakeEngine : TDEngineState {
  bool playing = false, recording = false, scrubbing = false;
  int stops = 0, stopRecords = 0, restarts = 0;
  bool IsPlaying() const override { return playing; }
  bool IsRecording() const override { return recording; }
  bool IsScrubbing() const override { return scrubbing; }
  // With `tellsStops` a stop of a play or a scrub is told to the controller, as the
  // real engine tells it, and leaves the stop position at `position`.
  bool tellsStops = false;
  void Stop() override {
    ++stops;
    bool const was = playing || scrubbing;
    playing = scrubbing = false;
    if (was) TellStop(position);
  }
  void StopRecord() override {
    ++stopRecords;
    recording = false;
  }
  void Restart() override { ++restarts; }
  // Plays when `deviceOpens`, as a device that opens or not would.
  bool deviceOpens = true;
  int plays = 0;
  LSoundTime playedFrom = -1;
  bool Play(LSoundTime time) override {
    ++plays;
    playedFrom = time;
    scrubbing = false;
    playing = deviceOpens;
    if (playing) position = time;
    return deviceOpens;
  }
  // Jumps while playing, each one kept.
  std::vector<LSoundTime> jumps;
  bool Jump(LSoundTime time) override {
    if (!playing) return false;
    jumps.push_back(time);
    position = time;
    return true;
  }
  // A scrub starts when the device opens; each spot is kept.
  std::vector<LSoundTime> scrubs;
  int scrubStops = 0;
  bool Scrub(LSoundTime time) override {
    if (!scrubbing) {
      if (!deviceOpens) return false;
      if (playing) Stop();
      scrubbing = true;
    }
    scrubs.push_back(time);
    position = time;
    return true;
  }
  void StopScrub() override {
    if (!scrubbing) return;
    ++scrubStops;
    scrubbing = false;
    TellStop(position);
  }
  // What the listener would hear now: the test moves it as a play would.
  LSoundTime position = 0;
  LSoundTime stopPosition = 0;
  LSoundTime GetPosition() override { return position; }
  LSoundTime GetStopPosition() const override { return stopPosition; }
  bool deviceLost = false;
  bool IsDeviceLost() const override { return deviceLost; }
  int volume = 0;
  void SetVolume(LdB<signed char> v) override { volume = v.Get(); }
  LSoundPlayerNotify* notify = nullptr;
  void SetNotify(LSoundPlayerNotify* n) override { notify = n; }
  // The device went away: the play stops by itself, as the real engine's does.
  void LoseDevice() {
    deviceLost = true;
    playing = scrubbing = false;
    TellStop(position);
  }
  // The play reached its end by itself at `at`.
  void EndPlay(LSoundTime at) {
    playing = false;
    position = at;
    TellStop(at);
  }
  void TellStop(LSoundTime at) {
    stopPosition = at;
    if (tellsStops && notify) notify->spntfStop(0);
  }
};

// What the window hears of the transport through the controller.
struct FakePlayerView : LSoundPlayerNotify {
  int plays = 0, stops = 0;
  std::vector<LSoundTime> times;
  std::vector<LDBMultiChannel<LdB<signed char>>> levels;
  void spntfPlay(long) override { ++plays; }
  void spntfStop(long) override { ++stops; }
  void spntfTime(LSoundTime t, long) override { times.push_back(t); }
  void spntfLevel(LDBMultiChannel<LdB<signed char>> const& l, long) override { levels.push_back(l); }
};
