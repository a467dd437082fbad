// The map upload between real processes on loopback: the stack peer answers
// the service's once-a-second requests with two stored maps, and the cloud
// peer prints each upload with its text. The uploaded documents are checked
// against the maps as this test decodes them from the files the stack peer
// sends.
#include <MessageFrame.h>
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cmath>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

#include "test_process.h"
#include "v2xapp_gbmap.h"

namespace {

using v2xtest::ChildProcess;

// Slice 0: a node with a link that has points, movements, speed limits and a
// lane with a connection and points in three offset choices. Slice 1: a bare
// node.
const char* const kMaps[] = {
    R"(<MessageFrame><mapFrame><msgCnt>1</msgCnt><timeStamp>1000</timeStamp><nodes><Node>
<name>North</name><id><region>1</region><id>101</id></id>
<refPos><lat>312800000</lat><long>1211600000</long><elevation>46</elevation></refPos>
<inLinks><Link><name>102-101</name><upstreamNodeId><region>1</region><id>102</id></upstreamNodeId>
<speedLimits><RegulatorySpeedLimit><type><vehicleMaxSpeed/></type><speed>833</speed></RegulatorySpeedLimit></speedLimits>
<linkWidth>700</linkWidth>
<points><RoadPoint><posOffset><offsetLL><position-LL1><lon>100</lon><lat>-50</lat></position-LL1></offsetLL></posOffset></RoadPoint>
<RoadPoint><posOffset><offsetLL><position-LL2><lon>4000</lon><lat>-4000</lat></position-LL2></offsetLL>
<offsetV><elevation>47</elevation></offsetV></posOffset></RoadPoint></points>
<movements><Movement><remoteIntersection><region>1</region><id>103</id></remoteIntersection><phaseId>1</phaseId></Movement></movements>
<lanes><Lane><laneID>1</laneID><laneWidth>350</laneWidth>
<laneAttributes><laneType><vehicle>00000000</vehicle></laneType></laneAttributes><maneuvers>100000000000</maneuvers>
<connectsTo><Connection><remoteIntersection><region>1</region><id>103</id></remoteIntersection>
<connectingLane><lane>2</lane><maneuver>100000000000</maneuver></connectingLane><phaseId>1</phaseId></Connection></connectsTo>
<points><RoadPoint><posOffset><offsetLL><position-LL3><lon>-2000</lon><lat>1500</lat></position-LL3></offsetLL>
<offsetV><offset1>-3</offset1></offsetV></posOffset></RoadPoint>
<RoadPoint><posOffset><offsetLL><position-LatLon><lon>1211600100</lon><lat>312800200</lat></position-LatLon></offsetLL></posOffset></RoadPoint></points>
</Lane></lanes></Link></inLinks></Node></nodes></mapFrame></MessageFrame>)",
    R"(<MessageFrame><mapFrame><msgCnt>2</msgCnt><nodes><Node><id><id>202</id></id>
<refPos><lat>-100</lat><long>-200</long></refPos></Node></nodes></mapFrame></MessageFrame>)",
};

std::string uper(const char* xer) {
  V2XAPP_GBMHANDLE h = nullptr;
  std::string text = xer;
  std::vector<uint8_t> out(4096);
  uint32_t len = static_cast<uint32_t>(out.size());
  bool ok =
      v2xapp_GBMapXerDecode(&h, reinterpret_cast<uint8_t*>(text.data()), static_cast<uint32_t>(text.size())) == 0 &&
      v2xapp_GBMapUperEncode(h, out.data(), &len) == 0 && len <= out.size();
  v2xapp_GBMapStrDel(&h);
  return ok ? std::string(out.begin(), out.begin() + len) : std::string();
}

// ---- Uploaded values against a decoded frame: identities, positions,
// widths and points (the renderer's unit tests cover every member) ----

const cJSON* at(const cJSON* obj, const char* key) { return cJSON_GetObjectItemCaseSensitive(obj, key); }
double num(const cJSON* obj, const char* key) {
  const cJSON* item = at(obj, key);
  return cJSON_IsNumber(item) ? item->valuedouble : NAN;
}
std::string str(const cJSON* obj, const char* key) {
  const cJSON* item = at(obj, key);
  return cJSON_IsString(item) ? item->valuestring : "(none)";
}
template <class List>
int count(const List* list) {
  return list != nullptr ? list->list.count : -1;
}
int size(const cJSON* array) { return cJSON_IsArray(array) ? cJSON_GetArraySize(array) : -1; }
template <class Opt>
double opt(const Opt* p) {
  return p != nullptr ? static_cast<double>(*p) : NAN;
}
void expectSame(double json, double frame, const char* what) {
  if (std::isnan(frame))
    EXPECT_TRUE(std::isnan(json)) << what << " should be absent";
  else
    EXPECT_EQ(json, frame) << what;
}

