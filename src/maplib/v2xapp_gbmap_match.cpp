// Lane matching: the walk over every lane's centre line, segment by segment,
// and the plain lane attribute record.
#include "v2xapp_gbmap_match.h"

#include <cmath>

#include "gbmap_match_core.h"

namespace gbmap {

bool vehicleUsable(double lat, double lon) {
  return std::isfinite(lat) && std::isfinite(lon) && lat >= -90.0 && lat <= 90.0;
}

c_pos3D_t nodeReference(const Node_t& node) {
  c_pos3D_t ref{};
  ref.posIsValid = true;
  ref.lat = static_cast<double>(node.refPos.lat) * 1e-7;
  ref.lon = static_cast<double>(node.refPos.Long) * 1e-7;
  ref.elevIsValid = node.refPos.elevation != nullptr;
  if (ref.elevIsValid) ref.elevation = static_cast<double>(*node.refPos.elevation) * 0.1;
  return ref;
}

bool laneWidthMetres(const Lane_t& lane, double& width) {
  if (lane.laneWidth == nullptr) return false;
  width = static_cast<double>(*lane.laneWidth) / 100.0;
  return true;
}

bool resolvePoint(const RoadPoint_t* point, const c_pos3D_t& ref, c_pos3D_t& out) {
  if (point == nullptr) return false;
  const PositionOffsetLL_PR kind = point->posOffset.offsetLL.present;
  if (kind < PositionOffsetLL_PR_position_LL1 || kind > PositionOffsetLL_PR_position_LatLon) return false;
  out = c_pos3D_t{};
  return prasePosOffsetLLV(const_cast<PositionOffsetLLV_t*>(&point->posOffset), &ref, &out) == 0;
}

bool placeSegment(const c_pos3D_t& A, const c_pos3D_t& B, PlacedSegment& seg) {
  seg.m_aLon = A.lon;
  seg.m_aLat = A.lat;
  return v2xcal_GeoConvertLatLon2XY(A.lon, A.lat, 0.0, A.lon, A.lat, &seg.m_a) == 0 &&
         v2xcal_GeoConvertLatLon2XY(A.lon, A.lat, 0.0, B.lon, B.lat, &seg.m_b) == 0;
}

bool footInPlane(const PlacedSegment& seg, double lon, double lat, PlaneFoot& foot) {
  uint8_t inRange = 0;
  return v2xcal_GeoConvertLatLon2XY(seg.m_aLon, seg.m_aLat, 0.0, lon, lat, &foot.m_p) == 0 &&
         v2xcal_GeoIsLineFootPInRange(&seg.m_a, &seg.m_b, &foot.m_p, &foot.m_foot, &inRange) == 0 && inRange == 1;
}

bool footDistance(const PlacedSegment& seg, const PlaneFoot& foot, double lon, double lat, double& distance) {
  v2xcal_lonlat_t back{};
  return v2xcal_GeoConvertXY2LatLon(seg.m_aLon, seg.m_aLat, 0.0, foot.m_foot.m_x, foot.m_foot.m_y, &back) == 0 &&
         v2xcal_GeoInvertConv(back.m_lon, back.m_lat, lon, lat, &distance, nullptr, nullptr) == 0;
}

bool withinHalfWidth(double distance, double width) { return distance < width / 2.0; }

}  // namespace gbmap

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

// The bit string of a lane type choice; null for an empty or unknown choice.
const BIT_STRING_t* typeBits(const LaneTypeAttributes_t& type) {
  switch (type.present) {
    case LaneTypeAttributes_PR_vehicle: return &type.choice.vehicle;
    case LaneTypeAttributes_PR_crosswalk: return &type.choice.crosswalk;
    case LaneTypeAttributes_PR_bikeLane: return &type.choice.bikeLane;
    case LaneTypeAttributes_PR_sidewalk: return &type.choice.sidewalk;
    case LaneTypeAttributes_PR_median: return &type.choice.median;
    case LaneTypeAttributes_PR_striping: return &type.choice.striping;
    case LaneTypeAttributes_PR_trackedVehicle: return &type.choice.trackedVehicle;
    case LaneTypeAttributes_PR_parking: return &type.choice.parking;
    default: return nullptr;
  }
}

}  // namespace

