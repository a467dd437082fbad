// Lane matching against geometry placed with GeographicLib's geodesic
// problems, independent of the library's plane layer: every case is asked of
// the plain walk and of the prepared matcher.
#include <gtest/gtest.h>

#include <cmath>

#include "LaneAttributes.h"
#include "MessageFrame.h"
#include "maplib_test_util.h"
#include "v2xapp_gbmap_match.h"

using namespace maplibtest;

namespace {

constexpr int kNone = -1;
const LatLon kOrigin{31.28, 121.16};

struct Expect {
  int node, link, lane;  // kNone: no lane matches
};

// Asks both matchers; checks the answer and that a miss leaves the result alone.
void expectMatch(V2XAPP_GBMHANDLE map, LatLon at, Expect want) {
  c_pos3D_t veh{};
  veh.posIsValid = true;
  veh.lat = at.lat;
  veh.lon = at.lon;
  V2XAPP_GBMMATCHER prepared = nullptr;
  ASSERT_EQ(0, v2xapp_GBMapMatchPrepare(map, &prepared));
  for (bool usePrepared : {false, true}) {
    SCOPED_TRACE(usePrepared ? "prepared" : "walk");
    MapSearch_t got{-7, -7, -7};
    const int32_t rc =
        usePrepared ? v2xapp_GBMapMatchPrepared(prepared, &veh, &got) : v2xapp_GBMapMatchLane(&veh, map, &got);
    const Expect result = want.node == kNone ? Expect{-7, -7, -7} : want;
    EXPECT_EQ(want.node == kNone ? -1 : 0, rc);
    EXPECT_TRUE(got.CurrentNode == result.node && got.CurrentLink == result.link && got.CurrentLane == result.lane)
        << got.CurrentNode << "/" << got.CurrentLink << "/" << got.CurrentLane;
  }
  v2xapp_GBMapMatchRelease(&prepared);
}

// Two 3.5 m lanes 1.6 m apart (lane 1 right of lane 0), 100 m along azimuth
// 60; a second link with a 3 m lane turning right by 90 degrees at its
// middle point.
struct Crossing {
  LatLon a0, b0, a1, b1, turnA, corner, turnB;
  V2XAPP_GBMHANDLE map;

  Crossing() {
    a0 = stored(kOrigin);
    b0 = stored(direct(a0, 60.0, 100.0));
    a1 = stored(offsetFrom(a0, b0, 0.0, 1.6));
    b1 = stored(offsetFrom(b0, direct(b0, 60.0, 1.0), 0.0, 1.6));
    turnA = stored(direct(kOrigin, 200.0, 80.0));
    corner = stored(direct(turnA, 150.0, 40.0));
    turnB = stored(direct(corner, 240.0, 40.0));
    map = buildMap({{kOrigin, {{{{1, 350, {a0, b0}}, {2, 350, {a1, b1}}}}, {{{7, 300, {turnA, corner, turnB}}}}}}});
  }
  ~Crossing() { v2xapp_GBMapStrDel(&map); }
};

TEST(MatchLane, FirstLaneInWalkOrderWithinStrictlyHalfItsWidth) {
  Crossing x;
  const double len = inverse(x.a0, x.b0);
  const double len1 = inverse(x.a1, x.b1);
  struct Case {
    const char* what;
    LatLon at;
    Expect want;
  } cases[] = {
      {"inside lane 0", offsetFrom(x.a0, x.b0, 50.0, -1.0), {0, 0, 0}},
      {"on lane 1's centre, 1.6 m from lane 0: order beats closeness", offsetFrom(x.a1, x.b1, 50.0, 0.0), {0, 0, 0}},
      {"1 mm inside lane 0's edge", offsetFrom(x.a0, x.b0, 30.0, -1.749), {0, 0, 0}},
      {"1 mm outside lane 0's edge", offsetFrom(x.a0, x.b0, 30.0, -1.751), {kNone, 0, 0}},
      {"1 mm inside lane 1's far edge", offsetFrom(x.a1, x.b1, 70.0, 1.749), {0, 0, 1}},
      {"1 mm outside lane 1's far edge", offsetFrom(x.a1, x.b1, 70.0, 1.751), {kNone, 0, 0}},
      {"on the centre line, 0.5 m before its first point", offsetFrom(x.a0, x.b0, -0.5, 0.0), {kNone, 0, 0}},
      {"on the centre line, 0.5 m beyond its last point", offsetFrom(x.a1, x.b1, len1 + 0.5, 0.0), {kNone, 0, 0}},
      {"on the last point", x.b0, {0, 0, 0}},
      {"1 m inside the bend", direct(x.corner, 285.0, 1.0), {0, 1, 0}},
      {"1 m outside the bend: no foot on either segment", direct(x.corner, 105.0, 1.0), {kNone, 0, 0}},
      {"far from every lane", direct(kOrigin, 0.0, 5000.0), {kNone, 0, 0}},
  };
  ASSERT_GT(len, 99.9);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    expectMatch(x.map, c.at, c.want);
  }
}

