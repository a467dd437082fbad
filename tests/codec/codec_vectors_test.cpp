// Reference vectors: D2's elements encode to exactly the reference bytes, and
// the reference bytes decode to the described values and back.
#include <gtest/gtest.h>

#include <sstream>

#include "codec_test_util.h"

using namespace codectest;

namespace {

// D2's elements written out as XER.
const char* const kD2Xer =
    "<MessageFrame><mapFrame><msgCnt>5</msgCnt><timeStamp>100000</timeStamp><nodes><Node><name>N1</name>"
    "<id><region>10</region><id>19</id></id><refPos><lat>397870006</lat><long>1165119042</long>"
    "<elevation>0</elevation></refPos><inLinks><Link><upstreamNodeId><region>10</region><id>18</id></upstreamNodeId>"
    "<speedLimits><RegulatorySpeedLimit><type><vehicleMaxSpeed/></type><speed>833</speed></RegulatorySpeedLimit>"
    "</speedLimits><linkWidth>660</linkWidth><movements><Movement><remoteIntersection><region>10</region>"
    "<id>12</id></remoteIntersection><phaseId>7</phaseId></Movement></movements>"
    "<lanes><Lane><laneID>1</laneID><laneWidth>330</laneWidth><laneAttributes><shareWith>0000000000</shareWith>"
    "<laneType><vehicle>00000000</vehicle></laneType></laneAttributes><maneuvers>110000000000</maneuvers>"
    "<connectsTo><Connection><remoteIntersection><region>10</region><id>12</id></remoteIntersection>"
    "<connectingLane><lane>1</lane><maneuver>010000000000</maneuver></connectingLane><phaseId>7</phaseId>"
    "</Connection></connectsTo><points><RoadPoint><posOffset><offsetLL><position-LL1><lon>-100</lon><lat>200</lat>"
    "</position-LL1></offsetLL></posOffset></RoadPoint><RoadPoint><posOffset><offsetLL><position-LatLon>"
    "<lon>1165120283</lon><lat>397868872</lat></position-LatLon></offsetLL><offsetV><offset1>-5</offset1></offsetV>"
    "</posOffset></RoadPoint></points></Lane></lanes></Link></inLinks></Node></nodes></mapFrame></MessageFrame>";

TEST(CodecVectors, D2EncodesExactlyAndDecodesBack) {
  const std::string text = kD2Xer;
  Frame f;
  ASSERT_EQ(decode(Bytes(text.begin(), text.end()), f, ATS_BASIC_XER).code, RC_OK) << v2x_asn_last_error();
  EXPECT_EQ(toHex(encode(asn_DEF_MessageFrame, f.p)), kD2);

  Frame back;
  ASSERT_EQ(decode(fromHex(kD2), back).code, RC_OK);
  EXPECT_EQ(xer(back.p), xer(f.p));
}

TEST(CodecVectors, Map528DecodesToTheDescribedIntersectionAndBack) {
  const Bytes bytes = fromHex(kMap528);
  Frame f;
  ASSERT_EQ(decode(bytes, f).code, RC_OK) << v2x_asn_last_error();
  ASSERT_EQ(f->present, MessageFrame_PR_mapFrame);
  const MapData_t& m = f.map();
  EXPECT_EQ(m.msgCnt, 0);
  ASSERT_NE(m.timeStamp, nullptr);
  EXPECT_EQ(*m.timeStamp, 475970);
  ASSERT_EQ(m.nodes.list.count, 1);
  const Node_t* node = m.nodes.list.array[0];
  EXPECT_EQ(*node->id.region, 1);
  EXPECT_EQ(node->id.id, 149);
  EXPECT_EQ(node->refPos.lat, 280985258);
  EXPECT_EQ(node->refPos.Long, 1129830304);

  struct LinkRow {
    long upstream, width;
    long movement[3][2];    // remote id, phase
    long connection[3][2];  // remote id, phase
  };
  const LinkRow rows[] = {
      {148, 2200, {{1091, 1}, {150, 2}, {1095, 3}}, {{1091, 1}, {150, 2}, {1095, 3}}},
      {150, 2200, {{1095, 9}, {148, 10}, {1091, 11}}, {{1095, 1}, {148, 2}, {1091, 3}}},
      {1091, 1300, {{150, 5}, {1095, 6}, {148, 7}}, {{150, 5}, {1095, 6}, {148, 7}}},
      {1095, 1300, {{148, 13}, {1091, 14}, {150, 15}}, {{148, 13}, {1091, 14}, {150, 15}}},
  };
  const char* const maneuver[3] = {"\x40\x00", "\x80\x00", "\x20\x00"};  // left, straight, right
  ASSERT_EQ(node->inLinks->list.count, 4);
  for (int i = 0; i < 4; i++) {
    SCOPED_TRACE(i);
    const Link_t* link = node->inLinks->list.array[i];
    EXPECT_EQ(link->upstreamNodeId.id, rows[i].upstream);
    EXPECT_EQ(link->linkWidth, rows[i].width);
    ASSERT_EQ(link->speedLimits->list.count, 2);
    EXPECT_EQ(link->speedLimits->list.array[0]->type, SpeedLimitType_vehicleMaxSpeed);
    EXPECT_EQ(link->speedLimits->list.array[0]->speed, 834);
    ASSERT_EQ(link->points->list.count, 4);
    ASSERT_EQ(link->movements->list.count, 3);
    ASSERT_EQ(link->lanes.list.count, 1);
    const Lane_t* lane = link->lanes.list.array[0];
    EXPECT_EQ(lane->laneID, 1);
    EXPECT_EQ(*lane->laneWidth, rows[i].width);
    ASSERT_EQ(lane->maneuvers->size, 2);
    EXPECT_EQ(lane->maneuvers->buf[0], 0xE0);
    ASSERT_EQ(lane->connectsTo->list.count, 3);
    for (int k = 0; k < 3; k++) {
      const Movement_t* mv = link->movements->list.array[k];
      EXPECT_EQ(mv->remoteIntersection.id, rows[i].movement[k][0]);
      EXPECT_EQ(*mv->phaseId, rows[i].movement[k][1]);
      const Connection_t* c = lane->connectsTo->list.array[k];
      EXPECT_EQ(c->remoteIntersection.id, rows[i].connection[k][0]);
      EXPECT_EQ(*c->phaseId, rows[i].connection[k][1]);
      EXPECT_EQ(c->connectingLane->lane, 1);
      EXPECT_EQ(std::memcmp(c->connectingLane->maneuver->buf, maneuver[k], 2), 0);
    }
  }
  const long firstPoints[4][2] = {
      {1129827867, 281010657}, {1129828313, 281004053}, {1129828884, 280996026}, {1129829511, 280988051}};
  for (int k = 0; k < 4; k++) {
    const auto& ll = node->inLinks->list.array[0]->points->list.array[k]->posOffset.offsetLL.choice.position_LatLon;
    EXPECT_EQ(ll.lon, firstPoints[k][0]);
    EXPECT_EQ(ll.lat, firstPoints[k][1]);
  }

  EXPECT_EQ(encode(asn_DEF_MessageFrame, f.p), bytes);
}

TEST(CodecVectors, SecondPhaseAdditionsDecodeAndReencodeExactly) {
  struct Vector {
    const char* hex;
    const char* values;  // XER fragments, in document order
  };
  const Vector vectors[] = {
      {kD3,
       "<inLinks-ex> <upstreamNodeId> <id>2</id> <linkWidth>700</linkWidth> <movements-ex> <id>3</id> "
       "<phaseId>4</phaseId> <turn-direction><maneuverLeftTurn/></turn-direction> <secId>1</secId> "
       "<laneRefID>-1</laneRefID> <laneWidth>350</laneWidth> 010000000000 <connectsTo-ex> <id>3</id> "
       "<target-section>1</target-section> <target-lane>-1</target-lane> <phaseId>4</phaseId> <maneuverLeftTurn/> "
       "<s-axis>0</s-axis> <t-axis>-175</t-axis> <s-axis>500</s-axis> <t-axis>-175</t-axis> "
       "<leftLaneLine><whiteDottedLine/></leftLaneLine> <rightLaneLine><whiteSolidLine/></rightLaneLine>"},
      {kD4,
       "<prohibitedzone> <centralCircleProhibitedZone> <lon>10</lon> <lat>10</lat> <lon>-10</lon> <lat>10</lat> "
       "<lon>-10</lon> <lat>-10</lat> <lon>10</lon> <lat>-10</lat> </centralCircleProhibitedZone>"},
  };
  for (const Vector& v : vectors) {
    Frame f;
    ASSERT_EQ(decode(fromHex(v.hex), f).code, RC_OK) << v2x_asn_last_error();
    const std::string text = xer(f.p);
    size_t at = text.find("<long>1165119042</long>");  // the D1 node comes first
    std::istringstream fragments(v.values);
    for (std::string fragment; fragments >> fragment;) {
      at = text.find(fragment, at);
      ASSERT_NE(at, std::string::npos) << fragment << " in\n" << text;
    }
    EXPECT_EQ(toHex(encode(asn_DEF_MessageFrame, f.p)), v.hex);
    // Without its addition the node is plain D1 again.
    Node_t* node = f.map().nodes.list.array[0];
    ASN_STRUCT_FREE(asn_DEF_LinkExList, node->inLinks_ex);
    ASN_STRUCT_FREE(asn_DEF_ProhibitedZone, node->prohibitedzone);
    node->inLinks_ex = nullptr;
    node->prohibitedzone = nullptr;
    EXPECT_EQ(toHex(encode(asn_DEF_MessageFrame, f.p)), kD1);
  }
}

}  // namespace
