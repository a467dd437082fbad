// Builder and queries together: what the builder attaches reads back through
// the queries (bit strings on purpose not inverse), indexes outside a list
// read nothing, bad arguments are refused, and trace lines keep their names.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "MessageFrame.h"
#include "maplib_test_util.h"
#include "v2x_asn_codec.h"
#include "v2xapp_gbmap_query.h"

using namespace maplibtest;

namespace {

// Vector D2's elements (fact sheet), its points absolute, plus a link name, a
// second link speed limit and a lane speed limit.
struct D2 {
  V2XAPP_GBMHANDLE map = nullptr, node = nullptr, link = nullptr, lane = nullptr, movement = nullptr, conn = nullptr;
  D2() {
    uint64_t region = 10, phase = 7, share = 0x0010, maneuvers = 0x3012, connManeuver = 0x0040;
    int64_t elev = 0;
    uint16_t absolute = V2XAPP_GBMAP_ELEV_ABS, offset3 = 3;
    v2xapp_GBMapStrInit(&map);
    v2xapp_GBMapNodeInit(&node, 19, &region, reinterpret_cast<uint8_t*>(const_cast<char*>("N1")), 2);
    v2xapp_GBMapNodeSetRefPos(node, 397870006, 1165119042, &elev);
    v2xapp_GBMapLinkInit(&link);
    v2xapp_GBMapLinkSetName(link, reinterpret_cast<uint8_t*>(const_cast<char*>("L18")), 3);
    v2xapp_GBMapLinkSetUpStreamNodeID(link, 18, &region);
    v2xapp_GBMapLinkAddSpeedLimits(link, 5, 833);
    v2xapp_GBMapLinkAddSpeedLimits(link, 8, 555);
    v2xapp_GBMapLinkSetlinkWidth(link, 660);
    v2xapp_GBMapLinkAddPoint(link, V2XAPP_GBMAP_POS_LATLON, 397870206, 1165118942, &absolute, 100);
    v2xapp_GBMapLinkAddPoint(link, 3, 1, 2, &offset3, 9);  // no position, empty vertical part
    v2xapp_GBMapLinkMovementInit(&movement, 12, &region);
    v2xapp_GBMapLinkMovementSetPhaseID(movement, phase);
    v2xapp_GBMapLinkAddMovement(link, movement);
    v2xapp_GBMapLinkLaneInit(&lane, 1);
    v2xapp_GBMapLinkLaneSetLaneWidth(lane, 330);
    v2xapp_GBMapLinkLaneSetLaneAttributes(lane, V2XAPP_GBMAP_LANE_VEHICLE, 0, &share);
    v2xapp_GBMapLaneSetManeuvers(lane, &maneuvers);
    v2xapp_GBMapLaneAddSpeedLimit(lane, 5, 700);
    v2xapp_GBMapLaneConnectToInit(&conn, 12, nullptr);
    v2xapp_GBMapLaneConnectToSetConnectingLane(conn, 1, &connManeuver);
    v2xapp_GBMapLaneConnectToSetPhaseID(conn, &phase);
    v2xapp_GBMapLaneAddConnectTo(lane, conn);
    v2xapp_GBMapLaneAddPoint(lane, V2XAPP_GBMAP_POS_LATLON, 397868872, 1165120283, &absolute,
                             static_cast<uint64_t>(-5));
    v2xapp_GBMapLaneAddPoint(lane, 3, 1, 2, &offset3, 9);  // no position, vertical part of kind 3, value unset
    v2xapp_GBMapLinkAddlane(link, lane);
    v2xapp_GBMapNodeAddLink(node, link);
    v2xapp_GBMapAddNode(map, node);
  }
  ~D2() { v2xapp_GBMapStrDel(&map); }
};

TEST(BuildAndQuery, ElementsReadBackThroughTheQueries) {
  D2 m;
  uint32_t count = 0;
  int16_t s16 = 0, s16b = 0;
  uint16_t region = 0, id = 0, u16 = 0, u16b = 0;
  int32_t s32 = 0, s32b = 0, s32c = 0;
  int64_t lat = 0, lon = 0, elev = -1;
  bool has = false, has2 = false;
  V2XAPP_GBMHANDLE h = nullptr;
  char name[V2XAPP_GBMAP_NAME_MAX + 1] = {};

  EXPECT_TRUE(v2xapp_GBMapGetNodesCnt(m.map, &count) == 0 && count == 1U);
  EXPECT_TRUE(v2xapp_GBMapGetNodeByIndex(m.map, 0, &h) == 0 && h == m.node);
  EXPECT_TRUE(v2xapp_GBMapNodeGetRefPos(m.node, &lat, &lon, &has, &elev) == 0 && lat == 397870006 &&
              lon == 1165119042 && has && elev == 0);
  EXPECT_TRUE(v2xapp_GBMapGetNodeName(m.node, &has, name) == 0 && has && std::string(name) == "N1");
  EXPECT_TRUE(v2xapp_GBMapGetNodeReginId(m.node, &has, &region, &id) == 0 && has && region == 10 && id == 19);
  EXPECT_TRUE(v2xapp_GBMapGetNodePos3d(m.node, &s32, &s32b, &has, &s32c) == 0 && s32 == 1165119042 &&
              s32b == 397870006 && has && s32c == 0);
  EXPECT_TRUE(v2xapp_GBMapNodeGetLinkByIndex(m.node, 0, &h) == 0 && h == m.link);

  std::memset(name, 0, sizeof(name));
  EXPECT_TRUE(v2xapp_GBMapGetLinkName(m.link, &has, name) == 0 && has && std::string(name) == "L18");
  EXPECT_TRUE(v2xapp_GBMapGetLinkReginId(m.link, &has, &region, &id) == 0 && has && region == 10 && id == 18);
  // Kept in the order added.
  EXPECT_TRUE(v2xapp_GBMapGetLinkSpeedLimits(m.link, 0, &s16, &s16b) == 0 && s16 == 5 && s16b == 833);
  EXPECT_TRUE(v2xapp_GBMapGetLinkSpeedLimits(m.link, 1, &s16, &s16b) == 0 && s16 == 8 && s16b == 555);
  EXPECT_TRUE(v2xapp_GBMapLinkGetSpeedLimitByIndex(m.link, 1, &h) == 0 &&
              static_cast<RegulatorySpeedLimit_t*>(h)->speed == 555);
  EXPECT_TRUE(v2xapp_GBMapGetLinkWidth(m.link, &has, &s16) == 0 && has && s16 == 660);
  v2xapp_gbMsg_PosStr_t pt{};
  EXPECT_TRUE(v2xapp_GBMapLinkGetPointByIndex(m.link, 0, &pt) == 0 && pt.m_codeType == 7 && pt.m_lat == 397870206 &&
              pt.m_lon == 1165118942 && pt.m_isContainV && pt.m_elevType == 7 && pt.m_elev == 100);
  // A link point's kind is 7 or nothing.
  EXPECT_TRUE(v2xapp_GBMapLinkGetPointByIndex(m.link, 1, &pt) == 0 && pt.m_codeType == 0 && pt.m_isContainV &&
              pt.m_elevType == 0);
  uint8_t phase = 0;
  EXPECT_TRUE(v2xapp_GBMapLinkGetMovementsPhaseIdByIndex(m.link, 0, &has, &phase) == 0 && has && phase == 7);
  EXPECT_TRUE(v2xapp_GBMapLinkGetMovementsRegionIdByIndex(m.link, 0, &has, &region, &id) == 0 && has && region == 10 &&
              id == 12);

  EXPECT_TRUE(v2xapp_GBMapLinkGetLaneByIndex(m.link, 0, &h) == 0 && h == m.lane);
  EXPECT_TRUE(v2xapp_GBMapGetLaneWidth(m.lane, &has, &s16) == 0 && has && s16 == 330);
  int8_t type8 = 0;
  EXPECT_TRUE(v2xapp_GBMapGetLaneSpeedLimits(m.lane, 0, &type8, &s16) == 0 && type8 == 5 && s16 == 700);
  EXPECT_TRUE(v2xapp_GBMapLaneGetPointByIndex(m.lane, 1, &pt) == 0 && pt.m_codeType == 0 && pt.m_isContainV &&
              pt.m_elevType == 3 && pt.m_elev == 0);
  EXPECT_TRUE(v2xapp_GBMapGetConnectToReginId(m.lane, 0, &has, &region, &id) == 0 && !has && region == 65535 &&
              id == 12);
  EXPECT_TRUE(v2xapp_GBMapGetConnectToPhaseId(m.lane, 0, &has, &s16) == 0 && has && s16 == 7);
  // Bit strings read back first octet first: 0x0040 went in lowest byte first,
  // the lane's 0x3012 as octets 0x12 0x30.
  EXPECT_TRUE(v2xapp_GBMapGetConnectToLaneInfo(m.lane, 0, &has, &s16, &has2, &u16) == 0 && has && s16 == 1 && has2 &&
              u16 == 0x4000);
  EXPECT_TRUE(v2xapp_GBMapGetConnectToAllowedManeuvers(m.lane, &u16) == 0 && u16 == 0x1230);
  u16b = 0x3FF;
  EXPECT_TRUE(v2xapp_GBMapGetLaneAttrs(m.lane, &has, &u16, &region, &has2, &u16b) == 0 && has &&
              u16 == V2XAPP_GBMAP_LANE_VEHICLE && region == 0 && has2 && u16b == 0);  // sharing bits: always 0
}

TEST(BuildAndQuery, BitStringsGoInMemoryOrderAndReadBackFirstOctetFirst) {
  struct Case {
    uint16_t type;
    int octets, unused;
    uint16_t readBack;  // of 0x0102
  } cases[] = {{1, 1, 0, 0x02},   {2, 2, 7, 0x0201}, {3, 1, 1, 0x02}, {4, 1, 4, 0x02},
               {5, 2, 6, 0x0201}, {6, 1, 2, 0x02},   {7, 1, 3, 0x02}, {8, 1, 1, 0x02}};
  V2XAPP_GBMHANDLE lane = nullptr;
  ASSERT_EQ(0, v2xapp_GBMapLinkLaneInit(&lane, 1));
  auto* l = static_cast<Lane_t*>(lane);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    ASSERT_EQ(0, v2xapp_GBMapLinkLaneSetLaneAttributes(lane, c.type, 0x0102, nullptr));
    const BIT_STRING_t& bits = l->laneAttributes->laneType.choice.vehicle;  // every choice sits there
    ASSERT_EQ(c.octets, bits.size);
    EXPECT_EQ(0x02, bits.buf[0]);
    EXPECT_EQ(c.unused, bits.bits_unused);
    bool has = false, share = true;
    uint16_t type = 0, value = 0, shareBits = 0;
    ASSERT_EQ(0, v2xapp_GBMapGetLaneAttrs(lane, &has, &type, &value, &share, &shareBits));
    EXPECT_TRUE(type == c.type && value == c.readBack && !share);
  }
  EXPECT_EQ(-3, v2xapp_GBMapLinkLaneSetLaneAttributes(lane, 9, 0x0102, nullptr));  // recorded, refused later
  EXPECT_TRUE(l->laneAttributes->laneType.present == 9 && l->laneAttributes->laneType.choice.vehicle.buf == nullptr);

