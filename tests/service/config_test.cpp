#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <libconfig.h++>
#include <regex>
#include <string>

#include "map_conv_config.h"
#include "test_process.h"
#include "v2xlog.h"

namespace {

std::string configText(const std::string& eTag, const std::string& mapDir, const std::string& sysinfo) {
  return "rsuMapConvertInfo :\n{\n  eTag = \"" + eTag + "\";\n  MapDataDir = \"" + mapDir +
         "\";\n  MapFilename = \"map_data_\";\n  MapCfgname = \"map_cfg_\";\n  Sysinfoname = \"" + sysinfo +
         "\";\n};\nunrelated = 12;\n";
}

class ConfigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    v2xlog_Init(dir_.file("log/test.log").c_str(), "TEST", 1, 0, 0);
    v2xlog_SetTagLevel(v2xlog_AddTag("MCFG"), 7);
    v2xmapconv_ResetCfgForTest();
    ASSERT_EQ(v2xmapconv_InitCfg(dir_.path().c_str()), 0);
  }
  void TearDown() override { v2xmapconv_InitCfg(""); }
  void writeConfig(const std::string& text) { v2xtest::writeFile(dir_.file(MAP_CONV_CFG_FILE), text); }
  std::string logText() {
    v2xlog_Flush();
    return v2xtest::readFile(dir_.file("log/test.log"));
  }
  v2xtest::TempDir dir_;
};

TEST_F(ConfigTest, ReadsTheFiveSettingsAndTheDeviceFile) {
  v2xtest::writeFile(dir_.file("sysinfo.xml"),
                     "<x><device_id>RSU-01.a</device_id><device_name> name </device_name>"
                     "<module_hardware_version>HW2</module_hardware_version></x>");
  writeConfig(configText("E1", "mapdata", dir_.file("sysinfo.xml")));
  map_conv_config_t* cfg = nullptr;
  ASSERT_EQ(v2xmapconv_GetCfgData(&cfg), 0);
  EXPECT_STREQ(cfg->m_eTag, "E1");
  EXPECT_STREQ(cfg->m_MapDataDir, "mapdata");
  EXPECT_STREQ(cfg->m_MapFilename, "map_data_");
  EXPECT_STREQ(cfg->m_MapCfgname, "map_cfg_");
  EXPECT_STREQ(cfg->m_sysinfo.m_device_id, "RSU-01.a");
  EXPECT_STREQ(cfg->m_sysinfo.m_device_name, " name ");
  EXPECT_STREQ(cfg->m_sysinfo.m_hardware_version, "HW2");

  // Served from memory afterwards, even when the file changes or disappears.
  writeConfig(configText("E2", "other", ""));
  map_conv_config_t* again = nullptr;
  ASSERT_EQ(v2xmapconv_GetCfgData(&again), 0);
  EXPECT_EQ(again, cfg);
  EXPECT_STREQ(again->m_eTag, "E1");
  EXPECT_EQ(v2xmapconv_GetCfgData(nullptr), 1);
}

// Without a device file (no Sysinfoname) the device fields stay empty.
TEST_F(ConfigTest, LongValuesAreCutAndMissingKeysWarn) {
  std::string longTag(70, 'e');
  writeConfig("rsuMapConvertInfo : { eTag = \"" + longTag + "\"; MapDataDir = 5; };");
  map_conv_config_t* cfg = nullptr;
  ASSERT_EQ(v2xmapconv_GetCfgData(&cfg), 0);
  EXPECT_EQ(std::string(cfg->m_eTag), longTag.substr(0, 63));
  EXPECT_STREQ(cfg->m_MapDataDir, "");
  EXPECT_STREQ(cfg->m_sysinfo.m_device_id, "");
  std::string log = logText();
  EXPECT_NE(log.find("rsuMapConvertInfo.MapDataDir node error"), std::string::npos);
  EXPECT_NE(log.find("rsuMapConvertInfo.m_MapCfgname node error "), std::string::npos);
  EXPECT_NE(log.find("rsuMapConvertInfo.Sysinfoname node error "), std::string::npos);
}

// The eTag's write-back is the configuration library's key update (tested
// there) and is read back after a restart by the store's tests; here only a
// file gone by then.
TEST_F(ConfigTest, MissingFileFailsAndALaterReadRetries) {
  map_conv_config_t* cfg = nullptr;
  EXPECT_EQ(v2xmapconv_GetCfgData(&cfg), 1);
  EXPECT_NE(logText().find("v2xcfg_InitContext error " + dir_.file(MAP_CONV_CFG_FILE)), std::string::npos);
  writeConfig(configText("late", "m", ""));
  ASSERT_EQ(v2xmapconv_GetCfgData(&cfg), 0);
  EXPECT_STREQ(cfg->m_eTag, "late");
  std::filesystem::remove(dir_.file(MAP_CONV_CFG_FILE));
  EXPECT_EQ(v2xmapconv_SetCfgData(cfg), 1);
}

