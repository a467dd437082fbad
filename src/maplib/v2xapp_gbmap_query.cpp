// MAP queries: counts, elements by index and field values with presence
// flags, read without exposing the ASN.1 structures.
#include "v2xapp_gbmap_query.h"

#include <cstddef>
#include <cstring>

#include "gbmap_internal.h"
#include "v2xapp_gbmap_match.h"

using gbmap::elementAt;

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

constexpr uint16_t kNoRegion = 65535;

template <class List>
int32_t countOf(const List* list) {
  return list != nullptr ? list->list.count : 0;
}

// Copies a name, at most V2XAPP_GBMAP_NAME_MAX bytes; false when absent.
bool copyName(const DescriptiveName_t* name, char* out) {
  if (name == nullptr || name->buf == nullptr) return false;
  const int size = name->size < V2XAPP_GBMAP_NAME_MAX ? name->size : V2XAPP_GBMAP_NAME_MAX;
  if (size > 0) std::memcpy(out, name->buf, static_cast<size_t>(size));
  return true;
}

int64_t bitsValue(const BIT_STRING_t* bits) {
  int64_t value = 0;
  v2xapp_GBMapbitString2Long(const_cast<BIT_STRING_t*>(bits), &value);
  return value;
}

// Point `index` of a list: 0, -3 without a list, -4 past its end.
int32_t pointAt(const PointList* points, uint32_t index, v2xapp_gbMsg_PosStr_t& out) {
  if (points == nullptr) return -3;
  const RoadPoint_t* point = elementAt(points->list, index);
  if (point == nullptr) return -4;
  gbmap::pointRecord(point->posOffset, out);
  return 0;
}

// Movement `index` of a link: -3 without a list or above the count, -4 at the
// count (there is no movement there; callers have always seen a result other
// than -3 for it).
int32_t movementAt(const Link_t& link, int32_t index, const Movement_t*& movement) {
  if (link.movements == nullptr || index < 0 || index > link.movements->list.count) return -3;
  movement = elementAt(link.movements->list, index);
  return movement != nullptr ? 0 : -4;
}

// Connection `index` of a lane: -3 without a list, -4 past its end.
int32_t connectionAt(const Lane_t& lane, int32_t index, const Connection_t*& connection) {
  if (lane.connectsTo == nullptr) return -3;
  connection = elementAt(lane.connectsTo->list, index);
  return connection != nullptr ? 0 : -4;
}

// A node reference: id, and the region when present; without one the
// region is 65535 when noneValue is set, else left as it was.
int32_t putReference(const NodeReferenceID_t& ref, bool* has_region, uint16_t* region, uint16_t* id, bool noneValue) {
  *has_region = ref.region != nullptr;
  if (*has_region) {
    *region = static_cast<uint16_t>(*ref.region);
  } else if (noneValue) {
    *region = kNoRegion;
  }
  *id = static_cast<uint16_t>(ref.id);
  return 0;
}

// An optional phase with its flag.
template <class Out>
void putPhase(const PhaseID_t* phase, bool* has_phase, Out* out) {
  *has_phase = phase != nullptr;
  if (*has_phase) *out = static_cast<Out>(*phase);
}

// Speed limit `index` of a present list: type and speed, or `pastEnd`.
template <class TypeOut>
int32_t putSpeedLimit(const SpeedLimitList* limits, int32_t index, int32_t pastEnd, TypeOut* type, int16_t* speed) {
  const RegulatorySpeedLimit_t* limit = elementAt(limits->list, index);
  if (limit == nullptr) return pastEnd;
  *type = static_cast<TypeOut>(limit->type);
  *speed = static_cast<int16_t>(limit->speed);
  return 0;
}

// The element behind a handle: a map handle gives its MapData (none for a
// frame of another kind), every other handle the record it points at.
template <class Elem>
const Elem* resolve(void* handle) {
  return static_cast<const Elem*>(handle);
}
template <>
const MapData_t* resolve<MapData_t>(void* handle) {
  return gbmap::mapOf(handle);
}

// Trace names of a query whose lines name another operation (log readers
// rely on them); null: the query's own name.
struct TraceNames {
  const char* start = nullptr;
  const char* end = nullptr;
};

