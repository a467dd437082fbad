// Shared by the MAP library tests: maps described as plain data and built
// through the library's builder, geodesic placement independent of the code
// under test, and the log lines written since a mark.
#ifndef MAPLIB_TEST_UTIL_H
#define MAPLIB_TEST_UTIL_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <GeographicLib/Geodesic.hpp>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "v2xapp_gbmap.h"
#include "v2xapp_gbmap_build.h"
#include "v2xlog.h"

namespace maplibtest {

constexpr long kNoWidth = -1;

struct LatLon {
  double lat, lon;  // degrees
};

struct LaneDesc {
  long laneId;
  long widthCm;                  // kNoWidth: the lane has none
  std::vector<LatLon> points;    // stored absolute, rounded to 1e-7 degree
  bool emptyFirstPoint = false;  // the first point carries no position
};
struct LinkDesc {
  std::vector<LaneDesc> lanes;
};
struct NodeDesc {
  LatLon ref;
  std::vector<LinkDesc> links;  // none: the node has no link list
};

inline int64_t units(double degrees) { return std::llround(degrees * 1e7); }

// Builds the map (absolute points); the caller frees it with v2xapp_GBMapStrDel.
inline V2XAPP_GBMHANDLE buildMap(const std::vector<NodeDesc>& nodes) {
  V2XAPP_GBMHANDLE map = nullptr;
  EXPECT_EQ(0, v2xapp_GBMapStrInit(&map));
  uint64_t nodeId = 1;
  for (const NodeDesc& n : nodes) {
    V2XAPP_GBMHANDLE node = nullptr;
    EXPECT_EQ(0, v2xapp_GBMapNodeInit(&node, nodeId++, nullptr, nullptr, 0));
    EXPECT_EQ(0, v2xapp_GBMapNodeSetRefPos(node, units(n.ref.lat), units(n.ref.lon), nullptr));
    for (const LinkDesc& l : n.links) {
      V2XAPP_GBMHANDLE link = nullptr;
      EXPECT_EQ(0, v2xapp_GBMapLinkInit(&link));
      for (const LaneDesc& s : l.lanes) {
        V2XAPP_GBMHANDLE lane = nullptr;
        EXPECT_EQ(0, v2xapp_GBMapLinkLaneInit(&lane, static_cast<uint64_t>(s.laneId)));
        if (s.widthCm != kNoWidth) v2xapp_GBMapLinkLaneSetLaneWidth(lane, static_cast<uint64_t>(s.widthCm));
        for (size_t i = 0; i < s.points.size(); ++i) {
          const uint16_t kind = (i == 0 && s.emptyFirstPoint) ? 0 : V2XAPP_GBMAP_POS_LATLON;
          v2xapp_GBMapLaneAddPoint(lane, kind, static_cast<uint64_t>(units(s.points[i].lat)),
                                   static_cast<uint64_t>(units(s.points[i].lon)), nullptr, 0);
        }
        EXPECT_EQ(0, v2xapp_GBMapLinkAddlane(link, lane));
      }
      EXPECT_EQ(0, v2xapp_GBMapNodeAddLink(node, link));
    }
    EXPECT_EQ(0, v2xapp_GBMapAddNode(map, node));
  }
  return map;
}

// A position as the map stores it: rounded to 1e-7 degree and read back.
inline LatLon stored(LatLon p) { return {units(p.lat) * 1e-7, units(p.lon) * 1e-7}; }

// Geodesic problems on WGS84 (GeographicLib, not the library's layer).
inline LatLon direct(LatLon from, double azimuth, double metres, double* aziAtEnd = nullptr) {
  LatLon to{};
  double azi2 = 0.0;
  GeographicLib::Geodesic::WGS84().Direct(from.lat, from.lon, azimuth, metres, to.lat, to.lon, azi2);
  if (aziAtEnd != nullptr) *aziAtEnd = azi2;
  return to;
}
inline double inverse(LatLon a, LatLon b, double* azi1 = nullptr) {
  double s12 = 0.0, a1 = 0.0, a2 = 0.0;
  GeographicLib::Geodesic::WGS84().Inverse(a.lat, a.lon, b.lat, b.lon, s12, a1, a2);
  if (azi1 != nullptr) *azi1 = a1;
  return s12;
}

// The point `along` metres from a towards b on the geodesic a-b, moved
// `aside` metres square to it (positive: to the right of a->b).
inline LatLon offsetFrom(LatLon a, LatLon b, double along, double aside) {
  double azi = 0.0, aziThere = 0.0;
  inverse(a, b, &azi);
  const LatLon onLine = direct(a, azi, along, &aziThere);
  return aside == 0.0 ? onLine : direct(onLine, aziThere + 90.0, aside);
}

// Log file of the test program at level 7 while it lives (level 0 after);
// lines written after mark(), and a check that each fragment is among them.
class LogCapture {
 public:
  LogCapture() : path_(::testing::TempDir() + "maplib_test_" + std::to_string(getpid()) + ".log") {
    std::remove(path_.c_str());
    v2xlog_Init(path_.c_str(), "TEST", 1, 0, 0);
    v2xlog_SetAllTagLevel(7);
    mark();
  }
  ~LogCapture() { v2xlog_SetAllTagLevel(0); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void mark() {
    v2xlog_Flush();
    std::ifstream in(path_, std::ios::ate);
    start_ = in ? static_cast<size_t>(in.tellg()) : 0;
  }
  std::string since() const {
    v2xlog_Flush();
    std::ifstream in(path_);
    std::stringstream ss;
    ss << in.rdbuf();
    const std::string all = ss.str();
    // Source paths as the repository names them: a build's path maps (./src/...)
    // or a compiler cache's relative paths (../../src/...) differ by their front.
    static const std::regex front(R"(\] (\.\.?/)+)");
    return start_ < all.size() ? std::regex_replace(all.substr(start_), front, "] ") : std::string();
  }
  void expect(std::initializer_list<const char*> fragments) const {
    const std::string text = since();
    for (const char* f : fragments) EXPECT_NE(text.find(f), std::string::npos) << f << " in\n" << text;
  }

 private:
  std::string path_;
  size_t start_ = 0;
};

}  // namespace maplibtest

#endif
