// The map-down reader: how far each fault reaches, the code it leaves, and the
// values (scaling, bit strings, enumerations) that end up in the map.
#include <cstring>
#include <functional>
#include <regex>
#include <sstream>
#include <vector>

#include "mapdown_fixture.h"

namespace mapdown_test {
namespace {

// The first node, its number of links (-1: no list), its first link and that link's first lane.
Node_t* firstNode(MapData_t& m) { return m.nodes.list.count > 0 ? m.nodes.list.array[0] : nullptr; }
int linkCount(MapData_t& m) { return firstNode(m) && firstNode(m)->inLinks ? firstNode(m)->inLinks->list.count : -1; }
Link_t* firstLink(MapData_t& m) { return linkCount(m) > 0 ? firstNode(m)->inLinks->list.array[0] : nullptr; }
Lane_t* firstLane(MapData_t& m) {
  return firstLink(m) && firstLink(m)->lanes.list.count > 0 ? firstLink(m)->lanes.list.array[0] : nullptr;
}

const char* kLink = R"({"upstreamNodeId":{"id":8},"linkWidth":700})";
const char* kNode2 = R"({"id":{"id":9},"refPos":{"lon":121.17,"lat":31.29}})";

std::string twoNodes(const std::string& node1, const std::string& node2) {
  return R"({"eTag":"e1","map":{"nodes":[)" + node1 + "," + node2 + "]}}";
}
std::string nodeWithPos(const std::string& refPos) { return R"({"id":{"id":7},"refPos":)" + refPos + "}"; }

struct ReachCase {
  const char* name;
  std::string doc;
  int32 ret;
  int32 code;
  std::string log;  // lines ("Reader:text", one per '\n') the fault leaves, under the public reader's name
  std::function<void(MapData_t&)> check = nullptr;  // what is left in the map
};

void PrintTo(const ReachCase& c, std::ostream* os) { *os << c.name; }

class ReachTest : public MapDownTest, public ::testing::WithParamInterface<ReachCase> {};

TEST_P(ReachTest, ResultCodeAndWhatIsKept) {
  const ReachCase& c = GetParam();
  v2xmapconv_SetErrorCode(ERROR_CODE_SET_MAP_CFG);  // a previous document's code never survives
  EXPECT_EQ(read(c.doc), c.ret);
  EXPECT_EQ(v2xmapconv_GetErrorCode(), c.code);
  const std::string log = logText();
  std::istringstream lines(c.log);
  for (std::string line; std::getline(lines, line);) {
    const size_t colon = line.find(':');
    const std::regex want(std::string(":").append(line, 0, colon).append(":[0-9]+:").append(line, colon + 1));
    EXPECT_TRUE(std::regex_search(log, want)) << line << "\n" << log;
  }
  // A line written by a shared step or a private helper still names the reader.
  EXPECT_FALSE(std::regex_search(log, std::regex(R"(\[DOWN\][^:]*:(read[A-Za-z]*|operator\(\)):)"))) << log;
  if (c.check) c.check(frame_.map());
}

const ReachCase kReachCases[] = {
    {"not_json", "{\"eTag\":", -2, 0, "v2xmapconv_MapDownJsonToStruct:cJSON_Parse Error!"},
    {"etag_absent", R"({"mapSlice":"1","map":{"nodes":[]}})", -3, 1,
     "v2xmapconv_MapDownJsonToStruct:GetMapEtagFromJson return failed!"},
    {"etag_not_text", R"({"eTag":12,"map":{"nodes":[]}})", -3, 1, "GetMapEtagFromJson:Get eTag error!"},
    {"map_absent", R"({"eTag":"e1"})", -3, 0, "GetMapFromJson:Parse nodes error!"},
    {"nodes_absent", R"({"eTag":"e1","map":{}})", -3, 0, "GetMapFromJson:GetNodesFromJson return failed!"},
    {"nodes_empty", R"({"eTag":"e1","map":{"nodes":[]}})", 0, 0, "",
     [](MapData_t& m) { EXPECT_EQ(m.nodes.list.count, 0); }},
    {"etag_unchanged_body_ignored", R"({"eTag":"stored-etag","map":{}})", -18, 0,
     "v2xmapconv_MapDownJsonToStruct:The etag of map is consistent, no need to update map! "},
    {"second_node_id_absent", twoNodes(kNode2, R"({"refPos":{"lon":1,"lat":1}})"), -3, 2,
     "GetIdFromNodesJson:Get id item failed!"},
    {"refpos_absent", twoNodes(kNode2, R"({"id":{"id":1}})"), -9, 3, "GetRefPosFromNodesJson:Get refPos item failed!"},
    {"lon_absent", twoNodes(kNode2, nodeWithPos(R"({"lat":1})")), -4, 4,
     "GetRefPosFromNodesJson:Get refPos->lon item failed!\n"
     "GetNodesFromJson:GetRefPosFromNodesJson return failed!"},
    {"lon_out_of_range", twoNodes(kNode2, nodeWithPos(R"({"lon":180.0000002,"lat":1})")), -3, 4,
     "GetRefPosFromNodesJson:error: longitude out of range"},
    {"lat_absent", twoNodes(kNode2, nodeWithPos(R"({"lon":1})")), -6, 5,
     "GetRefPosFromNodesJson:Get refPos->lat item failed!"},
    {"lat_out_of_range", twoNodes(kNode2, nodeWithPos(R"({"lon":1,"lat":-90.0000001})")), -5, 5,
     "GetRefPosFromNodesJson:error: latitude out of range"},
    {"ele_out_of_range", twoNodes(kNode2, nodeWithPos(R"({"lon":1,"lat":1,"ele":6144})")), -7, 6,
     "GetRefPosFromNodesJson:error: elevation out of range"},
    {"huge_lon_saturates_and_fails", twoNodes(kNode2, nodeWithPos(R"({"lon":1e300,"lat":1})")), -3, 4, ""},
    {"inlinks_absent_node_kept", twoNodes(kNode2, kNode2), 0, 0, "GetInLinksFromNodesJson:Get inLinks item failed!",
     [](MapData_t& m) {
       EXPECT_EQ(m.nodes.list.count, 2);
       EXPECT_EQ(firstNode(m)->inLinks, nullptr);
     }},
    {"second_link_without_width",
     twoNodes(R"({"id":{"id":1},"refPos":{"lon":1,"lat":1},"inLinks":[)" + std::string(kLink) +
                  R"(,{"upstreamNodeId":{"id":3}},)" + kLink + "]}",
              kNode2),
     0, 8, "GetInLinksFromNodesJson:GetLinkWidthFromLinkJson return failed!",
     [](MapData_t& m) {
       EXPECT_EQ(linkCount(m), 1);
       EXPECT_EQ(m.nodes.list.count, 2);  // the next node is still read
     }},
    {"first_link_without_upstream", docWithLinks(R"([{"linkWidth":700},)" + std::string(kLink) + "]"), 0, 7,
     "GetUpstreamNodeIdFromLinkJson:Get link->upstreamNodeId item failed!\n"
     "GetInLinksFromNodesJson:GetUpstreamNodeIdFromLinkJson return failed!",
     [](MapData_t& m) { EXPECT_EQ(linkCount(m), 0); }},
    {"lane_without_id_drops_link", docWithLanes(R"([{"laneId":1},{"laneWidth":300}])"), 0, 9,
     "GetLaneIdFromLaneJson:Get lan->laneID item error", [](MapData_t& m) { EXPECT_EQ(linkCount(m), 0); }},
    {"link_name_not_text", docWithLanes("[]", R"("name":5,)"), 0, 0,
     "GetNameFromLinkJson:link name is not a text, ignored",
     [](MapData_t& m) { EXPECT_EQ(firstLink(m)->name, nullptr); }},
    {"speed_out_of_range", docWithLanes("[]", R"("speedLimits":[{"type":"truckMaxSpeed","speed":9000}],)"), 0, 10,
     "GetSpeedLimitsFromJson:error: speed out of range",
     [](MapData_t& m) {
       ASSERT_NE(firstLink(m), nullptr);
       EXPECT_EQ(firstLink(m)->speedLimits->list.count, 0);
     }},
    {"second_speed_limit_without_type",
     docWithLanes("[]", R"("speedLimits":[{"type":5,"speed":500},{"speed":1},{"type":5,"speed":2}],)"), 0, 10,
     "GetSpeedLimitsFromJson:Get speedLimit->type item failed!",
     [](MapData_t& m) { EXPECT_EQ(firstLink(m)->speedLimits->list.count, 1); }},
    {"lane_speed_limit_without_speed", docWithLanes(R"([{"laneId":1,"speedLimits":[{"type":5}]}])"), 0, 10,
     "GetSpeedLimitsFromJson:Get speedLimit->speed item failed!",
     [](MapData_t& m) { ASSERT_NE(firstLane(m), nullptr); }},
    {"movement_phase_256_kept",
     docWithLanes("[]", R"("movements":[{"remoteIntersection":{"id":3},"phaseId":256},{"phaseId":2}],)"), 0, 11,
     "GetPhaseIdFromMovementJson:error: phaseId out of range\n"
     "GetRemoteIntersectionFromMovementJson:Get link->upstreamNodeId item failed!",
     [](MapData_t& m) {
       MovementList* mv = firstLink(m)->movements;
       ASSERT_EQ(mv->list.count, 2);
       EXPECT_EQ(*mv->list.array[0]->phaseId, 256);
       EXPECT_EQ(mv->list.array[1]->remoteIntersection.id, 0);
     }},
    {"lane_optionals_absent_connecting_lane_without_id",
     docWithLanes(R"([{"laneId":3,"laneAttributes":{},)"
                  R"("connectsTo":[{"remoteIntersection":{"id":5},"connectingLane":{"maneuvers":2048}}]}])"),
     0, 0,
     "GetLaneTypeFromLaneAttributesJson:Get laneAttributes->laneType item error\n"
     "GetLaneIdFromConnectingLaneJson:Get laneId item failed!",
     [](MapData_t& m) {
       Lane_t* lane = firstLane(m);
       EXPECT_TRUE(lane->laneID == 3 && !lane->laneWidth && !lane->maneuvers && !lane->laneAttributes->shareWith);
       EXPECT_EQ(lane->laneAttributes->laneType.present, LaneTypeAttributes_PR_NOTHING);
       ConnectingLane_t* cl = lane->connectsTo->list.array[0]->connectingLane;
       EXPECT_TRUE(cl->lane == 0 && cl->maneuver == nullptr);
     }},
    {"lane_width_40000_kept", docWithLanes(R"([{"laneId":3,"laneWidth":40000}])"), 0, 13,
     "GetLaneWidthFromLaneJson:error: laneWidth out of range",
     [](MapData_t& m) { EXPECT_EQ(*firstLane(m)->laneWidth, 40000); }},
    {"connection_phase_300_kept",
     docWithLanes(R"([{"laneId":3,"connectsTo":[{"remoteIntersection":{"id":5},"phaseId":300}]}])"), 0, 14,
     "GetPhaseIdFromConnectionJson:error: phaseId out of range",
     [](MapData_t& m) { EXPECT_EQ(*firstLane(m)->connectsTo->list.array[0]->phaseId, 300); }},
    {"connection_without_remote_ends_list",
     docWithLanes(R"([{"laneId":3,"connectsTo":[{"phaseId":1},{"remoteIntersection":{"id":5}}]}])"), 0, 0,
     "GetRemoteIntersectionFromConnectionJson:Get remoteIntersection item failed!",
     [](MapData_t& m) { EXPECT_EQ(firstLane(m)->connectsTo->list.count, 0); }},
    {"link_point_without_lon", docWithLanes("[]", R"("points":[{"lat":1}],)"), 0, 15,
     "GetPointsFromJson:Get points->lon item failed!",
     [](MapData_t& m) { EXPECT_EQ(firstLink(m)->points->list.count, 0); }},
    {"lane_second_point_without_lat",
     docWithLanes(R"([{"laneId":1,"points":[{"lon":1,"lat":1},{"lon":1},{"lon":2,"lat":2}]}])"), 0, 16,
     "GetPointsFromJson:Get points->lat item failed!",
     [](MapData_t& m) { EXPECT_EQ(firstLane(m)->points->list.count, 1); }},
    {"point_elevation_below_range", docWithLanes(R"([{"laneId":1,"points":[{"lon":116.3,"lat":39.9,"ele":-500}]}])"), 0,
     17, "GetPointsFromJson:error: elevation out of range",
     [](MapData_t& m) { EXPECT_EQ(firstLane(m)->points->list.count, 0); }},
    {"later_problem_wins", docWithLanes(R"([{"laneId":1,"laneWidth":-1}])", R"("points":[{"lon":1,"lat":91}],)"), 0, 13,
     "GetPointsFromJson:error: latitude out of range"},
};

INSTANTIATE_TEST_SUITE_P(MapDown, ReachTest, ::testing::ValuesIn(kReachCases),
                         [](const ::testing::TestParamInfo<ReachCase>& info) { return std::string(info.param.name); });

// --- values ---------------------------------------------------------------

TEST_F(MapDownTest, EnvelopeAndScaling) {
  // Envelope values of other types count as absent.
  ASSERT_EQ(read(R"({"mapSlice":3,"ack":"true","seqNum":5,"eTag":"e1","map":{"nodes":[]}})"), 0);
  EXPECT_EQ(record_.mapSlice, 0);
  EXPECT_FALSE(record_.ack);
  EXPECT_STREQ(record_.seqNum, "");
  EXPECT_NE(logText().find("Get mapSlice error!"), std::string::npos);
  ASSERT_EQ(read(R"({"mapSlice":"-1","eTag":"e1","map":{"nodes":[]}})"), 0);
  EXPECT_EQ(record_.mapSlice, 255);

  std::string doc = R"({"MAPSLICE":"258","ack":true,"seqNum":"0123456789012345678901234567890123456789","etag":")" +
                    std::string(70, 'x') +
                    R"(","map":{"nodes":[{"name":"Node A","id":{"region":3,"id":7},)"
                    R"("refPos":{"lon":116.3,"lat":-0.00000009,"ele":35.57},"inLinks":[]}]}})";
  ASSERT_EQ(read(doc), 0);
  EXPECT_EQ(record_.mapSlice, 2);  // modulo 256
  EXPECT_TRUE(record_.ack);
  EXPECT_EQ(std::string(record_.seqNum), std::string("0123456789012345678901234567890"));
  EXPECT_EQ(std::string(record_.eTag), std::string(63, 'x'));
  Node_t* n = firstNode(frame_.map());
  EXPECT_EQ(n->refPos.Long, 1163000000);
  EXPECT_EQ(n->refPos.lat, 0);  // truncated toward zero
  EXPECT_EQ(*n->refPos.elevation, 355);
  EXPECT_EQ(*n->id.region, 3);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(n->name->buf), n->name->size), "Node A");
  EXPECT_EQ(frame_.map().timeStamp, nullptr);
}

struct BitCase {
  const char* lane;  // lane keys besides "laneId"
  std::function<BIT_STRING_t*(Lane_t&)> field;
  std::vector<uint8_t> bytes;
  int unused;
};

TEST_F(MapDownTest, BitStringsPerKey) {
  auto share = [](Lane_t& l) { return l.laneAttributes->shareWith; };
  auto vehicle = [](Lane_t& l) {
    EXPECT_EQ(l.laneAttributes->laneType.present, LaneTypeAttributes_PR_vehicle);
    return &l.laneAttributes->laneType.choice.vehicle;
  };
  const BitCase cases[] = {
      {R"("laneAttributes":{"shareWith":32768,"laneType":{}})", share, {0x80, 0x00}, 6},
      {R"("laneAttributes":{"shareWith":1023,"laneType":{}})", share, {0x03, 0xFF}, 6},
      {R"("laneAttributes":{"laneType":{"vehicle":128}})", vehicle, {0x80}, 0},
      {R"("laneAttributes":{"laneType":{"bikeLane":1,"vehicle":128}})", vehicle, {0x80}, 0},
      {R"("laneAttributes":{"laneType":{"parking":258,"median":1}})",
       [](Lane_t& l) {
         EXPECT_EQ(l.laneAttributes->laneType.present, LaneTypeAttributes_PR_median);
         return &l.laneAttributes->laneType.choice.median;
       },
       {0x00, 0x01},
       0},
      {R"("maneuvers":2048)", [](Lane_t& l) { return l.maneuvers; }, {0x80, 0x00}, 4},
      {R"("maneuvers":1)", [](Lane_t& l) { return l.maneuvers; }, {0x00, 0x10}, 4},
      {R"("connectsTo":[{"remoteIntersection":{"id":5},"connectingLane":{"laneId":2,"maneuvers":1024}}])",
       [](Lane_t& l) { return l.connectsTo->list.array[0]->connectingLane->maneuver; },
       {0x40, 0x00},
       4},
  };
  for (const BitCase& c : cases) {
    SCOPED_TRACE(c.lane);
    ASSERT_EQ(read(docWithLanes(std::string(R"([{"laneId":1,)") + c.lane + "}]")), 0);
    ASSERT_NE(firstLane(frame_.map()), nullptr);
    BIT_STRING_t* bs = c.field(*firstLane(frame_.map()));
    ASSERT_NE(bs, nullptr);
    EXPECT_EQ(std::vector<uint8_t>(bs->buf, bs->buf + bs->size), c.bytes);
    EXPECT_EQ(bs->bits_unused, c.unused);
  }
}

TEST_F(MapDownTest, SpeedLimitTypesAndAbsolutePoints) {
  ASSERT_EQ(
      read(docWithLanes("[]", R"("speedLimits":[{"type":"vehicleMaxSpeed","speed":1},)"
                              R"({"type":"truckMaxSpeed","speed":2},{"type":"vehicleMinSpeed","speed":3},)"
                              R"({"type":"TruckMaxSpeed","speed":4},{"type":4,"speed":5},{"type":true,"speed":6}],)"
                              R"("points":[{"lon":116.3,"lat":39.9},)"
                              R"({"lon":-0.00000015,"lat":-33.8688197,"ele":-0.19}],)")),
      0);
  SpeedLimitList* sl = firstLink(frame_.map())->speedLimits;
  ASSERT_EQ(sl->list.count, 6);
  const long types[] = {5, 8, 0, 0, 4, 0};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(sl->list.array[i]->type, types[i]) << i;
    EXPECT_EQ(sl->list.array[i]->speed, i + 1);
  }
  PointList* pl = firstLink(frame_.map())->points;
  ASSERT_EQ(pl->list.count, 2);
  // Absolute points are scaled as in the store test's realistic map; without "ele" there is no offsetV.
  EXPECT_EQ(pl->list.array[0]->posOffset.offsetLL.present, PositionOffsetLL_PR_position_LatLon);
  EXPECT_EQ(pl->list.array[0]->posOffset.offsetV, nullptr);
  const PositionOffsetLLV_t& p1 = pl->list.array[1]->posOffset;
  EXPECT_EQ(p1.offsetLL.choice.position_LatLon.lon, -1);
  EXPECT_EQ(p1.offsetLL.choice.position_LatLon.lat, -338688197);
  ASSERT_NE(p1.offsetV, nullptr);
  EXPECT_EQ(p1.offsetV->present, VerticalOffset_PR_elevation);
  EXPECT_EQ(p1.offsetV->choice.elevation, -1);
}

