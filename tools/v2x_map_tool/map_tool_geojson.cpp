// "geojson": a map file (cloud JSON, UPER or XER) as a GeoJSON FeatureCollection
// (RFC 7946): a Point per node, a LineString per link and per lane, with
// absolute WGS84 positions, longitude first.
#include <cjson/cJSON.h>

#include <cmath>
#include <memory>

#include "map_tool.h"
#include "map_tool_geometry.h"

namespace {

using maptool::GeoLane;
using maptool::GeoLink;
using maptool::GeoNode;
using maptool::GeoPosition;

constexpr const char* kName = "geojson";

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

// Degrees to a billionth (well below the message set's 1e-7 degree), so that
// the printed numbers are the short decimal forms.
double roundDegrees(double v) { return std::round(v * 1e9) / 1e9; }

cJSON* position(const GeoPosition& p, bool withElevation) {
  cJSON* a = cJSON_CreateArray();
  cJSON_AddItemToArray(a, cJSON_CreateNumber(roundDegrees(p.lon)));
  cJSON_AddItemToArray(a, cJSON_CreateNumber(roundDegrees(p.lat)));
  if (withElevation) cJSON_AddItemToArray(a, cJSON_CreateNumber(std::round(*p.elevation * 10.0) / 10.0));
  return a;
}

// A Point, or a LineString of two or more positions; null when a position is
// not valid or a line has fewer than two (RFC 7946 allows an unlocated feature).
// Elevations are given only when every position has one.
cJSON* geometry(const std::vector<GeoPosition>& points, bool line) {
  bool allElevations = true;
  for (const GeoPosition& p : points) {
    if (!p.valid) return cJSON_CreateNull();
    allElevations = allElevations && p.elevation.has_value();
  }
  if (points.size() < (line ? 2U : 1U)) return cJSON_CreateNull();
  cJSON* g = cJSON_CreateObject();
  cJSON_AddStringToObject(g, "type", line ? "LineString" : "Point");
  if (!line) {
    cJSON_AddItemToObject(g, "coordinates", position(points[0], allElevations));
    return g;
  }
  cJSON* coords = cJSON_AddArrayToObject(g, "coordinates");
  for (const GeoPosition& p : points) cJSON_AddItemToArray(coords, position(p, allElevations));
  return g;
}

void addOptional(cJSON* o, const char* key, const std::optional<long>& v) {
  if (v) cJSON_AddNumberToObject(o, key, static_cast<double>(*v));
}

void addNames(cJSON* o, const char* key, const std::vector<std::string>& names) {
  cJSON* a = cJSON_AddArrayToObject(o, key);
  for (const std::string& n : names) cJSON_AddItemToArray(a, cJSON_CreateString(n.c_str()));
}

void addOptionalNames(cJSON* o, const char* key, const std::optional<std::vector<std::string>>& names) {
  if (names) addNames(o, key, *names);
}

cJSON* nodeRef(const maptool::NodeRef& ref) {
  cJSON* o = cJSON_CreateObject();
  addOptional(o, "region", ref.region);
  cJSON_AddNumberToObject(o, "id", static_cast<double>(ref.id));
  return o;
}

void addSpeedLimits(cJSON* o, const std::vector<maptool::SpeedLimit>& limits) {
  if (limits.empty()) return;
  cJSON* a = cJSON_AddArrayToObject(o, "speedLimits");
  for (const maptool::SpeedLimit& s : limits) {
    cJSON* e = cJSON_CreateObject();
    cJSON_AddStringToObject(e, "type", s.type.c_str());
    cJSON_AddNumberToObject(e, "speed", static_cast<double>(s.speed));  // 0.02 m/s
    cJSON_AddNumberToObject(e, "kmh", std::round(static_cast<double>(s.speed) * 0.72) / 10.0);
    cJSON_AddItemToArray(a, e);
  }
}

// Properties start with the kind and the ids that place the feature.
cJSON* feature(cJSON* geometry, const char* kind, const GeoNode& node, int linkIndex, const GeoLane* lane) {
  cJSON* f = cJSON_CreateObject();
  cJSON_AddStringToObject(f, "type", "Feature");
  cJSON_AddItemToObject(f, "geometry", geometry);
  cJSON* p = cJSON_AddObjectToObject(f, "properties");
  cJSON_AddStringToObject(p, "kind", kind);
  cJSON_AddNumberToObject(p, "nodeId", static_cast<double>(node.id.id));
  if (linkIndex >= 0) cJSON_AddNumberToObject(p, "linkIndex", linkIndex);
  if (lane != nullptr) cJSON_AddNumberToObject(p, "laneId", static_cast<double>(lane->id));
  addOptional(p, "region", node.id.region);
  return f;
}

cJSON* nodeFeature(const GeoNode& node) {
  cJSON* f = feature(geometry({node.refPos}, false), "node", node, -1, nullptr);
  cJSON* p = cJSON_GetObjectItemCaseSensitive(f, "properties");
  if (node.name) cJSON_AddStringToObject(p, "name", node.name->c_str());
  cJSON_AddNumberToObject(p, "linkCount", static_cast<double>(node.links.size()));
  return f;
}

cJSON* linkFeature(const GeoNode& node, int index, const GeoLink& link) {
  cJSON* f = feature(geometry(link.points, true), "link", node, index, nullptr);
  cJSON* p = cJSON_GetObjectItemCaseSensitive(f, "properties");
  if (link.name) cJSON_AddStringToObject(p, "name", link.name->c_str());
  cJSON_AddItemToObject(p, "upstreamNode", nodeRef(link.upstream));
  cJSON_AddNumberToObject(p, "linkWidth", static_cast<double>(link.widthCm));  // centimetres
  addSpeedLimits(p, link.speedLimits);
  if (!link.movements.empty()) {
    cJSON* a = cJSON_AddArrayToObject(p, "movements");
    for (const maptool::GeoMovement& m : link.movements) {
      cJSON* e = cJSON_CreateObject();
      cJSON_AddItemToObject(e, "remoteNode", nodeRef(m.remote));
      addOptional(e, "phaseId", m.phase);
      cJSON_AddItemToArray(a, e);
    }
  }
  cJSON_AddNumberToObject(p, "laneCount", static_cast<double>(link.lanes.size()));
  return f;
}

cJSON* laneFeature(const GeoNode& node, int index, const GeoLane& lane) {
  cJSON* f = feature(geometry(lane.points, true), "lane", node, index, &lane);
  cJSON* p = cJSON_GetObjectItemCaseSensitive(f, "properties");
  addOptional(p, "laneWidth", lane.widthCm);  // centimetres
  if (lane.type) {
    cJSON_AddStringToObject(p, "laneType", lane.type->c_str());
    addNames(p, "laneAttributes", lane.attributes);
  }
  addOptionalNames(p, "shareWith", lane.sharing);
  addOptionalNames(p, "maneuvers", lane.maneuvers);
  if (!lane.connections.empty()) {
    cJSON* a = cJSON_AddArrayToObject(p, "connectsTo");
    for (const maptool::GeoConnection& c : lane.connections) {
      cJSON* e = cJSON_CreateObject();
      cJSON_AddItemToObject(e, "remoteNode", nodeRef(c.remote));
      addOptional(e, "laneId", c.lane);
      addOptionalNames(e, "maneuvers", c.maneuvers);
      addOptional(e, "phaseId", c.phase);
      cJSON_AddItemToArray(a, e);
    }
  }
  addSpeedLimits(p, lane.speedLimits);
  return f;
}

// One feature a line, in map order: a node, then each of its links followed by
// the link's lanes.
bool appendFeature(std::string& out, cJSON* f) {
  Json owned(f, cJSON_Delete);
  char* text = cJSON_PrintUnformatted(f);
  if (text == nullptr) return false;
  if (out.back() != '\n') out += ",\n";
  out += text;
  cJSON_free(text);
  return true;
}

bool featureCollection(const maptool::GeoMap& map, std::string& out) {
  out = "{\"type\":\"FeatureCollection\",\"features\":[\n";
  for (const GeoNode& node : map.nodes) {
    if (!appendFeature(out, nodeFeature(node))) return false;
    for (size_t k = 0; k < node.links.size(); k++) {
      const GeoLink& link = node.links[k];
      if (!appendFeature(out, linkFeature(node, static_cast<int>(k), link))) return false;
      for (const GeoLane& lane : link.lanes) {
        if (!appendFeature(out, laneFeature(node, static_cast<int>(k), lane))) return false;
      }
    }
  }
  out += out.back() == '\n' ? "]}\n" : "\n]}\n";
  return true;
}

int runGeojson(int argc, char** argv) {
  const char* outPath = "-";
  std::vector<const char*> args;
  if (!maptool::parseArgs(kName, argc, argv, {{"-o", nullptr, &outPath, "a file name"}}, args, 1)) {
    return maptool::kExitUsage;
  }
  if (args.empty()) {
    maptool::fail(kName, "no input file (see --help)");
    return maptool::kExitUsage;
  }
  const char* path = args[0];
  maptool::GeoMap map;
  if (!maptool::loadMap(kName, path, map)) return maptool::kExitBadInput;
  std::string text;
  if (!featureCollection(map, text)) {
    maptool::fail(kName, "no memory for the output");
    return maptool::kExitBadInput;
  }
  if (!maptool::writeOutput(kName, outPath, text)) {
    return maptool::kExitBadInput;
  }
  return maptool::kExitOk;
}

}  // namespace

