#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <libconfig.h++>
#include <string>
#include <vector>

#include "test_process.h"
#include "v2xcfg.h"

namespace {

const char* kSample =
    "# comment kept by nobody\n"
    "rsuMapConvertInfo :\n{\n"
    "  eTag = \"abc\";\n  MapDataDir = \"mapdata\";\n  count = 7;\n  nested : { deep = \"x\"; };\n};\n"
    "other = \"keep me\";\n";

class CfgTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.file("conf.cfg");
    v2xtest::writeFile(path_, kSample);
    ASSERT_EQ(v2xcfg_InitContext(&h_, path_.c_str()), V2XCFG_SUCCESS);
  }
  void TearDown() override { v2xcfg_ExitContext(h_); }
  v2xtest::TempDir dir_;
  std::string path_;
  V2XCFGNODE_HANDLE h_ = nullptr;
};

// Strings are what the service and the tools read; each is read into room
// of exactly its given length on the heap, so a write past it is caught.
TEST_F(CfgTest, ReadsByDottedKeyAndCutsStringsToTheRoomGiven) {
  const struct {
    const char* key;
    uint16 room;
    const char* text;
  } cases[] = {{"rsuMapConvertInfo.eTag", 15, "abc"},
               {"rsuMapConvertInfo.nested.deep", 15, "x"},
               {"rsuMapConvertInfo.eTag", 2, "ab"}};
  for (const auto& c : cases) {
    std::vector<char> text(c.room + 1u, 'z');
    uint16 len = c.room;
    ASSERT_EQ(v2xcfg_GetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, c.key, text.data(), &len), V2XCFG_SUCCESS) << c.key;
    EXPECT_STREQ(text.data(), c.text);
    EXPECT_EQ(len, std::strlen(c.text));
  }
}

TEST_F(CfgTest, MissingKeysWrongTypesAndBadArguments) {
  char text[16];
  uint16 len = 15;
  int32 i = 0;
  EXPECT_EQ(v2xcfg_GetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, "rsuMapConvertInfo.none", text, &len),
            V2XCFG_NODE_NOTEXIST);
  EXPECT_EQ(v2xcfg_GetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, "rsuMapConvertInfo.count", text, &len),
            V2XCFG_NODE_TYPE_ERROR);
  EXPECT_EQ(v2xcfg_GetNodeValue(h_, V2XCFG_MEM_TYPE_INT32, "rsuMapConvertInfo.eTag", &i, nullptr),
            V2XCFG_NODE_TYPE_ERROR);
  EXPECT_EQ(v2xcfg_GetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, "rsuMapConvertInfo.eTag", text, nullptr), V2XCFG_FAIL);
  EXPECT_EQ(v2xcfg_GetNodeValue(nullptr, V2XCFG_MEM_TYPE_STRING, "a", text, &len), V2XCFG_FAIL);
  EXPECT_EQ(v2xcfg_SetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, "rsuMapConvertInfo.count", "x"), V2XCFG_NODE_TYPE_ERROR);
  EXPECT_EQ(v2xcfg_SetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, "other.below", "x"), V2XCFG_FAIL);  // not a group
  EXPECT_EQ(v2xcfg_SetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, "a..b", "x"), V2XCFG_FAIL);
}

// The file is replaced the way every file of the service is (WriteFileData's
// tests: no temporary left, a failed replacement leaves the old file).
TEST_F(CfgTest, WriteBackChangesOnlyTheKeyAndKeepsTheRest) {
  ASSERT_EQ(v2xcfg_SetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, "rsuMapConvertInfo.eTag", "new-tag"), 0);
  ASSERT_EQ(v2xcfg_SetNodeValue(h_, V2XCFG_MEM_TYPE_STRING, "added.group.value", "42"), 0);
  ASSERT_EQ(v2xcfg_UpdateFile(h_, 0), V2XCFG_SUCCESS);

  libconfig::Config cfg;
  ASSERT_NO_THROW(cfg.readFile(path_.c_str()));
  EXPECT_STREQ(cfg.lookup("rsuMapConvertInfo.eTag").c_str(), "new-tag");
  EXPECT_STREQ(cfg.lookup("rsuMapConvertInfo.MapDataDir").c_str(), "mapdata");
  EXPECT_EQ(static_cast<int>(cfg.lookup("rsuMapConvertInfo.count")), 7);
  EXPECT_STREQ(cfg.lookup("other").c_str(), "keep me");
  EXPECT_STREQ(cfg.lookup("added.group.value").c_str(), "42");
}

TEST_F(CfgTest, FailedWriteBackAndUnknownFlagsFail) {
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);  // the target can no longer be replaced
  EXPECT_EQ(v2xcfg_UpdateFile(h_, 0), V2XCFG_FAIL);
  EXPECT_EQ(v2xcfg_UpdateFile(h_, 1), V2XCFG_FAIL);
}

TEST(CfgFile, MissingOrBrokenFileFails) {
  v2xtest::TempDir dir;
  V2XCFGNODE_HANDLE h = nullptr;
  EXPECT_EQ(v2xcfg_InitContext(&h, dir.file("none.cfg").c_str()), V2XCFG_FAIL);
  v2xtest::writeFile(dir.file("bad.cfg"), "group : { key = ; };");
  EXPECT_EQ(v2xcfg_InitContext(&h, dir.file("bad.cfg").c_str()), V2XCFG_FAIL);
  EXPECT_EQ(h, nullptr);
  EXPECT_EQ(v2xcfg_ExitContext(nullptr), V2XCFG_SUCCESS);
}

}  // namespace
