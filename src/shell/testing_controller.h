#pragma once
// The controller over scripted fakes, in a scratch folder of its own per test:
// preferences, temporary files and the audio tank all start empty.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "project/audio_cut_tank.h"
#include "shell/main_dialog.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/user_settings.h"

class TDControllerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto const* info = ::testing::UnitTest::GetInstance()->current_test_info();
    scratch = std::filesystem::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              (std::string(info->test_suite_name()) + "-" + info->name());
    std::filesystem::remove_all(scratch);
    std::filesystem::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LUserSettingSetString("Settings", "SaveDir", scratch.c_str());
    LAudioCutTank::Instance().Reset();
    dialog.InitDialog();
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  std::filesystem::path scratch;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
};
