// Choice alternatives, optional members and range ends: exact bits of the
// small types, round trips of whole frames, and the same ranges enforced by
// the constraint checks, the encoder and the decoder.
#include <gtest/gtest.h>

#include <functional>

#include "codec_test_util.h"

using namespace codectest;

namespace {

void setLL(PositionOffsetLL_t& ll, PositionOffsetLL_PR present, long lon, long lat) {
  ll.present = present;
  switch (present) {
    case PositionOffsetLL_PR_position_LL1: ll.choice.position_LL1 = {lon, lat, {}}; break;
    case PositionOffsetLL_PR_position_LL2: ll.choice.position_LL2 = {lon, lat, {}}; break;
    case PositionOffsetLL_PR_position_LL3: ll.choice.position_LL3 = {lon, lat, {}}; break;
    case PositionOffsetLL_PR_position_LL4: ll.choice.position_LL4 = {lon, lat, {}}; break;
    case PositionOffsetLL_PR_position_LL5: ll.choice.position_LL5 = {lon, lat, {}}; break;
    case PositionOffsetLL_PR_position_LL6: ll.choice.position_LL6 = {lon, lat, {}}; break;
    case PositionOffsetLL_PR_position_LatLon: ll.choice.position_LatLon = {lon, lat, {}}; break;
    default: break;
  }
}

TEST(CodecValues, EveryPositionOffsetAlternativeHasItsIndexAndWidths) {
  struct Alt {
    PositionOffsetLL_PR present;
    int lonBits, latBits;
    long lonLow, lonHigh, latLow, latHigh;
  };
  const Alt alts[] = {
      {PositionOffsetLL_PR_position_LL1, 12, 12, -2048, 2047, -2048, 2047},
      {PositionOffsetLL_PR_position_LL2, 14, 14, -8192, 8191, -8192, 8191},
      {PositionOffsetLL_PR_position_LL3, 16, 16, -32768, 32767, -32768, 32767},
      {PositionOffsetLL_PR_position_LL4, 18, 18, -131072, 131071, -131072, 131071},
      {PositionOffsetLL_PR_position_LL5, 22, 22, -2097152, 2097151, -2097152, 2097151},
      {PositionOffsetLL_PR_position_LL6, 24, 24, -8388608, 8388607, -8388608, 8388607},
      {PositionOffsetLL_PR_position_LatLon, 32, 31, -1799999999, 1800000001, -900000000, 900000001},
  };
  for (const Alt& a : alts) {
    SCOPED_TRACE(a.present);
    for (int swap = 0; swap < 2; swap++) {
      const long lon = swap ? a.lonHigh : a.lonLow;
      const long lat = swap ? a.latLow : a.latHigh;
      PositionOffsetLLV_t v = {};
      setLL(v.offsetLL, a.present, lon, lat);
      BitWriter w;
      w.put(0, 1).put(a.present - 1, 3).put(lon - a.lonLow, a.lonBits).put(lat - a.latLow, a.latBits);
      EXPECT_EQ(toHex(encode(asn_DEF_PositionOffsetLLV, &v)), toHex(w.bytes));
      // One past either end is refused.
      setLL(v.offsetLL, a.present, lon + (swap ? 1 : -1), lat);
      EXPECT_TRUE(encode(asn_DEF_PositionOffsetLLV, &v).empty());
    }
  }
}

TEST(CodecValues, EveryVerticalOffsetAlternativeHasItsIndexAndWidth) {
  struct Alt {
    VerticalOffset_PR present;
    int bits;
    long low, high;
  };
  const Alt alts[] = {
      {VerticalOffset_PR_offset1, 7, -64, 63},         {VerticalOffset_PR_offset2, 8, -128, 127},
      {VerticalOffset_PR_offset3, 9, -256, 255},       {VerticalOffset_PR_offset4, 10, -512, 511},
      {VerticalOffset_PR_offset5, 11, -1024, 1023},    {VerticalOffset_PR_offset6, 12, -2048, 2047},
      {VerticalOffset_PR_elevation, 16, -4096, 61439},
  };
  for (const Alt& a : alts) {
    for (long value : {a.low, a.high, a.low - 1, a.high + 1}) {
      SCOPED_TRACE(std::to_string(a.present) + ":" + std::to_string(value));
      VerticalOffset_t vo = {};
      vo.present = a.present;
      vo.choice.offset1 = value;  // every alternative is one integer at the same place
      PositionOffsetLLV_t v = {};
      setLL(v.offsetLL, PositionOffsetLL_PR_position_LL1, 0, 0);
      v.offsetV = &vo;
      Bytes got = encode(asn_DEF_PositionOffsetLLV, &v);
      v.offsetV = nullptr;
      if (value < a.low || value > a.high) {
        EXPECT_TRUE(got.empty());
        continue;
      }
      BitWriter w;
      w.put(1, 1).put(0, 3).put(2048, 12).put(2048, 12).put(a.present - 1, 3).put(value - a.low, a.bits);
      EXPECT_EQ(toHex(got), toHex(w.bytes));
    }
  }
}

TEST(CodecValues, EveryLaneTypeAlternativeHasItsIndexAndSize) {
  for (int present = LaneTypeAttributes_PR_vehicle; present <= LaneTypeAttributes_PR_parking; present++) {
    SCOPED_TRACE(present);
    const bool vehicle = present == LaneTypeAttributes_PR_vehicle;
    LaneAttributes_t attrs = {};
    attrs.laneType.present = static_cast<LaneTypeAttributes_PR>(present);
    // All alternatives are BIT STRINGs at the same place.
    setBits(attrs.laneType.choice.vehicle, vehicle ? "10000001" : "1000000000000001");
    BitWriter w;
    w.put(0, 1).put(0, 1).put(present - 1, 3);  // no shareWith; choice root, index
    if (vehicle) w.put(0, 1);                   // size within the root of (8,...)
    w.put(1, 1).put(0, vehicle ? 6 : 14).put(1, 1);
    EXPECT_EQ(toHex(encode(asn_DEF_LaneAttributes, &attrs)), toHex(w.bytes));
    ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_LaneAttributes, &attrs);
  }
}

