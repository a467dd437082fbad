// "geojson" on real files: every offset form of a point comes out at the
// absolute position it stands for, whichever form the map file has, the
// properties carry the map's values by name, and bad input ends with one line
// and an error status.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "codec_test_util.h"
#include "map_tool_run.h"

using namespace codectest;

namespace {

constexpr long kRefLat = 310000000, kRefLon = 1210000000, kRefElev = 50;  // 1e-7 degree, 0.1 m

// One lane point per lat/lon offset choice, each with a vertical offset of the
// same rank; the values reach towards each choice's bounds.
struct PointCase {
  PositionOffsetLL_PR ll;
  long lon, lat;  // offset, or the absolute position for LatLon
  VerticalOffset_PR v;
  long dv;
};
constexpr PointCase kPoints[] = {
    {PositionOffsetLL_PR_position_LL1, 1500, -2047, VerticalOffset_PR_offset1, 20},
    {PositionOffsetLL_PR_position_LL2, 8000, 5000, VerticalOffset_PR_offset2, -100},
    {PositionOffsetLL_PR_position_LL3, -30000, 32767, VerticalOffset_PR_offset3, 200},
    {PositionOffsetLL_PR_position_LL4, 131071, -100000, VerticalOffset_PR_offset4, -400},
    {PositionOffsetLL_PR_position_LL5, 2000000, -2097152, VerticalOffset_PR_offset5, 900},
    {PositionOffsetLL_PR_position_LL6, -8000000, 8388607, VerticalOffset_PR_offset6, -1800},
    {PositionOffsetLL_PR_position_LatLon, 1212345678, 312345678, VerticalOffset_PR_elevation, 1234},
};

void setPoint(PositionOffsetLLV_t& o, const PointCase& c) {
  setLL(o.offsetLL, c.ll, c.lon, c.lat);
  o.offsetV = make<VerticalOffset_t>();
  o.offsetV->present = c.v;
  o.offsetV->choice.offset1 = c.dv;  // every vertical alternative is one integer at the same place
}

// Node 3-7 "Test Rd" with one named link from node 8 and one bike lane whose
// points are kPoints.
MessageFrame_t* testFrame() {
  MessageFrame_t* f = newMap(1, 7, kRefLat, kRefLon);
  Node_t* n = f->choice.mapFrame.nodes.list.array[0];
  n->id.region = make<RoadRegulatorID_t>(3);
  n->refPos.elevation = make<Elevation_t>(kRefElev);
  n->name = OCTET_STRING_new_fromBuf(&asn_DEF_DescriptiveName, "Test Rd", -1);
  n->inLinks = make<LinkList>();
  Link_t* link = add(*n->inLinks, make<Link_t>());
  // With the lane's speed limits: not in the reference vectors.
  link->name = OCTET_STRING_new_fromBuf(&asn_DEF_DescriptiveName, "West approach ~", -1);
  link->upstreamNodeId.id = 8;
  link->linkWidth = 700;
  link->points = make<PointList>();
  for (long d : {3000L, 1000L}) {
    setPoint(add(*link->points, make<RoadPoint_t>())->posOffset,
             {PositionOffsetLL_PR_position_LL3, d, 0, VerticalOffset_PR_offset1, 0});
  }
  Lane_t* lane = add(link->lanes, make<Lane_t>());
  lane->laneID = 4;
  lane->laneWidth = make<LaneWidth_t>(300);
  lane->laneAttributes = make<LaneAttributes_t>();
  lane->laneAttributes->laneType.present = LaneTypeAttributes_PR_bikeLane;
  setBits(lane->laneAttributes->laneType.choice.bikeLane, "0100000000000000");
  lane->maneuvers = make<AllowedManeuvers_t>();
  setBits(*lane->maneuvers, "110000000001");
  lane->connectsTo = make<ConnectsToList>();
  Connection_t* c = add(*lane->connectsTo, make<Connection_t>());
  c->remoteIntersection.id = 9;
  c->connectingLane = make<ConnectingLane_t>();
  c->connectingLane->lane = 2;
  c->phaseId = make<PhaseID_t>(5);
  lane->speedLimits = make<SpeedLimitList>();
  RegulatorySpeedLimit_t* s = add(*lane->speedLimits, make<RegulatorySpeedLimit_t>());
  s->type = SpeedLimitType_vehicleMaxSpeed;
  s->speed = 833;
  lane->points = make<PointList>();
  for (const PointCase& p : kPoints) setPoint(add(*lane->points, make<RoadPoint_t>())->posOffset, p);
  return f;
}

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

Json parse(const std::string& text) { return Json(cJSON_Parse(text.c_str()), cJSON_Delete); }

std::string print(const cJSON* item) {
  char* p = cJSON_PrintUnformatted(item);
  std::string s = p != nullptr ? p : "(none)";
  cJSON_free(p);
  return s;
}

const cJSON* features(const Json& doc) { return cJSON_GetObjectItemCaseSensitive(doc.get(), "features"); }
const cJSON* props(const cJSON* f) { return cJSON_GetObjectItemCaseSensitive(f, "properties"); }
const cJSON* coords(const cJSON* f) {
  return cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(f, "geometry"), "coordinates");
}
double num(const cJSON* o, const char* key) { return cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(o, key)); }

