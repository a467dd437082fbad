// Storage of converted slices: files and records on disk, directory handling,
// the eTag memory across slices and restarts, and the failure results.
#include <cjson/cJSON.h>
#include <libconfig.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "mapdown_fixture.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbmap.h"

namespace mapdown_test {
namespace {

std::string sample(const char* name) { return readText(fs::path(V2X_SOURCE_DIR) / "etc/samples" / name); }

std::string md5sum(const fs::path& file) {
  std::string cmd = "md5sum '" + file.string() + "'";
  FILE* p = popen(cmd.c_str(), "r");
  char out[33] = {};
  size_t n = p != nullptr ? std::fread(out, 1, 32, p) : 0;
  if (p != nullptr) pclose(p);
  return std::string(out, n);
}

std::string recordValue(const fs::path& record, const char* path) {
  config_t cfg;
  config_init(&cfg);
  const char* value = nullptr;
  std::string out;
  if (config_read_file(&cfg, record.c_str()) == CONFIG_TRUE && config_lookup_string(&cfg, path, &value)) out = value;
  config_destroy(&cfg);
  return out;
}

class StoreTest : public MapDownTest {
 protected:
  // Reads and stores one document the way the reception does; the result of the reader.
  int32 readAndStore(const std::string& doc, int32* storeRet = nullptr) {
    Frame frame;
    std::swap(frame_.frame, frame.frame);
    int32 ret = read(doc);
    int32 stored = ret == 0 ? v2xmapconv_WriteMapDataToCfg(&record_, &refresh_) : 0;
    if (storeRet != nullptr) *storeRet = stored;
    return ret;
  }
  std::string storedETag() {
    v2xmapconv_ResetCfgForTest();
    map_conv_config_t* cfg = nullptr;
    return v2xmapconv_GetCfgData(&cfg) == 0 ? std::string(cfg->m_eTag) : std::string("<unreadable>");
  }
  fs::path mapDir() const { return dir_ / "mapdata"; }