// A frame with one link and one lane, mandatory members only.
MessageFrame_t* newLinkFrame() {
  MessageFrame_t* f = newMap(1, 1, 397870006, 1165119042);
  Node_t* node = f->choice.mapFrame.nodes.list.array[0];
  node->inLinks = make<LinkList>();
  Link_t* link = add(*node->inLinks, make<Link_t>());
  link->upstreamNodeId.id = 2;
  link->linkWidth = 350;
  add(link->lanes, make<Lane_t>())->laneID = 1;
  return f;
}

PointList_t* twoPoints() {
  auto* pl = make<PointList_t>();
  for (long k = 0; k < 2; k++)
    setLL(add(*pl, make<RoadPoint_t>())->posOffset.offsetLL, PositionOffsetLL_PR_position_LL3, k, -k);
  return pl;
}

NodeReferenceID_t* nodeRef(NodeReferenceID_t& ref) {
  ref.id = 7;
  return &ref;
}

TEST(CodecValues, EachOptionalMemberSurvivesARoundTripAlone) {
  using Setter = std::function<void(MapData_t&, Node_t&, Link_t&, Lane_t&)>;
  const std::pair<const char*, Setter> members[] = {
      {"MapData.timeStamp",
       [](MapData_t& m, Node_t&, Link_t&, Lane_t&) { m.timeStamp = make<MinuteOfTheYear_t>(527040); }},
      {"Node.name",
       [](MapData_t&, Node_t& n, Link_t&, Lane_t&) {
         n.name = make<DescriptiveName_t>();
         OCTET_STRING_fromBuf(n.name, "Crossing ~7", -1);
       }},
      {"NodeReferenceID.region",
       [](MapData_t&, Node_t& n, Link_t&, Lane_t&) { n.id.region = make<RoadRegulatorID_t>(65535); }},
      {"Position3D.elevation",
       [](MapData_t&, Node_t& n, Link_t&, Lane_t&) { n.refPos.elevation = make<Elevation_t>(-4096); }},
      {"Link.name",
       [](MapData_t&, Node_t&, Link_t& l, Lane_t&) {
         l.name = make<DescriptiveName_t>();
         OCTET_STRING_fromBuf(l.name, "L", 1);
       }},
      {"Link.speedLimits",
       [](MapData_t&, Node_t&, Link_t& l, Lane_t&) {
         l.speedLimits = make<SpeedLimitList_t>();
         auto* s = add(*l.speedLimits, make<RegulatorySpeedLimit_t>());
         s->type = SpeedLimitType_vehiclesWithTrailersNightMaxSpeed;
         s->speed = 8191;
       }},
      {"Link.points", [](MapData_t&, Node_t&, Link_t& l, Lane_t&) { l.points = twoPoints(); }},
      {"Link.movements",
       [](MapData_t&, Node_t&, Link_t& l, Lane_t&) {
         l.movements = make<MovementList_t>();
         nodeRef(add(*l.movements, make<Movement_t>())->remoteIntersection);
       }},
      {"Movement.phaseId",
       [](MapData_t&, Node_t&, Link_t& l, Lane_t&) {
         l.movements = make<MovementList_t>();
         auto* mv = add(*l.movements, make<Movement_t>());
         nodeRef(mv->remoteIntersection);
         mv->phaseId = make<PhaseID_t>(255);
       }},
      {"Lane.laneWidth", [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) { ln.laneWidth = make<LaneWidth_t>(32767); }},
      {"Lane.laneAttributes",
       [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) {
         ln.laneAttributes = make<LaneAttributes_t>();
         ln.laneAttributes->laneType.present = LaneTypeAttributes_PR_parking;
         setBits(ln.laneAttributes->laneType.choice.parking, "0000001000000000");
       }},
      {"LaneAttributes.shareWith",
       [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) {
         ln.laneAttributes = make<LaneAttributes_t>();
         ln.laneAttributes->shareWith = make<LaneSharing_t>();
         setBits(*ln.laneAttributes->shareWith, "0000100001");
         ln.laneAttributes->laneType.present = LaneTypeAttributes_PR_crosswalk;
         setBits(ln.laneAttributes->laneType.choice.crosswalk, "0000000010000000");
       }},
      {"Lane.maneuvers",
       [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) {
         ln.maneuvers = make<AllowedManeuvers_t>();
         setBits(*ln.maneuvers, "000000000001");
       }},
      {"Lane.connectsTo",
       [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) {
         ln.connectsTo = make<ConnectsToList_t>();
         nodeRef(add(*ln.connectsTo, make<Connection_t>())->remoteIntersection);
       }},
      {"Connection.connectingLane+phaseId",
       [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) {
         ln.connectsTo = make<ConnectsToList_t>();
         auto* c = add(*ln.connectsTo, make<Connection_t>());
         nodeRef(c->remoteIntersection);
         c->connectingLane = make<ConnectingLane_t>();
         c->connectingLane->lane = 255;
         c->phaseId = make<PhaseID_t>(0);
       }},
      {"ConnectingLane.maneuver",
       [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) {
         ln.connectsTo = make<ConnectsToList_t>();
         auto* c = add(*ln.connectsTo, make<Connection_t>());
         nodeRef(c->remoteIntersection);
         c->connectingLane = make<ConnectingLane_t>();
         c->connectingLane->maneuver = make<AllowedManeuvers_t>();
         setBits(*c->connectingLane->maneuver, "001000000000");
       }},
      {"Lane.speedLimits",
       [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) {
         ln.speedLimits = make<SpeedLimitList_t>();
         add(*ln.speedLimits, make<RegulatorySpeedLimit_t>())->type = SpeedLimitType_truckMaxSpeed;
       }},
      {"Lane.points+offsetV",
       [](MapData_t&, Node_t&, Link_t&, Lane_t& ln) {
         ln.points = twoPoints();
         auto* v = make<VerticalOffset_t>();
         v->present = VerticalOffset_PR_elevation;
         v->choice.elevation = 61439;
         ln.points->list.array[1]->posOffset.offsetV = v;
       }},
  };
  Frame plain(newLinkFrame());
  const size_t plainSize = encode(asn_DEF_MessageFrame, plain.p).size();
  for (const auto& [name, set] : members) {
    SCOPED_TRACE(name);
    Frame f(newLinkFrame());
    Node_t& node = *f.map().nodes.list.array[0];
    Link_t& link = *node.inLinks->list.array[0];
    set(f.map(), node, link, *link.lanes.list.array[0]);
    Bytes bytes = encode(asn_DEF_MessageFrame, f.p);
    ASSERT_FALSE(bytes.empty()) << v2x_asn_last_error();
    EXPECT_GE(bytes.size(), plainSize);
    Frame back;
    ASSERT_EQ(decode(bytes, back).code, RC_OK) << v2x_asn_last_error();
    EXPECT_EQ(xer(back.p), xer(f.p));
    EXPECT_EQ(encode(asn_DEF_MessageFrame, back.p), bytes);
  }
}

