// The map as the export and drawing subcommands see it: every node, link and
// lane with absolute WGS84 positions and its attributes by name.
//
// One walk over a decoded MessageFrame fills it (map_tool_geometry.cpp); that
// walk is the only place in the tool that knows the frame's layout, and it
// resolves every point through the MAP library's offset decoding.
#ifndef V2X_MAP_TOOL_GEOMETRY_H
#define V2X_MAP_TOOL_GEOMETRY_H

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

// "1-101" for region 1, node 101; "101" without a region.
std::string nodeName(const NodeRef& ref);

}  // namespace maptool

#endif
