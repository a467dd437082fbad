// The map upload between real processes on loopback: the stack peer answers
// the service's once-a-second requests with two stored maps, and the cloud
// peer prints each upload with its text. Each uploaded document is compared
// byte for byte with the text worked out by hand from the maps below.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <signal.h>

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

// The "map" member each slice must be uploaded with. Bit strings go as the
// text of their bytes up to the first zero byte: maneuvers 100000000000 are 0x80.
const std::string kUploaded[] = {
    R"({"timeStamp":1000,"nodes":[{"name":"North","id":{"region":1,"id":101},)"
    R"("refPos":{"lon":1211600000,"lat":312800000,"ele":46},"inLinks":[{"name":"102-101",)"
    R"("upstreamNodeId":{"region":1,"id":102},"speedLimits":[{"type":"5","speed":833}],"linkWidth":700,)"
    R"("points":[{"lon":100,"lat":-50},{"lon":4000,"lat":-4000,"ele":47}],)"
    R"("movements":[{"remoteIntersection":{"region":1,"id":103},"phaseId":1}],)"
    R"("lanes":[{"laneId":1,"laneWidth":350,"laneAttributes":{"laneType":{"vehicle":0}},"maneuvers":")"
    "\x80"
    R"(",)"
    R"("connectsTo":[{"remoteIntersection":{"region":1,"id":103},"connectingLane":{"laneId":2,"maneuvers":")"
    "\x80"
    R"("},)"
    R"("phaseId":1}],"points":[{"lon":-2000,"lat":1500,"ele":-3},{"lon":1211600100,"lat":312800200}]}]}]}]})",
    R"({"nodes":[{"id":{"id":202},"refPos":{"lon":-200,"lat":-100}}]})",
};

// The maps (UPER) go into the map data directory; the stack peer answers
// with them from a port the kernel chose, and the port file points there
// before the service starts.
void startStackPeer(ChildProcess& stack, v2xtest::TempDir& work, const std::vector<std::string>& maps) {
  for (size_t i = 0; i < maps.size(); ++i) {
    ASSERT_FALSE(maps[i].empty()) << i;
    v2xtest::writeFile(work.file("mapdata/map_data_" + std::to_string(i)), maps[i]);
  }
  ASSERT_TRUE(stack.start({V2X_STACK_SIM_BIN, "-w", work.path(), "-t", "60"}));
  ASSERT_TRUE(stack.waitForOutput(", maps from"));
  const std::string listening = "listening on 127.0.0.1:";
  const size_t listenAt = stack.output().find(listening);
  ASSERT_NE(listenAt, std::string::npos) << stack.output();
  v2xtest::writeIpcConfig(work.path(),
                          static_cast<uint16_t>(std::stoul(stack.output().substr(listenAt + listening.size()))));
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
  ChildProcess stack, cloud, service;
  startStackPeer(stack, work, {uper(kMaps[0]), uper(kMaps[1])});
  if (::testing::Test::HasFatalFailure()) return;
  // Three rounds of two; each upload answered.
  ASSERT_TRUE(cloud.start(
      {V2X_CLOUD_SIM_BIN, "--device", device, "--count", "6", "--kind", "up", "--ack-uploads", "--timeout", "40"}));
  const std::string before = localDate();
  ASSERT_TRUE(v2xtest::startService(service, work.path(), {"-d", "7"}));
  const int cloudStatus = cloud.waitExit(std::chrono::seconds(45));
  const std::string after = localDate();
  EXPECT_TRUE(WIFEXITED(cloudStatus) && WEXITSTATUS(cloudStatus) == 0) << cloud.output();

  std::istringstream lines(cloud.output());
  std::string line;
  int n = 0;
  while (std::getline(lines, line)) {
    if (line.rfind("UP ", 0) != 0) continue;
    SCOPED_TRACE("upload " + std::to_string(n + 1));
    const size_t raw = line.find(" raw=");
    ASSERT_NE(raw, std::string::npos);
    // The eTag carries the local date, which may turn during the run.
    auto expected = [&](const std::string& date) {
      return R"({"mapSlice":")" + std::to_string(n % 2) + R"(","map":)" + kUploaded[n % 2] + R"(,"eTag":"MapUpEtag)" +
             date + R"(","ack":true,"seqNum":")" + std::to_string(n + 1) + "\"}";
    };
    const std::string text = line.substr(raw + 5);
    EXPECT_TRUE(text == expected(before) || text == expected(after)) << text << "\nwanted\n" << expected(after);
    ++n;
  }
  EXPECT_EQ(n, 6) << cloud.output();
  // The answers reached the service's acknowledgement receiver.
  EXPECT_TRUE(v2xtest::waitForText(work.file("log/map_conv.log"), "Map_Ack recv_total:"));

  service.signal(SIGTERM);
  const int st = service.waitExit();
  EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
  stack.signal(SIGINT);
  stack.waitExit();
}