TEST(CodecValues, ExtensionContainerFrameRoundTrips) {
  Frame f(make<MessageFrame_t>());
  f->present = MessageFrame_PR_msgFrameExt;
  f->choice.msgFrameExt.messageId = 15;
  OCTET_STRING_fromBuf(&f->choice.msgFrameExt.value, "\x01\x02\x03", 3);
  // Extension alternative 0 (normally small), then the open type.
  BitWriter inner;
  inner.put(0, 1).put(15, 15).put(3, 8).put(0x010203, 24);
  BitWriter w;
  w.put(1, 1).put(0, 7).put(inner.bytes.size(), 8);
  for (uint8_t b : inner.bytes) w.put(b, 8);
  EXPECT_EQ(toHex(encode(asn_DEF_MessageFrame, f.p)), toHex(w.bytes));
  Frame back;
  ASSERT_EQ(decode(w.bytes, back).code, RC_OK) << v2x_asn_last_error();
  EXPECT_EQ(xer(back.p), xer(f.p));
}

// The range of every constrained integer the map uses: both ends encode to the
// expected width, one past either end is refused by the checks and the encoder.
TEST(CodecValues, IntegerRangeEnds) {
  using Checker = int (*)(asn_TYPE_descriptor_t*, const void*, asn_app_constraint_failed_f*, void*);
  struct Range {
    asn_TYPE_descriptor_t* td;
    long low, high;
    int bits;
    Checker named;  // the per-type checker the service calls, where it calls one
  };
  const Range ranges[] = {
      {&asn_DEF_MsgCount, 0, 127, 7, nullptr},
      {&asn_DEF_MinuteOfTheYear, 0, 527040, 20, nullptr},
      {&asn_DEF_RoadRegulatorID, 0, 65535, 16, nullptr},
      {&asn_DEF_NodeID, 0, 65535, 16, nullptr},
      {&asn_DEF_Latitude, -900000000, 900000001, 31, Latitude_constraint},
      {&asn_DEF_Longitude, -1799999999, 1800000001, 32, Longitude_constraint},
      {&asn_DEF_Elevation, -4096, 61439, 16, Elevation_constraint},
      {&asn_DEF_Speed, 0, 8191, 13, Speed_constraint},
      {&asn_DEF_LaneWidth, 0, 32767, 15, LaneWidth_constraint},
      {&asn_DEF_LaneID, 0, 255, 8, nullptr},
      {&asn_DEF_PhaseID, 0, 255, 8, PhaseID_constraint},
      {&asn_DEF_OffsetLL_B12, -2048, 2047, 12, nullptr},
      {&asn_DEF_OffsetLL_B24, -8388608, 8388607, 24, nullptr},
      {&asn_DEF_VertOffset_B07, -64, 63, 7, nullptr},
      {&asn_DEF_SectionId, 1, 63, 6, nullptr},
      {&asn_DEF_LaneRefID, -31, 31, 6, nullptr},
  };
  for (const Range& r : ranges) {
    for (long v : {r.low, r.high, r.low - 1, r.high + 1}) {
      SCOPED_TRACE(std::string(r.td->name) + " " + std::to_string(v));
      const bool inRange = v >= r.low && v <= r.high;
      EXPECT_EQ(v2x_asn_check_constraints(r.td, &v, nullptr, nullptr) == 0, inRange);
      if (r.named != nullptr) {
        EXPECT_EQ(r.named(nullptr, &v, nullptr, nullptr) == 0, inRange);
      }
      Bytes got = encode(*r.td, &v);
      if (!inRange) {
        EXPECT_TRUE(got.empty());
        continue;
      }
      BitWriter w;
      w.put(static_cast<uint64_t>(v - r.low), r.bits);
      EXPECT_EQ(toHex(got), toHex(w.bytes));
    }
  }
}