V2X_MAP_TOOL_COMMAND(kName, "export a map (cloud JSON, UPER or XER) as GeoJSON",
                     "usage: v2x_map_tool geojson FILE [-o OUT.geojson]\n"
                     "\n"
                     "Reads a map from FILE (\"-\" for standard input): a cloud map document (JSON,\n"
                     "read with the service's own reader), or a MessageFrame as XER or UPER. Writes\n"
                     "an RFC 7946 FeatureCollection (WGS84, longitude before latitude) to OUT or to\n"
                     "standard output, one feature a line:\n"
                     "\n"
                     "  Point       per node: kind \"node\", nodeId, region, name\n"
                     "  LineString  per link: kind \"link\", nodeId, linkIndex, name, upstreamNode,\n"
                     "              linkWidth (cm), speedLimits, movements\n"
                     "  LineString  per lane: kind \"lane\", nodeId, linkIndex, laneId, laneWidth (cm),\n"
                     "              laneType, laneAttributes, shareWith, maneuvers (bit names),\n"
                     "              connectsTo (remoteNode, laneId, maneuvers, phaseId), speedLimits\n"
                     "\n"
                     "Every offset form of the points is resolved against the node's reference\n"
                     "position. Speeds are in 0.02 m/s (\"kmh\" gives km/h). Positions carry the\n"
                     "elevation (m) when all of a feature's positions have one. A feature whose\n"
                     "positions are missing or out of range has a null geometry.\n"
                     "\n"
                     "Exit status 0 on success, 1 for an unreadable or refused map, 2 for a\n"
                     "wrong command line.\n",
                     runGeojson)
