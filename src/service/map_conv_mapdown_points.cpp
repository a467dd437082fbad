// Map download: point lists of links and lanes, as absolute positions (the
// readers' way) or as offsets from the node's reference position.
#include <Elevation.h>
#include <Latitude.h>
#include <Longitude.h>
#include <PointList.h>
#include <RoadPoint.h>

#include "map_conv_mapdown_detail.h"
#include "v2xapp_commoncodec.h"

using namespace v2xmapconv::mapdown::detail;

namespace {

// One point as an absolute position: "lon", "lat" and the optional "ele".
int32 readAbsolutePoint(const char* reader, cJSON* item, RoadPoint_t* point) {
  point->posOffset.offsetLL.present = PositionOffsetLL_PR_position_LatLon;
  Position_LLmD_64b_t& ll = point->posOffset.offsetLL.choice.position_LatLon;
  int32 ret = readNumber(reader, item, "lon", &ll.lon,
                         {"Get points->lon item failed!", -4, ERROR_CODE_LINK_LANES_POINTS_LON}, degreesView,
                         {Longitude_constraint,
                          &asn_DEF_Longitude,
                          {"error: longitude out of range", -3, ERROR_CODE_LINK_LANES_POINTS_LON}});
  if (ret != 0) return ret;
  ret = readNumber(
      reader, item, "lat", &ll.lat, {"Get points->lat item failed!", -6, ERROR_CODE_LINK_LANES_POINTS_LAT}, degreesView,
      {Latitude_constraint, &asn_DEF_Latitude, {"error: latitude out of range", -5, ERROR_CODE_LINK_LANES_POINTS_LAT}});
  if (ret != 0) return ret;
  return withRecord(reader, member(item, "ele"), &point->posOffset.offsetV,
                    {"road_point->posOffset.offsetV calloc failed!", -8},
                    [reader](const cJSON* ele, VerticalOffset_t* v) {
                      v->present = VerticalOffset_PR_elevation;
                      return viewNumber(reader, ele, metresView, &v->choice.elevation, kMisfitGoesOn,
                                        {Elevation_constraint,
                                         &asn_DEF_Elevation,
                                         {"error: elevation out of range", -7, ERROR_CODE_LINK_LANES_POINTS_ELE}});
                    });
}

}  // namespace

extern "C" {

int32 GetPointsFromJson(cJSON* json, PointList** points) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && points != nullptr) {
    ret = readList(
        __func__, member(json, "points"), points, {"link->points calloc failed!", -12}, asn_DEF_RoadPoint,
        {{"road_point calloc failed!", -9}, {"ASN_SEQUENCE_ADD faild \n", -10}},
        [reader = __func__](cJSON* item, RoadPoint_t* point) { return readAbsolutePoint(reader, item, point); });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetPointsFromLinkJsonRelative(cJSON* json, PointList** points, c_pos3D* refPos) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && points != nullptr && refPos != nullptr) {
    cJSON* list = member(json, "points");
    ret = readList(__func__, cJSON_IsNull(list) ? nullptr : list, points, {"link->points calloc failed!", -2},
                   asn_DEF_RoadPoint, {{"road_point calloc failed!", -2}, kNotAdded},
                   [reader = __func__, refPos](cJSON* item, RoadPoint_t* point) {
                     const cJSON* lon = member(item, "lon");
                     const cJSON* lat = member(item, "lat");
                     const cJSON* ele = member(item, "ele");
                     if (lon == nullptr) return report(reader, {"Get points->lon item failed!", -3}, {item, "lon"});
                     if (lat == nullptr) return report(reader, {"Get points->lat item failed!", -3}, {item, "lat"});
                     c_pos3D_t pos{};
                     pos.posIsValid = true;
                     pos.lon = lon->valuedouble;
                     pos.lat = lat->valuedouble;
                     pos.elevIsValid = ele != nullptr;
                     if (ele != nullptr) pos.elevation = ele->valuedouble;
                     setPosOffsetLLV(&pos, refPos, &point->posOffset);
                     return 0;
                   });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}
}  // extern "C"