TEST(CodecValues, SizeRangeEnds) {
  struct Size {
    const char* what;
    int length;
    bool ok;
  };
  const Size names[] = {{"empty name", 0, false}, {"1 char", 1, true}, {"63 chars", 63, true}, {"64 chars", 64, false}};
  for (const Size& s : names) {
    SCOPED_TRACE(s.what);
    Frame f(newMap(1, 1, 0, 0));
    Node_t* n = f.map().nodes.list.array[0];
    n->name = make<DescriptiveName_t>();
    n->name->buf = static_cast<uint8_t*>(std::calloc(65, 1));
    std::memset(n->name->buf, 'a', static_cast<size_t>(s.length));
    n->name->size = s.length;
    EXPECT_EQ(!encode(asn_DEF_MessageFrame, f.p).empty(), s.ok);
  }
  const Size maneuvers[] = {{"11 bits", 11, false}, {"12 bits", 12, true}, {"13 bits", 13, false}};
  for (const Size& s : maneuvers) {
    SCOPED_TRACE(s.what);
    AllowedManeuvers_t bits = {};
    setBits(bits, std::string(static_cast<size_t>(s.length), '1').c_str());
    EXPECT_EQ(!encode(asn_DEF_AllowedManeuvers, &bits).empty(), s.ok);
    ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_AllowedManeuvers, &bits);
  }
  const Size nodeCounts[] = {{"no node", 0, false}, {"32 nodes", 32, true}, {"33 nodes", 33, false}};
  for (const Size& s : nodeCounts) {
    SCOPED_TRACE(s.what);
    Frame f(newMap(1, 1, 0, 0));
    if (s.length == 0) {
      ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_NodeList, &f.map().nodes);
      std::memset(&f.map().nodes, 0, sizeof(f.map().nodes));
    }
    while (f.map().nodes.list.count < s.length) add(f.map().nodes, make<Node_t>());
    EXPECT_EQ(!encode(asn_DEF_MessageFrame, f.p).empty(), s.ok);
  }
}

