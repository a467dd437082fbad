/**
 * \file v2xapp_gbmap_build.h
 * \brief Building a MAP message element by element, without ASN.1.
 *
 * A MAP message (made by v2xapp_GBMapStrInit, v2xapp_gbmap.h) describes
 * intersections:
 *
 *   map ── nodes (intersections, each with an id and a reference position)
 *           └─ links (roads entering the node from an upstream node)
 *               ├─ speed limits, centre-line points, movements (where the
 *               │   road leads and under which signal phase)
 *               └─ lanes (id, width, type, allowed maneuvers, points)
 *                   └─ connections (lane of the next intersection reached)
 *
 * Every element is a V2XAPP_GBMHANDLE. An ...Init operation hands out a new,
 * unattached element: it is the caller's until it is attached with the
 * matching ...Add operation; from then on its parent owns it and
 * v2xapp_GBMapStrDel releases it with the whole message. An element that is
 * never attached is released with v2xapp_GBMapElementRelease. An element has
 * at most one parent: attaching it twice to the same list gives -2, attaching
 * an element that has a parent elsewhere (or that no ...Init call of that kind
 * made, such as an element of a decoded message) gives -4.
 *
 * Units are the message's own, unscaled: latitude and longitude in 1e-7
 * degree, elevation in 0.1 m, widths in cm, speeds in 0.02 m/s. No operation
 * checks ranges; v2xapp_GBMapUperEncode refuses a message with a value out of
 * the message set's range.
 *
 * Bit strings (maneuvers, lane type attributes, lane sharing): use the flag
 * setters (v2xapp_GBMapLaneSetManeuverFlags, v2xapp_GBMapLaneSetTypeFlags,
 * v2xapp_GBMapLaneSetShareFlags, v2xapp_GBMapConnectToSetManeuverFlags),
 * which write bit n of the value (1u << n) as the message set's named bit n
 * with the sizes the 2020 message set encodes. The older setters
 * (v2xapp_GBMapLaneSetManeuvers, v2xapp_GBMapLinkLaneSetLaneAttributes and
 * the maneuvers of v2xapp_GBMapLaneConnectToSetConnectingLane) copy the
 * lowest bytes of a 64-bit value, lowest byte first, into the string's first
 * octets, and give lane maneuvers 10 bits and lane types other than vehicle
 * 9/7/4/10/6/5/7 bits: the 2020 message set encodes none of these sizes, so
 * a message built with them is refused by v2xapp_GBMapUperEncode (-3) unless
 * only vehicle types and connection maneuvers were set. Reading them back
 * (v2xapp_GBMapbitString2Long, v2xapp_gbmap_query.h) takes the first octet as
 * the most significant, so a value written as 0x0102 reads back as 0x0201.
 *
 * Results: 0 on success; -2 for a null handle or argument (or a failed
 * allocation of the new element in the ...Init operations); other negative
 * values as listed. Each operation writes trace lines at level 7 under the log
 * tag "GMAP" (some name a related operation, as log readers expect).
 *
 * Threads: an element and the message it belongs to must not be used by two
 * threads at once; elements of different messages may be built in parallel
 * (the table of unattached elements is locked).
 */
#ifndef V2XAPP_GBMAP_BUILD_H
#define V2XAPP_GBMAP_BUILD_H

#include <stdint.h>

#include "v2xapp_gbmap.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Lane types of v2xapp_GBMapLinkLaneSetLaneAttributes and
 *  v2xapp_GBMapLaneSetTypeFlags. The comments give the octets and bits the
 *  older setter writes; the message set (and the flag setter) use 8 bits for
 *  vehicle lanes and 16 bits for every other type. */
enum {
  V2XAPP_GBMAP_LANE_VEHICLE = 1,        /* 1 octet, 8 bits */
  V2XAPP_GBMAP_LANE_CROSSWALK = 2,      /* 2 octets, 9 bits */
  V2XAPP_GBMAP_LANE_BIKE = 3,           /* 1 octet, 7 bits */
  V2XAPP_GBMAP_LANE_SIDEWALK = 4,       /* 1 octet, 4 bits */
  V2XAPP_GBMAP_LANE_MEDIAN = 5,         /* 2 octets, 10 bits */
  V2XAPP_GBMAP_LANE_STRIPING = 6,       /* 1 octet, 6 bits */
  V2XAPP_GBMAP_LANE_TRACKEDVEHICLE = 7, /* 1 octet, 5 bits */
  V2XAPP_GBMAP_LANE_PARKING = 8         /* 1 octet, 7 bits */
};

