// Shared by the MAP library tests: maps described as plain data and built
// through the library's builder, geodesic placement independent of the code
// under test, and the log lines written since a mark.
#ifndef MAPLIB_TEST_UTIL_H
#define MAPLIB_TEST_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "v2xapp_gbmap.h"

namespace maplibtest {

constexpr long kNoWidth = -1;

struct LatLon {
  double lat, lon;  // degrees
};

struct LaneSpec {
  long laneId;
  long widthCm;                  // kNoWidth: the lane has none
  std::vector<LatLon> points;    // stored absolute, rounded to 1e-7 degree
  bool emptyFirstPoint = false;  // the first point carries no position
};
struct LinkSpec {
  std::vector<LaneSpec> lanes;
};
struct NodeSpec {
  LatLon ref;
  std::vector<LinkSpec> links;  // none: the node has no link list
};

// Builds the map (absolute points); the caller frees it with v2xapp_GBMapStrDel.
V2XAPP_GBMHANDLE buildMap(const std::vector<NodeSpec>& nodes);

// A position as the map stores it: rounded to 1e-7 degree and read back.
LatLon stored(LatLon p);
// Geodesic problems on WGS84 (GeographicLib, not the library's layer).
LatLon direct(LatLon from, double azimuth, double metres, double* aziAtEnd = nullptr);
double inverse(LatLon a, LatLon b, double* azi1 = nullptr);
// The point `along` metres from a towards b on the geodesic a-b, moved
// `aside` metres square to it (positive: to the right of a->b).
LatLon offsetFrom(LatLon a, LatLon b, double along, double aside);

// Log file of the test program at level 7 while it lives (level 0 after);
// lines written after mark().
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  void mark();
  std::string since() const;

 private:
  std::string path_;
  size_t start_ = 0;
};

}  // namespace maplibtest

#endif