// The one walk of every query: trace lines and failures under the public
// call's place, -2 for a null handle or output, else what read() gives for
// the element (0, or -3/-4 for a missing list or index, which ordinary "read
// until it fails" loops meet, so they are detail, not warnings).
template <class Elem, class Read>
int32_t query(const gbmap::Site& site, void* handle, bool outputsGiven, Read&& read, TraceNames names = {}) {
  gbmap::logAt(&g_curTag, 7, site, "%s start", names.start != nullptr ? names.start : site.func);
  int32_t ret = -2;
  const Elem* elem = resolve<Elem>(handle);
  if (elem == nullptr || !outputsGiven) {
    gbmap::logAt(&g_curTag, 2, site, "null handle or output, or not the element it reads");
  } else {
    ret = read(*elem);
    if (ret != 0) gbmap::logAt(&g_curTag, 5, site, "no such list or element (%d)", static_cast<int>(ret));
  }
  gbmap::logAt(&g_curTag, 7, site, "%s end ret=%d", names.end != nullptr ? names.end : site.func,
               static_cast<int>(ret));
  return ret;
}

// Stores a count, cut to the output's width; always 0.
template <class Out>
int32_t putCount(Out* out, int32_t count) {
  *out = static_cast<Out>(count);
  return 0;
}

// Stores an element handle, NULL when there is none; 0 or `missing`.
template <class Elem>
int32_t putHandle(V2XAPP_GBMHANDLE* out, Elem* elem, int32_t missing) {
  *out = elem;
  return elem != nullptr ? 0 : missing;
}

}  // namespace

namespace gbmap {

// Every alternative of both choices holds its values at the same place (a
// lon/lat pair; one integer), which these checks keep true for the codec.
static_assert(offsetof(Position_LL_24B, lon) == offsetof(Position_LLmD_64b, lon) &&
              offsetof(Position_LL_24B, lat) == offsetof(Position_LLmD_64b, lat) &&
              offsetof(Position_LL_24B, lat) == offsetof(Position_LL_48B, lat));
static_assert(sizeof(VertOffset_B07_t) == sizeof(Elevation_t));

// A point as stored: its kinds and their raw values.
void pointRecord(const PositionOffsetLLV_t& offset, v2xapp_gbMsg_PosStr_t& out) {
  const PositionOffsetLL_t& ll = offset.offsetLL;
  out.m_codeType = static_cast<uint8_t>(ll.present);
  if (ll.present >= PositionOffsetLL_PR_position_LL1 && ll.present <= PositionOffsetLL_PR_position_LatLon) {
    out.m_lon = ll.choice.position_LL1.lon;
    out.m_lat = ll.choice.position_LL1.lat;
  }
  const VerticalOffset_t* v = offset.offsetV;
  out.m_isContainV = v != nullptr;
  if (v == nullptr) return;
  out.m_elevType = static_cast<uint8_t>(v->present);
  if (v->present >= VerticalOffset_PR_offset1 && v->present <= VerticalOffset_PR_elevation)
    out.m_elev = v->choice.offset1;
}

}  // namespace gbmap

extern "C" {

int32_t v2xapp_GBMapbitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData) {
  return v2xcodec_bitString2Long(p_bitstring, longData);
}

/* Index family. */

int32_t v2xapp_GBMapGetNodesCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t* pCnt) {
  return query<MapData_t>(GBLOG_SITE, mapHandle, pCnt != nullptr,
                          [&](const MapData_t& map) { return putCount(pCnt, map.nodes.list.count); });
}

int32_t v2xapp_GBMapGetNodeByIndex(V2XAPP_GBMHANDLE mapHandle, uint32_t index, V2XAPP_GBMHANDLE* p_nodeHandle) {
  return query<MapData_t>(
      GBLOG_SITE, mapHandle, p_nodeHandle != nullptr,
      [&](const MapData_t& map) { return putHandle(p_nodeHandle, elementAt(map.nodes.list, index), -3); },
      {nullptr, "v2xapp_GBMapSetTimStamp"});
}