// The top-level profile setting: absent or one of the two names, or the
// configuration is refused. Under the field profile a missing device file
// refuses it too.
TEST_F(ConfigTest, ProfileSettingSelectsTheBehaviour) {
  v2xtest::writeFile(dir_.file("sysinfo.xml"), "<device_id>R1</device_id>");
  const std::string device = dir_.file("sysinfo.xml");
  const struct {
    std::string line, sysinfo;
    int32 result;
    map_conv_profile_e profile;
  } cases[] = {
      {"", device, 0, MAP_CONV_PROFILE_REFERENCE},
      {"profile = \"reference\";", device, 0, MAP_CONV_PROFILE_REFERENCE},
      {"profile = \"field\";", device, 0, MAP_CONV_PROFILE_FIELD},
      {"profile = \"Field\";", device, 1, MAP_CONV_PROFILE_REFERENCE},
      {"profile = 1;", device, 1, MAP_CONV_PROFILE_REFERENCE},
      {"", dir_.file("none.xml"), 0, MAP_CONV_PROFILE_REFERENCE},
      {"profile = \"field\";", dir_.file("none.xml"), 1, MAP_CONV_PROFILE_FIELD},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line + " " + c.sysinfo);
    v2xmapconv_ResetCfgForTest();
    v2xmapconv_SetProfile(MAP_CONV_PROFILE_REFERENCE);
    writeConfig(c.line + "\n" + configText("E", "m", c.sysinfo));
    map_conv_config_t* cfg = nullptr;
    EXPECT_EQ(v2xmapconv_GetCfgData(&cfg), c.result);
    EXPECT_EQ(v2xmapconv_GetProfile(), c.profile);
  }
  v2xmapconv_SetProfile(MAP_CONV_PROFILE_REFERENCE);
}

// The configuration's own path under the working directory is on the road of
// every process test.
TEST_F(ConfigTest, PathsAreBuiltUnderTheWorkDirectoryAndCut) {
  char* path = nullptr;
  std::string hundred(100, 'm');
  ASSERT_EQ(v2xmapconv_GetMapDataDir(hundred.c_str(), &path), 0);
  EXPECT_EQ(std::string(path), dir_.path() + "/" + hundred.substr(0, 63));
  ASSERT_EQ(v2xmapconv_GetMapDataDir("", &path), 0);
  EXPECT_EQ(std::string(path), dir_.path() + "/");

  v2xmapconv_InitCfg("");
  ASSERT_EQ(v2xmapconv_GetCfgDir(MAP_CONV_CFG_FILE, &path), 0);
  EXPECT_STREQ(path, "conf/v2x_map_convert.cfg");
}

TEST(ParseXml, ExtractsTheFirstElementWithinTheLimit) {
  const std::string a31(31, 'a'), b32(32, 'b');
  const struct {
    std::string xml;
    int32 result;
    std::string value;  // "keep": the output is left alone
  } cases[] = {
      {"<a><device_id>R1</device_id></a>", 0, "R1"},
      {"<device_id>A</device_id><device_id>B</device_id>", 0, "A"},
      {"<device_id></device_id>", 0, ""},
      {"<other>R1</other>", -3, "keep"},
      {"<device_id>R1", -4, "keep"},
      {"</device_id><device_id>R1", -4, "keep"},
      {"<device_id>" + a31 + "</device_id>", 0, a31},
      {"<device_id>" + b32 + "</device_id>", -5, "keep"},
  };
  char tag[] = "device_id";
  for (const auto& c : cases) {
    char out[64] = "keep";
    std::string xml = c.xml;
    EXPECT_EQ(v2xrsucloud_parseXML(xml.data(), tag, out, 32), c.result) << c.xml;
    EXPECT_EQ(std::string(out), c.value) << c.xml;
  }
  char out[8];
  char xml[] = "<a>1</a>";
  EXPECT_EQ(v2xrsucloud_parseXML(nullptr, tag, out, 8), -2);
  EXPECT_EQ(v2xrsucloud_parseXML(xml, nullptr, out, 8), -2);
  EXPECT_EQ(v2xrsucloud_parseXML(xml, tag, nullptr, 8), -2);
}

// The eTag and digest in the record, and a record that cannot be written,
// are the store's tests.
TEST_F(ConfigTest, MapRecordIsALibconfigFileWithTheRefreshTime) {
  std::string path = dir_.file("map_cfg_0");
  uint64_t stamp = 0;
  char eTag[] = "etag-1";
  char md5[] = "0123456789abcdef0123456789abcdef";
  time_t before = time(nullptr);
  ASSERT_EQ(v2xmapconv_WriteMapCfg(path.data(), eTag, md5, &stamp), 0);
  time_t after = time(nullptr);
  EXPECT_GE(static_cast<time_t>(stamp), before);
  EXPECT_LE(static_cast<time_t>(stamp), after);

  libconfig::Config rec;
  ASSERT_NO_THROW(rec.readFile(path.c_str()));
  EXPECT_TRUE(static_cast<bool>(rec.lookup("MAPTepm.CheckStatus")));
  std::string refresh = rec.lookup("MAPTepm.RefreshTime").c_str();
  EXPECT_TRUE(std::regex_match(refresh, std::regex(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})"))) << refresh;
  EXPECT_EQ(v2xmapconv_WriteMapCfg(nullptr, eTag, md5, &stamp), -2);
  EXPECT_EQ(v2xmapconv_WriteMapCfg(path.data(), eTag, nullptr, &stamp), -2);
}

}  // namespace