TEST(MapViewGeojson, EveryOffsetChoiceLandsWhereTheCodecPutsIt) {
  v2xtest::TempDir dir;
  Frame frame(testFrame());
  const Bytes uper = encode(asn_DEF_MessageFrame, frame.p);
  const Bytes xer = encode(asn_DEF_MessageFrame, frame.p, ATS_BASIC_XER);
  v2xtest::writeFile(dir.file("map.uper"), std::string(uper.begin(), uper.end()));
  v2xtest::writeFile(dir.file("map.xml"), std::string(xer.begin(), xer.end()));

  const ToolRun run = runTool(dir, {"geojson", dir.file("map.uper")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(runTool(dir, {"geojson", dir.file("map.xml")}).out, run.out);  // XER gives the same collection

  const Json doc = parse(run.out);
  ASSERT_TRUE(doc) << run.out;
  EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(doc.get(), "type")), "FeatureCollection");
  ASSERT_EQ(cJSON_GetArraySize(features(doc)), 3);
  const cJSON* node = cJSON_GetArrayItem(features(doc), 0);
  const cJSON* link = cJSON_GetArrayItem(features(doc), 1);
  const cJSON* lane = cJSON_GetArrayItem(features(doc), 2);
  EXPECT_EQ(print(node), R"({"type":"Feature","geometry":{"type":"Point","coordinates":[121,31,5]},)"
                         R"("properties":{"kind":"node","nodeId":7,"region":3,"name":"Test Rd","linkCount":1}})");
  EXPECT_EQ(print(props(link)),
            R"({"kind":"link","nodeId":7,"linkIndex":0,"region":3,"name":"West approach ~","upstreamNode":{"id":8},)"
            R"("linkWidth":700,)"
            R"("laneCount":1})");
  EXPECT_EQ(print(props(lane)),
            R"({"kind":"lane","nodeId":7,"linkIndex":0,"laneId":4,"region":3,"laneWidth":300,"laneType":"bikeLane",)"
            R"("laneAttributes":["pedestrianUseAllowed"],"maneuvers":["maneuverStraightAllowed",)"
            R"("maneuverLeftAllowed","reserved1"],"connectsTo":[{"remoteNode":{"id":9},"laneId":2,"phaseId":5}],)"
            R"("speedLimits":[{"type":"vehicleMaxSpeed","speed":833,"kmh":60}]})");
  EXPECT_EQ(cJSON_GetArraySize(coords(link)), 2);

  const cJSON* points = coords(lane);
  ASSERT_EQ(cJSON_GetArraySize(points), static_cast<int>(std::size(kPoints)));
  for (size_t i = 0; i < std::size(kPoints); i++) {
    const PointCase& c = kPoints[i];
    SCOPED_TRACE("offset choice " + std::to_string(c.ll));
    const bool absolute = c.ll == PositionOffsetLL_PR_position_LatLon;
    const long lon = absolute ? c.lon : kRefLon + c.lon, lat = absolute ? c.lat : kRefLat + c.lat;
    const long elev = c.v == VerticalOffset_PR_elevation ? c.dv : kRefElev + c.dv;
    const cJSON* p = cJSON_GetArrayItem(points, static_cast<int>(i));
    ASSERT_EQ(cJSON_GetArraySize(p), 3);
    EXPECT_NEAR(cJSON_GetArrayItem(p, 0)->valuedouble, lon * 1e-7, 5e-8);  // longitude first
    EXPECT_NEAR(cJSON_GetArrayItem(p, 1)->valuedouble, lat * 1e-7, 5e-8);
    EXPECT_NEAR(cJSON_GetArrayItem(p, 2)->valuedouble, elev * 0.1, 1e-6);
  }
}

