// Choice alternatives and range ends: exact bits of the small types, and the
// same ranges enforced by the constraint checks, the encoder and the decoder.
#include <gtest/gtest.h>

#include "codec_test_util.h"
#include "v2xapp_gbmap_build.h"

using namespace codectest;

namespace {

// Offset alternative i is paired with vertical alternative i: both ends of
// each encode to index and widths exactly, one past an end is refused.
TEST(CodecValues, EveryOffsetAlternativeHasItsIndexAndWidths) {
  struct Alt {
    PositionOffsetLL_PR ll;
    int lonBits, latBits;
    long lonLow, lonHigh, latLow, latHigh;
    int vBits;
    long vLow, vHigh;
  };
  const Alt alts[] = {
      {PositionOffsetLL_PR_position_LL1, 12, 12, -2048, 2047, -2048, 2047, 7, -64, 63},
      {PositionOffsetLL_PR_position_LL2, 14, 14, -8192, 8191, -8192, 8191, 8, -128, 127},
      {PositionOffsetLL_PR_position_LL3, 16, 16, -32768, 32767, -32768, 32767, 9, -256, 255},
      {PositionOffsetLL_PR_position_LL4, 18, 18, -131072, 131071, -131072, 131071, 10, -512, 511},
      {PositionOffsetLL_PR_position_LL5, 22, 22, -2097152, 2097151, -2097152, 2097151, 11, -1024, 1023},
      {PositionOffsetLL_PR_position_LL6, 24, 24, -8388608, 8388607, -8388608, 8388607, 12, -2048, 2047},
      {PositionOffsetLL_PR_position_LatLon, 32, 31, -1799999999, 1800000001, -900000000, 900000001, 16, -4096, 61439},
  };
  for (const Alt& a : alts) {
    SCOPED_TRACE(a.ll);
    for (int high = 0; high < 2; high++) {
      const long lon = high ? a.lonHigh : a.lonLow, lat = high ? a.latLow : a.latHigh, v = high ? a.vHigh : a.vLow;
      VerticalOffset_t vo = {};
      vo.present = static_cast<VerticalOffset_PR>(a.ll);  // same numbering
      vo.choice.offset1 = v;                              // every alternative is one integer at the same place
      PositionOffsetLLV_t llv = {};
      setLL(llv.offsetLL, a.ll, lon, lat);
      llv.offsetV = &vo;
      BitWriter w;
      w.put(1, 1).put(a.ll - 1, 3).put(lon - a.lonLow, a.lonBits).put(lat - a.latLow, a.latBits);
      w.put(a.ll - 1, 3).put(v - a.vLow, a.vBits);
      EXPECT_EQ(toHex(encode(asn_DEF_PositionOffsetLLV, &llv)), toHex(w.bytes));

      const long step = high ? 1 : -1;
      vo.choice.offset1 = v + step;
      EXPECT_TRUE(encode(asn_DEF_PositionOffsetLLV, &llv).empty());
      vo.choice.offset1 = v;
      setLL(llv.offsetLL, a.ll, lon + step, lat);
      EXPECT_TRUE(encode(asn_DEF_PositionOffsetLLV, &llv).empty());
      setLL(llv.offsetLL, a.ll, lon, lat - step);
      EXPECT_TRUE(encode(asn_DEF_PositionOffsetLLV, &llv).empty());
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

// The vehicle bits are a BIT STRING with named bits and SIZE(8,...): trailing
// zero bits carry nothing, so each value goes out in the shortest form the
// constraint allows: the root's eight bits while the set bits fit in them,
// beyond that the extension form (size bit 1, a length octet, the bits). Each
// form decodes through the constraint check and encodes back the same; a
// longer extension form than needed still decodes, to the same value.
TEST(CodecValues, VehicleBitsTakeTheirShortestForm) {
  struct Case {
    const char* bits;
    const char* hex;  // no shareWith, choice root, vehicle, size form, [length,] bits
  };
  const Case cases[] = {
      {"10000000", "0200"},
      {"1000000", "0200"},
      {"1000000000000000", "0200"},
      {"", "0000"},
      {"1000001", "0208"},
      {"11111111", "03fc"},
      {"1000000001", "042a01"},
      {"10000000010000", "042a01"},
      {"0000000000000001", "04400004"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bits);
    LaneAttributes_t attrs = {};
    attrs.laneType.present = LaneTypeAttributes_PR_vehicle;
    setBits(attrs.laneType.choice.vehicle, c.bits);
    EXPECT_EQ(toHex(encode(asn_DEF_LaneAttributes, &attrs)), c.hex) << v2x_asn_last_error();
    ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_LaneAttributes, &attrs);
  }
  const char* const wires[][2] = {{"0200", "0200"}, {"042a01", "042a01"}, {"041e08", "0208"}, {"04400004", "04400004"}};
  for (const auto& wire : wires) {
    SCOPED_TRACE(wire[0]);
    const Bytes bytes = fromHex(wire[0]);
    LaneAttributes_t* back = nullptr;
    asn_dec_rval_t rv = asn_decode(nullptr, ATS_UNALIGNED_BASIC_PER, &asn_DEF_LaneAttributes,
                                   reinterpret_cast<void**>(&back), bytes.data(), bytes.size());
    EXPECT_EQ(rv.code, RC_OK) << v2x_asn_last_error();
    if (rv.code == RC_OK) {
      EXPECT_EQ(toHex(encode(asn_DEF_LaneAttributes, back)), wire[1]);
    }
    ASN_STRUCT_FREE(asn_DEF_LaneAttributes, back);
  }
}

// A vehicle value and its forms with trailing zeros added or removed are one
// value: XER input (read by the codec and by the library) and the library's
// builder, which always writes eight bits, give the same bytes.
TEST(CodecValues, VehicleValueGivesOneEncodingOnEveryInputPath) {
  V2XAPP_GBMHANDLE map = nullptr, node = nullptr, link = nullptr, lane = nullptr;
  ASSERT_EQ(v2xapp_GBMapStrInit(&map), 0);
  ASSERT_EQ(v2xapp_GBMapSetMsgCnt(map, 1), 0);
  ASSERT_EQ(v2xapp_GBMapNodeInit(&node, 1, nullptr, nullptr, 0), 0);
  ASSERT_EQ(v2xapp_GBMapNodeSetRefPos(node, 397870006, 1165119042, nullptr), 0);
  ASSERT_EQ(v2xapp_GBMapAddNode(map, node), 0);
  ASSERT_EQ(v2xapp_GBMapLinkInit(&link), 0);
  ASSERT_EQ(v2xapp_GBMapLinkSetUpStreamNodeID(link, 2, nullptr), 0);
  ASSERT_EQ(v2xapp_GBMapLinkSetlinkWidth(link, 300), 0);
  ASSERT_EQ(v2xapp_GBMapNodeAddLink(node, link), 0);
  ASSERT_EQ(v2xapp_GBMapLinkLaneInit(&lane, 1), 0);
  ASSERT_EQ(v2xapp_GBMapLinkLaneSetLaneAttributes(lane, V2XAPP_GBMAP_LANE_VEHICLE, 0x80, nullptr), 0);
  ASSERT_EQ(v2xapp_GBMapLinkAddlane(link, lane), 0);
  const Bytes built = encode(asn_DEF_MessageFrame, map);
  v2xapp_GBMapStrDel(&map);
  ASSERT_FALSE(built.empty()) << v2x_asn_last_error();

  for (const char* bits : {"10000000", "1000000", "1000000000000000"}) {
    SCOPED_TRACE(bits);
    std::string doc =
        "<MessageFrame><mapFrame><msgCnt>1</msgCnt><nodes><Node><id><id>1</id></id><refPos><lat>397870006</lat>"
        "<long>1165119042</long></refPos><inLinks><Link><upstreamNodeId><id>2</id></upstreamNodeId>"
        "<linkWidth>300</linkWidth><lanes><Lane><laneID>1</laneID><laneAttributes><laneType><vehicle>";
    doc += bits;
    doc +=
        "</vehicle></laneType></laneAttributes></Lane></lanes></Link></inLinks></Node></nodes></mapFrame></"
        "MessageFrame>";
    Frame f;
    ASSERT_EQ(decode(Bytes(doc.begin(), doc.end()), f, ATS_BASIC_XER).code, RC_OK) << v2x_asn_last_error();
    EXPECT_EQ(toHex(encode(asn_DEF_MessageFrame, f.p)), toHex(built));

    V2XAPP_GBMHANDLE read = nullptr;
    EXPECT_EQ(v2xapp_GBMapXerDecode(&read, reinterpret_cast<uint8_t*>(doc.data()), static_cast<uint32_t>(doc.size())),
              0);
    Bytes out(built.size() + 8);
    uint32_t len = static_cast<uint32_t>(out.size());
    EXPECT_EQ(v2xapp_GBMapUperEncode(read, out.data(), &len), 0);
    out.resize(len <= out.size() ? len : 0);
    EXPECT_EQ(toHex(out), toHex(built));
    v2xapp_GBMapStrDel(&read);
  }
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
  Frame f;
  ASSERT_EQ(decode(fromHex(kMap528), f).code, RC_OK);
  ASSERT_FALSE(encode(asn_DEF_MessageFrame, f.p).empty());
  FILE* sink = std::fopen("/dev/null", "w");
  ASSERT_NE(sink, nullptr);
  EXPECT_EQ(asn_fprint(sink, &asn_DEF_MessageFrame, f.p), 0);
  std::fclose(sink);

  f.map().nodes.list.array[0]->refPos.lat = 900000002;
  char err[128];
  size_t errLen = sizeof(err);
  EXPECT_NE(asn_check_constraints(&asn_DEF_MessageFrame, f.p, err, &errLen), 0);
  EXPECT_STREQ(err, "Latitude: constraint failed");
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
    w.put(0, 1).put(latField, 31).put(uint64_t{1165119042} + 1799999999, 32);
    return w.bytes;
  };
  Frame ok;
  EXPECT_EQ(decode(d1With(1800000001), ok).code, RC_OK);  // 900000001, the top value
  Frame bad;
  EXPECT_EQ(decode(d1With(0x7FFFFFFF), bad).code, RC_FAIL);
  EXPECT_STREQ(v2x_asn_last_error(), "Latitude: constraint failed");
}

}  // namespace