// --- error codes and acknowledgement -----------------------------------------

TEST_F(MapDownTest, AcknowledgementText) {
  struct AckCase {
    int32 code;
    const char* seqNum;
    const char* text;
  };
  const AckCase cases[] = {
      {0, "42", R"({"seqNum":"42"})"},
      {5, "42", R"({"seqNum":"42","errorCode":1,"errorDesc":"NODE refPos latitude error"})"},
      {8, "", R"({"seqNum":"","errorCode":1,"errorDesc":"NODE Link linkwidth"})"},
      {9, "7", R"({"seqNum":"7","errorCode":1,"errorDesc":"NODE Link lanes error"})"},
      {18, "a\"b", R"({"seqNum":"a\"b","errorCode":1,"errorDesc":"Set MAP config error"})"},
  };
  for (const AckCase& c : cases) {
    v2xcloud_map_data_t data{};
    std::snprintf(data.seqNum, sizeof(data.seqNum), "%s", c.seqNum);
    ASSERT_EQ(v2xmapconv_SetErrorCode(c.code), 0);
    char text[256];
    int32 len = v2xmapconv_MapDownAckBuild(&data, text, sizeof(text));
    EXPECT_STREQ(text, c.text);
    EXPECT_EQ(len, static_cast<int32>(std::strlen(c.text)));
  }
  v2xcloud_map_data_t data{};
  char small[8];
  EXPECT_EQ(v2xmapconv_MapDownAckBuild(&data, small, sizeof(small)), -3);
  // Codes outside the table are refused, so the text is never looked up out of range.
  EXPECT_EQ(v2xmapconv_SetErrorCode(19), -2);
  EXPECT_EQ(v2xmapconv_SetErrorCode(-1), -2);
  EXPECT_EQ(v2xmapconv_GetErrorCode(), 18);
}

TEST_F(MapDownTest, AcknowledgementWithoutDdsIsLoggedNotSent) {
  v2xcloud_map_data_t data{};
  EXPECT_EQ(v2xmapconv_MapDownAckToCloud(nullptr), -2);
  EXPECT_EQ(v2xmapconv_MapDownAckToCloud(&data), -1);
  EXPECT_NE(logText().find("Get ddsinfo failed!"), std::string::npos);
}

}  // namespace
}  // namespace mapdown_test
