// The map as the export and drawing subcommands see it: every node, link and
// lane with absolute WGS84 positions and its attributes by name.
//
// One walk over a decoded MessageFrame fills it (map_tool_geometry.cpp); that
// walk is the only place in the tool that knows the frame's layout, and it
// resolves every point through the MAP library's offset decoding.
#ifndef V2X_MAP_TOOL_GEOMETRY_H
#define V2X_MAP_TOOL_GEOMETRY_H

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct MessageFrame;

namespace maptool {

// Degrees and metres. valid is false when the point's offset has no choice or
// lands outside latitude -90..90 / longitude -180..180 (such as the message
// set's "unavailable" values).
struct GeoPosition {
  bool valid = false;
  double lon = 0.0;
  double lat = 0.0;
  std::optional<double> elevation;
};

struct NodeRef {
  std::optional<long> region;
  long id = 0;
};

struct SpeedLimit {
  std::string type;  // the SpeedLimitType name, or its number for unknown values
  long speed = 0;    // 0.02 m/s
};

struct GeoMovement {
  NodeRef remote;
  std::optional<long> phase;
};

struct GeoConnection {
  NodeRef remote;
  std::optional<long> lane;  // the connecting lane's id
  std::optional<std::vector<std::string>> maneuvers;
  std::optional<long> phase;
};

struct GeoLane {
  long id = 0;
  std::optional<long> widthCm;
  std::optional<std::string> type;      // lane type alternative ("vehicle", ...)
  std::vector<std::string> attributes;  // set bits of the lane type's attributes
  std::optional<std::vector<std::string>> sharing;
  std::optional<std::vector<std::string>> maneuvers;
  std::vector<GeoConnection> connections;
  std::vector<SpeedLimit> speedLimits;
  std::vector<GeoPosition> points;  // upstream to downstream
};

struct GeoLink {
  std::optional<std::string> name;
  NodeRef upstream;
  long widthCm = 0;
  std::vector<SpeedLimit> speedLimits;
  std::vector<GeoMovement> movements;
  std::vector<GeoPosition> points;
  std::vector<GeoLane> lanes;
};

struct GeoNode {
  std::optional<std::string> name;
  NodeRef id;
  GeoPosition refPos;
  std::vector<GeoLink> links;
};

struct GeoMap {
  std::vector<GeoNode> nodes;
};

// Fills map from a frame holding the map message; false for another message.
bool mapGeometry(const MessageFrame& frame, GeoMap& map);

// Reads a map file of any of the three forms: a cloud map document (JSON, read
// with the service's own reader; a bare map body with "nodes" is accepted
// too), XER or UPER. Problems are reported through fail(); false then.
// documentText, when given, receives the text of a whole cloud document (one
// with "map") and is left empty for the other forms.
bool loadMap(const char* cmd, const std::string& path, GeoMap& map, std::string* documentText = nullptr);
// The same for a file's bytes already read (path names it in messages).
bool loadMapData(const char* cmd, const std::string& path, std::vector<uint8_t>& data, GeoMap& map,
                 std::string* documentText = nullptr);

constexpr double kPi = 3.14159265358979323846;

// Metres east and north of a centre position: a plane tangent to the WGS84
// ellipsoid there, scaled by its radii of curvature. Over the few kilometres
// of a map the error stays far below a pixel.
class Projection {
 public:
  Projection(double lat0, double lon0) : lat0_(lat0), lon0_(lon0) {
    constexpr double a = 6378137.0;
    constexpr double f = 1.0 / 298.257223563;
    constexpr double e2 = f * (2.0 - f);
    const double s = std::sin(lat0 * kPi / 180.0);
    const double w = 1.0 - e2 * s * s;
    mPerDegLat_ = a * (1.0 - e2) / (w * std::sqrt(w)) * kPi / 180.0;
    mPerDegLon_ = a / std::sqrt(w) * std::cos(lat0 * kPi / 180.0) * kPi / 180.0;
  }
  double east(const GeoPosition& p) const { return (p.lon - lon0_) * mPerDegLon_; }
  double north(const GeoPosition& p) const { return (p.lat - lat0_) * mPerDegLat_; }
  double lat0() const { return lat0_; }
  double lon0() const { return lon0_; }

 private:
  double lat0_, lon0_, mPerDegLat_, mPerDegLon_;
};

// "1-101" for region 1, node 101; "101" without a region.
std::string nodeName(const NodeRef& ref);

}  // namespace maptool

#endif