void checkRef(const cJSON* j, const NodeReferenceID_t& r, const char* what) {
  expectSame(num(j, "id"), static_cast<double>(r.id), what);
  expectSame(num(j, "region"), opt(r.region), what);
}

void checkPoints(const cJSON* arr, const PointList* points) {
  ASSERT_EQ(size(arr), count(points));
  for (int i = 0; i < points->list.count; ++i) {
    const PositionOffsetLLV_t& p = points->list.array[i]->posOffset;
    const cJSON* e = cJSON_GetArrayItem(arr, i);
    long lon = 0, lat = 0;
    switch (p.offsetLL.present) {
      case PositionOffsetLL_PR_position_LL1:
        lon = p.offsetLL.choice.position_LL1.lon, lat = p.offsetLL.choice.position_LL1.lat;
        break;
      case PositionOffsetLL_PR_position_LL2:
        lon = p.offsetLL.choice.position_LL2.lon, lat = p.offsetLL.choice.position_LL2.lat;
        break;
      case PositionOffsetLL_PR_position_LL3:
        lon = p.offsetLL.choice.position_LL3.lon, lat = p.offsetLL.choice.position_LL3.lat;
        break;
      case PositionOffsetLL_PR_position_LatLon:
        lon = p.offsetLL.choice.position_LatLon.lon, lat = p.offsetLL.choice.position_LatLon.lat;
        break;
      default: FAIL() << "choice not used by this test's maps";
    }
    expectSame(num(e, "lon"), lon, "point lon");
    expectSame(num(e, "lat"), lat, "point lat");
    double ele = NAN;
    if (p.offsetV != nullptr)
      ele = p.offsetV->present == VerticalOffset_PR_offset1 ? p.offsetV->choice.offset1 : p.offsetV->choice.elevation;
    expectSame(num(e, "ele"), ele, "point ele");
  }
}

void checkLink(const cJSON* j, const Link_t& link) {
  EXPECT_EQ(str(j, "name"),
            link.name != nullptr ? std::string(reinterpret_cast<char*>(link.name->buf), link.name->size) : "(none)");
  checkRef(at(j, "upstreamNodeId"), link.upstreamNodeId, "upstreamNodeId");
  expectSame(num(j, "linkWidth"), static_cast<double>(link.linkWidth), "linkWidth");
  if (link.points != nullptr) checkPoints(at(j, "points"), link.points);
  ASSERT_EQ(size(at(j, "lanes")), link.lanes.list.count);
  for (int l = 0; l < link.lanes.list.count; ++l) {
    const Lane_t& lane = *link.lanes.list.array[l];
    const cJSON* lj = cJSON_GetArrayItem(at(j, "lanes"), l);
    expectSame(num(lj, "laneId"), static_cast<double>(lane.laneID), "laneId");
    expectSame(num(lj, "laneWidth"), opt(lane.laneWidth), "laneWidth");
    if (lane.points != nullptr) checkPoints(at(lj, "points"), lane.points);
  }
}

void checkMap(const cJSON* map, const MapData_t& m) {
  expectSame(num(map, "timeStamp"), opt(m.timeStamp), "timeStamp");
  ASSERT_EQ(size(at(map, "nodes")), m.nodes.list.count);
  for (int n = 0; n < m.nodes.list.count; ++n) {
    const Node_t& node = *m.nodes.list.array[n];
    const cJSON* nj = cJSON_GetArrayItem(at(map, "nodes"), n);
    EXPECT_EQ(str(nj, "name"),
              node.name != nullptr ? std::string(reinterpret_cast<char*>(node.name->buf), node.name->size) : "(none)");
    checkRef(at(nj, "id"), node.id, "node id");
    expectSame(num(at(nj, "refPos"), "lon"), static_cast<double>(node.refPos.Long), "refPos lon");
    expectSame(num(at(nj, "refPos"), "lat"), static_cast<double>(node.refPos.lat), "refPos lat");
    expectSame(num(at(nj, "refPos"), "ele"), opt(node.refPos.elevation), "refPos ele");
    ASSERT_EQ(size(at(nj, "inLinks")), count(node.inLinks));
    for (int l = 0; l < count(node.inLinks); ++l)
      checkLink(cJSON_GetArrayItem(at(nj, "inLinks"), l), *node.inLinks->list.array[l]);
  }
}

