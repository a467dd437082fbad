// Prepared lane matcher: the map's segments placed once, a bounding box per
// node and a grid per node plane, so that a query runs the walk's exact test
// only on the few segments that could pass it.
//
// Why the answers equal the walk's: candidates are taken in walk order
// (nodes in order, segment indexes ascending within a node) and accepted only
// by the walk's own steps (gbmap_match_core.h) on the same placed segments.
// Every filter in front of them is conservative, resting on one fact: a
// plane of v2xcal is an orthogonal projection, so plane distances never
// exceed geodesic ones. A segment that would pass has the vehicle closer than
// half the lane width to a point of its centre line; the filters only drop
// segments for which that cannot hold, with margins far above the few
// millimetres by which two planes of one intersection disagree.
#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>
#include <vector>

#include "gbmap_match_core.h"
#include "v2xapp_gbmap_match.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

constexpr double kEarthRadius = 6.3e6;         // smaller than any radius of curvature: bounds err on the safe side
constexpr double kPlaneReach = 50000.0;        // metres from its plane's origin within which a segment is filtered
constexpr double kMaxFilterLat = 70.0;         // nearer the poles every segment of a node is tested
constexpr double kFootSlack = 0.01;            // metres: above the plane round trip's error within kPlaneReach
constexpr double kMetresPerDegLat = 110000.0;  // less than any degree of latitude on WGS84
constexpr double kMetresPerDegLon = 111000.0;  // times cos(latitude): less than any degree of longitude there
constexpr int kGridCells = 64;                 // cells along the longer side of a node's grid

struct Segment {
  int32_t m_node;
  int32_t m_link;
  int32_t m_lane;
  double m_width;                 // lane width, metres
  gbmap::PlacedSegment m_placed;  // as the walk places it
  v2xcal_xy_t m_a;                // ends in the node's plane
  v2xcal_xy_t m_b;
  double m_reach;  // distance in the node's plane within which the vehicle may match
};

struct NodeIndex {
  double m_origLon = 0.0;  // the node's plane
  double m_origLat = 0.0;
  bool m_everywhere = false;  // no bounding box: the node is searched for every position
  double m_minLat = 0.0, m_maxLat = 0.0, m_minLon = 0.0, m_maxLon = 0.0;
  double m_x0 = 0.0, m_y0 = 0.0, m_cell = 1.0;
  int m_nx = 0, m_ny = 0;
  std::vector<uint32_t> m_cellStart;  // m_nx * m_ny + 1 offsets into m_cellSegs
  std::vector<uint32_t> m_cellSegs;   // segment indexes, ascending within a cell
  std::vector<uint32_t> m_always;     // segments no filter judges, ascending
};

double normLon(double lon) { return std::remainder(lon, 360.0); }

double dist2ToSegment(const v2xcal_xy_t& p, const v2xcal_xy_t& a, const v2xcal_xy_t& b) {
  const double dx = b.m_x - a.m_x, dy = b.m_y - a.m_y;
  const double len2 = dx * dx + dy * dy;
  double t = len2 > 0.0 ? ((p.m_x - a.m_x) * dx + (p.m_y - a.m_y) * dy) / len2 : 0.0;
  t = std::clamp(t, 0.0, 1.0);
  const double ex = a.m_x + t * dx - p.m_x, ey = a.m_y + t * dy - p.m_y;
  return ex * ex + ey * ey;
}

// Grows the node's box by the reach of segment A-B (degrees); false when no
// box can bound it (near a pole, across the date line).
bool growBox(NodeIndex& n, bool first, const c_pos3D_t& A, const c_pos3D_t& B, double reach, double length) {
  const double phi = std::max(std::fabs(A.lat), std::fabs(B.lat));
  if (phi > kMaxFilterLat) return false;
  const double rad = phi * std::numbers::pi / 180.0;
  // How far the centre line may stray from the box of its ends.
  const double bulge = length * length * (1.0 + std::tan(rad)) / (kEarthRadius * std::cos(rad) * std::cos(rad));
  const double e = reach + 1.0 + bulge;
  const double dLat = e / kMetresPerDegLat;
  const double edge = (phi + dLat) * std::numbers::pi / 180.0;
  if (phi + dLat >= 85.0) return false;
  const double dLon = e / (kMetresPerDegLon * std::cos(edge));
  const double lonA = normLon(A.lon), lonB = normLon(B.lon);
  if (std::fabs(lonA - lonB) > 180.0) return false;
  const double minLon = std::min(lonA, lonB) - dLon, maxLon = std::max(lonA, lonB) + dLon;
  if (minLon < -180.0 || maxLon > 180.0) return false;
  const double minLat = std::min(A.lat, B.lat) - dLat, maxLat = std::max(A.lat, B.lat) + dLat;
  n.m_minLat = first ? minLat : std::min(n.m_minLat, minLat);
  n.m_maxLat = first ? maxLat : std::max(n.m_maxLat, maxLat);
  n.m_minLon = first ? minLon : std::min(n.m_minLon, minLon);
  n.m_maxLon = first ? maxLon : std::max(n.m_maxLon, maxLon);
  return true;
}