// The cloud document read with the service's reader: every lane point where the
// document put it (the reader truncates to 1e-7 degree), longitude first.
TEST(MapViewGeojson, CloudDocumentLanesKeepTheirPositions) {
  v2xtest::TempDir dir;
  const std::string sample = V2X_SOURCE_DIR "/etc/samples/map_4x.json";
  const ToolRun run = runTool(dir, {"geojson", sample});
  ASSERT_EQ(run.status, 0) << run.err;
  const Json out = parse(run.out);
  const Json in = parse(v2xtest::readFile(sample));
  ASSERT_TRUE(out && in);
  const cJSON* nodes = cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(in.get(), "map"), "nodes");
  int lanes = 0;
  const cJSON* f = nullptr;
  cJSON_ArrayForEach(f, features(out)) {
    if (std::string(cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(props(f), "kind"))) != "lane") continue;
    lanes++;
    const cJSON* node = nullptr;
    cJSON_ArrayForEach(node, nodes) {
      if (num(cJSON_GetObjectItemCaseSensitive(node, "id"), "id") == num(props(f), "nodeId")) break;
    }
    ASSERT_NE(node, nullptr);
    const cJSON* link = cJSON_GetArrayItem(cJSON_GetObjectItemCaseSensitive(node, "inLinks"),
                                           static_cast<int>(num(props(f), "linkIndex")));
    const cJSON* lane = nullptr;
    cJSON_ArrayForEach(lane, cJSON_GetObjectItemCaseSensitive(link, "lanes")) {
      if (num(lane, "laneId") == num(props(f), "laneId")) break;
    }
    ASSERT_NE(lane, nullptr);
    const cJSON* want = cJSON_GetObjectItemCaseSensitive(lane, "points");
    ASSERT_EQ(cJSON_GetArraySize(coords(f)), cJSON_GetArraySize(want));
    for (int i = 0; i < cJSON_GetArraySize(want); i++) {
      const cJSON* got = cJSON_GetArrayItem(coords(f), i);
      EXPECT_NEAR(cJSON_GetArrayItem(got, 0)->valuedouble, num(cJSON_GetArrayItem(want, i), "lon"), 1.01e-7);
      EXPECT_NEAR(cJSON_GetArrayItem(got, 1)->valuedouble, num(cJSON_GetArrayItem(want, i), "lat"), 1.01e-7);
    }
  }
  EXPECT_EQ(lanes, 16);
  EXPECT_EQ(cJSON_GetArraySize(features(out)), 4 + 8 + 16);
}

TEST(MapViewGeojson, BadInputEndsWithOneLineAndAnErrorStatus) {
  v2xtest::TempDir dir;
  v2xtest::writeFile(dir.file("garbage"), std::string("\x17\x99\x00\x42", 4));
  v2xtest::writeFile(dir.file("cut.json"), R"({"map":{"nodes":[)");
  v2xtest::writeFile(dir.file("noid.json"), R"({"map":{"nodes":[{"refPos":{"lon":121,"lat":31}}]}})");
  v2xtest::writeFile(dir.file("map.json"), R"({"map":{"nodes":[]}})");
  v2xtest::writeFile(dir.file("faults.json"), R"({"findings":[{"path":"nodes[0]"}]})");
  const std::vector<ToolFailure> cases = {
      {{"geojson", dir.file("missing")}, 1, "cannot open"},
      {{"geojson", dir.file("garbage")}, 1, "not a valid UPER MessageFrame"},
      {{"view", dir.file("cut.json")}, 1, "not a JSON object"},
      {{"geojson", dir.file("noid.json")}, 1, "error code 2 (NODE id error)"},
      {{"view", dir.file("map.json"), "--faults", dir.file("faults.json")}, 1, "not a list of findings"},
      {{"view", dir.file("map.json"), "--size", "90x9000"}, 2, "--size takes"},
      {{"geojson", dir.file("map.json"), "-o"}, 2, "-o needs a file name"},
      {{"view"}, 2, "no input file"},
  };
  expectToolFailures(dir, cases);
}

}  // namespace
