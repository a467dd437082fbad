// The geographic layer against GeographicLib's geodesic problems and plane
// geometry worked out by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "maplib_test_util.h"
#include "v2xcal.h"

using namespace maplibtest;

namespace {

const LatLon kOrigin{31.28, 121.16};

TEST(GeoPlane, PlacesPositionsAtTheirDistanceAndBearingAndBack) {
  struct Case {
    double azimuth, metres;
  } cases[] = {{0, 100}, {90, 100}, {225, 100}, {45, 2000}, {300, 5000}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.metres << " m at " << c.azimuth);
    const LatLon p = direct(kOrigin, c.azimuth, c.metres);
    v2xcal_xy_t xy{};
    ASSERT_EQ(0, v2xcal_GeoConvertLatLon2XY(kOrigin.lon, kOrigin.lat, 0.0, p.lon, p.lat, &xy));
    // A tangent plane shortens 5 km by well under a millimetre.
    const double rad = c.azimuth * M_PI / 180.0;
    EXPECT_NEAR(c.metres * std::sin(rad), xy.m_x, 1e-3);
    EXPECT_NEAR(c.metres * std::cos(rad), xy.m_y, 1e-3);
    v2xcal_lonlat_t back{};
    ASSERT_EQ(0, v2xcal_GeoConvertXY2LatLon(kOrigin.lon, kOrigin.lat, 0.0, xy.m_x, xy.m_y, &back));
    EXPECT_LT(inverse(p, {back.m_lat, back.m_lon}), 1e-6);
  }
  v2xcal_xy_t xy{1, 1};
  v2xcal_lonlat_t back{};
  ASSERT_EQ(0, v2xcal_GeoConvertLatLon2XY(kOrigin.lon, kOrigin.lat, 0.0, kOrigin.lon, kOrigin.lat, &xy));
  ASSERT_EQ(0, v2xcal_GeoConvertXY2LatLon(kOrigin.lon, kOrigin.lat, 0.0, 0.0, 0.0, &back));
  EXPECT_TRUE(xy.m_x == 0.0 && xy.m_y == 0.0 && back.m_lat == kOrigin.lat && back.m_lon == kOrigin.lon);
}

TEST(GeoPlane, FootOfThePerpendicularAndWhetherItLiesOnTheSegment) {
  const v2xcal_xy_t a{1, 1}, b{11, 1};
  struct Case {
    v2xcal_xy_t p, foot;
    uint8_t inRange;
  } cases[] = {
      {{6, 4}, {6, 1}, 1}, {{0, -2}, {0, 1}, 0}, {{11, 3}, {11, 1}, 1}, {{1, -5}, {1, 1}, 1}, {{11.5, 1}, {11.5, 1}, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.p.m_x << "," << c.p.m_y);
    v2xcal_xy_t foot{};
    uint8_t in = 9;
    ASSERT_EQ(0, v2xcal_GeoIsLineFootPInRange(&a, &b, &c.p, &foot, &in));
    EXPECT_DOUBLE_EQ(c.foot.m_x, foot.m_x);
    EXPECT_DOUBLE_EQ(c.foot.m_y, foot.m_y);
    EXPECT_EQ(c.inRange, in);
  }
  v2xcal_xy_t foot{}, p{3, 3};
  uint8_t in = 9;
  ASSERT_EQ(0, v2xcal_GeoIsLineFootPInRange(&a, &a, &p, &foot, &in));  // no segment, no perpendicular
  EXPECT_TRUE(in == 0 && foot.m_x == 1 && foot.m_y == 1);
}

TEST(GeoDistance, GeodesicOnWgs84AndBadInput) {
  double d = 0, azi1 = 0, azi2 = 0;
  ASSERT_EQ(0, v2xcal_GeoInvertConv(121.0, 31.0, 121.001, 31.0, &d, &azi1, &azi2));
  EXPECT_NEAR(95.5043, d, 1e-4);
  EXPECT_NEAR(90.0, azi1, 0.01);
  v2xcal_xy_t xy{};
  v2xcal_lonlat_t ll{};
  uint8_t in = 0;
  EXPECT_EQ(-2, v2xcal_GeoInvertConv(0, 91, 0, 0, &d, nullptr, nullptr));
  EXPECT_EQ(-2, v2xcal_GeoInvertConv(0, 0, 0, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(-2, v2xcal_GeoConvertLatLon2XY(121, 31, 0, NAN, 31, &xy));
  EXPECT_EQ(-2, v2xcal_GeoConvertXY2LatLon(121, 31, 0, 0, INFINITY, &ll));
  EXPECT_EQ(-2, v2xcal_GeoIsLineFootPInRange(&xy, &xy, nullptr, &xy, &in));
}

}  // namespace