  uint64_t maneuvers = 0x0003;
  V2XAPP_GBMHANDLE conn = nullptr;
  ASSERT_EQ(0, v2xapp_GBMapLaneSetManeuvers(lane, &maneuvers));
  ASSERT_EQ(0, v2xapp_GBMapLaneConnectToInit(&conn, 1, nullptr));
  ASSERT_EQ(0, v2xapp_GBMapLaneConnectToSetConnectingLane(conn, 2, &maneuvers));
  const BIT_STRING_t& laneBits = *l->maneuvers;
  const BIT_STRING_t& connBits = *static_cast<Connection_t*>(conn)->connectingLane->maneuver;
  EXPECT_TRUE(laneBits.size == 2 && laneBits.buf[0] == 0x03 && laneBits.buf[1] == 0 && laneBits.bits_unused == 6);
  EXPECT_TRUE(connBits.size == 2 && connBits.buf[0] == 0x03 && connBits.buf[1] == 0 && connBits.bits_unused == 4);
  ASSERT_EQ(0, v2xapp_GBMapLaneAddConnectTo(lane, conn));
  ASN_STRUCT_FREE(asn_DEF_Lane, lane);  // releases every buffer the setters replaced along the way
}

TEST(BuildAndQuery, ReadsOutsideAListGiveCodesNotData) {
  D2 m;
  V2XAPP_GBMHANDLE h = &m, none = nullptr, noLists = nullptr, bare = nullptr, lonely = nullptr;
  v2xapp_GBMapNodeInit(&lonely, 2, nullptr, nullptr, 0);
  v2xapp_GBMapLinkInit(&noLists);
  v2xapp_GBMapLinkLaneInit(&bare, 3);
  bool has = true;
  int16_t s16 = 0, s16b = 0;
  int8_t s8 = 0;
  uint8_t u8 = 0;
  uint16_t region = 4321, id = 0;
  v2xapp_gbMsg_PosStr_t pt{};
  struct Case {  // calls made in order
    const char* what;
    int32_t got, want;
  } cases[] = {
      {"node past the end", v2xapp_GBMapGetNodeByIndex(m.map, 1, &h), -3},
      {"link of a node without links", v2xapp_GBMapNodeGetLinkByIndex(lonely, 0, &none), -2},
      {"speed limit handle, no list", v2xapp_GBMapLinkGetSpeedLimitByIndex(noLists, 0, &h), -3},
      {"speed limit handle past the end", v2xapp_GBMapLinkGetSpeedLimitByIndex(m.link, 2, &h), -4},
      {"link speed limit, no list", v2xapp_GBMapGetLinkSpeedLimits(noLists, 0, &s16, &s16b), -2},
      {"link speed limit at the count", v2xapp_GBMapGetLinkSpeedLimits(m.link, 2, &s16, &s16b), -3},
      {"lane speed limit, no list", v2xapp_GBMapGetLaneSpeedLimits(bare, 0, &s8, &s16), -3},
      {"lane speed limit at the count", v2xapp_GBMapGetLaneSpeedLimits(m.lane, 1, &s8, &s16), -4},
      {"connection phase at the count", v2xapp_GBMapGetConnectToPhaseId(m.lane, 1, &has, &s16), -4},
      {"connection, no list", v2xapp_GBMapGetConnectToPhaseId(bare, 0, &has, &s16), -3},
      {"movement at the count", v2xapp_GBMapLinkGetMovementsPhaseIdByIndex(m.link, 1, &has, &u8), -4},
      {"movement above", v2xapp_GBMapLinkGetMovementsPhaseIdByIndex(m.link, 2, &has, &u8), -3},
      {"no movements", v2xapp_GBMapLinkGetMovementsRegionIdByIndex(noLists, 0, &has, &region, &id), -3},
      {"link point past the end", v2xapp_GBMapLinkGetPointByIndex(m.link, 2, &pt), -4},
      {"lane point, no list", v2xapp_GBMapLaneGetPointByIndex(bare, 0, &pt), -3},
      {"lane past the end", v2xapp_GBMapLinkGetLaneByIndex(m.link, 1, &h), -3},
      {"maneuvers of a lane without", v2xapp_GBMapGetConnectToAllowedManeuvers(bare, &region), -3},
  };
  for (const Case& c : cases) EXPECT_EQ(c.want, c.got) << c.what;
  EXPECT_EQ(nullptr, h);  // a failed index read hands out no handle
  EXPECT_EQ(4321, region);
  ASSERT_EQ(0, v2xapp_GBMapGetLinkReginId(noLists, &has, &region, &id));  // no region: left as it was
  EXPECT_TRUE(!has && region == 4321 && id == 0);
  static_cast<MessageFrame_t*>(m.map)->present = MessageFrame_PR_bsmFrame;
  uint32_t count = 9;
  EXPECT_EQ(-2, v2xapp_GBMapGetNodesCnt(m.map, &count));  // another frame kind is not read as a map
  static_cast<MessageFrame_t*>(m.map)->present = MessageFrame_PR_mapFrame;
  ASSERT_EQ(0, v2xapp_GBMapLinkAddlane(noLists, bare));
  ASN_STRUCT_FREE(asn_DEF_Link, noLists);
  ASN_STRUCT_FREE(asn_DEF_Node, lonely);
}

