// Choice alternatives and range ends: exact bits of the small types, and the
// same ranges enforced by the constraint checks, the encoder and the decoder.
#include <gtest/gtest.h>

#include "codec_test_util.h"

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

// The vehicle bits are SIZE(8,...): besides the root's eight, any count is
// legal in the extension form (size bit 1, a length octet, the bits). It
// encodes, and decodes back through the constraint check.
TEST(CodecValues, VehicleBitsOutsideTheRootUseTheExtensionForm) {
  struct Case {
    const char* bits;
    const char* hex;  // no shareWith, choice root, vehicle, size bit 1, length, bits
  };
  const Case cases[] = {{"1000000001", "042a01"}, {"1000001", "041e08"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bits);
    LaneAttributes_t attrs = {};
    attrs.laneType.present = LaneTypeAttributes_PR_vehicle;
    setBits(attrs.laneType.choice.vehicle, c.bits);
    EXPECT_EQ(toHex(encode(asn_DEF_LaneAttributes, &attrs)), c.hex) << v2x_asn_last_error();

    const Bytes wire = fromHex(c.hex);
    LaneAttributes_t* back = nullptr;
    asn_dec_rval_t rv = asn_decode(nullptr, ATS_UNALIGNED_BASIC_PER, &asn_DEF_LaneAttributes,
                                   reinterpret_cast<void**>(&back), wire.data(), wire.size());
    EXPECT_EQ(rv.code, RC_OK) << v2x_asn_last_error();
    if (back != nullptr) {
      const BIT_STRING_t& got = back->laneType.choice.vehicle;
      const BIT_STRING_t& sent = attrs.laneType.choice.vehicle;
      ASSERT_EQ(got.size, sent.size);
      EXPECT_EQ(got.bits_unused, sent.bits_unused);
      EXPECT_EQ(std::memcmp(got.buf, sent.buf, static_cast<size_t>(sent.size)), 0);
    }
    ASN_STRUCT_FREE(asn_DEF_LaneAttributes, back);
    ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_LaneAttributes, &attrs);
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