std::string localDate() {
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  char text[16];
  std::strftime(text, sizeof(text), "%Y%m%d", &tm);
  return text;
}

TEST(MapUpProcess, StackMapsAreUploadedEverySecond) {
  v2xtest::TempDir work;
  const std::string device = v2xtest::uniqueDevice("UP");
  ASSERT_TRUE(v2xtest::prepareWorkdir(work.path(), device));

  // The maps as the stack peer will send them, and as this test reads them.
  std::vector<V2XAPP_GBMHANDLE> frames;
  for (int i = 0; i < 2; ++i) {
    std::string file = uper(kMaps[i]);
    ASSERT_FALSE(file.empty()) << i;
    v2xtest::writeFile(work.file("mapdata/map_data_" + std::to_string(i)), file);
    V2XAPP_GBMHANDLE h = nullptr;
    ASSERT_EQ(v2xapp_GBMapUperDecode(&h, reinterpret_cast<uint8_t*>(file.data()), static_cast<uint32_t>(file.size())),
              0);
    frames.push_back(h);
  }

  ChildProcess stack, cloud, service;
  // The stack peer takes a port from the kernel; the port file points there
  // before the service starts.
  ASSERT_TRUE(stack.start({V2X_STACK_SIM_BIN, "-w", work.path(), "-t", "60"}));
  ASSERT_TRUE(stack.waitForOutput(", maps from"));
  const std::string listening = "listening on 127.0.0.1:";
  const size_t listenAt = stack.output().find(listening);
  ASSERT_NE(listenAt, std::string::npos) << stack.output();
  v2xtest::writeIpcConfig(work.path(),
                          static_cast<uint16_t>(std::stoul(stack.output().substr(listenAt + listening.size()))));
  // Three rounds of two; each upload answered.
  ASSERT_TRUE(cloud.start(
      {V2X_CLOUD_SIM_BIN, "--device", device, "--count", "6", "--kind", "up", "--ack-uploads", "--timeout", "40"}));
  const std::string before = localDate();
  const std::string log = work.file("log/map_conv.log");
  ASSERT_TRUE(v2xtest::startService(service, work.path(), {"-d", "7"}));
  const int cloudStatus = cloud.waitExit(std::chrono::seconds(45));
  const std::string after = localDate();
  EXPECT_TRUE(WIFEXITED(cloudStatus) && WEXITSTATUS(cloudStatus) == 0) << cloud.output();

  std::istringstream lines(cloud.output());
  std::string line;
  int n = 0;
  while (std::getline(lines, line)) {
    if (line.rfind("UP ", 0) != 0) continue;
    SCOPED_TRACE("upload " + std::to_string(n + 1) + ": " + line.substr(0, 120));
    const size_t raw = line.find(" raw=");
    ASSERT_NE(raw, std::string::npos);
    cJSON* doc = cJSON_Parse(line.c_str() + raw + 5);
    ASSERT_NE(doc, nullptr);
    EXPECT_EQ(str(doc, "seqNum"), std::to_string(n + 1));
    EXPECT_EQ(str(doc, "mapSlice"), n % 2 == 0 ? "0" : "1");
    const std::string eTag = str(doc, "eTag");
    EXPECT_TRUE(eTag == "MapUpEtag" + before || eTag == "MapUpEtag" + after) << eTag;
    EXPECT_TRUE(cJSON_IsTrue(at(doc, "ack")));
    checkMap(at(doc, "map"), static_cast<MessageFrame_t*>(frames[n % 2])->choice.mapFrame);
    cJSON_Delete(doc);
    ++n;
  }
  EXPECT_EQ(n, 6) << cloud.output();
  // The answers reached the service's acknowledgement receiver.
  for (int i = 0; i < 100 && v2xtest::readFile(log).find("Map_Ack recv_total:") == std::string::npos; ++i)
    usleep(50000);
  EXPECT_NE(v2xtest::readFile(log).find("Map_Ack recv_total:"), std::string::npos);

  service.signal(SIGTERM);
  const int st = service.waitExit();
  EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
  stack.signal(SIGINT);
  stack.waitExit();
  for (V2XAPP_GBMHANDLE& h : frames) v2xapp_GBMapStrDel(&h);
}

}  // namespace
