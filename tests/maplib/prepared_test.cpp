// The prepared matcher against the plain walk: the same answer for every one
// of many seeded random positions around the lanes of random maps (crossing
// and overlapping lanes, bends, incomplete lanes, lanes up to 24 m wide,
// relative and absolute points).
#include <gtest/gtest.h>

#include <iomanip>
#include <random>

#include "maplib_test_util.h"
#include "v2xapp_gbmap_match.h"

using namespace maplibtest;

namespace {

struct Answer {
  int32_t rc;
  MapSearch_t at;
  bool operator==(const Answer& o) const {
    return rc == o.rc && (rc != 0 || (at.CurrentNode == o.at.CurrentNode && at.CurrentLink == o.at.CurrentLink &&
                                      at.CurrentLane == o.at.CurrentLane));
  }
};

// Random polyline lanes around a few nodes; some lanes run parallel to the
// previous one at less than their width, some lack a width or points.
std::vector<NodeDesc> randomMap(std::mt19937& rng) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  auto pick = [&](double lo, double hi) { return lo + (hi - lo) * unit(rng); };
  std::vector<NodeDesc> nodes(1 + rng() % 4);
  for (NodeDesc& n : nodes) {
    n.ref = direct({31.28, 121.16}, pick(0, 360), pick(0, 800));
    n.links.resize(rng() % 4);
    for (LinkDesc& l : n.links) {
      l.lanes.resize(1 + rng() % 4);
      for (size_t k = 0; k < l.lanes.size(); ++k) {
        LaneDesc& s = l.lanes[k];
        s.laneId = static_cast<long>(k + 1);
        const double r = unit(rng);
        s.widthCm = r < 0.05 ? kNoWidth : r < 0.08 ? 0 : static_cast<long>(r < 0.9 ? pick(100, 800) : pick(800, 2400));
        if (k > 0 && unit(rng) < 0.4) {  // beside the previous lane
          const double aside = pick(-4, 4);
          for (const LatLon& p : l.lanes[k - 1].points) s.points.push_back(direct(p, 90.0, aside));
          continue;
        }
        const size_t count = unit(rng) < 0.05 ? 1 : 2 + rng() % 5;
        double heading = pick(0, 360);
        s.points.push_back(direct(n.ref, pick(0, 360), pick(0, 150)));
        while (s.points.size() < count) {
          heading += pick(-70, 70);
          s.points.push_back(direct(s.points.back(), heading, pick(3, 120)));
        }
        s.emptyFirstPoint = unit(rng) < 0.03;
      }
    }
  }
  return nodes;
}

// Positions near the map's lanes: across them, at their points, beyond their
// ends, and anywhere around.
std::vector<LatLon> positionsAround(const std::vector<NodeDesc>& nodes, std::mt19937& rng, size_t count) {
  std::vector<std::pair<const LaneDesc*, size_t>> segments;
  for (const NodeDesc& n : nodes)
    for (const LinkDesc& l : n.links)
      for (const LaneDesc& s : l.lanes)
        for (size_t i = 0; i + 1 < s.points.size(); ++i) segments.emplace_back(&s, i);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<LatLon> out;
  while (out.size() < count) {
    const double r = unit(rng);
    if (segments.empty() || r < 0.15) {
      out.push_back(direct(nodes.empty() ? LatLon{31.28, 121.16} : nodes[rng() % nodes.size()].ref, unit(rng) * 360,
                           unit(rng) * 400));
      continue;
    }
    const auto& [lane, i] = segments[rng() % segments.size()];
    const LatLon a = stored(lane->points[i]), b = stored(lane->points[i + 1]);
    if (r < 0.25) {
      out.push_back(a);
      continue;
    }
    const double half = lane->widthCm > 0 ? static_cast<double>(lane->widthCm) / 200.0 : 1.5;
    const double length = inverse(a, b);
    // A tenth of the cases right at the half width, where the walk's
    // strict test decides by a hair.
    const double aside = unit(rng) < 0.1 ? (unit(rng) < 0.5 ? -half : half) : (unit(rng) * 2.4 - 1.2) * half;
    out.push_back(offsetFrom(a, b, (unit(rng) * 1.2 - 0.1) * length, aside));
  }
  return out;
}

// Answers of the walk, then of a matcher prepared from the map and asked
// after the map is gone. Returns how many positions matched a lane.
int compareOn(V2XAPP_GBMHANDLE& map, const std::vector<LatLon>& positions) {
  std::vector<c_pos3D_t> vehicles(positions.size());
  std::vector<Answer> walk(positions.size());
  for (size_t i = 0; i < positions.size(); ++i) {
    vehicles[i].lat = positions[i].lat;
    vehicles[i].lon = positions[i].lon;
    walk[i].rc = v2xapp_GBMapMatchLane(&vehicles[i], map, &walk[i].at);
  }
  V2XAPP_GBMMATCHER prepared = nullptr;
  EXPECT_EQ(0, v2xapp_GBMapMatchPrepare(map, &prepared));
  v2xapp_GBMapStrDel(&map);  // the prepared map is a snapshot
  int matched = 0;
  for (size_t i = 0; i < positions.size(); ++i) {
    Answer a{};
    a.rc = v2xapp_GBMapMatchPrepared(prepared, &vehicles[i], &a.at);
    EXPECT_EQ(walk[i], a) << "position " << i << " lat " << std::setprecision(17) << positions[i].lat << " lon "
                          << positions[i].lon << ": walk " << walk[i].rc << " " << walk[i].at.CurrentNode << "/"
                          << walk[i].at.CurrentLink << "/" << walk[i].at.CurrentLane << ", prepared " << a.rc << " "
                          << a.at.CurrentNode << "/" << a.at.CurrentLink << "/" << a.at.CurrentLane;
    matched += walk[i].rc == 0;
  }
  v2xapp_GBMapMatchRelease(&prepared);
  return matched;
}

TEST(PreparedMatcher, SameAnswersAsTheWalkOnRandomMaps) {
  v2xlog_SetAllTagLevel(0);
  std::mt19937 rng(20240611);
  int matched = 0, asked = 0;
  for (int round = 0; round < 150; ++round) {
    SCOPED_TRACE(round);
    const std::vector<NodeDesc> nodes = randomMap(rng);
    V2XAPP_GBMHANDLE map = buildMap(nodes);
    if (round % 2 == 1) {
      ASSERT_EQ(0, v2xapp_convAbsPoint2RelPoint(map));  // offsets resolve alike
    }
    const std::vector<LatLon> positions = positionsAround(nodes, rng, 100);
    matched += compareOn(map, positions);
    asked += static_cast<int>(positions.size());
  }
  EXPECT_GT(matched, asked / 5);  // the comparison says something about matches too
}

}  // namespace