/** Point position kinds: only the absolute one is filled by the point
 * operations; convert to offsets with v2xapp_convAbsPoint2RelPoint. */
/** postype of the point calls: absolute latitude/longitude. */
#define V2XAPP_GBMAP_POS_LATLON 7
/** *elevtype of the point calls: absolute elevation. */
#define V2XAPP_GBMAP_ELEV_ABS 7

/* Nodes. */

/** Appends a node to the map's node list. -2 for a null map or node, or a node
 * already in the list; -3 when no memory. */
int32_t v2xapp_GBMapAddNode(V2XAPP_GBMHANDLE mapHandle, V2XAPP_GBMHANDLE nodeHandle);
/** New node with id nodeID; region *pregion when pregion is given; name of
 * nodeNameLen bytes from pnodeName when pnodeName is given. The node goes to
 * *p_nodeHandle. -2 when p_nodeHandle is null or no memory for the node; -3
 * when no memory for its region or name (nothing is handed out then). */
int32_t v2xapp_GBMapNodeInit(V2XAPP_GBMHANDLE* p_nodeHandle, uint64_t nodeID, uint64_t* pregion, uint8_t* pnodeName,
                             uint16_t nodeNameLen);
/** Sets the node's id; with pregion also its region (replacing an earlier one). */
int32_t v2xapp_GBMapNodeSetID(V2XAPP_GBMHANDLE mapNodeHandle, uint64_t id, uint64_t* pregion);
/** Sets the reference position; with pelev the elevation, without it none. All
 * offsets of the node's points are taken against this position. */
int32_t v2xapp_GBMapNodeSetRefPos(V2XAPP_GBMHANDLE mapNodeHandle, int64_t lat, int64_t mlong, int64_t* pelev);
/** Appends a link to the node's links. -2 for a null argument or a link already
 * there; -3 when no memory. */
int32_t v2xapp_GBMapNodeAddLink(V2XAPP_GBMHANDLE mapNodeHandle, V2XAPP_GBMHANDLE mapLinkHandle);

/* Links. */

/** New empty link into *p_linkHandle. -2 when no memory. */
int32_t v2xapp_GBMapLinkInit(V2XAPP_GBMHANDLE* p_linkHandle);
/** Sets the link's name (linkNameLen bytes). -2 for a null handle or name; -3
 * when no memory. */
int32_t v2xapp_GBMapLinkSetName(V2XAPP_GBMHANDLE mapLinkHandle, uint8_t* plinkName, uint16_t linkNameLen);
/** Sets the id (and with pregion the region) of the node the link comes from. */
int32_t v2xapp_GBMapLinkSetUpStreamNodeID(V2XAPP_GBMHANDLE mapLinkHandle, uint64_t id, uint64_t* pregion);
/** Appends a speed limit {limit_type, speed} (types: 5 vehicle maximum, 8 truck
 * maximum, ...). -2 for a null handle; -3 when no memory. */
int32_t v2xapp_GBMapLinkAddSpeedLimits(V2XAPP_GBMHANDLE mapLinkHandle, uint8_t limit_type, uint64_t speed);
/** Sets the link's width (cm). */
int32_t v2xapp_GBMapLinkSetlinkWidth(V2XAPP_GBMHANDLE mapLinkHandle, uint64_t linkwidth);
/** Appends a lane to the link. -2 for a null argument or a lane already there;
 * -3 when no memory. */
int32_t v2xapp_GBMapLinkAddlane(V2XAPP_GBMHANDLE mapLinkHandle, V2XAPP_GBMHANDLE mapLaneHandle);
/**
 * Appends a centre-line point. With postype 7 (V2XAPP_GBMAP_POS_LATLON) the
 * point is the absolute position latitude posvala, longitude posvalb; any
 * other postype leaves the point without a position, which the encoder then
 * refuses. With elevtype given, the point gets a vertical part: the absolute
 * elevation elevval when *elevtype is 7, else an empty one (refused by the
 * encoder). -2 for a null handle; -3 when no memory.
 */
int32_t v2xapp_GBMapLinkAddPoint(V2XAPP_GBMHANDLE mapLinkHandle, uint16_t postype, uint64_t posvala, uint64_t posvalb,
                                 uint16_t* elevtype, uint64_t elevval);

/* Movements: where a link leads, and under which signal phase. */