// The generated descriptors used to lose their range checks once any coder
// had run; the checks must keep refusing afterwards.
TEST(CodecValues, ChecksStillRefuseAfterTheCodersRan) {
  Frame f(newMap(1, 1, 900000001, 0));
  ASSERT_FALSE(encode(asn_DEF_MessageFrame, f.p).empty());
  Frame back;
  ASSERT_EQ(decode(fromHex(kMap528), back).code, RC_OK);
  FILE* sink = std::fopen("/dev/null", "w");
  ASSERT_NE(sink, nullptr);
  EXPECT_EQ(asn_fprint(sink, &asn_DEF_MessageFrame, back.p), 0);
  std::fclose(sink);

  f.map().nodes.list.array[0]->refPos.lat = 900000002;
  char err[128];
  size_t errLen = sizeof(err);
  EXPECT_NE(asn_check_constraints(&asn_DEF_MessageFrame, f.p, err, &errLen), 0);
  EXPECT_STREQ(err, "Latitude: constraint failed");
  long lat = 900000002;
  EXPECT_NE(asn_DEF_Latitude.check_constraints(&asn_DEF_Latitude, &lat, nullptr, nullptr), 0);
  asn_enc_rval_t er = asn_encode_to_buffer(nullptr, ATS_UNALIGNED_BASIC_PER, &asn_DEF_MessageFrame, f.p, nullptr, 0);
  EXPECT_EQ(er.encoded, -1);
  ASSERT_NE(er.failed_type, nullptr);
  EXPECT_STREQ(er.failed_type->name, "Latitude");
}

// The PER decoder itself takes any value that fits the field's width: the
// decoded frame is checked before it is accepted.
TEST(CodecValues, DecoderRefusesValuesOutsideTheRange) {
  auto d1With = [](uint64_t latField) {
    BitWriter w;
    w.put(0x1, 4).put(0, 2).put(1, 7).put(0, 5).put(0, 3).put(0, 1).put(1, 16);
    w.put(0, 1).put(latField, 31).put(1165119042 + 1799999999L, 32);
    return w.bytes;
  };
  Frame ok;
  EXPECT_EQ(decode(d1With(1800000001), ok).code, RC_OK);  // 900000001, the top value
  Frame bad;
  EXPECT_EQ(decode(d1With(0x7FFFFFFF), bad).code, RC_FAIL);
  EXPECT_STREQ(v2x_asn_last_error(), "Latitude: constraint failed");
}

}  // namespace
