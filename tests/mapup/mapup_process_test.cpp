// The map upload between real processes on loopback: the stack peer answers
// the service's once-a-second requests with two stored maps, and the cloud
// peer prints each upload with its text. Each uploaded document is compared
// byte for byte with the text worked out by hand from the maps below.
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
  for (int i = 0; i < 2; ++i) {
    const std::string file = uper(kMaps[i]);
    ASSERT_FALSE(file.empty()) << i;
    v2xtest::writeFile(work.file("mapdata/map_data_" + std::to_string(i)), file);
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

}  // namespace
