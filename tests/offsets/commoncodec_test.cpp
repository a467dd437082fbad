// Offset and bit-string codec: alternatives at their span bounds, round trips
// absolute -> offset (taken by the UPER encoder) -> absolute, bit strings, bad
// arguments.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "codec_test_util.h"
#include "v2xapp_commoncodec.h"
#include "v2xlog.h"

namespace {

constexpr int LL1 = 1, LL2 = 2, LL3 = 3, LL4 = 4, LL5 = 5, LL6 = 6, ABS = 7;  // offsetLL / offsetV present
constexpr long kNone = LONG_MIN;                                              // no elevation

struct Llv {  // zero-filled offset record, released like a tree member
  PositionOffsetLLV_t v{};
  ~Llv() { ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PositionOffsetLLV, &v); }
  // Every alternative keeps its numbers at the same place.
  long lon() const { return v.offsetLL.choice.position_LL1.lon; }
  long lat() const { return v.offsetLL.choice.position_LL1.lat; }
  int vPresent() const { return v.offsetV ? v.offsetV->present : 0; }
  long vValue() const { return v.offsetV ? v.offsetV->choice.offset1 : 0; }
};

c_pos3D_t fpos(double lat, double lon, double elev = 0.0) {
  c_pos3D_t p{};
  p.posIsValid = p.elevIsValid = true;
  p.lat = lat, p.lon = lon, p.elevation = elev;
  return p;
}

// How such strings go on the wire is the codec's (its value tests).
TEST(BitString, RightAlignedWithTheFirstBitMostSignificant) {
  struct Row {
    int8_t bits;
    int64_t value;
    std::vector<uint8_t> bytes;
  } rows[] = {
      {10, 1023, {0x03, 0xFF}},
      {12, 0x800 << 4, {0x80, 0x00}},  // maneuvers come left-aligned from the caller: straight is bit 0
      {16, 0x4001, {0x40, 0x01}},
      {8, 0x10, {0x10}},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << int(r.bits) << " bits, value " << r.value);
    BIT_STRING_t bs{};
    ASSERT_EQ(0, v2xcodec_long2BitString(&r.value, r.bits, &bs));
    EXPECT_EQ(r.bytes, std::vector<uint8_t>(bs.buf, bs.buf + bs.size));
    EXPECT_EQ((8 - r.bits % 8) % 8, bs.bits_unused);
    int64_t back = -1;
    v2xcodec_bitString2Long(&bs, &back);
    EXPECT_EQ(r.value, back);
    free(bs.buf);
  }
}

TEST(PosOffset, FloatSpansAreStrictAndTruncateTowardZero) {
  struct Row {
    c_pos3D_t cur, ref;
    int ll;
    long lon, lat;
    int v;
    long vValue;
  } rows[] = {
      {fpos(0.0002047, 0), fpos(0, 0), LL2, 0, 2046, 0, 0},  // exactly at the bound: next span
      {fpos(0, -0.0002047), fpos(0, 0), LL2, -2046, 0, 0, 0},
      {fpos(0.0008191, 0.0001), fpos(0, 0), LL3, 1000, 8191, 0, 0},
      {fpos(-0.0131071, 0.0032767), fpos(0, 0), LL5, 32767, -131071, 0, 0},
      {fpos(0.8388606, -0.2097151), fpos(0, 0), LL6, -2097150, 8388606, 0, 0},
      {fpos(30.5, 120.25), fpos(29.5, 120.1), ABS, 1202500000, 305000000, 0, 0},
      {fpos(0, -0.00000015), fpos(0, 0), LL1, -1, 0, 0, 0},
      // Against 1.0 m each height difference equals its literal; 0.0 m means none.
      {fpos(1, 2, 0.0), fpos(1, 2, 10.0), LL1, 0, 0, 0, 0},
      {fpos(1, 2, 7.2), fpos(1, 2, 1.0), LL1, 0, 0, LL1, 62},
      {fpos(1, 2, 7.3), fpos(1, 2, 1.0), LL1, 0, 0, LL2, 63},
      {fpos(1, 2, 1.0), fpos(1, 2, 7.3), LL1, 0, 0, LL2, -63},
      {fpos(1, 2, 205.7), fpos(1, 2, 1.0), LL1, 0, 0, ABS, 2057},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << "lat " << r.cur.lat << " lon " << r.cur.lon << " elev " << r.cur.elevation);
    Llv out;
    ASSERT_EQ(0, setPosOffsetLLV(&r.cur, &r.ref, &out.v));
    EXPECT_EQ(r.ll, out.v.offsetLL.present);
    EXPECT_EQ(r.lon, out.lon());
    EXPECT_EQ(r.lat, out.lat());
    EXPECT_EQ(r.v, out.vPresent());
    EXPECT_EQ(r.vValue, out.vValue());
  }
}

