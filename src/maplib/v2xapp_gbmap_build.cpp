// MAP builder: nodes, links, lanes, movements and connections created,
// filled and attached one element at a time.
#include "v2xapp_gbmap_build.h"

#include "gbmap_internal.h"

using gbmap::appendOnce;
using gbmap::attach;
using gbmap::ElementKind;
using gbmap::ensure;
using gbmap::newRecord;

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

// Octets and unused bits of each lane type's bit string, by type 1..8. These
// are the sizes this library has always used; the encoder checks them
// against the message set.
struct TypeBits {
  int octets;
  int unused;
};
constexpr TypeBits kLaneTypeBits[] = {{1, 0}, {2, 7}, {1, 1}, {1, 4}, {2, 6}, {1, 2}, {1, 3}, {1, 1}};

// Fills a bit string with the lowest `octets` bytes of value, lowest byte
// first, replacing its buffer. False when no memory (the string is then empty).
bool putBits(BIT_STRING_t& bits, uint64_t value, int octets, int unused) {
  std::free(bits.buf);
  bits.buf = static_cast<uint8_t*>(std::calloc(static_cast<size_t>(octets), 1));
  bits.size = bits.buf != nullptr ? octets : 0;
  bits.bits_unused = bits.buf != nullptr ? unused : 0;
  for (int k = 0; k < bits.size; ++k) bits.buf[k] = static_cast<uint8_t>(value >> (8 * k));
  return bits.buf != nullptr;
}

// Sets a node reference (id, and region when given, replacing an earlier one).
bool setReference(NodeReferenceID_t& ref, uint64_t id, const uint64_t* pregion) {
  if (pregion != nullptr) {
    auto* region = newRecord<RoadRegulatorID_t>();
    if (region == nullptr) return false;
    *region = static_cast<RoadRegulatorID_t>(*pregion);
    std::free(ref.region);
    ref.region = region;
  }
  ref.id = static_cast<NodeID_t>(id);
  return true;
}

// A new point: absolute position for postype 7, else none; with elevtype a
// vertical part whose kind is 7 when *elevtype is, or *elevtype itself when
// anyKind is set (lane points), else empty. Null when no memory.
RoadPoint_t* newPoint(uint16_t postype, uint64_t posvala, uint64_t posvalb, const uint16_t* elevtype, uint64_t elevval,
                      bool anyKind) {
  auto* point = newRecord<RoadPoint_t>();
  if (point == nullptr) return nullptr;
  if (postype == PositionOffsetLL_PR_position_LatLon) {
    point->posOffset.offsetLL.present = PositionOffsetLL_PR_position_LatLon;
    point->posOffset.offsetLL.choice.position_LatLon.lat = static_cast<Latitude_t>(posvala);
    point->posOffset.offsetLL.choice.position_LatLon.lon = static_cast<Longitude_t>(posvalb);
  }
  if (elevtype != nullptr) {
    VerticalOffset* v = newRecord<VerticalOffset>();
    if (v == nullptr) {
      std::free(point);
      return nullptr;
    }
    if (*elevtype == VerticalOffset_PR_elevation) {
      v->present = VerticalOffset_PR_elevation;
      v->choice.elevation = static_cast<Elevation_t>(elevval);
    } else if (anyKind) {
      v->present = static_cast<VerticalOffset_PR>(*elevtype);
    }
    point->posOffset.offsetV = v;
  }
  return point;
}

// Appends a point to an optional point list; 0, or -3 when no memory.
int32_t addPoint(PointList*& points, RoadPoint_t* point) {
  if (point == nullptr || ensure(points) == nullptr || appendOnce(points->list, point) != 0) {
    ASN_STRUCT_FREE(asn_DEF_RoadPoint, point);
    return -3;
  }
  return 0;
}

// Appends a speed limit to an optional list; 0, or -3 when no memory.
int32_t addSpeedLimit(SpeedLimitList*& limits, long type, long speed) {
  auto* limit = newRecord<RegulatorySpeedLimit_t>();
  if (limit == nullptr || ensure(limits) == nullptr || appendOnce(limits->list, limit) != 0) {
    std::free(limit);
    return -3;
  }
  limit->type = type;
  limit->speed = speed;
  return 0;
}

}  // namespace