int32_t v2xapp_GBMapNodeGetRefPos(V2XAPP_GBMHANDLE mapNodeHandle, int64_t* plat, int64_t* plong, bool* piselev,
                                  int64_t* pelev) {
  return query<Node_t>(GBLOG_SITE, mapNodeHandle,
                       plat != nullptr && plong != nullptr && piselev != nullptr && pelev != nullptr,
                       [&](const Node_t& node) {
                         *plat = node.refPos.lat;
                         *plong = node.refPos.Long;
                         *piselev = node.refPos.elevation != nullptr;
                         if (*piselev) *pelev = *node.refPos.elevation;
                         return 0;
                       },
                       {"v2xapp_GBMapNodeSetRefPos", nullptr});
}

int32_t v2xapp_GBMapNodeGetLinkCnt(V2XAPP_GBMHANDLE mapNodeHandle, uint32_t* pCnt) {
  return query<Node_t>(GBLOG_SITE, mapNodeHandle, pCnt != nullptr,
                       [&](const Node_t& node) { return putCount(pCnt, countOf(node.inLinks)); },
                       {"v2xapp_GBMapNodeAddLink", nullptr});
}

int32_t v2xapp_GBMapNodeGetLinkByIndex(V2XAPP_GBMHANDLE mapNodeHandle, uint32_t index, V2XAPP_GBMHANDLE* p_linkHandle) {
  // A node without links is refused like a null one (-2).
  const auto* node = static_cast<const Node_t*>(mapNodeHandle);
  return query<Node_t>(GBLOG_SITE, node != nullptr && node->inLinks != nullptr ? mapNodeHandle : nullptr,
                       p_linkHandle != nullptr,
                       [&](const Node_t& n) { return putHandle(p_linkHandle, elementAt(n.inLinks->list, index), -3); },
                       {"v2xapp_GBMapGetNodeByIndex", "v2xapp_GBMapGetNodeLinkByIndex"});
}

int32_t v2xapp_GBMapLinkSpeedLimitsCnt(V2XAPP_GBMHANDLE mapLinkHandle, uint16_t* pCnt) {
  return query<Link_t>(GBLOG_SITE, mapLinkHandle, pCnt != nullptr,
                       [&](const Link_t& link) { return putCount(pCnt, countOf(link.speedLimits)); });
}

int32_t v2xapp_GBMapLinkGetSpeedLimitByIndex(V2XAPP_GBMHANDLE mapLinkHandle, uint32_t index,
                                             V2XAPP_GBMHANDLE* p_speedLimitHandle) {
  return query<Link_t>(GBLOG_SITE, mapLinkHandle, p_speedLimitHandle != nullptr, [&](const Link_t& link) {
    if (link.speedLimits == nullptr) return putHandle<RegulatorySpeedLimit_t>(p_speedLimitHandle, nullptr, -3);
    return putHandle(p_speedLimitHandle, elementAt(link.speedLimits->list, index), -4);
  });
}

/* Matched family: nodes. */

int32_t v2xapp_GBMapGetNodeCount(V2XAPP_GBMHANDLE mapHandle, int16_t* nodeCnt) {
  return query<MapData_t>(GBLOG_SITE, mapHandle, nodeCnt != nullptr,
                          [&](const MapData_t& map) { return putCount(nodeCnt, map.nodes.list.count); });
}

int32_t v2xapp_GBMapGetNodeName(V2XAPP_GBMHANDLE nodeHandle, bool* has_name, char* nodeName) {
  return query<Node_t>(GBLOG_SITE, nodeHandle, has_name != nullptr && nodeName != nullptr, [&](const Node_t& node) {
    *has_name = copyName(node.name, nodeName);
    return 0;
  });
}

int32_t v2xapp_GBMapGetNodeReginId(V2XAPP_GBMHANDLE nodeHandle, bool* has_regin, uint16_t* regin, uint16_t* id) {
  return query<Node_t>(GBLOG_SITE, nodeHandle, has_regin != nullptr && regin != nullptr && id != nullptr,
                       [&](const Node_t& node) { return putReference(node.id, has_regin, regin, id, true); });
}