TEST(PosOffset, IntegerLatLonSpansAreInclusiveHeightSpansExclusive) {
  struct Row {
    long dLat, dLon, elev, refElev;
    int ll, v;
    long vValue;
  } rows[] = {
      {2047, -2047, 100, kNone, LL1, 0, 0},    {2048, 0, kNone, 100, LL2, 0, 0},
      {8191, 8192, 162, 100, LL3, LL1, 62},    {-32767, 32768, 163, 100, LL4, LL2, 63},
      {131072, 0, 37, 100, LL5, LL2, -63},     {2097151, -2097152, 2146, 100, LL6, LL6, 2046},
      {8388607, 0, 2147, 100, LL6, ABS, 2147}, {8388608, 0, 100, 2147, ABS, ABS, 100},
      {0, -8388608, 100, 100, ABS, LL1, 0},
  };
  for (Row r : rows) {
    SCOPED_TRACE(testing::Message() << "dLat " << r.dLat << " dLon " << r.dLon);
    Position3D_t ref{300000000, 1200000000, r.refElev == kNone ? nullptr : &r.refElev, {}};
    Position3D_t cur{ref.lat + r.dLat, ref.Long + r.dLon, r.elev == kNone ? nullptr : &r.elev, {}};
    Llv out;
    ASSERT_EQ(0, setPosOffsetLLVOriginal(&cur, &ref, &out.v));
    EXPECT_EQ(r.ll, out.v.offsetLL.present);
    EXPECT_EQ(r.ll == ABS ? cur.Long : r.dLon, out.lon());
    EXPECT_EQ(r.ll == ABS ? cur.lat : r.dLat, out.lat());
    EXPECT_EQ(r.v, out.vPresent());
    EXPECT_EQ(r.vValue, out.vValue());
  }
}

// Integer and floating-point points at every alternative: the encoder
// range-checks each offset the setters chose, and the parsers resolve it back.
TEST(PosOffset, EveryAlternativeEncodesAndParsesBack) {
  constexpr long kLat = 312304000, kLon = 1214737000;
  long refElev = 125;
  Position3D_t iref{kLat, kLon, &refElev, {}};
  struct IPt {
    long dLat, dLon, elev;
  } ipts[] = {{0, 0, 125},          {2047, -2047, 187}, {-2048, 2048, 62},
              {-32767, 0, -75},     {131071, 0, 525},   {-2097151, 0, 1125},
              {0, -8388607, -1921}, {8388608, 0, 4000}, {-500000000, 300000000, kNone}};
  for (IPt& p : ipts) {
    SCOPED_TRACE(testing::Message() << "dLat " << p.dLat << " dLon " << p.dLon);
    Position3D_t abs{kLat + p.dLat, kLon + p.dLon, p.elev == kNone ? nullptr : &p.elev, {}};
    Llv off;
    ASSERT_EQ(0, setPosOffsetLLVOriginal(&abs, &iref, &off.v));
    EXPECT_FALSE(codectest::encode(asn_DEF_PositionOffsetLLV, &off.v).empty()) << v2x_asn_last_error();
    Position3D_t back{};
    ASSERT_EQ(0, prasePosOffsetLLVOriginal(&off.v, &iref, &back));
    EXPECT_EQ(abs.lat, back.lat);
    EXPECT_EQ(abs.Long, back.Long);
    EXPECT_EQ(p.elev, back.elevation ? *back.elevation : kNone);
    free(back.elevation);
  }
  const c_pos3D_t fref = fpos(31.2304, 121.4737, 12.5);
  for (const c_pos3D_t& p :
       {fpos(31.2304, 121.4737, 12.5), fpos(31.23041, 121.47365, 15.6), fpos(31.2300, 121.4740, 0.0),
        fpos(31.2404, 121.4637, 63.6), fpos(31.9304, 120.9737, 217.1), fpos(-33.8688123, 151.2092956, 300.0)}) {
    SCOPED_TRACE(testing::Message() << "lat " << p.lat << " lon " << p.lon);
    Llv off;
    ASSERT_EQ(0, setPosOffsetLLV(&p, &fref, &off.v));
    EXPECT_FALSE(codectest::encode(asn_DEF_PositionOffsetLLV, &off.v).empty()) << v2x_asn_last_error();
    c_pos3D_t back{};
    ASSERT_EQ(0, prasePosOffsetLLV(&off.v, &fref, &back));
    EXPECT_NEAR(p.lat, back.lat, 1.01e-7);  // truncated to 1e-7 degree and 0.1 m
    EXPECT_NEAR(p.lon, back.lon, 1.01e-7);
    EXPECT_EQ(p.elevation != 0.0, back.elevIsValid);
    EXPECT_NEAR(p.elevation, back.elevIsValid ? back.elevation : 0.0, 0.1001);
  }
}