// A map whose upload is over 9999 bytes: 16 lanes of 31 points each.
std::string bigMapXer() {
  std::string lanes;
  for (int l = 1; l <= 16; ++l) {
    lanes += "<Lane><laneID>" + std::to_string(l) + "</laneID><points>";
    for (int p = 0; p < 31; ++p)
      lanes += "<RoadPoint><posOffset><offsetLL><position-LL1><lon>" + std::to_string(p) + "</lon><lat>-" +
               std::to_string(l) + "</lat></position-LL1></offsetLL></posOffset></RoadPoint>";
    lanes += "</points></Lane>";
  }
  return "<MessageFrame><mapFrame><msgCnt>3</msgCnt><nodes><Node><id><id>303</id></id>"
         "<refPos><lat>0</lat><long>0</long></refPos><inLinks><Link><upstreamNodeId><id>1</id></upstreamNodeId>"
         "<linkWidth>300</linkWidth><lanes>" +
         lanes + "</lanes></Link></inLinks></Node></nodes></mapFrame></MessageFrame>";
}

// Strict UTF-8: no stray continuation byte, no overlong form, no surrogate,
// nothing above U+10FFFF. The code points into out.
bool utf8(const std::string& text, std::u32string* out = nullptr) {
  for (size_t i = 0; i < text.size();) {
    const auto b = static_cast<unsigned char>(text[i]);
    const int n = b < 0x80 ? 0 : (b >> 5) == 6 ? 1 : (b >> 4) == 14 ? 2 : (b >> 3) == 30 ? 3 : -1;
    if (n < 0 || i + static_cast<size_t>(n) >= text.size()) return false;
    char32_t cp = n == 0 ? b : b & (0x3F >> n);
    for (int k = 1; k <= n; ++k) {
      const auto c = static_cast<unsigned char>(text[i + k]);
      if ((c >> 6) != 2) return false;
      cp = (cp << 6) | (c & 0x3F);
    }
    const char32_t least[] = {0, 0x80, 0x800, 0x10000};
    if (cp < least[n] || (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) return false;
    if (out != nullptr) out->push_back(cp);
    i += static_cast<size_t>(n) + 1;
  }
  return true;
}

// Under the field profile: every map of the stack's answer goes up (three,
// each round), every upload is valid UTF-8 JSON whose "maneuvers" give back
// the bit string's byte as a code point, and the map whose upload is over
// 9999 bytes still goes up, with one warning however many rounds.
TEST(MapUpProcess, FieldUploadsEveryMapAsValidJson) {
  v2xtest::TempDir work;
  const std::string device = v2xtest::uniqueDevice("UPF");
  ASSERT_TRUE(v2xtest::prepareWorkdir(work.path(), device));
  v2xtest::setProfile(work.path(), "field");
  ChildProcess stack, cloud, service;
  startStackPeer(stack, work, {uper(kMaps[0]), uper(kMaps[1]), uper(bigMapXer().c_str())});
  if (::testing::Test::HasFatalFailure()) return;
  ASSERT_TRUE(cloud.start({V2X_CLOUD_SIM_BIN, "--device", device, "--count", "6", "--kind", "up", "--timeout", "40"}));
  ASSERT_TRUE(v2xtest::startService(service, work.path(), {"-d", "4"}));
  const int cloudStatus = cloud.waitExit(std::chrono::seconds(45));
  EXPECT_TRUE(WIFEXITED(cloudStatus) && WEXITSTATUS(cloudStatus) == 0) << cloud.output();

  std::istringstream lines(cloud.output());
  std::vector<std::string> slices;
  for (std::string line; std::getline(lines, line);) {
    const size_t raw = line.find(" raw=");
    if (line.rfind("UP ", 0) != 0 || raw == std::string::npos) continue;
    const std::string text = line.substr(raw + 5);
    ASSERT_TRUE(utf8(text)) << text.substr(0, 200);
    cJSON* doc = cJSON_ParseWithOpts(text.c_str(), nullptr, 1);
    ASSERT_NE(doc, nullptr) << text.substr(0, 200);
    slices.push_back(cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(doc, "mapSlice")));
    const cJSON* lane = cJSON_GetObjectItemCaseSensitive(doc, "map");  // first node, link, lane
    for (const char* key : {"nodes", "inLinks", "lanes"})
      lane = cJSON_GetArrayItem(cJSON_GetObjectItemCaseSensitive(lane, key), 0);
    std::u32string maneuvers;
    const char* m = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(lane, "maneuvers"));
    if (slices.back() == "0") {
      ASSERT_NE(m, nullptr);
      EXPECT_TRUE(utf8(m, &maneuvers));
      EXPECT_EQ(maneuvers, std::u32string(1, U'\x80')) << "the bit string's first byte, as its code point";
    }
    cJSON_Delete(doc);
  }
  EXPECT_EQ(slices, (std::vector<std::string>{"0", "1", "2", "0", "1", "2"})) << cloud.output();
  service.signal(SIGTERM);
  service.waitExit();
  EXPECT_EQ(v2xtest::countOf(v2xtest::readFile(work.file("log/map_conv.log")), "over 9999: sent all the same"), 1u);
  stack.signal(SIGINT);
  stack.waitExit();
}

}  // namespace
