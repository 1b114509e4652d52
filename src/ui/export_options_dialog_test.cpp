// The export form and the format settings form, driven as a user would, off screen.
#include "ui/export_options_dialog.h"

#include <gtest/gtest.h>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>

#include "ui/format_settings_dialog.h"

namespace {

struct NoSettingsForm : LFormatSettingsEditor {
  int shown = 0;
  bool EditFormatSettings(LFormatSettingsModel&) override {
    ++shown;
    return false;
  }
};

void ChooseType(QComboBox* box, const char* ext) {
  int const at = box->findData(QString::fromLatin1(ext));
  ASSERT_GE(at, 0) << ext;
  box->setCurrentIndex(at);
}

TEST(ExportOptionsForm, TheTypeAndThePathFollowEachOtherAndARefusalKeepsTheFormOpen) {
  TDExportOptions start;
  start.szPath = "/music/Song.wav";
  start.szExtension = ".wav";
  start.bHasSelection = false;
  std::vector<TDExportOptions> asked;
  std::optional<std::string> answer = std::string("The folder is full.");
  NoSettingsForm settings;
  TDExportOptionsDlg form(
      start,
      [&](TDExportOptions& o) {
        asked.push_back(o);
        return answer;
      },
      settings);
  form.show();
  EXPECT_FALSE(form.SelectionButton()->isEnabled());  // nothing selected

  ChooseType(form.TypeBox(), ".flac");
  EXPECT_EQ(form.PathEdit()->text(), QStringLiteral("/music/Song.flac"));
  EXPECT_TRUE(form.SettingsButton()->isEnabled());
  ChooseType(form.TypeBox(), ".gsm");
  EXPECT_EQ(form.PathEdit()->text(), QStringLiteral("/music/Song.gsm"));
  EXPECT_FALSE(form.SettingsButton()->isEnabled());  // GSM has nothing to set

  // Typing a name in another format picks that format.
  form.PathEdit()->clear();
  QTest::keyClicks(form.PathEdit(), QStringLiteral("/music/Take.ogg"));
  EXPECT_EQ(form.TypeBox()->currentData().toString(), QStringLiteral(".ogg"));
  form.SettingsButton()->click();
  EXPECT_EQ(settings.shown, 1);

  // The controller refuses: the form stays, saying why.
  form.accept();
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0].szPath, "/music/Take.ogg");
  EXPECT_EQ(asked[0].szExtension, ".ogg");
  EXPECT_TRUE(form.isVisible());
  EXPECT_EQ(form.ProblemLabel()->text(), QStringLiteral("The folder is full."));
  EXPECT_FALSE(form.ProblemLabel()->isHidden());

  answer = std::nullopt;
  form.accept();
  EXPECT_FALSE(form.isVisible());
  EXPECT_EQ(form.result(), QDialog::Accepted);
  EXPECT_EQ(form.Options().szPath, "/music/Take.ogg");
  EXPECT_FALSE(form.Options().bSelectionOnly);
}

TEST(FormatSettingsForm, OkWritesTheRowsBackAndCancelLeavesTheModel) {
  LFormatSettingsModel model;
  model.szExtension = ".mp3";
  model.szTitle = "MP3 Settings";
  LFormatSetting rate;
  rate.eKind = LFormatSetting::Choice;
  rate.szKey = "BitRate";
  rate.Choices = {{"128 kbit/s", 128}, {"320 kbit/s", 320}};
  rate.iValue = 128;
  LFormatSetting care;
  care.eKind = LFormatSetting::Number;
  care.szKey = "Quality";
  care.iMin = 0;
  care.iMax = 9;
  care.iValue = 2;
  LFormatSetting flags;
  flags.eKind = LFormatSetting::Text;
  flags.szKey = "Flags";
  model.Fields = {rate, care, flags};

  {
    TDFormatSettingsDialog form(model);
    static_cast<QComboBox*>(form.FieldWidget("BitRate"))->setCurrentIndex(1);
    form.reject();
  }
  EXPECT_EQ(model.Fields[0].iValue, 128);

  TDFormatSettingsDialog form(model);
  EXPECT_EQ(form.windowTitle(), QStringLiteral("MP3 Settings"));
  static_cast<QComboBox*>(form.FieldWidget("BitRate"))->setCurrentIndex(1);
  auto* spin = form.FieldWidget("Quality");
  ASSERT_NE(spin, nullptr);
  QTest::keyClicks(static_cast<QLineEdit*>(form.FieldWidget("Flags")), QStringLiteral("--nores"));
  form.accept();
  EXPECT_EQ(model.Fields[0].iValue, 320);
  EXPECT_EQ(model.Fields[1].iValue, 2);
  EXPECT_EQ(model.Fields[2].szText, "--nores");
}

}  // namespace
