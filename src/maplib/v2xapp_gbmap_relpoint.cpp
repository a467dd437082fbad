// Absolute points of a MAP message rewritten, in place, as offsets from the
// reference position of the node that holds them.
#include "gbmap_internal.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbmap_build.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

// The height of a point as a value, when it has one: an absolute elevation, or
// a height offset taken against the node's elevation. An absolute point keeps
// a relative height only when it lies too far from its node for an offset;
// reading that height back keeps a second conversion from dropping it.
bool pointElevation(const VerticalOffset_t* v, const Position3D_t& ref, long& elevation) {
  if (v == nullptr) return false;
  switch (v->present) {
    case VerticalOffset_PR_elevation: elevation = v->choice.elevation; return true;
    case VerticalOffset_PR_offset1: elevation = v->choice.offset1; break;
    case VerticalOffset_PR_offset2: elevation = v->choice.offset2; break;
    case VerticalOffset_PR_offset3: elevation = v->choice.offset3; break;
    case VerticalOffset_PR_offset4: elevation = v->choice.offset4; break;
    case VerticalOffset_PR_offset5: elevation = v->choice.offset5; break;
    case VerticalOffset_PR_offset6: elevation = v->choice.offset6; break;
    default: return false;
  }
  if (ref.elevation == nullptr) return false;
  // Wraps like the hardware for values no encoder would accept.
  elevation = static_cast<long>(static_cast<unsigned long>(elevation) + static_cast<unsigned long>(*ref.elevation));
  return true;
}

// Converts the absolute points of one list; points already relative stay.
void convertPoints(PointList* points, const Position3D_t& ref) {
  if (points == nullptr) return;
  for (int i = 0; i < points->list.count; ++i) {
    RoadPoint_t* point = points->list.array[i];
    if (point == nullptr || point->posOffset.offsetLL.present != PositionOffsetLL_PR_position_LatLon) continue;
    long elevation = 0;
    Position3D_t currPos3D{};
    currPos3D.lat = point->posOffset.offsetLL.choice.position_LatLon.lat;
    currPos3D.Long = point->posOffset.offsetLL.choice.position_LatLon.lon;
    if (pointElevation(point->posOffset.offsetV, ref, elevation)) currPos3D.elevation = &elevation;
    // The offset writer attaches a new vertical part without releasing the old one.
    ASN_STRUCT_FREE(asn_DEF_VerticalOffset, point->posOffset.offsetV);
    point->posOffset.offsetV = nullptr;
    // A single point that fails is left as it is; the walk goes on.
    (void)setPosOffsetLLVOriginal(&currPos3D, const_cast<Position3D_t*>(&ref), &point->posOffset);
  }
}

}  // namespace

extern "C" int32_t v2xapp_convAbsPoint2RelPoint(V2XAPP_GBMHANDLE handle) {
  V2XLOG_START(&g_curTag);
  int32_t ret = -2;
  MapData_t* map = gbmap::mapOf(handle);
  if (map == nullptr) {
    V2XLOG(&g_curTag, 2, "null handle or not a map frame");
  } else {
    for (int n = 0; n < map->nodes.list.count; ++n) {
      Node_t* node = map->nodes.list.array[n];
      if (node == nullptr || node->inLinks == nullptr) continue;
      for (int k = 0; k < node->inLinks->list.count; ++k) {
        Link_t* link = node->inLinks->list.array[k];
        if (link == nullptr) continue;
        convertPoints(link->points, node->refPos);
        for (int l = 0; l < link->lanes.list.count; ++l) {
          if (link->lanes.list.array[l] != nullptr) convertPoints(link->lanes.list.array[l]->points, node->refPos);
        }
      }
    }
    ret = 0;
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}
