// Storage of converted slices: files and records on disk, directory handling,
// the eTag memory across slices and restarts, and the failure results.
#include <vector>

#include "mapdown_fixture.h"
#include "v2xapp_gbmap.h"

namespace mapdown_test {
namespace {

class StoreTest : public MapDownTest {
 protected:
  // Reads and stores one document the way the reception does: the results of
  // the reader and of the storage (0 when the reader refused the document).
  std::pair<int32, int32> readAndStore(const std::string& doc) {
    const int32 ret = read(doc);
    return {ret, ret == 0 ? v2xmapconv_WriteMapDataToCfg(&record_, &refresh_) : 0};
  }
  std::string storedETag() {
    v2xmapconv_ResetCfgForTest();
    map_conv_config_t* cfg = nullptr;
    return v2xmapconv_GetCfgData(&cfg) == 0 ? std::string(cfg->m_eTag) : std::string("<unreadable>");
  }
  fs::path mapDir() const { return dir_ / "mapdata"; }

  v2xipc_mapRefresh_t refresh_{};
};

TEST_F(StoreTest, RealisticMapIsStoredWithItsValues) {
  std::string doc = sample("map_4x.json");
  ASSERT_LT(doc.size(), 9999u) << "the sample must fit in one map-down message";
  ASSERT_EQ(readAndStore(doc), std::make_pair(0, 0));
  EXPECT_EQ(v2xmapconv_GetErrorCode(), 0);

  // The file decodes to the document's values (worked out by hand).
  std::string file = readFile(mapDir() / "map0");
  void* handle = nullptr;
  ASSERT_EQ(v2xapp_GBMapUperDecode(&handle, reinterpret_cast<uint8_t*>(file.data()), file.size()), 0);
  MapData_t& map = static_cast<MessageFrame_t*>(handle)->choice.mapFrame;
  ASSERT_EQ(map.nodes.list.count, 4);
  const Node_t& node = *map.nodes.list.array[0];
  EXPECT_EQ(std::string(reinterpret_cast<char*>(node.name->buf), node.name->size), "Boyuan Rd / Moyu Rd");
  EXPECT_EQ(node.refPos.Long, 1211600000);
  EXPECT_EQ(node.refPos.lat, 312800000);
  EXPECT_EQ(*node.refPos.elevation, 46);
  ASSERT_EQ(node.inLinks->list.count, 2);
  const Lane_t& lane = *node.inLinks->list.array[0]->lanes.list.array[1];
  EXPECT_EQ(lane.laneID, 2);
  const RoadPoint_t& point = *lane.points->list.array[0];
  EXPECT_EQ(point.posOffset.offsetLL.choice.position_LatLon.lon, 1211616818);
  EXPECT_EQ(point.posOffset.offsetLL.choice.position_LatLon.lat, 312800472);
  v2xapp_GBMapStrDel(&handle);

  // The record names the map. That record and notice carry the file's digest
  // is checked where real services store maps (storage crash and IPC tests).
  EXPECT_NE(readFile(mapDir() / "mapcfg0").find("Name = \"jiading-grid-v1\";"), std::string::npos);
  EXPECT_EQ(refresh_.m_mapFileID, 0);
  uint64 stamp = 0;
  ASSERT_EQ(v2xmapconv_GetMapDownLastTimestamp(&stamp), 0);
  EXPECT_GT(stamp, 1600000000u);
  EXPECT_EQ(v2xmapconv_GetMapDownLastTimestamp(nullptr), -2);
}

TEST_F(StoreTest, ThreeSlicesFillNumbersDownToZeroAndEmptyTheDirectoryOnce) {
  writeFile(mapDir() / "map7", "old map");
  fs::create_directories(mapDir() / "old/sub");
  writeFile(mapDir() / "old/sub/f", "x");
  const char* slices[] = {"map_slice3.json", "map_slice2.json", "map_slice1.json"};
  const int numbers[] = {2, 1, 0};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(slices[i]);
    ASSERT_EQ(readAndStore(sample(slices[i])), std::make_pair(0, 0));
    EXPECT_EQ(refresh_.m_mapFileID, numbers[i]);
    EXPECT_TRUE(fs::exists(mapDir() / ("map" + std::to_string(numbers[i]))));
    EXPECT_TRUE(fs::exists(mapDir() / ("mapcfg" + std::to_string(numbers[i]))));
    if (i == 0) {
      EXPECT_FALSE(fs::exists(mapDir() / "map7"));
      EXPECT_FALSE(fs::exists(mapDir() / "old"));
      writeFile(mapDir() / "marker", "kept while the map is incomplete");
    }
    EXPECT_EQ(storedETag(), i < 2 ? "stored-etag" : "jiading-grid-v2");
  }
  EXPECT_TRUE(fs::exists(mapDir() / "marker"));