int32_t v2xapp_GBMapGetNodePos3d(V2XAPP_GBMHANDLE nodeHandle, int32_t* lon, int32_t* lat, bool* has_ele, int32_t* ele) {
  return query<Node_t>(GBLOG_SITE, nodeHandle, lon != nullptr && lat != nullptr && has_ele != nullptr && ele != nullptr,
                       [&](const Node_t& node) {
                         *lon = static_cast<int32_t>(node.refPos.Long);
                         *lat = static_cast<int32_t>(node.refPos.lat);
                         *has_ele = node.refPos.elevation != nullptr;
                         if (*has_ele) *ele = static_cast<int32_t>(*node.refPos.elevation);
                         return 0;
                       });
}

int32_t v2xapp_GBMapGetLinkCountInMatchedNode(V2XAPP_GBMHANDLE nodeHandle, int16_t* linkCnt) {
  return query<Node_t>(GBLOG_SITE, nodeHandle, linkCnt != nullptr,
                       [&](const Node_t& node) { return putCount(linkCnt, countOf(node.inLinks)); });
}

/* Matched family: links. */

int32_t v2xapp_GBMapGetLinkName(V2XAPP_GBMHANDLE linkHandle, bool* has_name, char* Name) {
  return query<Link_t>(GBLOG_SITE, linkHandle, has_name != nullptr && Name != nullptr, [&](const Link_t& link) {
    *has_name = copyName(link.name, Name);
    return 0;
  });
}

int32_t v2xapp_GBMapGetLinkReginId(V2XAPP_GBMHANDLE linkHandle, bool* has_regin, uint16_t* regin, uint16_t* id) {
  return query<Link_t>(
      GBLOG_SITE, linkHandle, has_regin != nullptr && regin != nullptr && id != nullptr,
      [&](const Link_t& link) { return putReference(link.upstreamNodeId, has_regin, regin, id, false); });
}

int32_t v2xapp_GBMapGetLinkSpeedLimitsCount(V2XAPP_GBMHANDLE linkHandle, uint8_t* speedLimitCnt) {
  return query<Link_t>(GBLOG_SITE, linkHandle, speedLimitCnt != nullptr,
                       [&](const Link_t& link) { return putCount(speedLimitCnt, countOf(link.speedLimits)); });
}

int32_t v2xapp_GBMapGetLinkSpeedLimits(V2XAPP_GBMHANDLE linkHandle, int32_t index, int16_t* limitType,
                                       int16_t* limitValue) {
  // A link without speed limits is refused like a null one (-2); past the end -3.
  const auto* link = static_cast<const Link_t*>(linkHandle);
  return query<Link_t>(GBLOG_SITE, link != nullptr && link->speedLimits != nullptr ? linkHandle : nullptr,
                       limitType != nullptr && limitValue != nullptr,
                       [&](const Link_t& l) { return putSpeedLimit(l.speedLimits, index, -3, limitType, limitValue); });
}

int32_t v2xapp_GBMapGetLinkWidth(V2XAPP_GBMHANDLE linkHandle, bool* has_linkWidth, int16_t* linkWidth) {
  return query<Link_t>(GBLOG_SITE, linkHandle, has_linkWidth != nullptr && linkWidth != nullptr,
                       [&](const Link_t& link) {
                         *has_linkWidth = true;
                         *linkWidth = static_cast<int16_t>(link.linkWidth);
                         return 0;
                       });
}

int32_t v2xapp_GBMapGetLaneCountInMatchedLink(V2XAPP_GBMHANDLE linkHandle, int32_t* laneCnt) {
  return query<Link_t>(GBLOG_SITE, linkHandle, laneCnt != nullptr,
                       [&](const Link_t& link) { return putCount(laneCnt, link.lanes.list.count); });
}

int32_t v2xapp_GBMapGetLinkPointsNumber(V2XAPP_GBMHANDLE linkHandle, int32_t* pointsNumer) {
  return query<Link_t>(GBLOG_SITE, linkHandle, pointsNumer != nullptr,
                       [&](const Link_t& link) { return putCount(pointsNumer, countOf(link.points)); });
}

int32_t v2xapp_GBMapLinkGetPointByIndex(V2XAPP_GBMHANDLE linkHandle, uint32_t index,
                                        v2xapp_gbMsg_PosStr_t* p_linkpoint) {
  return query<Link_t>(GBLOG_SITE, linkHandle, p_linkpoint != nullptr,
                       [&](const Link_t& link) { return pointAt(link.points, index, *p_linkpoint); });
}