/** New movement towards node id (region *pregion when given) into
 * *p_mapLinkMomentHandle. -2 when no memory. */
int32_t v2xapp_GBMapLinkMovementInit(V2XAPP_GBMHANDLE* p_mapLinkMomentHandle, uint64_t id, uint64_t* pregion);
/** Appends a movement to the link. -2 for a null argument or a movement already
 * there; -3 when no memory. */
int32_t v2xapp_GBMapLinkAddMovement(V2XAPP_GBMHANDLE mapLinkHandle, V2XAPP_GBMHANDLE movementHandle);
/** Sets the movement's signal phase. -2 for a null handle or no memory. */
int32_t v2xapp_GBMapLinkMovementSetPhaseID(V2XAPP_GBMHANDLE movementHandle, uint64_t phaseId);

/* Lanes. */

/** New lane with id laneID into *p_mapLinkLaneHandle. -2 when no memory. */
int32_t v2xapp_GBMapLinkLaneInit(V2XAPP_GBMHANDLE* p_mapLinkLaneHandle, uint64_t laneID);
/** Sets the lane's width (cm). -2 for a null handle or no memory. */
int32_t v2xapp_GBMapLinkLaneSetLaneWidth(V2XAPP_GBMHANDLE laneHandle, uint64_t width);
/**
 * Sets the lane's type (V2XAPP_GBMAP_LANE_*) and its attribute bits from
 * typeVal (octets as the enum lists, copied lowest byte first); with
 * pShareWith also the lane-sharing bits (2 octets, 10 bits). -2 for a null
 * handle; -3 for an unknown type (the type is still recorded, and the
 * encoder then refuses the message); -4 when no memory.
 *
 * Not encodable in the 2020 message set for any type but vehicle (it wants 16
 * bits there); its sharing bits are the value's lowest bytes as they are:
 * use v2xapp_GBMapLaneSetTypeFlags and v2xapp_GBMapLaneSetShareFlags.
 */
int32_t v2xapp_GBMapLinkLaneSetLaneAttributes(V2XAPP_GBMHANDLE laneHandle, uint16_t type, uint64_t typeVal,
                                              uint64_t* pShareWith);
/** Sets the lane's allowed maneuvers: the 2 lowest bytes of *pmaneuverValue
 * into 2 octets marked as carrying 10 bits. -2 for a null argument or no
 * memory. Not encodable in the 2020 message set (12 bits): use
 * v2xapp_GBMapLaneSetManeuverFlags. */
int32_t v2xapp_GBMapLaneSetManeuvers(V2XAPP_GBMHANDLE laneHandle, uint64_t* pmaneuverValue);
/** Appends a centre-line point to the lane: as v2xapp_GBMapLinkAddPoint, but
 * the vertical part takes *elevtype as its kind whatever it is (the value is
 * set only for 7). */
int32_t v2xapp_GBMapLaneAddPoint(V2XAPP_GBMHANDLE laneHandle, uint16_t postype, uint64_t posvala, uint64_t posvalb,
                                 uint16_t* elevtype, uint64_t elevval);
/** Appends a speed limit {limitType, limitspeed} to the lane. -2 for a null
 * handle; -3 when no memory. */
int32_t v2xapp_GBMapLaneAddSpeedLimit(V2XAPP_GBMHANDLE laneHandle, uint16_t limitType, uint64_t limitspeed);

/* Connections: the lane of a following intersection that a lane leads to. */

/** New connection towards node id (region *pregion when given) into
 * *p_mapLaneConnectToHandle. -2 when no memory. */
int32_t v2xapp_GBMapLaneConnectToInit(V2XAPP_GBMHANDLE* p_mapLaneConnectToHandle, uint64_t id, uint64_t* pregion);
/** Sets the connecting lane's id; with pmaneuverValue its maneuvers (2 lowest
 * bytes into 2 octets, 12 bits, lowest byte first: the message set's bit 0 is
 * bit 7 of the value). -2 for a null handle or no memory. For maneuvers by
 * their named bits use v2xapp_GBMapConnectToSetManeuverFlags. */
int32_t v2xapp_GBMapLaneConnectToSetConnectingLane(V2XAPP_GBMHANDLE connectToHandle, uint64_t laneID,
                                                   uint64_t* pmaneuverValue);