  // The same map again: the reader stops at the eTag, here and after a restart.
  EXPECT_EQ(readAndStore(sample("map_slice3.json")).first, -18);
  v2xmapconv_ResetCfgForTest();
  v2xmapconv_MapDownResetForTest();
  EXPECT_EQ(readAndStore(sample("map_slice2.json")).first, -18);
  EXPECT_NE(readFile(dir_ / "conf/v2x_map_convert.cfg").find("jiading-grid-v2"), std::string::npos);
}

TEST_F(StoreTest, CompletedMapIsNotWrittenAgainInTheSameRun) {
  ASSERT_EQ(readAndStore(sample("map_slice1.json")), std::make_pair(0, 0));
  fs::remove(mapDir() / "map0");
  Frame frame;
  v2xcloud_map_data_t again = record_;
  again.map = frame.frame;
  EXPECT_EQ(v2xmapconv_WriteMapDataToCfg(&again, &refresh_), 0);
  EXPECT_FALSE(fs::exists(mapDir() / "map0"));
}

TEST_F(StoreTest, SliceZeroIsStoredAsNumber255) {
  std::string doc = sample("map_slice3.json");
  doc.replace(doc.find("\"mapSlice\":\"3\""), 14, "\"mapSlice\":\"0\"");
  ASSERT_EQ(readAndStore(doc), std::make_pair(0, 0));
  EXPECT_TRUE(fs::exists(mapDir() / "map255"));
  EXPECT_EQ(storedETag(), "stored-etag");
}

TEST_F(StoreTest, FailuresLeaveTheStoredMapAlone) {
  // 16 nodes of 4 links of 12 absolute points: far beyond one encoding buffer.
  std::string big = R"({"mapSlice":"1","eTag":"big","map":{"nodes":[)";
  for (int n = 0; n < 16; ++n) {
    big += std::string(n ? "," : "") + R"({"id":{"id":)" + std::to_string(n) +
           R"(},"refPos":{"lon":121,"lat":31},"inLinks":[)";
    for (int l = 0; l < 4; ++l) {
      big += std::string(l ? "," : "") + R"({"upstreamNodeId":{"id":1},"linkWidth":700,"points":[)";
      for (int p = 0; p < 12; ++p)
        big += std::string(p ? "," : "") + R"({"lon":121.)" + std::to_string(n * 100 + p) + R"(,"lat":31.1})";
      big += R"(],"lanes":[{"laneId":1}]})";
    }
    big += "]}";
  }
  big += "]}}";
  // An encoding too large, and a map the encoder refuses (no nodes).
  for (const std::string& doc : {big, std::string(R"({"mapSlice":"1","eTag":"e","map":{"nodes":[]}})")}) {
    SCOPED_TRACE(doc.substr(0, 40));
    v2xmapconv_MapDownResetForTest();
    const auto [readRet, stored] = readAndStore(doc);
    ASSERT_EQ(readRet, 0);
    EXPECT_NE(stored, 0);
    EXPECT_FALSE(fs::exists(mapDir() / "map0"));
    EXPECT_EQ(storedETag(), "stored-etag");
  }
}

// A map directory that cannot be written or is not configured is no storage
// failure: the record writer logs the first and the slice counts as stored;
// without one only the eTag is kept, and the working directory is never emptied.
TEST_F(StoreTest, MissingOrUnwritableMapDirectoryIsNoStorageFailure) {
  writeFile(dir_ / "keep", "the working directory is never emptied");
  writeFile(dir_ / "blocker", "a file where a directory should be");
  for (const char* configured : {"blocker/sub", ""}) {
    SCOPED_TRACE(configured);
    writeConfig("stored-etag", configured);
    v2xmapconv_ResetCfgForTest();
    v2xmapconv_MapDownResetForTest();
    ASSERT_EQ(readAndStore(sample("map_slice1.json")), std::make_pair(0, 0));
  }
  EXPECT_EQ(storedETag(), "jiading-grid-v2");
  EXPECT_TRUE(fs::exists(dir_ / "keep"));
  EXPECT_TRUE(fs::is_empty(mapDir()));
  EXPECT_FALSE(fs::exists(dir_ / "blocker/sub/map0"));
  const std::string log = logText();
  EXPECT_NE(log.find("Error while writing file,name:" + (dir_ / "blocker/sub/mapcfg0").string()), std::string::npos)
      << log;
  EXPECT_EQ(log.find("v2xpub_WriteFileData error"), std::string::npos);
}

TEST_F(StoreTest, DeleteDirectoryEmptiesWithoutFollowingLinks) {
  fs::path d = mapDir();
  fs::create_directories(d / "a/b");
  writeFile(d / "a/b/f", "x");
  writeFile(d / "top", "x");
  fs::create_directories(dir_ / "outside");
  writeFile(dir_ / "outside/precious", "x");
  fs::create_directory_symlink(dir_ / "outside", d / "link");
  EXPECT_EQ(delete_directory(d.c_str()), 0);
  EXPECT_TRUE(fs::exists(d));
  EXPECT_TRUE(fs::is_empty(d));
  EXPECT_TRUE(fs::exists(dir_ / "outside/precious"));
  EXPECT_EQ(delete_directory((dir_ / "missing").c_str()), -1);
  EXPECT_EQ(delete_directory(nullptr), -2);
}

}  // namespace
}  // namespace mapdown_test