TEST(MatchLane, ExactlyHalfTheWidthAwayDoesNotMatch) {
  // On a lane's first point the distance is exactly 0: a lane 0 cm wide (half
  // width 0) must not take it, one 1 cm wide must.
  const LatLon a = stored(kOrigin), b = stored(direct(kOrigin, 90.0, 50.0));
  for (long width : {0L, 1L}) {
    SCOPED_TRACE(width);
    V2XAPP_GBMHANDLE map = buildMap({{kOrigin, {{{{1, width, {a, b}}}}}}});
    expectMatch(map, a, width == 0 ? Expect{kNone, 0, 0} : Expect{0, 0, 0});
    v2xapp_GBMapStrDel(&map);
  }
}

TEST(MatchLane, IncompleteElementsAreSkipped) {
  const LatLon a = stored(kOrigin), b = stored(direct(kOrigin, 0.0, 60.0)), p = offsetFrom(a, b, 30.0, 0.5);
  // Earlier in walk order than the complete lane, all on the same centre
  // line: a node without links, a lane without width, a lane of one point, a
  // lane whose first point has no position.
  V2XAPP_GBMHANDLE map = buildMap(
      {{kOrigin, {}}, {kOrigin, {{{{1, kNoWidth, {a, b}}, {2, 350, {a}}, {3, 350, {a, b}, true}, {4, 350, {a, b}}}}}}});
  expectMatch(map, p, {1, 0, 3});
  v2xapp_GBMapStrDel(&map);

  V2XAPP_GBMHANDLE empty = buildMap({});
  expectMatch(empty, p, {kNone, 0, 0});
  v2xapp_GBMapStrDel(&empty);
}

TEST(MatchLane, BadArgumentsAreRefused) {
  V2XAPP_GBMHANDLE map = buildMap({});
  c_pos3D_t veh{}, far{}, nan{};
  far.lat = 90.5;
  nan.lat = std::nan("");
  MapSearch_t res{};
  EXPECT_EQ(-2, v2xapp_GBMapMatchLane(nullptr, map, &res));
  EXPECT_EQ(-2, v2xapp_GBMapMatchLane(&veh, nullptr, &res));
  EXPECT_EQ(-2, v2xapp_GBMapMatchLane(&far, map, &res));
  EXPECT_EQ(-2, v2xapp_GBMapMatchLane(&nan, map, &res));
  V2XAPP_GBMMATCHER prepared = nullptr;
  EXPECT_EQ(-2, v2xapp_GBMapMatchPrepare(nullptr, &prepared));
  ASSERT_EQ(0, v2xapp_GBMapMatchPrepare(map, &prepared));
  EXPECT_EQ(-2, v2xapp_GBMapMatchPrepared(prepared, &nan, &res));
  EXPECT_EQ(-2, v2xapp_GBMapMatchPrepared(nullptr, &veh, &res));
  EXPECT_EQ(0, v2xapp_GBMapMatchRelease(&prepared));
  EXPECT_EQ(nullptr, prepared);
  EXPECT_EQ(-2, v2xapp_GBMapMatchRelease(&prepared));
  static_cast<MessageFrame_t*>(map)->present = MessageFrame_PR_bsmFrame;  // not a map: never read as one
  EXPECT_EQ(-2, v2xapp_GBMapMatchLane(&veh, map, &res));
  static_cast<MessageFrame_t*>(map)->present = MessageFrame_PR_mapFrame;
  v2xapp_GBMapStrDel(&map);
}

TEST(MatchLane, LogsEverySegmentWithAFootAndTheMatch) {
  LogCapture log;
  Crossing x;
  c_pos3D_t veh{};
  const LatLon at = offsetFrom(x.a0, x.b0, 50.0, 1.6);
  veh.lat = at.lat;
  veh.lon = at.lon;
  MapSearch_t res{};
  log.mark();
  ASSERT_EQ(0, v2xapp_GBMapMatchLane(&veh, x.map, &res));
  log.expect({":node=0  link=0  lane=0  pointnum=2 distance=1.600000,lanewidth=3.500000\n",
              ":map matched nodeIndex=0:linkINdex=0:laneIndex=0\n"});
}

// Every lane type reads back through the lane query (BuildAndQuery); here
// attributes without a type, and none at all.
TEST(MatchLane, LaneAttributesWithoutATypeReadAsNone) {
  LaneAttributes_t attr{};
  c_laneAttr_t out{};
  out.laneType = 8;
  out.laneTypeAttrBit = 0x1234;
  out.laneShareBit = 0x3FF;  // left to the caller
  EXPECT_EQ(0, v2xapp_GBMapPraseLaneAttributes(&attr, &out));
  EXPECT_TRUE(out.laneType == 0 && out.laneTypeAttrBit == 0 && out.laneShareBit == 0x3FF);
  EXPECT_EQ(-1, v2xapp_GBMapPraseLaneAttributes(nullptr, &out));
}

}  // namespace