extern "C" {

int32_t v2xapp_GBMapMatchLane(void* vehpos, V2XAPP_GBMHANDLE mapLaneHandle, void* mapresult) {
  const auto* veh = static_cast<const c_pos3D_t*>(vehpos);
  auto* result = static_cast<MapSearch_t*>(mapresult);
  const MapData_t* map = gbmap::mapOf(mapLaneHandle);
  if (veh == nullptr || result == nullptr || map == nullptr) {
    GBLOG(&g_curTag, 2, "null argument or not a map frame");
    return -2;
  }
  if (!gbmap::vehicleUsable(veh->lat, veh->lon)) {
    GBLOG(&g_curTag, 2, "vehicle position lat=%f lon=%f unusable", veh->lat, veh->lon);
    return -2;
  }
  for (int ifornode = 0; ifornode < map->nodes.list.count; ++ifornode) {
    const Node_t* node = map->nodes.list.array[ifornode];
    if (node == nullptr || node->inLinks == nullptr) continue;  // a node without links has no lanes
    const c_pos3D_t ref = gbmap::nodeReference(*node);
    for (int iforlink = 0; iforlink < node->inLinks->list.count; ++iforlink) {
      const Link_t* link = node->inLinks->list.array[iforlink];
      if (link == nullptr) continue;
      for (int iforlane = 0; iforlane < link->lanes.list.count; ++iforlane) {
        const Lane_t* lane = link->lanes.list.array[iforlane];
        double lanewidth = 0.0;
        if (lane == nullptr || lane->points == nullptr || !gbmap::laneWidthMetres(*lane, lanewidth)) continue;
        const int pointnum = lane->points->list.count;
        for (int iforpoint = 0; iforpoint + 1 < pointnum; ++iforpoint) {
          c_pos3D_t A{}, B{};
          gbmap::PlacedSegment seg{};
          gbmap::PlaneFoot foot{};
          double distance = 0.0;
          if (!gbmap::resolvePoint(lane->points->list.array[iforpoint], ref, A) ||
              !gbmap::resolvePoint(lane->points->list.array[iforpoint + 1], ref, B) ||
              !gbmap::placeSegment(A, B, seg) || !gbmap::footInPlane(seg, veh->lon, veh->lat, foot) ||
              !gbmap::footDistance(seg, foot, veh->lon, veh->lat, distance)) {
            continue;
          }
          GBLOG(&g_curTag, 6, "node=%d  link=%d  lane=%d  pointnum=%d distance=%f,lanewidth=%f", ifornode, iforlink,
                iforlane, pointnum, distance, lanewidth);
          if (gbmap::withinHalfWidth(distance, lanewidth)) {
            GBLOG(&g_curTag, 4, "map matched nodeIndex=%d:linkINdex=%d:laneIndex=%d", ifornode, iforlink, iforlane);
            result->CurrentLane = iforlane;
            result->CurrentLink = iforlink;
            result->CurrentNode = ifornode;
            return 0;
          }
        }
      }
    }
  }
  return -1;
}

int32_t v2xapp_GBMapPraseLaneAttributes(LaneAttributes_t* asn1_laneAttr, c_laneAttr_t* laneAttr) {
  if (asn1_laneAttr == nullptr || laneAttr == nullptr) {
    GBLOG(&g_curTag, 3, "input para error!");
    return -1;
  }
  const BIT_STRING_t* bits = typeBits(asn1_laneAttr->laneType);
  int64_t value = 0;
  if (bits != nullptr) v2xcodec_bitString2Long(const_cast<BIT_STRING_t*>(bits), &value);
  laneAttr->laneType = bits != nullptr ? static_cast<uint8_t>(asn1_laneAttr->laneType.present) : 0;
  laneAttr->laneTypeAttrBit = static_cast<uint16_t>(value);
  return 0;
}

}  // extern "C"
