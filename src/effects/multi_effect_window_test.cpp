#include "effects/multi_effect_window.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "effects/table_effects.h"

namespace fs = std::filesystem;

namespace {

struct RecordingNotify : LMultiEffectWindowNotify {
  std::vector<std::pair<int, int>> messages;
  std::vector<std::pair<std::string, std::string>> alerts;
  int rowRefills = 0;
  std::vector<int> editors;

  void EffectMessage(int message, int argument) override { messages.emplace_back(message, argument); }
  void Alert(std::string const& text, std::string const& caption) override { alerts.emplace_back(text, caption); }
  void EffectRowsChanged() override { ++rowRefills; }
  void EffectEditorChanged(int index) override { editors.push_back(index); }
};

class ChainEditorTest : public ::testing::Test {
 protected:
  // A chain of gains 1, 2, 3... so that each effect can be told by its gain.
  void Fill(int count) {
    for (int i = 1; i <= count; ++i) chain.Append(std::make_unique<LSPGain>(static_cast<float>(i)));
  }
  std::vector<float> Gains() const {
    std::vector<float> out;
    for (int i = 0; i < chain.GetCount(); ++i) out.push_back(static_cast<LSPGain*>(chain.GetAt(i))->GetGain());
    return out;
  }

  LSoundProcessMulti chain;
  RecordingNotify notify;
  LMultiEffectWindow editor{chain, notify, "Tandrel"};
};

TEST_F(ChainEditorTest, OffersOnlyEffectsThatPlayInTheirListOrder) {
  EXPECT_EQ(editor.GetAvailableRootText(), "Tandrel Effects");
  std::vector<std::string> names;
  for (int i = 0; i < editor.GetAvailableCount(); ++i) names.push_back(editor.GetAvailable(i)->GetNameString());
  EXPECT_EQ(names, (std::vector<std::string>{"Amplify", "High Pass", "Low Pass"}));

  // The root adds nothing.
  editor.SetAvailableSelection(-1);
  editor.AddSelectedEffect();
  EXPECT_TRUE(chain.IsEmpty());
  EXPECT_TRUE(notify.messages.empty());

  Fill(1);
  chain.GetAt(0)->bBypass = true;
  editor.SetAvailableSelection(1);
  editor.AddSelectedEffect();
  ASSERT_EQ(chain.GetCount(), 2);
  EXPECT_EQ(chain.GetAt(1)->GetSoundProcessType(), LSPT_HighPass);
  EXPECT_FALSE(chain.GetAt(1)->bBypass);
  EXPECT_EQ(editor.GetSelection(), std::vector<int>{1});
  EXPECT_EQ(notify.messages, (std::vector<std::pair<int, int>>{{2003, 1}}));
  // A copy: the offered one stays as it was.
  static_cast<LSPHighPass*>(chain.GetAt(1))->SetShown(0, 999);
  EXPECT_EQ(static_cast<LSPHighPass const*>(editor.GetAvailable(1))->GetFrequency(), 50);
}

TEST_F(ChainEditorTest, RemovingTellsTheParentFirstAndMovesTheSelection) {
  Fill(4);
  editor.SetSelected(1, true);
  editor.SetSelected(3, true);
  editor.RemoveSelectedEffect();
  EXPECT_EQ(Gains(), (std::vector<float>{1, 3}));
  EXPECT_EQ(notify.messages, (std::vector<std::pair<int, int>>{{2004, 0}, {2000, 1}}));
  // The last one removed stood at 3, past the end now: the last effect.
  EXPECT_EQ(editor.GetSelection(), std::vector<int>{1});

  chain.Append(std::make_unique<LSPGain>(5.0f));
  editor.SelectEffect(0);
  editor.RemoveSelectedEffect();
  EXPECT_EQ(Gains(), (std::vector<float>{3, 5}));
  EXPECT_EQ(editor.GetSelection(), std::vector<int>{0});

  editor.RemoveSelectedEffect();
  editor.RemoveSelectedEffect();
  EXPECT_TRUE(chain.IsEmpty());
  EXPECT_EQ(editor.GetSelectedEffect(), -1);
  EXPECT_EQ(notify.editors.back(), -1);
  notify.messages.clear();
  editor.RemoveSelectedEffect();  // nothing left to remove, nothing said
  EXPECT_TRUE(notify.messages.empty());
}

TEST_F(ChainEditorTest, ADragMovesBeforeTheTargetAndPastTheEndAppends) {
  Fill(4);
  editor.Reorder(0, 2);
  EXPECT_EQ(Gains(), (std::vector<float>{2, 1, 3, 4}));
  EXPECT_EQ(editor.GetSelection(), std::vector<int>{1});
  editor.Reorder(3, 0);
  EXPECT_EQ(Gains(), (std::vector<float>{4, 2, 1, 3}));
  editor.Reorder(1, 4);
  EXPECT_EQ(Gains(), (std::vector<float>{4, 1, 3, 2}));
  editor.Reorder(0, 99);
  EXPECT_EQ(Gains(), (std::vector<float>{1, 3, 2, 4}));
  EXPECT_EQ(notify.messages.size(), 4u);
  for (auto const& m : notify.messages) EXPECT_EQ(m.first, 2001);
  editor.Reorder(7, 0);  // no such effect
  EXPECT_EQ(notify.messages.size(), 4u);
}

TEST_F(ChainEditorTest, CheckBoxesSetBypassAndSelectingClamps) {
  Fill(3);
  editor.UpdateEffectEnabledState({true, false, true});
  EXPECT_FALSE(chain.GetAt(0)->bBypass);
  EXPECT_TRUE(chain.GetAt(1)->bBypass);
  editor.SetEffectEnabled(1, true);
  EXPECT_FALSE(chain.GetAt(1)->bBypass);
  EXPECT_EQ(notify.messages, (std::vector<std::pair<int, int>>{{2000, 0}, {2000, 0}}));

  editor.SelectEffect(10);
  EXPECT_EQ(editor.GetSelection(), std::vector<int>{2});
  editor.SelectEffect(-4);
  EXPECT_EQ(editor.GetSelection(), std::vector<int>{0});
  // The editor saw a chain of three rows where it knew none: the list is refilled.
  EXPECT_GE(notify.rowRefills, 1);
}

TEST_F(ChainEditorTest, PresetsAndParameterChanges) {
  EXPECT_EQ(editor.GetPresetList(), std::vector<std::string>{"--- No Presets ---"});
  chain.Append(std::make_unique<LSPLowPass>());
  chain.Append(std::make_unique<LSPHighPass>());
  editor.SelectEffect(0);
  EXPECT_EQ(editor.GetPresetList(), std::vector<std::string>{"No Presets Available"});
  editor.SelectEffect(1);
  EXPECT_EQ(editor.GetPresetList(), (std::vector<std::string>{"--- Select Preset ---", "General Audio Cleanup",
                                                              "Radio / Telephone Quality Audio"}));
  EXPECT_EQ(editor.GetPresetListSelection(), 0);

  notify.editors.clear();
  editor.ChoosePreset(2);
  EXPECT_EQ(static_cast<LSPHighPass*>(chain.GetAt(1))->GetFrequency(), 4000);
  EXPECT_EQ(editor.GetPresetListSelection(), 2);
  EXPECT_EQ(notify.messages, (std::vector<std::pair<int, int>>{{6000, 1}, {2000, 0}}));
  EXPECT_EQ(notify.editors, std::vector<int>{1});
  editor.ChoosePreset(0);  // the first entry is no preset
  editor.ChoosePreset(3);
  EXPECT_EQ(notify.messages.size(), 2u);

  // A slider that reports the value the effect has already posts nothing.
  notify.messages.clear();
  editor.UpdateEffectParameter<std::int32_t>(0, 4000);
  editor.UpdateEffectParameterValue(0, 4000.0);
  EXPECT_TRUE(notify.messages.empty());
  editor.UpdateEffectParameter<std::int32_t>(0, 200);
  EXPECT_EQ(static_cast<LSPHighPass*>(chain.GetAt(1))->GetFrequency(), 200);
  editor.UpdateEffectParameterValue(0, 250.0);
  EXPECT_EQ(static_cast<LSPHighPass*>(chain.GetAt(1))->GetFrequency(), 250);
  EXPECT_EQ(notify.messages, (std::vector<std::pair<int, int>>{{2000, 0}, {2000, 0}}));
}

TEST_F(ChainEditorTest, ChainFilesAndTheirMessages) {
  fs::path const path = fs::path(TANDREL_BINARY_DIR) / "effects-test-editor.ecf";
  EXPECT_FALSE(editor.CanSaveEffectsChain());
  EXPECT_FALSE(editor.SaveEffectsChainFile(path.string()));
  ASSERT_EQ(notify.alerts.size(), 2u);
  EXPECT_EQ(notify.alerts[0],
            (std::pair<std::string, std::string>{"No effects added, please add some effects and then try again.",
                                                 "Save Effect Chain"}));

  Fill(2);
  chain.GetAt(1)->bBypass = true;
  EXPECT_FALSE(editor.SaveEffectsChainFile("/nonexistent-folder/x.ecf"));
  EXPECT_EQ(notify.alerts.back(),
            (std::pair<std::string, std::string>{"Can not open file to save the effects.", "Write Error"}));
  ASSERT_TRUE(editor.SaveEffectsChainFile(path.string()));

  // Loading appends, and the list moves to what came in.
  ASSERT_TRUE(editor.LoadEffectChainFile(path.string().c_str()));
  EXPECT_EQ(Gains(), (std::vector<float>{1, 2, 1, 2}));
  EXPECT_TRUE(chain.GetAt(3)->bBypass);
  EXPECT_EQ(editor.GetSelection(), std::vector<int>{3});
  EXPECT_EQ(notify.messages.back(), (std::pair<int, int>{2001, 0}));

  EXPECT_FALSE(editor.LoadEffectChainFile((path.string() + ".missing").c_str()));
  EXPECT_EQ(notify.alerts.back(),
            (std::pair<std::string, std::string>{"Can not open file to load the effects.", "Read Error"}));
  fs::remove(path);
}

}  // namespace