// Places segment `s` in its node's plane; false when it is too far or too long
// for the plane's margins to hold.
bool placeInNode(const NodeIndex& n, const c_pos3D_t& A, const c_pos3D_t& B, Segment& s, double& length) {
  if (v2xcal_GeoConvertLatLon2XY(n.m_origLon, n.m_origLat, 0.0, A.lon, A.lat, &s.m_a) != 0 ||
      v2xcal_GeoConvertLatLon2XY(n.m_origLon, n.m_origLat, 0.0, B.lon, B.lat, &s.m_b) != 0) {
    return false;
  }
  length = std::hypot(s.m_b.m_x - s.m_a.m_x, s.m_b.m_y - s.m_a.m_y);
  const double r = std::max(std::hypot(s.m_a.m_x, s.m_a.m_y), std::hypot(s.m_b.m_x, s.m_b.m_y));
  if (!(length <= kPlaneReach && r <= kPlaneReach)) return false;
  // Half the width, plus what the segment's own plane and the node's may
  // disagree on over its length (millimetres for an intersection's lanes).
  s.m_reach =
      s.m_width / 2.0 + 0.05 + 1e-4 * length + 8.0 * length * length * (r + length) / (kEarthRadius * kEarthRadius);
  return true;
}

// Builds the node's grid over its filtered segments (indexes [first, end)).
void buildGrid(NodeIndex& n, const std::vector<Segment>& segs, const std::vector<uint32_t>& filtered) {
  if (filtered.empty()) return;
  double minX = HUGE_VAL, minY = HUGE_VAL, maxX = -HUGE_VAL, maxY = -HUGE_VAL;
  for (uint32_t i : filtered) {
    const Segment& s = segs[i];
    minX = std::min({minX, s.m_a.m_x - s.m_reach, s.m_b.m_x - s.m_reach});
    minY = std::min({minY, s.m_a.m_y - s.m_reach, s.m_b.m_y - s.m_reach});
    maxX = std::max({maxX, s.m_a.m_x + s.m_reach, s.m_b.m_x + s.m_reach});
    maxY = std::max({maxY, s.m_a.m_y + s.m_reach, s.m_b.m_y + s.m_reach});
  }
  n.m_x0 = minX;
  n.m_y0 = minY;
  n.m_cell = std::max(2.0, std::max(maxX - minX, maxY - minY) / kGridCells);
  n.m_nx = static_cast<int>((maxX - minX) / n.m_cell) + 1;
  n.m_ny = static_cast<int>((maxY - minY) / n.m_cell) + 1;
  std::vector<std::vector<uint32_t>> cells(static_cast<size_t>(n.m_nx) * static_cast<size_t>(n.m_ny));
  const double halfDiagonal = n.m_cell * std::numbers::sqrt2 / 2.0;
  for (uint32_t i : filtered) {
    const Segment& s = segs[i];
    const double near = s.m_reach + halfDiagonal;
    const int cx0 = static_cast<int>((std::min(s.m_a.m_x, s.m_b.m_x) - s.m_reach - n.m_x0) / n.m_cell);
    const int cx1 = static_cast<int>((std::max(s.m_a.m_x, s.m_b.m_x) + s.m_reach - n.m_x0) / n.m_cell);
    const int cy0 = static_cast<int>((std::min(s.m_a.m_y, s.m_b.m_y) - s.m_reach - n.m_y0) / n.m_cell);
    const int cy1 = static_cast<int>((std::max(s.m_a.m_y, s.m_b.m_y) + s.m_reach - n.m_y0) / n.m_cell);
    for (int cy = std::max(cy0, 0); cy <= std::min(cy1, n.m_ny - 1); ++cy) {
      for (int cx = std::max(cx0, 0); cx <= std::min(cx1, n.m_nx - 1); ++cx) {
        const v2xcal_xy_t centre{n.m_x0 + (cx + 0.5) * n.m_cell, n.m_y0 + (cy + 0.5) * n.m_cell};
        if (dist2ToSegment(centre, s.m_a, s.m_b) <= near * near)
          cells[static_cast<size_t>(cy) * n.m_nx + cx].push_back(i);
      }
    }
  }
  n.m_cellStart.assign(1, 0);
  for (const auto& c : cells) {
    n.m_cellSegs.insert(n.m_cellSegs.end(), c.begin(), c.end());
    n.m_cellStart.push_back(static_cast<uint32_t>(n.m_cellSegs.size()));
  }
}

}  // namespace