  v2xipc_mapRefresh_t refresh_{};
};

// ---- the realistic map, compared field by field after decoding its file ----

long scaled(const cJSON* obj, const char* key, double f) {
  return static_cast<long>(cJSON_GetObjectItem(obj, key)->valuedouble * f);
}
long integer(const cJSON* obj, const char* key) { return cJSON_GetObjectItem(obj, key)->valueint; }
long bits(const BIT_STRING_t* bs) {
  int64_t v = 0;
  v2xcodec_bitString2Long(const_cast<BIT_STRING_t*>(bs), &v);
  return static_cast<long>(v);
}

void expectRef(const cJSON* ref, const NodeReferenceID_t& id) {
  EXPECT_EQ(id.id, integer(ref, "id"));
  ASSERT_NE(id.region, nullptr);
  EXPECT_EQ(*id.region, integer(ref, "region"));
}

void expectPoints(const cJSON* owner, const PointList* pl) {
  const cJSON* pts = cJSON_GetObjectItem(owner, "points");
  ASSERT_NE(pl, nullptr);
  ASSERT_EQ(pl->list.count, cJSON_GetArraySize(pts));
  for (int i = 0; i < pl->list.count; ++i) {
    const cJSON* p = cJSON_GetArrayItem(pts, i);
    const PositionOffsetLLV_t& o = pl->list.array[i]->posOffset;
    ASSERT_EQ(o.offsetLL.present, PositionOffsetLL_PR_position_LatLon);
    EXPECT_EQ(o.offsetLL.choice.position_LatLon.lon, scaled(p, "lon", 1e7));
    EXPECT_EQ(o.offsetLL.choice.position_LatLon.lat, scaled(p, "lat", 1e7));
    if (cJSON_GetObjectItem(p, "ele") != nullptr) {
      ASSERT_NE(o.offsetV, nullptr);
      EXPECT_EQ(o.offsetV->choice.elevation, scaled(p, "ele", 10));
    } else {
      EXPECT_EQ(o.offsetV, nullptr);
    }
  }
}

void expectSpeedLimits(const cJSON* owner, const SpeedLimitList* sl) {
  const cJSON* js = cJSON_GetObjectItem(owner, "speedLimits");
  if (js == nullptr) {
    EXPECT_EQ(sl, nullptr);
    return;
  }
  ASSERT_NE(sl, nullptr);
  ASSERT_EQ(sl->list.count, cJSON_GetArraySize(js));
  for (int i = 0; i < sl->list.count; ++i) {
    const cJSON* s = cJSON_GetArrayItem(js, i);
    const cJSON* type = cJSON_GetObjectItem(s, "type");
    long want = cJSON_IsNumber(type) ? type->valueint : std::strcmp(type->valuestring, "vehicleMaxSpeed") == 0 ? 5 : 8;
    EXPECT_EQ(sl->list.array[i]->type, want);
    EXPECT_EQ(sl->list.array[i]->speed, integer(s, "speed"));
  }
}

void expectLane(const cJSON* jl, const Lane_t& lane) {
  EXPECT_EQ(lane.laneID, integer(jl, "laneId"));
  ASSERT_NE(lane.laneWidth, nullptr);
  EXPECT_EQ(*lane.laneWidth, integer(jl, "laneWidth"));
  const cJSON* attrs = cJSON_GetObjectItem(jl, "laneAttributes");
  ASSERT_NE(lane.laneAttributes, nullptr);
  EXPECT_EQ(bits(lane.laneAttributes->shareWith), integer(attrs, "shareWith"));
  EXPECT_EQ(lane.laneAttributes->laneType.present, LaneTypeAttributes_PR_vehicle);
  EXPECT_EQ(bits(&lane.laneAttributes->laneType.choice.vehicle),
            integer(cJSON_GetObjectItem(attrs, "laneType"), "vehicle"));
  EXPECT_EQ(bits(lane.maneuvers) >> 4, integer(jl, "maneuvers"));
  const cJSON* conns = cJSON_GetObjectItem(jl, "connectsTo");
  ASSERT_NE(lane.connectsTo, nullptr);
  ASSERT_EQ(lane.connectsTo->list.count, cJSON_GetArraySize(conns));
  for (int i = 0; i < lane.connectsTo->list.count; ++i) {
    const cJSON* jc = cJSON_GetArrayItem(conns, i);
    const Connection_t& c = *lane.connectsTo->list.array[i];
    expectRef(cJSON_GetObjectItem(jc, "remoteIntersection"), c.remoteIntersection);
    const cJSON* jcl = cJSON_GetObjectItem(jc, "connectingLane");
    ASSERT_NE(c.connectingLane, nullptr);
    EXPECT_EQ(c.connectingLane->lane, integer(jcl, "laneId"));
    EXPECT_EQ(bits(c.connectingLane->maneuver) >> 4, integer(jcl, "maneuvers"));
    ASSERT_NE(c.phaseId, nullptr);
    EXPECT_EQ(*c.phaseId, integer(jc, "phaseId"));
  }
  expectSpeedLimits(jl, lane.speedLimits);
  expectPoints(jl, lane.points);
}

void expectLink(const cJSON* jk, const Link_t& link) {
  const char* name = cJSON_GetObjectItem(jk, "name")->valuestring;
  ASSERT_NE(link.name, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(link.name->buf), link.name->size), name);
  expectRef(cJSON_GetObjectItem(jk, "upstreamNodeId"), link.upstreamNodeId);
  EXPECT_EQ(link.linkWidth, integer(jk, "linkWidth"));
  expectSpeedLimits(jk, link.speedLimits);
  expectPoints(jk, link.points);
  const cJSON* mv = cJSON_GetObjectItem(jk, "movements");
  ASSERT_NE(link.movements, nullptr);
  ASSERT_EQ(link.movements->list.count, cJSON_GetArraySize(mv));
  for (int i = 0; i < link.movements->list.count; ++i) {
    const cJSON* jm = cJSON_GetArrayItem(mv, i);
    expectRef(cJSON_GetObjectItem(jm, "remoteIntersection"), link.movements->list.array[i]->remoteIntersection);
    EXPECT_EQ(*link.movements->list.array[i]->phaseId, integer(jm, "phaseId"));
  }
  const cJSON* lanes = cJSON_GetObjectItem(jk, "lanes");
  ASSERT_EQ(link.lanes.list.count, cJSON_GetArraySize(lanes));
  for (int i = 0; i < link.lanes.list.count; ++i) expectLane(cJSON_GetArrayItem(lanes, i), *link.lanes.list.array[i]);
}

TEST_F(StoreTest, RealisticMapDecodedFromItsFileEqualsTheDocumentAndItsDigest) {
  std::string doc = sample("map_4x.json");
  ASSERT_LT(doc.size(), 9999u) << "the sample must fit in one map-down message";
  int32 stored = -1;
  ASSERT_EQ(readAndStore(doc, &stored), 0);
  ASSERT_EQ(stored, 0);
  EXPECT_EQ(v2xmapconv_GetErrorCode(), 0);

  std::string file = readText(mapDir() / "map0");
  ASSERT_FALSE(file.empty());
  void* handle = nullptr;
  ASSERT_EQ(v2xapp_GBMapUperDecode(&handle, reinterpret_cast<uint8_t*>(file.data()), file.size()), 0);
  MapData_t& map = static_cast<MessageFrame_t*>(handle)->choice.mapFrame;
  cJSON* root = cJSON_Parse(doc.c_str());
  const cJSON* nodes = cJSON_GetObjectItem(cJSON_GetObjectItem(root, "map"), "nodes");
  ASSERT_EQ(map.nodes.list.count, 4);
  ASSERT_EQ(map.nodes.list.count, cJSON_GetArraySize(nodes));
  EXPECT_EQ(map.timeStamp, nullptr);
  for (int n = 0; n < map.nodes.list.count; ++n) {
    SCOPED_TRACE("node " + std::to_string(n));
    const cJSON* jn = cJSON_GetArrayItem(nodes, n);
    const Node_t& node = *map.nodes.list.array[n];
    EXPECT_EQ(std::string(reinterpret_cast<char*>(node.name->buf), node.name->size),
              cJSON_GetObjectItem(jn, "name")->valuestring);
    expectRef(cJSON_GetObjectItem(jn, "id"), node.id);
    const cJSON* ref = cJSON_GetObjectItem(jn, "refPos");
    EXPECT_EQ(node.refPos.Long, scaled(ref, "lon", 1e7));
    EXPECT_EQ(node.refPos.lat, scaled(ref, "lat", 1e7));
    EXPECT_EQ(*node.refPos.elevation, scaled(ref, "ele", 10));
    const cJSON* links = cJSON_GetObjectItem(jn, "inLinks");
    ASSERT_NE(node.inLinks, nullptr);
    ASSERT_EQ(node.inLinks->list.count, cJSON_GetArraySize(links));
    for (int l = 0; l < node.inLinks->list.count; ++l)
      expectLink(cJSON_GetArrayItem(links, l), *node.inLinks->list.array[l]);
  }
  cJSON_Delete(root);
  v2xapp_GBMapStrDel(&handle);

  // The record and the refresh notice carry the digest of the file as written.
  std::string digest = md5sum(mapDir() / "map0");
  ASSERT_EQ(digest.size(), 32u);
  EXPECT_EQ(recordValue(mapDir() / "mapcfg0", "MAPTepm.MD5Sum"), digest);
  EXPECT_EQ(recordValue(mapDir() / "mapcfg0", "Name"), "jiading-grid-v1");
  char raw[33] = {};
  for (int i = 0; i < 16; ++i) std::snprintf(raw + 2 * i, 3, "%02x", refresh_.m_CheckSum[i]);
  EXPECT_EQ(std::string(raw), digest);
  EXPECT_EQ(refresh_.m_mapFileID, 0);
  uint64 stamp = 0;
  ASSERT_EQ(v2xmapconv_GetMapDownLastTimestamp(&stamp), 0);
  EXPECT_GT(stamp, 1600000000u);
  EXPECT_EQ(v2xmapconv_GetMapDownLastTimestamp(nullptr), -2);
}

TEST_F(StoreTest, ThreeSlicesFillNumbersDownToZeroAndEmptyTheDirectoryOnce) {
  writeText(mapDir() / "map7", "old map");
  fs::create_directories(mapDir() / "old/sub");
  writeText(mapDir() / "old/sub/f", "x");
  const char* slices[] = {"map_slice3.json", "map_slice2.json", "map_slice1.json"};
  const int numbers[] = {2, 1, 0};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(slices[i]);
    int32 stored = -1;
    ASSERT_EQ(readAndStore(sample(slices[i]), &stored), 0);
    ASSERT_EQ(stored, 0);
    EXPECT_EQ(refresh_.m_mapFileID, numbers[i]);
    EXPECT_TRUE(fs::exists(mapDir() / ("map" + std::to_string(numbers[i]))));
    EXPECT_TRUE(fs::exists(mapDir() / ("mapcfg" + std::to_string(numbers[i]))));
    if (i == 0) {
      EXPECT_FALSE(fs::exists(mapDir() / "map7"));
      EXPECT_FALSE(fs::exists(mapDir() / "old"));
      writeText(mapDir() / "marker", "kept while the map is incomplete");
    }
    EXPECT_EQ(storedETag(), i < 2 ? "stored-etag" : "jiading-grid-v2");
  }
  EXPECT_TRUE(fs::exists(mapDir() / "marker"));

