// Storage failures under both profiles: a map file, a map record or the
// configuration that cannot be written (the file size limit stops the write
// half-way) is reported as success in the reference behaviour and fails the
// slice in the field, so the reception acknowledges it with code 18.
#include <signal.h>
#include <sys/resource.h>

#include "map_conv_mapdown_stage.h"
#include "map_conv_profile.h"
#include "mapdown_fixture.h"

namespace mapdown_test {
namespace {

class FieldStoreTest : public MapDownTest {
 protected:
  void TearDown() override {
    MapDownTest::TearDown();
    v2xmapconv_SetProfile(MAP_CONV_PROFILE_REFERENCE);
  }
  // Stores doc with writes limited to `limit` bytes a file.
  int32 storeLimited(const std::string& doc, rlim_t limit) {
    if (read(doc) != 0) return -100;
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = old;
    small.rlim_cur = limit;
    setrlimit(RLIMIT_FSIZE, &small);
    v2xipc_mapRefresh_t refresh{};
    const int32 ret = v2xmapconv_WriteMapDataToCfg(&record_, &refresh);
    setrlimit(RLIMIT_FSIZE, &old);
    return ret;
  }
};

TEST_F(FieldStoreTest, AFileThatCannotBeWrittenFailsTheSliceInTheFieldOnly) {
  signal(SIGXFSZ, SIG_IGN);  // an over-size write fails with EFBIG instead
  v2xlog_Init(nullptr, "TEST", 0, 0, 0);
  writeFile(dir_ / "conf/none.xml", "<device_id>R1</device_id>");  // the field needs the device file
  // One node: a map file of a few bytes, smaller than its record. Slice 2
  // writes no configuration; slice 1 does.
  const std::string oneNode =
      R"("eTag":"small","map":{"nodes":[{"id":{"region":1,"id":7},"refPos":{"lon":121.16,"lat":31.28}}]}})";
  const struct {
    const char* what;
    const char* mapDir;
    std::string doc;
    rlim_t limit;  // bytes: below the failing file's size, above the others'
  } cases[] = {
      {"map file", "mapdata", sample("map_4x.json"), 1000},
      {"map record", "mapdata", R"({"mapSlice":"2",)" + oneNode, 100},
      {"configuration", "", R"({"mapSlice":"1",)" + oneNode, 100},
  };
  for (const auto& c : cases) {
    for (const char* profile : {"reference", "field"}) {
      SCOPED_TRACE(std::string(c.what) + ", " + profile);
      writeConfig("stored-etag", c.mapDir);
      v2xtest::setProfile(dir_.string(), profile);
      v2xmapconv_ResetCfgForTest();
      v2xmapconv_MapDownResetForTest();
      const int32 ret = storeLimited(c.doc, c.limit);
      if (std::string(profile) == "reference") {
        EXPECT_EQ(ret, 0);
      } else {
        EXPECT_NE(ret, 0);
        EXPECT_NE(ret, -100);
      }
    }
  }
}

// Start-up under the field profile keeps the map the link names and removes
// what a killed run was staging, whatever state the kill left.
TEST_F(FieldStoreTest, StartUpKeepsTheCurrentMapAndRemovesStagedOnes) {
  const struct {
    const char* name;
    std::vector<std::pair<std::string, std::string>> files;  // path below dir_, content
    const char* link;                                        // target of mapdata, or "" for none
    int32 result;
    std::string kept;  // content of mapdata/x afterwards
  } cases[] = {
      {"plain directory (first start)", {{"mapdata/x", "plain"}}, "", 0, "plain"},
      {"link and a staged version",
       {{"mapdata.versions/3/x", "current"}, {"mapdata.versions/4/x", "staged"}},
       "mapdata.versions/3",
       0,
       "current"},
      {"link to nothing",
       {{"mapdata.versions/2/x", "two"}, {"mapdata.versions/5/x", "five"}},
       "mapdata.versions/9",
       0,
       "five"},
      {"no link (a first start cut short)", {{"mapdata.versions/2/x", "two"}}, "", 0, "two"},
      {"a file in the way", {{"mapdata", "not a directory"}}, "", -1, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(dir_ / "mapdata");
    fs::remove_all(dir_ / "mapdata.versions");
    for (const auto& [path, content] : c.files) writeFile(dir_ / path, content);
    if (c.link[0] != '\0') fs::create_directory_symlink(c.link, dir_ / "mapdata");
    v2xmapconv_MapDownResetForTest();
    ASSERT_EQ(v2xmapconv_MapStoreRecover(), c.result);
    if (c.result != 0) continue;
    EXPECT_TRUE(fs::is_symlink(dir_ / "mapdata"));
    EXPECT_EQ(readFile(dir_ / "mapdata/x"), c.kept);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "mapdata.versions"), fs::directory_iterator()), 1);
  }
}

}  // namespace
}  // namespace mapdown_test