struct v2xapp_GBMapMatcher {
  std::vector<Segment> m_segments;  // in walk order
  std::vector<NodeIndex> m_nodes;

  void prepare(const MapData_t& map);
  // The walk's exact test of one segment.
  bool accepts(const Segment& s, double lon, double lat) const;
  // First segment of node `n` that accepts the position, or -1.
  int64_t search(const NodeIndex& n, double lon, double lat) const;
};

void v2xapp_GBMapMatcher::prepare(const MapData_t& map) {
  for (int ifornode = 0; ifornode < map.nodes.list.count; ++ifornode) {
    const Node_t* node = map.nodes.list.array[ifornode];
    if (node == nullptr || node->inLinks == nullptr) continue;
    const c_pos3D_t ref = gbmap::nodeReference(*node);
    NodeIndex n;
    n.m_origLon = ref.lon;
    n.m_origLat = ref.lat;
    std::vector<uint32_t> filtered;
    for (int iforlink = 0; iforlink < node->inLinks->list.count; ++iforlink) {
      const Link_t* link = node->inLinks->list.array[iforlink];
      if (link == nullptr) continue;
      for (int iforlane = 0; iforlane < link->lanes.list.count; ++iforlane) {
        const Lane_t* lane = link->lanes.list.array[iforlane];
        double width = 0.0;
        // A lane without a positive width never matches: no distance is below half of it.
        if (lane == nullptr || lane->points == nullptr || !gbmap::laneWidthMetres(*lane, width) || !(width > 0.0)) {
          continue;
        }
        for (int i = 0; i + 1 < lane->points->list.count; ++i) {
          Segment s{ifornode, iforlink, iforlane, width, {}, {}, {}, 0.0};
          c_pos3D_t A{}, B{};
          if (!gbmap::resolvePoint(lane->points->list.array[i], ref, A) ||
              !gbmap::resolvePoint(lane->points->list.array[i + 1], ref, B) || !gbmap::placeSegment(A, B, s.m_placed)) {
            continue;  // the walk skips it as well
          }
          const auto index = static_cast<uint32_t>(m_segments.size());
          double length = 0.0;
          if (placeInNode(n, A, B, s, length) && growBox(n, filtered.empty(), A, B, s.m_reach, length)) {
            filtered.push_back(index);
          } else {
            n.m_always.push_back(index);
            n.m_everywhere = true;
          }
          m_segments.push_back(s);
        }
      }
    }
    if (filtered.empty() && n.m_always.empty()) continue;
    buildGrid(n, m_segments, filtered);
    m_nodes.push_back(std::move(n));
  }
}

bool v2xapp_GBMapMatcher::accepts(const Segment& s, double lon, double lat) const {
  gbmap::PlaneFoot foot{};
  if (!gbmap::footInPlane(s.m_placed, lon, lat, foot)) return false;
  // The plane distance from vehicle to foot never exceeds the geodesic one:
  // well beyond half the width, the geodesic test cannot pass.
  const double plane = std::hypot(foot.m_p.m_x - foot.m_foot.m_x, foot.m_p.m_y - foot.m_foot.m_y);
  if (std::hypot(foot.m_foot.m_x, foot.m_foot.m_y) <= kPlaneReach && plane > s.m_width / 2.0 + kFootSlack) {
    return false;
  }
  double distance = 0.0;
  return gbmap::footDistance(s.m_placed, foot, lon, lat, distance) && gbmap::withinHalfWidth(distance, s.m_width);
}

