// The lane matcher's steps, shared by the plain walk and the prepared matcher
// so that both take every decision with the very same arithmetic (defined
// once, in v2xapp_gbmap_match.cpp).
#ifndef GBMAP_MATCH_CORE_H
#define GBMAP_MATCH_CORE_H

#include "gbmap_internal.h"
#include "v2xapp_commoncodec.h"
#include "v2xcal.h"

namespace gbmap {

// A centre-line segment placed in the local plane of its first point.
struct PlacedSegment {
  double m_aLon;
  double m_aLat;
  v2xcal_xy_t m_a;
  v2xcal_xy_t m_b;
};

// The vehicle and the foot of its perpendicular, in a segment's plane.
struct PlaneFoot {
  v2xcal_xy_t m_p;
  v2xcal_xy_t m_foot;
};

// A usable vehicle position: numbers, latitude within +-90.
bool vehicleUsable(double lat, double lon);
// The node's reference position (degrees, metres).
c_pos3D_t nodeReference(const Node_t& node);
// Lane width in metres; false without a width.
bool laneWidthMetres(const Lane_t& lane, double& width);
// Absolute position of a point; false when the point carries none.
bool resolvePoint(const RoadPoint_t* point, const c_pos3D_t& ref, c_pos3D_t& out);
// Places segment A-B; false when either end cannot be placed.
bool placeSegment(const c_pos3D_t& A, const c_pos3D_t& B, PlacedSegment& seg);
// The vehicle's foot on the segment's line; false when it falls off the segment.
bool footInPlane(const PlacedSegment& seg, double lon, double lat, PlaneFoot& foot);
// Geodesic distance from the foot (back on the ellipsoid) to the vehicle.
bool footDistance(const PlacedSegment& seg, const PlaneFoot& foot, double lon, double lat, double& distance);
// The acceptance test: strictly closer than half the lane width.
bool withinHalfWidth(double distance, double width);

}  // namespace gbmap

#endif