int32_t v2xapp_GBMapGetLinkMovementsNumber(V2XAPP_GBMHANDLE linkHandle, int8_t* movementsNumer) {
  return query<Link_t>(GBLOG_SITE, linkHandle, movementsNumer != nullptr,
                       [&](const Link_t& link) { return putCount(movementsNumer, countOf(link.movements)); });
}

int32_t v2xapp_GBMapLinkGetMovementsPhaseIdByIndex(V2XAPP_GBMHANDLE linkHandle, int32_t index, bool* has_phaseid,
                                                   uint8_t* phaseId) {
  return query<Link_t>(GBLOG_SITE, linkHandle, has_phaseid != nullptr && phaseId != nullptr, [&](const Link_t& link) {
    const Movement_t* movement = nullptr;
    const int32_t rc = movementAt(link, index, movement);
    if (rc == 0) putPhase(movement->phaseId, has_phaseid, phaseId);
    return rc;
  });
}

int32_t v2xapp_GBMapLinkGetMovementsRegionIdByIndex(V2XAPP_GBMHANDLE linkHandle, int32_t index, bool* has_region,
                                                    uint16_t* region, uint16_t* id) {
  return query<Link_t>(
      GBLOG_SITE, linkHandle, has_region != nullptr && region != nullptr && id != nullptr, [&](const Link_t& link) {
        const Movement_t* movement = nullptr;
        const int32_t rc = movementAt(link, index, movement);
        return rc != 0 ? rc : putReference(movement->remoteIntersection, has_region, region, id, false);
      });
}

int32_t v2xapp_GBMapLinkGetLaneByIndex(V2XAPP_GBMHANDLE linkHandle, uint32_t index, V2XAPP_GBMHANDLE* p_laneHandle) {
  return query<Link_t>(GBLOG_SITE, linkHandle, p_laneHandle != nullptr, [&](const Link_t& link) {
    return putHandle(p_laneHandle, elementAt(link.lanes.list, index), -3);
  });
}

/* Matched family: lanes. */

int32_t v2xapp_GBMapGetLaneId(V2XAPP_GBMHANDLE laneHandle, int16_t* laneID) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, laneID != nullptr, [&](const Lane_t& lane) {
    *laneID = static_cast<int16_t>(lane.laneID);
    return 0;
  });
}

int32_t v2xapp_GBMapGetLaneWidth(V2XAPP_GBMHANDLE laneHandle, bool* has_laneWidth, int16_t* laneWidth) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, has_laneWidth != nullptr && laneWidth != nullptr,
                       [&](const Lane_t& lane) {
                         *has_laneWidth = lane.laneWidth != nullptr;
                         if (*has_laneWidth) *laneWidth = static_cast<int16_t>(*lane.laneWidth);
                         return 0;
                       });
}

int32_t v2xapp_GBMapGetLaneSpeedLimitsCount(V2XAPP_GBMHANDLE laneHandle, uint8_t* speedLimitCnt) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, speedLimitCnt != nullptr,
                       [&](const Lane_t& lane) { return putCount(speedLimitCnt, countOf(lane.speedLimits)); });
}

int32_t v2xapp_GBMapGetLaneSpeedLimits(V2XAPP_GBMHANDLE laneHandle, int32_t index, int8_t* limitType,
                                       int16_t* limitValue) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, limitType != nullptr && limitValue != nullptr, [&](const Lane_t& lane) {
    return lane.speedLimits == nullptr ? -3 : putSpeedLimit(lane.speedLimits, index, -4, limitType, limitValue);
  });
}

int32_t v2xapp_GBMapGetLaneAttrs(V2XAPP_GBMHANDLE laneHandle, bool* has_attr, uint16_t* type, uint16_t* typeValueBit,
                                 bool* has_laneShare, uint16_t* laneShareBit10) {
  const bool outputs = has_attr != nullptr && type != nullptr && typeValueBit != nullptr && has_laneShare != nullptr &&
                       laneShareBit10 != nullptr;
  return query<Lane_t>(GBLOG_SITE, laneHandle, outputs, [&](const Lane_t& lane) {
    *has_attr = lane.laneAttributes != nullptr;
    *has_laneShare = false;
    if (*has_attr) {
      *has_laneShare = lane.laneAttributes->shareWith != nullptr;
      if (*has_laneShare) *laneShareBit10 = static_cast<uint16_t>(bitsValue(lane.laneAttributes->shareWith));
      c_laneAttr_t attr{};
      v2xapp_GBMapPraseLaneAttributes(lane.laneAttributes, &attr);
      *type = attr.laneType;
      *typeValueBit = attr.laneTypeAttrBit;
      // The attribute parser leaves the sharing bits to its caller: what is
      // reported here has always been its empty value.
      *laneShareBit10 = attr.laneShareBit;
    }
    return 0;
  });
}