int64_t v2xapp_GBMapMatcher::search(const NodeIndex& n, double lon, double lat) const {
  const uint32_t* cand = nullptr;
  const uint32_t* candEnd = nullptr;
  v2xcal_xy_t p{};
  if (!n.m_cellStart.empty() && v2xcal_GeoConvertLatLon2XY(n.m_origLon, n.m_origLat, 0.0, lon, lat, &p) == 0) {
    const double fx = std::floor((p.m_x - n.m_x0) / n.m_cell), fy = std::floor((p.m_y - n.m_y0) / n.m_cell);
    if (fx >= 0 && fy >= 0 && fx < n.m_nx && fy < n.m_ny) {
      const size_t c = static_cast<size_t>(fy) * static_cast<size_t>(n.m_nx) + static_cast<size_t>(fx);
      cand = n.m_cellSegs.data() + n.m_cellStart[c];
      candEnd = n.m_cellSegs.data() + n.m_cellStart[c + 1];
    }
  }
  // Both lists ascend: merged, they give the node's candidates in walk order.
  auto always = n.m_always.begin();
  while (cand != candEnd || always != n.m_always.end()) {
    const bool fromGrid = always == n.m_always.end() || (cand != candEnd && *cand < *always);
    const uint32_t i = fromGrid ? *cand++ : *always++;
    const Segment& s = m_segments[i];
    if (fromGrid && dist2ToSegment(p, s.m_a, s.m_b) >= s.m_reach * s.m_reach) continue;
    if (accepts(s, lon, lat)) return i;
  }
  return -1;
}

extern "C" {

int32_t v2xapp_GBMapMatchPrepare(V2XAPP_GBMHANDLE mapHandle, V2XAPP_GBMMATCHER* p_matcher) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const MapData_t* map = gbmap::mapOf(mapHandle);
  if (map == nullptr || p_matcher == nullptr) {
    GBLOG(&g_curTag, 2, "null argument or not a map frame");
  } else {
    auto* matcher = new (std::nothrow) v2xapp_GBMapMatcher;
    try {
      if (matcher != nullptr) matcher->prepare(*map);
      ret = matcher != nullptr ? 0 : -3;
    } catch (const std::bad_alloc&) {
      ret = -3;
    }
    if (ret == 0) {
      *p_matcher = matcher;
      GBLOG(&g_curTag, 5, "prepared %zu segments of %zu nodes", matcher->m_segments.size(), matcher->m_nodes.size());
    } else {
      GBLOG(&g_curTag, 2, "no memory to prepare the map");
      delete matcher;
    }
  }
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapMatchPrepared(V2XAPP_GBMMATCHER matcher, const c_pos3D_t* vehpos, MapSearch_t* mapresult) {
  if (matcher == nullptr || vehpos == nullptr || mapresult == nullptr) {
    GBLOG(&g_curTag, 2, "null argument");
    return -2;
  }
  const double lat = vehpos->lat, lon = vehpos->lon;
  if (!gbmap::vehicleUsable(lat, lon)) {
    GBLOG(&g_curTag, 2, "vehicle position lat=%f lon=%f unusable", lat, lon);
    return -2;
  }
  const double boxLon = normLon(lon);
  for (const NodeIndex& n : matcher->m_nodes) {
    if (!n.m_everywhere && (lat < n.m_minLat || lat > n.m_maxLat || boxLon < n.m_minLon || boxLon > n.m_maxLon)) {
      continue;
    }
    const int64_t i = matcher->search(n, lon, lat);
    if (i < 0) continue;
    const Segment& s = matcher->m_segments[static_cast<size_t>(i)];
    GBLOG(&g_curTag, 6, "map matched nodeIndex=%d:linkINdex=%d:laneIndex=%d", s.m_node, s.m_link, s.m_lane);
    mapresult->CurrentLane = s.m_lane;
    mapresult->CurrentLink = s.m_link;
    mapresult->CurrentNode = s.m_node;
    return 0;
  }
  return -1;
}

int32_t v2xapp_GBMapMatchRelease(V2XAPP_GBMMATCHER* p_matcher) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  if (p_matcher != nullptr && *p_matcher != nullptr) {
    delete *p_matcher;
    *p_matcher = nullptr;
    ret = 0;
  }
  GBLOG_END(&g_curTag, ret);
  return ret;
}

}  // extern "C"