TEST(BuildAndQuery, NullArgumentsAndSecondAttachmentsAreRefused) {
  LogCapture log;
  V2XAPP_GBMHANDLE map = nullptr, node = nullptr, link = nullptr;
  v2xapp_GBMapStrInit(&map);
  v2xapp_GBMapNodeInit(&node, 1, nullptr, nullptr, 0);
  v2xapp_GBMapLinkInit(&link);
  uint64_t value = 1;
  log.mark();
  const int32_t results[] = {
      v2xapp_GBMapAddNode(nullptr, node),
      v2xapp_GBMapAddNode(map, nullptr),
      v2xapp_GBMapNodeInit(nullptr, 1, nullptr, nullptr, 0),
      v2xapp_GBMapNodeSetRefPos(nullptr, 1, 1, nullptr),
      v2xapp_GBMapLinkSetName(link, nullptr, 3),
      v2xapp_GBMapLinkAddPoint(nullptr, 7, 1, 1, nullptr, 0),
      v2xapp_GBMapLinkMovementSetPhaseID(nullptr, 1),
      v2xapp_GBMapLaneConnectToSetPhaseID(nullptr, &value),
      v2xapp_GBMapLaneSetManeuvers(nullptr, &value),
      v2xapp_GBMapLinkLaneSetLaneAttributes(nullptr, 1, 0, nullptr),
      v2xapp_GBMapGetNodeName(node, nullptr, nullptr),
      v2xapp_GBMapNodeGetLinkCnt(node, nullptr),
  };
  for (size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(-2, results[i]) << "call " << i;
  // Each failure is logged at the place of the public call that failed.
  log.expect({"[GMAP][ERR] src/maplib/v2xapp_gbmap_build.cpp:v2xapp_GBMapAddNode:",
              "[GMAP][ERR] src/maplib/v2xapp_gbmap_query.cpp:v2xapp_GBMapGetNodeName:",
              "[GMAP][ERR] src/maplib/v2xapp_gbmap_query.cpp:v2xapp_GBMapNodeGetLinkCnt:"});
  EXPECT_EQ(std::string::npos, log.since().find("operator()")) << log.since();

  EXPECT_EQ(0, v2xapp_GBMapNodeAddLink(node, link));
  EXPECT_EQ(-2, v2xapp_GBMapNodeAddLink(node, link));  // once is enough: the free would release it twice
  EXPECT_EQ(0, v2xapp_GBMapAddNode(map, node));
  EXPECT_EQ(-2, v2xapp_GBMapAddNode(map, node));
  EXPECT_EQ(0, v2xapp_GBMapLinkAddPoint(link, 3, 1, 1, nullptr, 0));  // a point without a position...
  uint8_t buf[256];
  uint32_t len = sizeof(buf);
  EXPECT_EQ(-3, v2xapp_GBMapUperEncode(map, buf, &len));  // ...which the encoder refuses
  v2xapp_GBMapStrDel(&map);
}

// Some operations trace under a related operation's name, as log readers
// expect; the builder's lines have their own form ("start \n", "end,ret=").
TEST(BuildAndQuery, TraceLinesKeepTheirNames) {
  LogCapture log;
  D2 m;
  V2XAPP_GBMHANDLE h = nullptr;
  uint64_t id = 3;
  uint32_t count = 0;
  int64_t a = 0, b = 0, c = 0;
  bool has = false;
  int16_t laneId = 0;
  struct Case {
    std::function<int32_t()> call;
    const char *start, *end;  // after "v2xapp_GBMap"; no end: the start's name
    bool builderForm;
  } cases[] = {
      {[&] { return v2xapp_GBMapNodeSetID(m.node, 20, &id); }, "SetLinkUpStreamNodeID", nullptr, false},
      {[&] { return v2xapp_GBMapLinkAddSpeedLimits(m.link, 4, 1); }, "LinkSetSpeedLimits", nullptr, false},
      {[&] { return v2xapp_GBMapLinkMovementInit(&h, 1, nullptr); }, "LinkMovementSetRemoteInterSection", nullptr,
       true},
      {[&] { return v2xapp_GBMapLinkAddMovement(m.link, h); }, "LinkAddMovement", nullptr, true},
      {[&] { return v2xapp_GBMapLinkMovementSetPhaseID(m.movement, 2); }, "LaneConnectToSetPhaseID", nullptr, true},
      {[&] { return v2xapp_GBMapLinkLaneSetLaneWidth(m.lane, 300); }, "LaneInit", nullptr, true},
      {[&] { return v2xapp_GBMapLinkSetName(m.link, reinterpret_cast<uint8_t*>(&id), 1); }, "SetLinkName", nullptr,
       false},
      {[&] { return v2xapp_GBMapLaneAddSpeedLimit(m.lane, 5, 1); }, "LaneSetSpeedLimit", nullptr, true},
      {[&] { return v2xapp_GBMapLaneAddConnectTo(m.lane, nullptr); }, "LaneConnectToInit", nullptr, true},
      {[&] { return v2xapp_GBMapGetNodeByIndex(m.map, 0, &h); }, "GetNodeByIndex", "SetTimStamp", false},
      {[&] { return v2xapp_GBMapNodeGetRefPos(m.node, &a, &b, &has, &c); }, "NodeSetRefPos", "NodeGetRefPos", false},
      {[&] { return v2xapp_GBMapNodeGetLinkCnt(m.node, &count); }, "NodeAddLink", "NodeGetLinkCnt", false},
      {[&] { return v2xapp_GBMapNodeGetLinkByIndex(m.node, 0, &h); }, "GetNodeByIndex", "GetNodeLinkByIndex", false},
      {[&] { return v2xapp_GBMapGetLaneId(m.lane, &laneId); }, "GetLaneId", nullptr, false},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.start);
    log.mark();
    const std::string ret = std::to_string(k.call()) + "\n";
    const std::string text = log.since();
    const size_t start = text.find(std::string(":v2xapp_GBMap") + k.start + (k.builderForm ? " start \n" : " start\n"));
    const size_t end = text.find(std::string(":v2xapp_GBMap") + (k.end ? k.end : k.start) +
                                 (k.builderForm ? " end,ret=" : " end ret=") + ret);
    EXPECT_TRUE(start != std::string::npos && end != std::string::npos && start < end) << text;
    EXPECT_NE(std::string::npos, text.find("[GMAP][TRACE] src/maplib/v2xapp_gbmap_")) << text;
  }
}

}  // namespace
