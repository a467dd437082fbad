// The walk from a decoded MessageFrame to the tool's map geometry: absolute
// positions through the MAP library's offset decoding, bit strings and
// enumerations by their names in the message set's ASN.1 module.
#include "map_tool_geometry.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "INTEGER.h"
#include "MessageFrame.h"
#include "v2xapp_commoncodec.h"

namespace maptool {
namespace {

// Bit names in bit order, as the ASN.1 module declares them.
using BitNames = std::vector<const char*>;

const BitNames kManeuverBits = {
    "maneuverStraightAllowed",
    "maneuverLeftAllowed",
    "maneuverRightAllowed",
    "maneuverUTurnAllowed",
    "maneuverLeftTurnOnRedAllowed",
    "maneuverRightTurnOnRedAllowed",
    "maneuverLaneChangeAllowed",
    "maneuverNoStoppingAllowed",
    "yieldAllwaysRequired",
    "goWithHalt",
    "caution",
    "reserved1",
};
const BitNames kSharingBits = {
    "overlappingLaneDescriptionProvided",
    "multipleLanesTreatedAsOneLane",
    "otherNonMotorizedTrafficTypes",
    "individualMotorizedVehicleTraffic",
    "busVehicleTraffic",
    "taxiVehicleTraffic",
    "pedestriansTraffic",
    "cyclistVehicleTraffic",
    "trackedVehicleTraffic",
    "pedestrianTraffic",
};
// Indexed by LaneTypeAttributes_PR - 1.
const BitNames kLaneTypeBits[] = {
    {"isVehicleRevocableLane", "isRampLane", "hovLaneUseOnly", "restrictedToBusUse", "restrictedToTaxiUse",
     "restrictedFromPublicUse", "emergencyLane", "permissionOnRequest"},
    {"crosswalkRevocableLane", "bicyleUseAllowed", "isXwalkFlyOverLane", "fixedCycleTime", "biDirectionalCycleTimes",
     "hasPushToWalkButton", "audioSupport", "rfSignalRequestPresent", "unsignalizedSegmentsPresent"},
    {"bikeRevocableLane", "pedestrianUseAllowed", "isBikeFlyOverLane", "fixedCycleTime", "biDirectionalCycleTimes",
     "isolatedByBarrier", "unsignalizedSegmentsPresent"},
    {"sidewalk-RevocableLane", "bicyleUseAllowed", "isSidewalkFlyOverLane", "walkBikes"},
    {"median-RevocableLane", "median", "whiteLineHashing", "stripedLines", "doubleStripedLines", "trafficCones",
     "constructionBarrier", "trafficChannels", "lowCurbs", "highCurbs"},
    {"stripeToConnectingLanesRevocableLane", "stripeDrawOnLeft", "stripeDrawOnRight", "stripeToConnectingLanesLeft",
     "stripeToConnectingLanesRight", "stripeToConnectingLanesAhead"},
    {"spec-RevocableLane", "spec-commuterRailRoadTrack", "spec-lightRailRoadTrack", "spec-heavyRailRoadTrack",
     "spec-otherRailType"},
    {"parkingRevocableLane", "parallelParkingInUse", "headInParkingInUse", "doNotParkZone", "parkingForBusUse",
     "parkingForTaxiUse", "noPublicParkingUse"},
};
static_assert(std::size(kLaneTypeBits) == LaneTypeAttributes_PR_parking);

// Names of the set bits (ASN.1 bit 0 is the first byte's highest bit); bits
// the module does not name come out as "bitN".
std::vector<std::string> bitNames(const BIT_STRING_t& bits, const BitNames& names) {
  std::vector<std::string> out;
  if (bits.buf == nullptr) return out;
  const size_t total = bits.size * 8 - static_cast<size_t>(bits.bits_unused & 7);
  for (size_t i = 0; i < total; i++) {
    if ((bits.buf[i / 8] & (0x80U >> (i % 8))) == 0) continue;
    out.emplace_back(i < names.size() ? std::string(names[i]) : "bit" + std::to_string(i));
  }
  return out;
}

std::optional<std::vector<std::string>> optionalBits(const BIT_STRING_t* bits, const BitNames& names) {
  if (bits == nullptr) return std::nullopt;
  return bitNames(*bits, names);
}

// Text of a name as valid UTF-8: bytes that do not form UTF-8 become U+FFFD,
// control characters '?'. Names come from documents and frames unchecked.
std::string cleanText(const uint8_t* p, size_t n) {
  std::string out;
  for (size_t i = 0; i < n;) {
    const uint8_t c = p[i];
    if (c < 0x80) {
      out += (c < 0x20 || c == 0x7F) ? '?' : static_cast<char>(c);
      i++;
      continue;
    }
    size_t len = c >= 0xF0 && c <= 0xF4 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c <= 0xDF ? 2 : 0;
    if (c >= 0xF5) len = 0;
    bool ok = len > 0 && i + len <= n;
    for (size_t k = 1; ok && k < len; k++) ok = (p[i + k] & 0xC0) == 0x80;
    // Overlong three- and four-byte forms, surrogates and values past U+10FFFF.
    if (ok && len == 3) ok = !(c == 0xE0 && p[i + 1] < 0xA0) && !(c == 0xED && p[i + 1] >= 0xA0);
    if (ok && len == 4) ok = !(c == 0xF0 && p[i + 1] < 0x90) && !(c == 0xF4 && p[i + 1] >= 0x90);
    if (ok) {
      out.append(reinterpret_cast<const char*>(p + i), len);
      i += len;
    } else {
      out += "\xEF\xBF\xBD";
      i++;
    }
  }
  return out;
}

std::optional<std::string> optionalName(const DescriptiveName_t* name) {
  if (name == nullptr) return std::nullopt;
  return cleanText(name->buf, name->size);
}

NodeRef nodeRef(const NodeReferenceID_t& id) {
  NodeRef ref;
  if (id.region != nullptr) ref.region = *id.region;
  ref.id = id.id;
  return ref;
}

std::optional<long> optionalLong(const long* v) { return v != nullptr ? std::optional<long>(*v) : std::nullopt; }

std::string speedLimitType(long type) {
  auto* specs = static_cast<asn_INTEGER_specifics_t*>(const_cast<void*>(asn_DEF_SpeedLimitType.specifics));
  const asn_INTEGER_enum_map_t* e = INTEGER_map_value2enum(specs, type);
  return e != nullptr ? std::string(e->enum_name, e->enum_len) : std::to_string(type);
}

std::vector<SpeedLimit> speedLimits(const SpeedLimitList* list) {
  std::vector<SpeedLimit> out;
  for (int i = 0; list != nullptr && i < list->list.count; i++) {
    const RegulatorySpeedLimit_t* s = list->list.array[i];
    out.push_back({speedLimitType(s->type), s->speed});
  }
  return out;
}

bool inRange(const c_pos3D_t& p) {
  return std::isfinite(p.lat) && std::isfinite(p.lon) && std::fabs(p.lat) <= 90.0 && std::fabs(p.lon) <= 180.0;
}

GeoPosition toGeo(const c_pos3D_t& p) {
  GeoPosition g;
  g.valid = p.posIsValid && inRange(p);
  g.lon = p.lon;
  g.lat = p.lat;
  if (p.elevIsValid) g.elevation = p.elevation;
  return g;
}

// Every point of a list against the node's reference position.
std::vector<GeoPosition> points(const PointList* list, const c_pos3D_t& ref) {
  std::vector<GeoPosition> out;
  for (int i = 0; list != nullptr && i < list->list.count; i++) {
    RoadPoint_t* point = list->list.array[i];
    c_pos3D_t pos{};
    // A point without a lat/lon choice keeps these: not a position.
    pos.lat = std::nan("");
    pos.lon = std::nan("");
    if (prasePosOffsetLLV(&point->posOffset, &ref, &pos) != 0) pos.posIsValid = false;
    out.push_back(toGeo(pos));
  }
  return out;
}

GeoLane lane(const Lane_t& l, const c_pos3D_t& ref) {
  GeoLane g;
  g.id = l.laneID;
  g.widthCm = optionalLong(l.laneWidth);
  if (l.laneAttributes != nullptr) {
    const LaneTypeAttributes_t& t = l.laneAttributes->laneType;
    if (t.present > LaneTypeAttributes_PR_NOTHING && t.present <= LaneTypeAttributes_PR_parking) {
      const int k = t.present - 1;
      g.type = asn_DEF_LaneTypeAttributes.elements[k].name;
      // Every alternative is a bit string at the same place of the union.
      g.attributes = bitNames(t.choice.vehicle, kLaneTypeBits[k]);
    }
    g.sharing = optionalBits(l.laneAttributes->shareWith, kSharingBits);
  }
  g.maneuvers = optionalBits(l.maneuvers, kManeuverBits);
  for (int i = 0; l.connectsTo != nullptr && i < l.connectsTo->list.count; i++) {
    const Connection_t* c = l.connectsTo->list.array[i];
    GeoConnection gc;
    gc.remote = nodeRef(c->remoteIntersection);
    if (c->connectingLane != nullptr) {
      gc.lane = c->connectingLane->lane;
      gc.maneuvers = optionalBits(c->connectingLane->maneuver, kManeuverBits);
    }
    gc.phase = optionalLong(c->phaseId);
    g.connections.push_back(std::move(gc));
  }
  g.speedLimits = speedLimits(l.speedLimits);
  g.points = points(l.points, ref);
  return g;
}

GeoLink link(const Link_t& l, const c_pos3D_t& ref) {
  GeoLink g;
  g.name = optionalName(l.name);
  g.upstream = nodeRef(l.upstreamNodeId);
  g.widthCm = l.linkWidth;
  g.speedLimits = speedLimits(l.speedLimits);
  for (int i = 0; l.movements != nullptr && i < l.movements->list.count; i++) {
    const Movement_t* m = l.movements->list.array[i];
    g.movements.push_back({nodeRef(m->remoteIntersection), optionalLong(m->phaseId)});
  }
  g.points = points(l.points, ref);
  for (int i = 0; i < l.lanes.list.count; i++) g.lanes.push_back(lane(*l.lanes.list.array[i], ref));
  return g;
}

}  // namespace

bool mapGeometry(const MessageFrame& frame, GeoMap& map) {
  if (frame.present != MessageFrame_PR_mapFrame) return false;
  map.nodes.clear();
  const MapData_t& data = frame.choice.mapFrame;
  for (int i = 0; i < data.nodes.list.count; i++) {
    const Node_t& n = *data.nodes.list.array[i];
    GeoNode g;
    g.name = optionalName(n.name);
    g.id = nodeRef(n.id);
    c_pos3D_t ref{};
    ref.posIsValid = true;
    ref.lat = n.refPos.lat * 1e-7;
    ref.lon = n.refPos.Long * 1e-7;
    if (n.refPos.elevation != nullptr) {
      ref.elevIsValid = true;
      ref.elevation = *n.refPos.elevation * 0.1;
    }
    g.refPos = toGeo(ref);
    for (int k = 0; n.inLinks != nullptr && k < n.inLinks->list.count; k++) {
      g.links.push_back(link(*n.inLinks->list.array[k], ref));
    }
    map.nodes.push_back(std::move(g));
  }
  return true;
}

std::string nodeName(const NodeRef& ref) {
  return ref.region ? std::to_string(*ref.region) + "-" + std::to_string(ref.id) : std::to_string(ref.id);
}

}  // namespace maptool