extern "C" {

int32_t v2xapp_GBMapAddNode(V2XAPP_GBMHANDLE mapHandle, V2XAPP_GBMHANDLE nodeHandle) {
  GMAP_START("v2xapp_GBMapAddNode");
  int32_t ret = -2;
  MapData_t* map = gbmap::mapOf(mapHandle);
  if (map == nullptr || nodeHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null map or node, or not a map frame");
  } else {
    ret = attach(map->nodes.list, static_cast<Node_t*>(nodeHandle), ElementKind::Node);
    if (ret != 0) GBLOG(&g_curTag, 2, "node not added (%d)", static_cast<int>(ret));
  }
  GMAP_END("v2xapp_GBMapAddNode", ret);
  return ret;
}

int32_t v2xapp_GBMapNodeInit(V2XAPP_GBMHANDLE* p_nodeHandle, uint64_t nodeID, uint64_t* pregion, uint8_t* pnodeName,
                             uint16_t nodeNameLen) {
  GMAP_START_B("v2xapp_GBMapNodeInit");
  int32_t ret = -2;
  auto* node = p_nodeHandle != nullptr ? newRecord<Node_t>() : nullptr;
  if (node == nullptr) {
    GBLOG(&g_curTag, 2, "null handle place or no memory for a Node");
  } else {
    bool ok = setReference(node->id, nodeID, pregion);
    if (ok && pnodeName != nullptr) {
      node->name = newRecord<DescriptiveName_t>();
      ok = node->name != nullptr &&
           OCTET_STRING_fromBuf(node->name, reinterpret_cast<const char*>(pnodeName), nodeNameLen) == 0;
    }
    if (ok) {
      gbmap::trackElement(node, ElementKind::Node);
      *p_nodeHandle = node;
      ret = 0;
    } else {
      GBLOG(&g_curTag, 2, "no memory for the node's region or name");
      ASN_STRUCT_FREE(asn_DEF_Node, node);
      ret = -3;
    }
  }
  GMAP_END_B("v2xapp_GBMapNodeInit", ret);
  return ret;
}

int32_t v2xapp_GBMapNodeSetID(V2XAPP_GBMHANDLE mapNodeHandle, uint64_t id, uint64_t* pregion) {
  GMAP_START("v2xapp_GBMapSetLinkUpStreamNodeID");
  int32_t ret = -2;
  if (mapNodeHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null node");
  } else if (setReference(static_cast<Node_t*>(mapNodeHandle)->id, id, pregion)) {
    ret = 0;
  } else {
    GBLOG(&g_curTag, 2, "no memory for the region");
  }
  GMAP_END("v2xapp_GBMapSetLinkUpStreamNodeID", ret);
  return ret;
}

int32_t v2xapp_GBMapNodeSetRefPos(V2XAPP_GBMHANDLE mapNodeHandle, int64_t lat, int64_t mlong, int64_t* pelev) {
  GMAP_START("v2xapp_GBMapNodeSetRefPos");
  int32_t ret = -2;
  auto* node = static_cast<Node_t*>(mapNodeHandle);
  Elevation_t* elev = pelev != nullptr ? newRecord<Elevation_t>() : nullptr;
  if (node == nullptr || (pelev != nullptr && elev == nullptr)) {
    GBLOG(&g_curTag, 2, "null node or no memory for the elevation");
    std::free(elev);
  } else {
    node->refPos.lat = static_cast<Latitude_t>(lat);
    node->refPos.Long = static_cast<Longitude_t>(mlong);
    if (elev != nullptr) *elev = static_cast<Elevation_t>(*pelev);
    std::free(node->refPos.elevation);
    node->refPos.elevation = elev;
    ret = 0;
  }
  GMAP_END("v2xapp_GBMapNodeSetRefPos", ret);
  return ret;
}

int32_t v2xapp_GBMapNodeAddLink(V2XAPP_GBMHANDLE mapNodeHandle, V2XAPP_GBMHANDLE mapLinkHandle) {
  GMAP_START("v2xapp_GBMapNodeAddLink");
  int32_t ret = -2;
  auto* node = static_cast<Node_t*>(mapNodeHandle);
  if (node == nullptr || mapLinkHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null node or link");
  } else if (ensure(node->inLinks) == nullptr) {
    GBLOG(&g_curTag, 2, "no memory for the link list");
    ret = -3;
  } else {
    ret = attach(node->inLinks->list, static_cast<Link_t*>(mapLinkHandle), ElementKind::Link);
    if (ret != 0) GBLOG(&g_curTag, 2, "link not added (%d)", static_cast<int>(ret));
  }
  GMAP_END("v2xapp_GBMapNodeAddLink", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkInit(V2XAPP_GBMHANDLE* p_linkHandle) {
  GMAP_START_B("v2xapp_GBMapLinkInit");
  int32_t ret = -2;
  auto* link = p_linkHandle != nullptr ? newRecord<Link_t>() : nullptr;
  if (link == nullptr) {
    GBLOG(&g_curTag, 2, "null handle place or no memory for a Link");
  } else {
    gbmap::trackElement(link, ElementKind::Link);
    *p_linkHandle = link;
    ret = 0;
  }
  GMAP_END_B("v2xapp_GBMapLinkInit", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkSetName(V2XAPP_GBMHANDLE mapLinkHandle, uint8_t* plinkName, uint16_t linkNameLen) {
  GMAP_START("v2xapp_GBMapSetLinkName");
  int32_t ret = -2;
  auto* link = static_cast<Link_t*>(mapLinkHandle);
  if (link == nullptr || plinkName == nullptr) {
    GBLOG(&g_curTag, 2, "null link or name");
  } else if (ensure(link->name) == nullptr ||
             OCTET_STRING_fromBuf(link->name, reinterpret_cast<const char*>(plinkName), linkNameLen) != 0) {
    GBLOG(&g_curTag, 2, "no memory for the name");
    ret = -3;
  } else {
    ret = 0;
  }
  GMAP_END("v2xapp_GBMapSetLinkName", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkSetUpStreamNodeID(V2XAPP_GBMHANDLE mapLinkHandle, uint64_t id, uint64_t* pregion) {
  GMAP_START("v2xapp_GBMapSetLinkUpStreamNodeID");
  int32_t ret = -2;
  if (mapLinkHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null link");
  } else if (setReference(static_cast<Link_t*>(mapLinkHandle)->upstreamNodeId, id, pregion)) {
    ret = 0;
  } else {
    GBLOG(&g_curTag, 2, "no memory for the region");
  }
  GMAP_END("v2xapp_GBMapSetLinkUpStreamNodeID", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkAddSpeedLimits(V2XAPP_GBMHANDLE mapLinkHandle, uint8_t limit_type, uint64_t speed) {
  GMAP_START("v2xapp_GBMapLinkSetSpeedLimits");
  int32_t ret = -2;
  auto* link = static_cast<Link_t*>(mapLinkHandle);
  if (link == nullptr) {
    GBLOG(&g_curTag, 2, "null link");
  } else {
    ret = addSpeedLimit(link->speedLimits, limit_type, static_cast<long>(speed));
    if (ret != 0) GBLOG(&g_curTag, 2, "no memory for the speed limit");
  }
  GMAP_END("v2xapp_GBMapLinkSetSpeedLimits", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkSetlinkWidth(V2XAPP_GBMHANDLE mapLinkHandle, uint64_t linkwidth) {
  GMAP_START("v2xapp_GBMapLinkSetlinkWidth");
  int32_t ret = -2;
  if (mapLinkHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null link");
  } else {
    static_cast<Link_t*>(mapLinkHandle)->linkWidth = static_cast<LaneWidth_t>(linkwidth);
    ret = 0;
  }
  GMAP_END("v2xapp_GBMapLinkSetlinkWidth", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkAddlane(V2XAPP_GBMHANDLE mapLinkHandle, V2XAPP_GBMHANDLE mapLaneHandle) {
  GMAP_START("v2xapp_GBMapLinkAddlane");
  int32_t ret = -2;
  auto* link = static_cast<Link_t*>(mapLinkHandle);
  if (link == nullptr || mapLaneHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null link or lane");
  } else {
    ret = attach(link->lanes.list, static_cast<Lane_t*>(mapLaneHandle), ElementKind::Lane);
    if (ret != 0) GBLOG(&g_curTag, 2, "lane not added (%d)", static_cast<int>(ret));
  }
  GMAP_END("v2xapp_GBMapLinkAddlane", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkAddPoint(V2XAPP_GBMHANDLE mapLinkHandle, uint16_t postype, uint64_t posvala, uint64_t posvalb,
                                 uint16_t* elevtype, uint64_t elevval) {
  GMAP_START_B("v2xapp_GBMapLinkAddPoint");
  int32_t ret = -2;
  auto* link = static_cast<Link_t*>(mapLinkHandle);
  if (link == nullptr) {
    GBLOG(&g_curTag, 2, "null link");
  } else {
    ret = addPoint(link->points, newPoint(postype, posvala, posvalb, elevtype, elevval, false));
    if (ret != 0) GBLOG(&g_curTag, 2, "no memory for the point");
  }
  GMAP_END_B("v2xapp_GBMapLinkAddPoint", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkMovementInit(V2XAPP_GBMHANDLE* p_mapLinkMomentHandle, uint64_t id, uint64_t* pregion) {
  GMAP_START_B("v2xapp_GBMapLinkMovementSetRemoteInterSection");
  int32_t ret = -2;
  auto* movement = p_mapLinkMomentHandle != nullptr ? newRecord<Movement_t>() : nullptr;
  if (movement == nullptr || !setReference(movement->remoteIntersection, id, pregion)) {
    GBLOG(&g_curTag, 2, "null handle place or no memory for a Movement");
    std::free(movement);
  } else {
    gbmap::trackElement(movement, ElementKind::Movement);
    *p_mapLinkMomentHandle = movement;
    ret = 0;
  }
  GMAP_END_B("v2xapp_GBMapLinkMovementSetRemoteInterSection", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkAddMovement(V2XAPP_GBMHANDLE mapLinkHandle, V2XAPP_GBMHANDLE movementHandle) {
  GMAP_START_B("v2xapp_GBMapLinkAddMovement");
  int32_t ret = -2;
  auto* link = static_cast<Link_t*>(mapLinkHandle);
  if (link == nullptr || movementHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null link or movement");
  } else if (ensure(link->movements) == nullptr) {
    GBLOG(&g_curTag, 2, "no memory for the movement list");
    ret = -3;
  } else {
    ret = attach(link->movements->list, static_cast<Movement_t*>(movementHandle), ElementKind::Movement);
    if (ret != 0) GBLOG(&g_curTag, 2, "movement not added (%d)", static_cast<int>(ret));
  }
  GMAP_END_B("v2xapp_GBMapLinkAddMovement", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkMovementSetPhaseID(V2XAPP_GBMHANDLE movementHandle, uint64_t phaseId) {
  GMAP_START_B("v2xapp_GBMapLaneConnectToSetPhaseID");
  int32_t ret = -2;
  auto* movement = static_cast<Movement_t*>(movementHandle);
  if (movement == nullptr || ensure(movement->phaseId) == nullptr) {
    GBLOG(&g_curTag, 2, "null movement or no memory for the phase");
  } else {
    *movement->phaseId = static_cast<PhaseID_t>(phaseId);
    ret = 0;
  }
  GMAP_END_B("v2xapp_GBMapLaneConnectToSetPhaseID", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkLaneInit(V2XAPP_GBMHANDLE* p_mapLinkLaneHandle, uint64_t laneID) {
  GMAP_START_B("v2xapp_GBMapLaneInit");
  int32_t ret = -2;
  auto* lane = p_mapLinkLaneHandle != nullptr ? newRecord<Lane_t>() : nullptr;
  if (lane == nullptr) {
    GBLOG(&g_curTag, 2, "null handle place or no memory for a Lane");
  } else {
    lane->laneID = static_cast<LaneID_t>(laneID);
    gbmap::trackElement(lane, ElementKind::Lane);
    *p_mapLinkLaneHandle = lane;
    ret = 0;
  }
  GMAP_END_B("v2xapp_GBMapLaneInit", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkLaneSetLaneWidth(V2XAPP_GBMHANDLE laneHandle, uint64_t width) {
  GMAP_START_B("v2xapp_GBMapLaneInit");
  int32_t ret = -2;
  auto* lane = static_cast<Lane_t*>(laneHandle);
  if (lane == nullptr || ensure(lane->laneWidth) == nullptr) {
    GBLOG(&g_curTag, 2, "null lane or no memory for the width");
  } else {
    *lane->laneWidth = static_cast<LaneWidth_t>(width);
    ret = 0;
  }
  GMAP_END_B("v2xapp_GBMapLaneInit", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkLaneSetLaneAttributes(V2XAPP_GBMHANDLE laneHandle, uint16_t type, uint64_t typeVal,
                                              uint64_t* pShareWith) {
  GMAP_START_B("v2xapp_GBMapLaneInit");
  int32_t ret = -2;
  auto* lane = static_cast<Lane_t*>(laneHandle);
  if (lane == nullptr) {
    GBLOG(&g_curTag, 2, "null lane");
  } else if (ensure(lane->laneAttributes) == nullptr) {
    GBLOG(&g_curTag, 2, "no memory for the lane attributes");
    ret = -4;
  } else {
    LaneTypeAttributes_t& laneType = lane->laneAttributes->laneType;
    // Every alternative is a bit string at the same place: whatever the
    // previous type, its buffer is this one.
    BIT_STRING_t& typeBits = laneType.choice.vehicle;
    const bool known = type >= LaneTypeAttributes_PR_vehicle && type <= LaneTypeAttributes_PR_parking;
    if (!known) {
      std::free(typeBits.buf);
      typeBits = BIT_STRING_t{};
    }
    laneType.present = static_cast<LaneTypeAttributes_PR>(type);
    ret = 0;
    if (!known) {
      GBLOG(&g_curTag, 2, "unknown lane type %u", static_cast<unsigned>(type));
      ret = -3;
    } else if (!putBits(typeBits, typeVal, kLaneTypeBits[type - 1].octets, kLaneTypeBits[type - 1].unused)) {
      ret = -4;
    }
    if (ret == 0 && pShareWith != nullptr) {
      auto* share = newRecord<LaneSharing_t>();
      if (share == nullptr || !putBits(*share, *pShareWith, 2, 6)) {
        std::free(share);
        ret = -4;
      } else {
        ASN_STRUCT_FREE(asn_DEF_LaneSharing, lane->laneAttributes->shareWith);
        lane->laneAttributes->shareWith = share;
      }
    }
    if (ret == -4) GBLOG(&g_curTag, 2, "no memory for the attribute bits");
  }
  GMAP_END_B("v2xapp_GBMapLaneInit", ret);
  return ret;
}

int32_t v2xapp_GBMapLaneSetManeuvers(V2XAPP_GBMHANDLE laneHandle, uint64_t* pmaneuverValue) {
  GMAP_START_B("v2xapp_GBMapLaneSetManeuvers");
  int32_t ret = -2;
  auto* lane = static_cast<Lane_t*>(laneHandle);
  if (lane == nullptr || pmaneuverValue == nullptr) {
    GBLOG(&g_curTag, 2, "null lane or value");
  } else if (ensure(lane->maneuvers) == nullptr || !putBits(*lane->maneuvers, *pmaneuverValue, 2, 6)) {
    GBLOG(&g_curTag, 2, "no memory for the maneuvers");
  } else {
    ret = 0;
  }
  GMAP_END_B("v2xapp_GBMapLaneSetManeuvers", ret);
  return ret;
}

int32_t v2xapp_GBMapLaneAddPoint(V2XAPP_GBMHANDLE laneHandle, uint16_t postype, uint64_t posvala, uint64_t posvalb,
                                 uint16_t* elevtype, uint64_t elevval) {
  GMAP_START_B("v2xapp_GBMapLaneAddPoint");
  int32_t ret = -2;
  auto* lane = static_cast<Lane_t*>(laneHandle);
  if (lane == nullptr) {
    GBLOG(&g_curTag, 2, "null lane");
  } else {
    ret = addPoint(lane->points, newPoint(postype, posvala, posvalb, elevtype, elevval, true));
    if (ret != 0) GBLOG(&g_curTag, 2, "no memory for the point");
  }
  GMAP_END_B("v2xapp_GBMapLaneAddPoint", ret);
  return ret;
}

int32_t v2xapp_GBMapLaneAddSpeedLimit(V2XAPP_GBMHANDLE laneHandle, uint16_t limitType, uint64_t limitspeed) {
  GMAP_START_B("v2xapp_GBMapLaneSetSpeedLimit");
  int32_t ret = -2;
  auto* lane = static_cast<Lane_t*>(laneHandle);
  if (lane == nullptr) {
    GBLOG(&g_curTag, 2, "null lane");
  } else {
    ret = addSpeedLimit(lane->speedLimits, limitType, static_cast<long>(limitspeed));
    if (ret != 0) GBLOG(&g_curTag, 2, "no memory for the speed limit");
  }
  GMAP_END_B("v2xapp_GBMapLaneSetSpeedLimit", ret);
  return ret;
}

int32_t v2xapp_GBMapLaneConnectToInit(V2XAPP_GBMHANDLE* p_mapLaneConnectToHandle, uint64_t id, uint64_t* pregion) {
  GMAP_START_B("v2xapp_GBMapLaneConnectToInit");
  int32_t ret = -2;
  auto* connection = p_mapLaneConnectToHandle != nullptr ? newRecord<Connection_t>() : nullptr;
  if (connection == nullptr || !setReference(connection->remoteIntersection, id, pregion)) {
    GBLOG(&g_curTag, 2, "null handle place or no memory for a Connection");
    std::free(connection);
  } else {
    gbmap::trackElement(connection, ElementKind::Connection);
    *p_mapLaneConnectToHandle = connection;
    ret = 0;
  }
  GMAP_END_B("v2xapp_GBMapLaneConnectToInit", ret);
  return ret;
}

int32_t v2xapp_GBMapLaneConnectToSetConnectingLane(V2XAPP_GBMHANDLE connectToHandle, uint64_t laneID,
                                                   uint64_t* pmaneuverValue) {
  GMAP_START_B("v2xapp_GBMapLaneConnectToInit");
  int32_t ret = -2;
  auto* connection = static_cast<Connection_t*>(connectToHandle);
  ConnectingLane* lane = connection != nullptr ? ensure(connection->connectingLane) : nullptr;
  if (lane == nullptr) {
    GBLOG(&g_curTag, 2, "null connection or no memory for the connecting lane");
  } else {
    lane->lane = static_cast<LaneID_t>(laneID);
    ret = 0;
    if (pmaneuverValue != nullptr &&
        (ensure(lane->maneuver) == nullptr || !putBits(*lane->maneuver, *pmaneuverValue, 2, 4))) {
      GBLOG(&g_curTag, 2, "no memory for the maneuvers");
      ret = -2;
    }
  }
  GMAP_END_B("v2xapp_GBMapLaneConnectToInit", ret);
  return ret;
}

int32_t v2xapp_GBMapLaneConnectToSetPhaseID(V2XAPP_GBMHANDLE connectToHandle, uint64_t* phaseId) {
  GMAP_START_B("v2xapp_GBMapLaneConnectToSetPhaseID");
  int32_t ret = -2;
  auto* connection = static_cast<Connection_t*>(connectToHandle);
  if (connection == nullptr || phaseId == nullptr) {
    GBLOG(&g_curTag, 2, "null connection or phase");
  } else if (ensure(connection->phaseId) == nullptr) {
    GBLOG(&g_curTag, 2, "no memory for the phase");
    ret = -3;
  } else {
    *connection->phaseId = static_cast<PhaseID_t>(*phaseId);
    ret = 0;
  }
  GMAP_END_B("v2xapp_GBMapLaneConnectToSetPhaseID", ret);
  return ret;
}

int32_t v2xapp_GBMapLaneAddConnectTo(V2XAPP_GBMHANDLE laneHandle, V2XAPP_GBMHANDLE connectToHandle) {
  GMAP_START_B("v2xapp_GBMapLaneConnectToInit");
  int32_t ret = -2;
  auto* lane = static_cast<Lane_t*>(laneHandle);
  if (lane == nullptr || connectToHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null lane or connection");
  } else if (ensure(lane->connectsTo) == nullptr) {
    GBLOG(&g_curTag, 2, "no memory for the connection list");
    ret = -3;
  } else {
    ret = attach(lane->connectsTo->list, static_cast<Connection_t*>(connectToHandle), ElementKind::Connection);
    if (ret != 0) GBLOG(&g_curTag, 2, "connection not added (%d)", static_cast<int>(ret));
  }
  GMAP_END_B("v2xapp_GBMapLaneConnectToInit", ret);
  return ret;
}

}  // extern "C"