TEST(PosOffset, ParsersKeepWhatTheyCannotResolve) {
  Llv empty;  // an empty choice: valid, but the position stays where it was
  c_pos3D_t out = fpos(1.5, 2.5, 3.0);
  out.posIsValid = false;
  ASSERT_EQ(0, prasePosOffsetLLV(&empty.v, &out, &out));
  EXPECT_TRUE(out.posIsValid && out.lat == 1.5 && out.lon == 2.5 && !out.elevIsValid);

  VerticalOffset_t absolute{};  // even an absolute elevation needs a reference elevation
  absolute.present = VerticalOffset_PR_elevation;
  absolute.choice.elevation = 500;
  c_pos3D_t ref = fpos(30, 120, 10.0);
  ASSERT_EQ(0, prasePosOffsetV(&absolute, &ref, &out));
  EXPECT_TRUE(out.elevIsValid && out.elevation == 50.0);
  ref.elevIsValid = false;
  ASSERT_EQ(0, prasePosOffsetV(&absolute, &ref, &out));
  EXPECT_FALSE(out.elevIsValid);

  // Compact records: absolute with code 7, an offset for any other code (0 too).
  const v2xapp_gbMsg_PosStr_t abs{7, 305000000, 1202500000, true, 7, 125}, rel{0, 100, -200, true, 1, -15};
  ASSERT_EQ(0, v2xcodec_GBpraseMsgPos(&abs, &ref, &out));
  EXPECT_TRUE(out.elevIsValid && out.lat == 30.5 && out.lon == 120.25 && out.elevation == 12.5);
  ASSERT_EQ(0, v2xcodec_GBpraseMsgPos(&rel, &ref, &out));
  EXPECT_TRUE(out.lat == 30.00001 && out.lon == 119.99998 && out.elevation == 8.5);
}

TEST(PosOffset, BadArgumentsGetAnErrorLineAndLeaveTheOutputAlone) {
  const std::string path = testing::TempDir() + "offsets_test_" + std::to_string(getpid()) + ".log";
  ASSERT_EQ(0, v2xlog_Init(path.c_str(), "TEST", 1, 0, 0));
  c_pos3D_t pos = fpos(30, 120, 10), nan = fpos(30, NAN, 10), out{};
  Position3D_t ipos{};
  Llv llv;
  // Setters answer -2, parsers -1; each says so in one error line.
  const struct {
    int32_t ret, want;
    const char* text;
  } calls[] = {
      {setPosOffsetLLV(nullptr, &pos, &llv.v), -2, "input para error"},
      {setPosOffsetLLV(&nan, &pos, &llv.v), -2, "input para error"},
      {prasePosOffsetLLV(nullptr, &pos, &out), -1, "input param error"},
      {prasePosOffsetVOriginal(nullptr, &ipos, nullptr), -1, "input param error"},
  };
  v2xlog_Flush();
  std::ifstream in(path);
  std::string line;
  for (const auto& [ret, want, text] : calls) {
    EXPECT_EQ(want, ret) << text;
    ASSERT_TRUE(std::getline(in, line)) << "no log line for: " << text;
    EXPECT_TRUE(line.find("[UPER][ERR]") != std::string::npos && line.ends_with(std::string(":") + text)) << line;
  }
  EXPECT_TRUE(llv.v.offsetLL.present == 0 && llv.v.offsetV == nullptr && !out.posIsValid);
  v2xlog_Init(nullptr, "TEST", 0, 0, 0);
  unlink(path.c_str());
}

}  // namespace