/** Sets the connection's signal phase. -2 for a null argument; -3 when no memory. */
int32_t v2xapp_GBMapLaneConnectToSetPhaseID(V2XAPP_GBMHANDLE connectToHandle, uint64_t* phaseId);
/** Appends a connection to the lane. -2 for a null argument or a connection
 * already there; -3 when no memory. */
int32_t v2xapp_GBMapLaneAddConnectTo(V2XAPP_GBMHANDLE laneHandle, V2XAPP_GBMHANDLE connectToHandle);

/* Element ownership and well-formed bit strings. */

/**
 * \brief Releases an element that was never attached (node, link, lane,
 *        movement or connection from an ...Init call), with everything set on
 *        it, and sets *p_element to NULL.
 * \return 0; -2 when p_element or *p_element is NULL; -4 when the element is
 *         attached (its parent owns it: release the message instead), was
 *         released already, or was not made by an ...Init call.
 */
int32_t v2xapp_GBMapElementRelease(V2XAPP_GBMHANDLE* p_element);

/**
 * \brief Sets the lane's allowed maneuvers (AllowedManeuvers, 12 bits).
 * \param laneHandle a lane (attached or not).
 * \param flags bit n (1u << n) is the message set's bit n: 0 straight, 1 left,
 *        2 right, 3 U-turn, 4 left turn on red, 5 right turn on red, 6 lane
 *        change, 7 no stopping, 8 yield always, 9 go with halt, 10 caution,
 *        11 reserved.
 * \return 0; -2 for a NULL lane or no memory; -3 for a flag above bit 11
 *         (nothing changed).
 */
int32_t v2xapp_GBMapLaneSetManeuverFlags(V2XAPP_GBMHANDLE laneHandle, uint16_t flags);
/**
 * \brief Sets the lane's type and that type's attribute bits.
 * \param laneHandle a lane (attached or not).
 * \param type V2XAPP_GBMAP_LANE_VEHICLE (1) .. V2XAPP_GBMAP_LANE_PARKING (8).
 * \param flags bit n (1u << n) is the type's bit n in the message set; a
 *        vehicle lane has 8 bits (0 revocable, 1 fly-over/ramp, 2 HOV only,
 *        3 bus only, 4 taxi only, 5 not public, 6 IR beacon/emergency,
 *        7 permission on request), every other type 16.
 * \return 0; -2 for a NULL lane or no memory; -3 for a type out of 1..8 or,
 *         for a vehicle lane, a flag above bit 7 (nothing changed then).
 */
int32_t v2xapp_GBMapLaneSetTypeFlags(V2XAPP_GBMHANDLE laneHandle, int type, uint16_t flags);
/**
 * \brief Sets the lane's sharing (LaneSharing, 10 bits). The lane also needs
 *        a type (v2xapp_GBMapLaneSetTypeFlags) for the message to encode.
 * \param laneHandle a lane (attached or not).
 * \param flags bit n (1u << n) is the message set's bit n: 0 overlapping lane
 *        description, 1 several lanes as one, 2 other non-motorised traffic,
 *        3 individual motorised vehicles, 4 buses, 5 taxis, 6 pedestrians,
 *        7 cyclists, 8 tracked vehicles, 9 pedestrian traffic.
 * \return 0; -2 for a NULL lane or no memory; -3 for a flag above bit 9.
 */
int32_t v2xapp_GBMapLaneSetShareFlags(V2XAPP_GBMHANDLE laneHandle, uint16_t flags);
/**
 * \brief Sets the maneuvers of a connection's connecting lane (12 bits, as
 *        v2xapp_GBMapLaneSetManeuverFlags); the connecting lane is created
 *        with lane id 0 when the connection has none yet.
 * \return 0; -2 for a NULL connection or no memory; -3 for a flag above bit 11.
 */
int32_t v2xapp_GBMapConnectToSetManeuverFlags(V2XAPP_GBMHANDLE connectToHandle, uint16_t flags);

/**
 * Rewrites every absolute point of every link and lane of the map as an
 * offset from its node's reference position, choosing the smallest offset
 * kind that holds it (a point more than 0.8388607 degree away stays
 * absolute). An absolute elevation becomes a height offset against the
 * node's elevation when the node has one; without it the point loses its
 * elevation. Points already relative are left alone, so a second call
 * changes nothing. 0; -2 for a null handle or a frame that is not a map.
 */
int32_t v2xapp_convAbsPoint2RelPoint(V2XAPP_GBMHANDLE handle);

#ifdef __cplusplus
}
#endif

#endif
