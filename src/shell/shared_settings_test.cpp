#include "shell/shared_settings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

namespace fs = std::filesystem;

namespace {

// Points XDG_DATA_HOME at a scratch folder of the test's own, and puts it back.
class SharedSettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = fs::path(TANDREL_BINARY_DIR) / "shared-settings-scratch" /
             ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(folder);
    if (const char* old = std::getenv("XDG_DATA_HOME")) oldDataHome = old;
    setenv("XDG_DATA_HOME", folder.c_str(), 1);
    file = LSharedSettingsFilePath();
  }
  void TearDown() override {
    if (oldDataHome)
      setenv("XDG_DATA_HOME", oldDataHome->c_str(), 1);
    else
      unsetenv("XDG_DATA_HOME");
  }
  std::string FileText() const {
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  void WriteFile(const std::string& bytes) const {
    fs::create_directories(fs::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
  }
  std::string Get(const char* section, const char* key) const {
    std::string out;
    LSharedSettingGetString(section, key, "(default)", out);
    return out;
  }

  fs::path folder;
  std::string file;
  std::optional<std::string> oldDataHome;
};

TEST_F(SharedSettingsTest, ASetIsInTheFileAndReadsBackAfterALoad) {
  EXPECT_EQ(file, (folder / "tandrel" / "Shared" / "SharedSettings.xml").string());
  std::string out;
  EXPECT_FALSE(LSharedSettingGetString("Suite", "Language", "en", out));
  EXPECT_EQ(out, "en");

  LSharedSettingSetString("Suite", "Language", "de");
  LSharedSettingSetString("Suite", "Theme", "dark");
  LSharedSettingSetString("Suite", "Language", "fr");  // the same element again, not a second one
  LSharedSettingSetString("Applications/Tandrel/", "Version", "0.1.0");

  pugi::xml_document document;
  ASSERT_TRUE(LSharedSettingsLoad(document));
  const pugi::xml_node root = document.document_element();
  EXPECT_STREQ(root.name(), "SharedSettings");
  const pugi::xml_node suite = root.child("Suite");
  EXPECT_EQ(std::distance(suite.children().begin(), suite.children().end()), 2);
  EXPECT_STREQ(suite.child("Language").attribute("value").value(), "fr");
  EXPECT_STREQ(root.child("Applications").child("Tandrel").child("Version").attribute("value").value(), "0.1.0");

  EXPECT_EQ(Get("Suite", "Theme"), "dark");
  EXPECT_EQ(Get("Applications/Tandrel", "Version"), "0.1.0");
  EXPECT_EQ(Get("Applications", "Version"), "(default)");  // a section is not its subsection
}

TEST_F(SharedSettingsTest, ValuesComeBackWhateverTheyHold) {
  const std::string odd = "quote\" apos' <tag> & amp;\nline\ttab \xC3\xA9 ]]>";
  LSharedSettingSetString("Suite", "Odd", odd.c_str());
  LSharedSettingSetString("Suite", "Empty", "");
  EXPECT_EQ(Get("Suite", "Odd"), odd);
  std::string out;
  EXPECT_TRUE(LSharedSettingGetString("Suite", "Empty", "x", out));
  EXPECT_EQ(out, "");
}

TEST_F(SharedSettingsTest, NamesThatWouldBreakTheFileAreRefused) {
  LSharedSettingSetString("Suite", "Good", "1");
  const std::string before = FileText();
  for (const char* section : {"", "/", "1st", "with space", "a:b", "x<y", "caf\xC3\xA9", "-dash"}) {
    LSharedSettingSetString(section, "Key", "v");
  }
  for (const char* key : {"", "9", "a b", "a/b", ".dot", "q\""}) LSharedSettingSetString("Suite", key, "v");
  LSharedSettingSetString("Suite", nullptr, "v");
  EXPECT_EQ(FileText(), before);

  LSharedSettingSetString("_Under.score-1", "k.2-x", "fine");
  EXPECT_EQ(Get("_Under.score-1", "k.2-x"), "fine");
}

TEST_F(SharedSettingsTest, ADamagedOrOversizedFileIsIgnoredAndThenReplaced) {
  const std::string damaged[] = {
      "<SharedSettings><Suite><Language value=\"de\"/></Suite>",  // cut short
      std::string("\x00\xFF garbage \x01", 12),
      "<a><b></a></b>",
      std::string(200000, '<'),
  };
  for (const std::string& bytes : damaged) {
    WriteFile(bytes);
    pugi::xml_document document;
    EXPECT_FALSE(LSharedSettingsLoad(document));
    EXPECT_FALSE(document.first_child());
    EXPECT_EQ(Get("Suite", "Language"), "(default)");
  }

  LSharedSettingSetString("Suite", "Language", "it");
  pugi::xml_document document;
  EXPECT_TRUE(LSharedSettingsLoad(document));
  EXPECT_EQ(Get("Suite", "Language"), "it");

  // Well-formed but past the bound: not read at all.
  std::string big = "<SharedSettings><Suite><Language value=\"es\"/></Suite><Pad>";
  big += std::string(4u << 20, 'x');
  big += "</Pad></SharedSettings>";
  WriteFile(big);
  EXPECT_EQ(Get("Suite", "Language"), "(default)");
}

TEST_F(SharedSettingsTest, AFileAnotherApplicationWroteInUtf16IsRead) {
  const std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-16\"?><Prefs><Suite><Name value=\"\xC3\xA9t\xC3\xA9\"/>"
      "</Suite></Prefs>";
  std::string utf16 = "\xFF\xFE";  // little-endian byte order mark
  for (std::size_t i = 0; i < xml.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(xml[i]);
    if (c == 0xC3) {  // the two-byte UTF-8 letters here are all U+00C0..U+00FF
      utf16 += static_cast<char>(0xC0 + (static_cast<unsigned char>(xml[++i]) & 0x3F));
    } else {
      utf16 += static_cast<char>(c);
    }
    utf16 += '\0';
  }
  WriteFile(utf16);
  EXPECT_EQ(Get("Suite", "Name"), "\xC3\xA9t\xC3\xA9");

  // A set keeps that application's root element and writes UTF-8.
  LSharedSettingSetString("Suite", "Other", "1");
  EXPECT_EQ(FileText().find('\0'), std::string::npos);
  EXPECT_NE(FileText().find("<Prefs>"), std::string::npos);
  EXPECT_EQ(Get("Suite", "Name"), "\xC3\xA9t\xC3\xA9");
}

TEST_F(SharedSettingsTest, XmlSettingsWorkOnAnyNode) {
  pugi::xml_document document;
  pugi::xml_node node = document.append_child("Kit");
  EXPECT_TRUE(LXMLSettingSetString(node, "Pads/Pad1", "Sample", "kick.wav"));
  EXPECT_FALSE(LXMLSettingSetString(pugi::xml_node(), "Pads", "Sample", "x"));  // no node to hang it on
  std::string out;
  EXPECT_TRUE(LXMLSettingGetString(node, "Pads/Pad1", "Sample", "", out));
  EXPECT_EQ(out, "kick.wav");
  EXPECT_FALSE(LXMLSettingGetString(node, "Pads/Pad2", "Sample", "none", out));
  EXPECT_EQ(out, "none");
  EXPECT_FALSE(LXMLSettingGetString(pugi::xml_node(), "Pads/Pad1", "Sample", "none", out));
  // A key element without "value" is no value.
  node.child("Pads").append_child("Bare");
  EXPECT_FALSE(LXMLSettingGetString(node, "Pads", "Bare", "none", out));
}

TEST_F(SharedSettingsTest, RecordsSeeOnlyTheirOwnKeys) {
  LSharedSettingsRecord tandrel("Applications/Tandrel"), other("Applications/BeatBox");
  tandrel.SetString("Version", "0.1.0");
  tandrel.SetString("Path", "/usr/bin/tandrel");
  other.SetString("Version", "2.0");
  EXPECT_EQ(tandrel.Keys(), (std::vector<std::string>{"Version", "Path"}));
  EXPECT_EQ(other.Keys(), std::vector<std::string>{"Version"});

  std::string out;
  EXPECT_TRUE(tandrel.GetString("Version", "", out));
  EXPECT_EQ(out, "0.1.0");
  EXPECT_TRUE(other.GetString("Version", "", out));
  EXPECT_EQ(out, "2.0");

  tandrel.Remove("Version");
  tandrel.Remove("Never");
  EXPECT_FALSE(tandrel.GetString("Version", "gone", out));
  EXPECT_EQ(out, "gone");
  EXPECT_EQ(tandrel.Keys(), std::vector<std::string>{"Path"});
  EXPECT_EQ(other.Keys(), std::vector<std::string>{"Version"});

  // Nothing but the file and its lock beside it: no temporary files left behind.
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(fs::path(file).parent_path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"SharedSettings.xml", "SharedSettings.xml.lock"}));
}

}  // namespace
