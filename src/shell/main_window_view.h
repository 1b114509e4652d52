#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/main_thread_queue.h"
#include "foundation/process_interface.h"
#include "shell/export_options.h"
#include "shell/format_settings.h"

// What the controller needs from the windows. The Qt layer implements it; tests
// use a scripted fake. Texts arrive finished, in the program's own words.
class TDMainWindowView : public LFormatSettingsEditor {
 public:
  virtual ~TDMainWindowView() = default;

  // A modal alert with one "OK" button; an empty caption means the program's name.
  virtual void Alert(const std::string& text, const std::string& caption) = 0;

  // A modal question. Returns the index of the button pressed, or -1 when the
  // window was closed without one. With a non-null `checked`, a check box
  // labelled `checkText` is shown, starting from *checked, and its state is
  // written back.
  virtual int Ask(const std::string& text, const std::string& caption, const std::vector<std::string>& buttons,
                  const std::string& checkText = {}, bool* checked = nullptr) = 0;

  // A short tip near the track's control (-1: the window), gone after `ms`.
  virtual void ShowTip(const std::string& text, int track, unsigned ms) = 0;
  virtual void HideTip() = 0;
  // The thin bar above the tracks with a passing message; empty hides it.
  virtual void InfoBar(const std::string& text) = 0;

  // Asks for a colour; false when the user cancelled.
  virtual bool PickColor(unsigned short& red, unsigned short& green, unsigned short& blue) = 0;

  virtual void SetCaption(const std::string& caption) = 0;

  // Refresh calls: the model changed in the way the name says.
  virtual void UITrackAddApply(int track) = 0;
  virtual void UITrackDeleteApply(int track) = 0;
  virtual void UITrackChangeApply(int track) = 0;
  virtual void UIProjectStateApply() = 0;
  // The clips changed (added, removed, moved, edited, selected).
  virtual void UIClipsApply() = 0;
  // Some clips are locked and refuse the edit: the window makes them flash.
  virtual void FlashLockedClips() = 0;
  // The transport's state changed: playing, paused, scrubbing, winding, looping or
  // the master volume (read them from the controller). The play position, the
  // levels and the stop come as the transport's notifications
  // (MainDialog::SetPlayerNotify).
  virtual void UITransportApply() {}

  // File choosers. Each returns the chosen path, or an empty one when cancelled.
  virtual std::string AskSaveFile(const std::string& title, const std::string& filter, const std::string& folder,
                                  const std::string& name) = 0;
  virtual std::string AskOpenFile(const std::string& title, const std::string& filter,
                                  const std::string& folder) = 0;

  // The export form, filled from `options`. OK asks `accept`, which may change the
  // options (the path's extension) and answers nothing to close the form, or a
  // text to keep it open and show beside the file name (empty: show nothing).
  // Returns false when the user cancelled; `options` then stays as it was.
  using ExportAccept = std::function<std::optional<std::string>(TDExportOptions&)>;
  virtual bool AskExportOptions(TDExportOptions& options, const ExportAccept& accept) = 0;

  // Runs a long job under a modal progress window with a Stop button, and gives
  // the job's result (0 done, 1 stopped, 2 failed).
  virtual LProcessResult RunModalJob(const std::string& title,
                                     const std::function<LProcessResult(LProcessInterface&)>& job) = 0;
};

// The main thread's event queue and its one-shot timers. Every timer is keyed
// by a small integer; arming a timer that is armed already restarts it. The loop
// that runs the program registers itself as the process's main-thread queue, which
// is how jobs on other threads reach the main thread.
class TDMainLoop : public LMainThreadQueue {
 public:
  virtual void SetTimer(int id, unsigned ms) = 0;
  virtual void KillTimer(int id) = 0;
  // Runs `work` later on the main thread. Safe to call from any thread.
  void PostToMainThread(std::function<void()> work) override = 0;
};
