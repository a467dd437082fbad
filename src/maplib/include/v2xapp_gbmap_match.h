/**
 * \file v2xapp_gbmap_match.h
 * \brief The lane of a MAP message on which a position lies.
 *
 * A lane is described by its centre line (its points, resolved against the
 * reference position of its node) and its width. A position lies on a lane
 * when, for some segment of the centre line, the foot of the perpendicular
 * from the position falls on the segment and the position is strictly closer
 * to that foot than half the lane's width (geodesic distance on WGS84).
 *
 * The lanes are tried in a fixed order: nodes in map order, then the node's
 * links, then the link's lanes, then the lane's segments from its first
 * point. The first lane that passes is the answer, even when a later lane is
 * closer. A lane without a width or with fewer than two points, a node
 * without links and a position beyond a lane's ends (or on the outside of a
 * bend) never match.
 *
 * v2xapp_GBMapMatchLane walks the map as it stands, with three plane
 * conversions per segment. For many positions against one map, prepare the
 * map once (v2xapp_GBMapMatchPrepare) and ask v2xapp_GBMapMatchPrepared,
 * which gives exactly the same answers at a fraction of the cost.
 *
 * Threads: v2xapp_GBMapMatchLane only reads the message; a prepared map may
 * be queried from several threads at once.
 */
#ifndef V2XAPP_GBMAP_MATCH_H
#define V2XAPP_GBMAP_MATCH_H

#include <stdbool.h>
#include <stdint.h>

#include "v2xapp_commoncodec.h"
#include "v2xapp_gbmap.h"

#ifdef __cplusplus
extern "C" {
#endif

struct LaneAttributes;

/** A matched lane: 0-based indexes of the node in the map, of the link in the
 * node's links and of the lane in the link's lanes (the query operations of
 * v2xapp_gbmap_query.h read them). */
typedef struct MapSearch {
  int32_t CurrentNode; /**< index of the node in the map */
  int32_t CurrentLink; /**< index of the link in the node's links */
  int32_t CurrentLane; /**< index of the lane in the link's lanes */
} MapSearch_t;

/** Plain lane attributes. laneType: 1 vehicle, 2 crosswalk, 3 bike lane,
 * 4 sidewalk, 5 median, 6 striping, 7 tracked vehicle, 8 parking, 0 unknown;
 * laneTypeAttrBit: that type's bits read as a number (first octet most
 * significant). The sharing fields are left to the caller. */
typedef struct c_laneAttr {
  bool m_has_laneShare;     /**< sharing bits present (left to the caller) */
  uint16_t laneShareBit;    /**< sharing bits (left to the caller) */
  uint8_t laneType;         /**< 1..8 as V2XAPP_GBMAP_LANE_*, 0 unknown */
  uint16_t laneTypeAttrBit; /**< the type's bits read as a number */
} c_laneAttr_t;

/**
 * Matches the position vehpos (a c_pos3D_t; only lat and lon, in degrees,
 * are read) against the map mapLaneHandle (a map message, despite the name)
 * and fills mapresult (a MapSearch_t). 0 when a lane matched; -1 when none
 * did (*mapresult untouched); -2 for a null argument, a frame that is not a
 * map or a position that is not a number or has a latitude beyond +-90.
 * Logs each segment the position has a foot on (level 6, with its distance)
 * and the match (level 4), under the log tag "GMAP".
 */
int32_t v2xapp_GBMapMatchLane(void* vehpos, V2XAPP_GBMHANDLE mapLaneHandle, void* mapresult);

/** Takes the codec's LaneAttributes record, which only the library's own
 * sources see: programs read a lane's attributes with v2xapp_GBMapGetLaneAttrs
 * (v2xapp_gbmap_query.h). Fills laneAttr from the attributes of a lane (laneType and
 * laneTypeAttrBit; the sharing fields are not touched). 0, or -1 for a null
 * pointer. */
int32_t v2xapp_GBMapPraseLaneAttributes(struct LaneAttributes* asn1_laneAttr, c_laneAttr_t* laneAttr);

/** A map prepared for matching: a snapshot of its lanes. The message may be
 * changed or freed afterwards; the snapshot does not follow it. Queries on
 * one prepared map may run from several threads at once. */
typedef struct v2xapp_GBMapMatcher* V2XAPP_GBMMATCHER;

/** Prepares mapHandle into *p_matcher. 0; -2 for a null argument or a frame
 * that is not a map; -3 when no memory. */
int32_t v2xapp_GBMapMatchPrepare(V2XAPP_GBMHANDLE mapHandle, V2XAPP_GBMMATCHER* p_matcher);
/** As v2xapp_GBMapMatchLane, through a prepared map: the same result for every
 * position. Logs only the match, at level 6. */
int32_t v2xapp_GBMapMatchPrepared(V2XAPP_GBMMATCHER matcher, const c_pos3D_t* vehpos, MapSearch_t* mapresult);
/** Releases a prepared map and sets *p_matcher to NULL. 0; -2 when there is
 * none. */
int32_t v2xapp_GBMapMatchRelease(V2XAPP_GBMMATCHER* p_matcher);

#ifdef __cplusplus
}
#endif

#endif
