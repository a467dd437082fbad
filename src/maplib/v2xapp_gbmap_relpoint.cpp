// Absolute points of a MAP message rewritten, in place, as offsets from the
// reference position of the node that holds them.
#include "gbmap_internal.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbmap_build.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

// A relative height (offset1 to offset6) taken back to an elevation against
// the node's own; false for any other vertical part or a node without one.
bool relativeHeight(const VerticalOffset_t* v, const Position3D_t& ref, long& elevation) {
  if (v == nullptr || ref.elevation == nullptr) return false;
  switch (v->present) {
    case VerticalOffset_PR_offset1: elevation = v->choice.offset1; break;
    case VerticalOffset_PR_offset2: elevation = v->choice.offset2; break;
    case VerticalOffset_PR_offset3: elevation = v->choice.offset3; break;
    case VerticalOffset_PR_offset4: elevation = v->choice.offset4; break;
    case VerticalOffset_PR_offset5: elevation = v->choice.offset5; break;
    case VerticalOffset_PR_offset6: elevation = v->choice.offset6; break;
    default: return false;
  }
  // Wraps like the hardware for values no encoder would accept.
  elevation = static_cast<long>(static_cast<unsigned long>(elevation) + static_cast<unsigned long>(*ref.elevation));
  return true;
}

// Converts the absolute points of one list; points already relative stay.
// Only an absolute elevation goes along as the point's height. A point too far
// from its node for an offset stays absolute; a relative height it carries
// (an earlier conversion gave it one) is then kept against the node's
// elevation, so that converting twice changes nothing.
void convertPoints(PointList* points, const Position3D_t& ref) {
  if (points == nullptr) return;
  for (int i = 0; i < points->list.count; ++i) {
    RoadPoint_t* point = points->list.array[i];
    if (point == nullptr || point->posOffset.offsetLL.present != PositionOffsetLL_PR_position_LatLon) continue;
    VerticalOffset_t* old = point->posOffset.offsetV;
    // The offset writer attaches a new vertical part without releasing the old one.
    point->posOffset.offsetV = nullptr;
    long elevation = 0;
    Position3D_t currPos3D{};
    currPos3D.lat = point->posOffset.offsetLL.choice.position_LatLon.lat;
    currPos3D.Long = point->posOffset.offsetLL.choice.position_LatLon.lon;
    if (old != nullptr && old->present == VerticalOffset_PR_elevation) {
      elevation = old->choice.elevation;
      currPos3D.elevation = &elevation;
    }
    // A single point that fails is left as it is; the walk goes on.
    (void)setPosOffsetLLVOriginal(&currPos3D, const_cast<Position3D_t*>(&ref), &point->posOffset);
    if (point->posOffset.offsetLL.present == PositionOffsetLL_PR_position_LatLon && currPos3D.elevation == nullptr &&
        relativeHeight(old, ref, elevation)) {
      ASN_STRUCT_FREE(asn_DEF_VerticalOffset, point->posOffset.offsetV);
      point->posOffset.offsetV = nullptr;
      currPos3D.elevation = &elevation;
      (void)setPosOffsetVOriginal(&currPos3D, &ref, &point->posOffset);
    }
    ASN_STRUCT_FREE(asn_DEF_VerticalOffset, old);
  }
}

}  // namespace

extern "C" int32_t v2xapp_convAbsPoint2RelPoint(V2XAPP_GBMHANDLE handle) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  MapData_t* map = gbmap::mapOf(handle);
  if (map == nullptr) {
    GBLOG(&g_curTag, 2, "null handle or not a map frame");
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
  GBLOG_END(&g_curTag, ret);
  return ret;
}