  // The same map again: the reader stops at the eTag, here and after a restart.
  EXPECT_EQ(readAndStore(sample("map_slice3.json")), -18);
  v2xmapconv_ResetCfgForTest();
  v2xmapconv_MapDownResetForTest();
  EXPECT_EQ(readAndStore(sample("map_slice2.json")), -18);
  EXPECT_NE(readText(dir_ / "conf/v2x_map_convert.cfg").find("jiading-grid-v2"), std::string::npos);
}

TEST_F(StoreTest, CompletedMapIsNotWrittenAgainInTheSameRun) {
  ASSERT_EQ(readAndStore(sample("map_slice1.json")), 0);
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
  int32 stored = -1;
  ASSERT_EQ(readAndStore(doc, &stored), 0);
  EXPECT_EQ(stored, 0);
  EXPECT_TRUE(fs::exists(mapDir() / "map255"));
  EXPECT_EQ(storedETag(), "stored-etag");
}

TEST_F(StoreTest, FailuresLeaveTheStoredMapAlone) {
  struct Case {
    const char* name;
    std::string mapDir;  // MapDataDir of the configuration
    std::string doc;
    const char* file;  // a file that must not appear
  };
  writeText(dir_ / "blocker", "a file where a directory should be");
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
  const Case cases[] = {
      {"encoding_too_large", "mapdata", big, "mapdata/map0"},
      {"unencodable_map", "mapdata", R"({"mapSlice":"1","eTag":"e","map":{"nodes":[]}})", "mapdata/map0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    writeConfig("stored-etag", c.mapDir);
    v2xmapconv_ResetCfgForTest();
    v2xmapconv_MapDownResetForTest();
    int32 stored = 0;
    ASSERT_EQ(readAndStore(c.doc, &stored), 0);
    EXPECT_NE(stored, 0);
    EXPECT_FALSE(fs::exists(dir_ / c.file));
    EXPECT_EQ(storedETag(), "stored-etag");
  }
}

// A map directory that cannot be written is not a storage failure: the file
// service logs it, the record writer logs it, and the slice counts as stored.
TEST_F(StoreTest, UnwritableDirectoryIsLoggedButNotRefused) {
  writeText(dir_ / "blocker", "a file where a directory should be");
  writeConfig("stored-etag", "blocker/sub");
  v2xmapconv_ResetCfgForTest();
  int32 stored = -1;
  ASSERT_EQ(readAndStore(sample("map_slice1.json"), &stored), 0);
  EXPECT_EQ(stored, 0);
  EXPECT_FALSE(fs::exists(dir_ / "blocker/sub/map0"));
  std::string log = logText();
  EXPECT_NE(log.find("Error while writing file,name:" + (dir_ / "blocker/sub/mapcfg0").string()), std::string::npos)
      << log;
  EXPECT_EQ(log.find("v2xpub_WriteFileData error"), std::string::npos);
}

TEST_F(StoreTest, WithoutMapDirectoryOnlyTheETagIsKept) {
  writeConfig("stored-etag", "");
  v2xmapconv_ResetCfgForTest();
  writeText(dir_ / "keep", "the working directory is never emptied");
  int32 stored = -1;
  ASSERT_EQ(readAndStore(sample("map_slice1.json"), &stored), 0);
  EXPECT_EQ(stored, 0);
  EXPECT_TRUE(fs::exists(dir_ / "keep"));
  EXPECT_TRUE(fs::is_empty(mapDir()));
  EXPECT_EQ(storedETag(), "jiading-grid-v2");
}

TEST_F(StoreTest, DeleteDirectoryEmptiesWithoutFollowingLinks) {
  fs::path d = mapDir();
  fs::create_directories(d / "a/b");
  writeText(d / "a/b/f", "x");
  writeText(d / "top", "x");
  fs::create_directories(dir_ / "outside");
  writeText(dir_ / "outside/precious", "x");
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
