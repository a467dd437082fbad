// Geographic conversions over GeographicLib: the tangent plane of an origin
// (LocalCartesian, height dropped) and geodesic distances (Geodesic::WGS84).
#include "v2xcal.h"

#include <GeographicLib/Geodesic.hpp>
#include <GeographicLib/LocalCartesian.hpp>
#include <cmath>

#include "v2xlog.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "GCAL"};

bool isLat(double lat) { return std::isfinite(lat) && lat >= -90.0 && lat <= 90.0; }

bool isOrigin(double origLon, double origLat, double origElev) {
  return isLat(origLat) && std::isfinite(origLon) && std::isfinite(origElev);
}

}  // namespace

extern "C" {

int32_t v2xcal_GeoConvertLatLon2XY(double origLon, double origLat, double origElev, double lon, double lat,
                                   v2xcal_xy_t* xy) {
  if (xy == nullptr) {
    V2XLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  if (!isOrigin(origLon, origLat, origElev) || !isLat(lat) || !std::isfinite(lon)) return -2;
  const GeographicLib::LocalCartesian plane(origLat, origLon, origElev);
  double x = 0.0, y = 0.0, z = 0.0;
  plane.Forward(lat, lon, origElev, x, y, z);
  xy->m_x = x;
  xy->m_y = y;
  return 0;
}

int32_t v2xcal_GeoConvertXY2LatLon(double origLon, double origLat, double origElev, double x, double y,
                                   v2xcal_lonlat_t* pos) {
  if (pos == nullptr) {
    V2XLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  if (!isOrigin(origLon, origLat, origElev) || !std::isfinite(x) || !std::isfinite(y)) return -2;
  if (x == 0.0 && y == 0.0) {  // no round trip through geocentric space for the origin
    pos->m_lon = origLon;
    pos->m_lat = origLat;
    return 0;
  }
  const GeographicLib::LocalCartesian plane(origLat, origLon, origElev);
  // The plane point itself lies above the surface; the wanted position lies
  // below it on the origin's vertical. Its depth is taken from the position
  // straight under the plane point, then the plane point at that depth is
  // brought to the surface: what is left is far below a micrometre.
  double lat = 0.0, lon = 0.0, h = 0.0, fx = 0.0, fy = 0.0, depth = 0.0;
  plane.Reverse(x, y, 0.0, lat, lon, h);
  plane.Forward(lat, lon, origElev, fx, fy, depth);
  plane.Reverse(x, y, depth, lat, lon, h);
  pos->m_lon = lon;
  pos->m_lat = lat;
  return 0;
}

int32_t v2xcal_GeoIsLineFootPInRange(const v2xcal_xy_t* a, const v2xcal_xy_t* b, const v2xcal_xy_t* p,
                                     v2xcal_xy_t* foot, uint8_t* inRange) {
  if (a == nullptr || b == nullptr || p == nullptr || foot == nullptr || inRange == nullptr) {
    V2XLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  const double dx = b->m_x - a->m_x;
  const double dy = b->m_y - a->m_y;
  const double px = p->m_x - a->m_x;
  const double py = p->m_y - a->m_y;
  if (!std::isfinite(dx) || !std::isfinite(dy) || !std::isfinite(px) || !std::isfinite(py)) return -2;
  const double len2 = dx * dx + dy * dy;
  if (len2 == 0.0) {
    *foot = *a;
    *inRange = 0;
    return 0;
  }
  // Position of the foot along the segment: 0 at a, 1 at b.
  const double t = (px * dx + py * dy) / len2;
  foot->m_x = a->m_x + t * dx;
  foot->m_y = a->m_y + t * dy;
  *inRange = (t >= 0.0 && t <= 1.0) ? 1 : 0;
  return 0;
}

int32_t v2xcal_GeoInvertConv(double lon1, double lat1, double lon2, double lat2, double* distance, double* azi1,
                             double* azi2) {
  if (distance == nullptr) {
    V2XLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  if (!isLat(lat1) || !isLat(lat2) || !std::isfinite(lon1) || !std::isfinite(lon2)) return -2;
  double s12 = 0.0, a1 = 0.0, a2 = 0.0;
  GeographicLib::Geodesic::WGS84().Inverse(lat1, lon1, lat2, lon2, s12, a1, a2);
  *distance = s12;
  if (azi1 != nullptr) *azi1 = a1;
  if (azi2 != nullptr) *azi2 = a2;
  return 0;
}

}  // extern "C"
