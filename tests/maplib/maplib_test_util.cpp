// Helpers of the MAP library tests (see maplib_test_util.h).
#include "maplib_test_util.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <GeographicLib/Geodesic.hpp>
#include <cmath>
#include <fstream>
#include <sstream>

#include "v2xapp_gbmap_build.h"
#include "v2xlog.h"

namespace maplibtest {

namespace {

int64_t units(double degrees) { return std::llround(degrees * 1e7); }

}  // namespace

V2XAPP_GBMHANDLE buildMap(const std::vector<NodeSpec>& nodes) {
  V2XAPP_GBMHANDLE map = nullptr;
  EXPECT_EQ(0, v2xapp_GBMapStrInit(&map));
  uint64_t nodeId = 1;
  for (const NodeSpec& n : nodes) {
    V2XAPP_GBMHANDLE node = nullptr;
    EXPECT_EQ(0, v2xapp_GBMapNodeInit(&node, nodeId++, nullptr, nullptr, 0));
    EXPECT_EQ(0, v2xapp_GBMapNodeSetRefPos(node, units(n.ref.lat), units(n.ref.lon), nullptr));
    for (const LinkSpec& l : n.links) {
      V2XAPP_GBMHANDLE link = nullptr;
      EXPECT_EQ(0, v2xapp_GBMapLinkInit(&link));
      for (const LaneSpec& s : l.lanes) {
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

LatLon stored(LatLon p) { return {units(p.lat) * 1e-7, units(p.lon) * 1e-7}; }

LatLon direct(LatLon from, double azimuth, double metres, double* aziAtEnd) {
  LatLon to{};
  double azi2 = 0.0;
  GeographicLib::Geodesic::WGS84().Direct(from.lat, from.lon, azimuth, metres, to.lat, to.lon, azi2);
  if (aziAtEnd != nullptr) *aziAtEnd = azi2;
  return to;
}

double inverse(LatLon a, LatLon b, double* azi1) {
  double s12 = 0.0, a1 = 0.0, a2 = 0.0;
  GeographicLib::Geodesic::WGS84().Inverse(a.lat, a.lon, b.lat, b.lon, s12, a1, a2);
  if (azi1 != nullptr) *azi1 = a1;
  return s12;
}

LatLon offsetFrom(LatLon a, LatLon b, double along, double aside) {
  double azi = 0.0, aziThere = 0.0;
  inverse(a, b, &azi);
  const LatLon onLine = direct(a, azi, along, &aziThere);
  return aside == 0.0 ? onLine : direct(onLine, aziThere + 90.0, aside);
}

LogCapture::LogCapture() : path_(::testing::TempDir() + "maplib_test_" + std::to_string(getpid()) + ".log") {
  std::remove(path_.c_str());
  v2xlog_Init(path_.c_str(), "TEST", 1, 0, 0);
  v2xlog_SetAllTagLevel(7);
  mark();
}

LogCapture::~LogCapture() { v2xlog_SetAllTagLevel(0); }

void LogCapture::mark() {
  v2xlog_Flush();
  std::ifstream in(path_, std::ios::ate);
  start_ = in ? static_cast<size_t>(in.tellg()) : 0;
}

std::string LogCapture::since() const {
  v2xlog_Flush();
  std::ifstream in(path_);
  std::stringstream ss;
  ss << in.rdbuf();
  const std::string all = ss.str();
  return start_ < all.size() ? all.substr(start_) : std::string();
}

}  // namespace maplibtest