int32_t v2xapp_GBMapGetLanePointsNumber(V2XAPP_GBMHANDLE laneHandle, int32_t* pointsNumer) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, pointsNumer != nullptr,
                       [&](const Lane_t& lane) { return putCount(pointsNumer, countOf(lane.points)); });
}

int32_t v2xapp_GBMapLaneGetPointByIndex(V2XAPP_GBMHANDLE laneHandle, uint32_t index,
                                        v2xapp_gbMsg_PosStr_t* p_lanepoint) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, p_lanepoint != nullptr,
                       [&](const Lane_t& lane) { return pointAt(lane.points, index, *p_lanepoint); });
}

int32_t v2xapp_GBMapGetConnectToAllowedManeuvers(V2XAPP_GBMHANDLE laneHandle, uint16_t* allowedManeuvers) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, allowedManeuvers != nullptr, [&](const Lane_t& lane) {
    if (lane.maneuvers == nullptr) return -3;
    *allowedManeuvers = static_cast<uint16_t>(bitsValue(lane.maneuvers));
    return 0;
  });
}

/* Matched family: connections. */

int32_t v2xapp_GBMapGetConnectToCount(V2XAPP_GBMHANDLE laneHandle, uint8_t* count) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, count != nullptr,
                       [&](const Lane_t& lane) { return putCount(count, countOf(lane.connectsTo)); });
}

int32_t v2xapp_GBMapGetConnectToReginId(V2XAPP_GBMHANDLE laneHandle, int32_t index, bool* has_regin, uint16_t* regin,
                                        uint16_t* id) {
  return query<Lane_t>(GBLOG_SITE, laneHandle, has_regin != nullptr && regin != nullptr && id != nullptr,
                       [&](const Lane_t& lane) {
                         const Connection_t* connection = nullptr;
                         const int32_t rc = connectionAt(lane, index, connection);
                         return rc != 0 ? rc : putReference(connection->remoteIntersection, has_regin, regin, id, true);
                       });
}

int32_t v2xapp_GBMapGetConnectToPhaseId(V2XAPP_GBMHANDLE mapLaneHandle, int32_t index, bool* has_phaseId,
                                        int16_t* phaseId) {
  return query<Lane_t>(GBLOG_SITE, mapLaneHandle, has_phaseId != nullptr && phaseId != nullptr,
                       [&](const Lane_t& lane) {
                         const Connection_t* connection = nullptr;
                         const int32_t rc = connectionAt(lane, index, connection);
                         if (rc == 0) putPhase(connection->phaseId, has_phaseId, phaseId);
                         return rc;
                       });
}

int32_t v2xapp_GBMapGetConnectToLaneInfo(V2XAPP_GBMHANDLE laneHandle, int32_t index, bool* has_laneInfo,
                                         int16_t* laneId, bool* has_maneuver, uint16_t* maneuver) {
  const bool outputs = has_laneInfo != nullptr && laneId != nullptr && has_maneuver != nullptr && maneuver != nullptr;
  return query<Lane_t>(GBLOG_SITE, laneHandle, outputs, [&](const Lane_t& lane) {
    const Connection_t* connection = nullptr;
    const int32_t rc = connectionAt(lane, index, connection);
    if (rc != 0) return rc;
    const ConnectingLane* reached = connection->connectingLane;
    *has_laneInfo = reached != nullptr;
    *has_maneuver = reached != nullptr && reached->maneuver != nullptr;
    if (*has_laneInfo) *laneId = static_cast<int16_t>(reached->lane);
    if (*has_maneuver) *maneuver = static_cast<uint16_t>(bitsValue(reached->maneuver));
    return 0;
  });
}

}  // extern "C"
