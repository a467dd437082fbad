/*
 * Map upload rendering: a MessageFrame (map choice) and its upload envelope as
 * the cloud's JSON map document, one small writer per map structure.
 *
 * The writers copy the structure's integers as they stand (1e-7 degree,
 * 0.1 m, raw offsets of the chosen alternative), so the document has the
 * download document's shape but not all of its units; see the README.
 *
 * Each writer adds one member to obj (named by item where it takes one; the
 * name is copied) and returns 0, or -2 for a null argument or a JSON value
 * that could not be made, in which case the member is left out.
 */
#ifndef MAP_CONV_MAPUP_RENDER_H
#define MAP_CONV_MAPUP_RENDER_H

#include "map_conv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;
struct MessageFrame;
struct NodeList;
struct LinkList;
struct LaneList;
struct ConnectsToList;
struct ConnectingLane;
struct LaneAttributes;
struct LaneTypeAttributes;
struct MovementList;
struct PointList;
struct SpeedLimitList;
struct Position3D;
struct NodeReferenceID;
struct PositionOffsetLLV;

/* The envelope and its map as unformatted JSON text; the caller releases it
 * with cJSON_free. Null for a null record or when no memory is left. */
char* v2xmapconv_StructToJson(v2xcloud_map_data_t* mapdata);

int32 AddMapToObject(struct cJSON* obj, struct MessageFrame* msgFrame);
int32 AddNodesToMapObject(struct cJSON* obj, struct NodeList* nodes);
int32 AddInLinkstoNodeObject(struct cJSON* obj, struct LinkList* inLinks);
int32 AddLanesToObject(struct cJSON* obj, const char* item, struct LaneList* lanes);
int32 AddConnectsToToObject(struct cJSON* obj, const char* item, struct ConnectsToList* connectsTo);
int32 AddConnectingLaneToObject(struct cJSON* obj, const char* item, struct ConnectingLane* connectingLane);
int32 AddLaneAttributesToObject(struct cJSON* obj, const char* item, struct LaneAttributes* laneAttributes);
int32 AddLaneTypeToObject(struct cJSON* obj, const char* item, struct LaneTypeAttributes* laneType);
int32 AddMovementsToObject(struct cJSON* obj, const char* item, struct MovementList* movements);
int32 AddPointsToObject(struct cJSON* obj, const char* item, struct PointList* points);
int32 AddSpeedLimitsToObject(struct cJSON* obj, const char* item, struct SpeedLimitList* speedLimits);
int32 AddRefPostoNodeObject(struct cJSON* obj, struct Position3D* refPos);
int32 AddNodeReferenceIDToObject(struct cJSON* obj, const char* item, struct NodeReferenceID* node_ref_id);
/* "lon", "lat" and (with a vertical offset) "ele" straight into obj. */
int32 SetPositionOffsetLLVFromStruct(struct cJSON* obj, struct PositionOffsetLLV* pos_llv);

#ifdef __cplusplus
}
#endif

#endif
