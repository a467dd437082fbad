// Map download: reads the cloud's JSON map document into a MessageFrame,
// records the last problem found, acknowledges to the cloud and stores each
// slice as a UPER file with its MD5 record.
#include "map_conv_mapdown.h"

#include <ConnectingLane.h>
#include <Connection.h>
#include <ConnectsToList.h>
#include <Elevation.h>
#include <Lane.h>
#include <LaneAttributes.h>
#include <LaneWidth.h>
#include <Latitude.h>
#include <Link.h>
#include <LinkList.h>
#include <Longitude.h>
#include <MessageFrame.h>
#include <Movement.h>
#include <MovementList.h>
#include <Node.h>
#include <PhaseID.h>
#include <PointList.h>
#include <RegulatorySpeedLimit.h>
#include <RoadPoint.h>
#include <Speed.h>
#include <SpeedLimitList.h>
#include <cjson/cJSON.h>
#include <dirent.h>
#include <limits.h>
#include <mbedtls/md5.h>
#include <mbedtls/version.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "map_conv_config.h"
#include "map_conv_deamon.h"
#include "map_conv_v2xcloud_dds.h"
#include "v2x_asn_codec.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbmap.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "DOWN"};

const char* const g_errorDescriptions[ERROR_CODE_MAPDOWN_NUM] = {
    "No error",
    "Etag error",
    "NODE id error",
    "NODE refPos error",
    "NODE refPos longitude error",
    "NODE refPos latitude error",
    "NODE refPos elevation error",
    "NODE Link upstreamNodeId error",
    "NODE Link linkwidth",
    "NODE Link lanes error",
    "NODE Link speedlimit error",
    "NODE Link Movements phaseid error",
    "NODE Link lanes laneid error",
    "NODE Link lanes lanewidth error",
    "NODE Link lanes connectsTo phaseid error",
    "NODE Link lanes points longitude error",
    "NODE Link lanes points latitude error",
    "NODE Link lanes points elevation error",
    "Set MAP config error",
};

// Written by the readers and the reception, read by the acknowledgement; all
// on the thread that delivers the map-down topic.
ErrorCode_MapDown g_errorCode = ERROR_CODE_NONE;

// Storage state: the eTag of the map completed last in this run, whether the
// next slice starts a new map (and so empties the directory), and the time of
// the last map record written (seconds since the epoch).
char cur_eTag[64];
bool del_map_dir_flag = true;
uint64 g_last_mapdown_timestamp = 0;

constexpr double kDegreeScale = 10000000.0;
constexpr double kMetreScale = 10.0;

template <typename T>
T* newRecord() {
  return static_cast<T*>(std::calloc(1, sizeof(T)));
}

// Releases a record that a failing reader allocated but did not append.
template <typename T>
void dropRecord(asn_TYPE_descriptor_t& td, T* record) {
  if (record != nullptr) ASN_STRUCT_FREE(td, record);
}

// A real (degrees, metres) times its unit factor, truncated toward zero. A
// product beyond the 64-bit range saturates, so the range check rejects it.
long scaleTrunc(double value, double factor) {
  double scaled = value * factor;
  if (std::isnan(scaled)) return 0;
  if (scaled >= 9.2e18) return LONG_MAX;
  if (scaled <= -9.2e18) return LONG_MIN;
  return static_cast<long>(scaled);
}

// The item's integer view (the JSON library's int, saturated by it), widened.
long intView(const cJSON* item) { return static_cast<long>(item->valueint); }

// The text of a key that must hold a JSON string; anything else counts as absent.
const char* textItem(const cJSON* json, const char* key) {
  const cJSON* item = cJSON_GetObjectItem(json, key);
  if (item == nullptr || !cJSON_IsString(item) || item->valuestring == nullptr) return nullptr;
  return item->valuestring;
}

// Copies at most size-1 characters and always terminates.
void copyText(char* dst, size_t size, const char* src) {
  size_t len = strnlen(src, size - 1);
  std::memcpy(dst, src, len);
  std::memset(dst + len, 0, size - len);
}

// The leading decimal number of a text (optional blanks and sign), modulo 256.
uint8 leadingNumberMod256(const char* text) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = (*p++ == '-');
  uint32 value = 0;
  for (; *p >= '0' && *p <= '9'; ++p) value = (value * 10u + static_cast<uint32>(*p - '0')) & 0xFFu;
  if (negative) value = (256u - value) & 0xFFu;
  return static_cast<uint8>(value);
}

// Builds a bit string of `bits` bits from value into a new record stored at *target.
int32 newBitString(long value, int8 bits, BIT_STRING_t** target) {
  BIT_STRING_t* bs = newRecord<BIT_STRING_t>();
  if (bs == nullptr) return -2;
  int64 v = value;
  v2xcodec_long2BitString(&v, bits, bs);
  *target = bs;
  return 0;
}

long degreesView(const cJSON* item) { return scaleTrunc(item->valuedouble, kDegreeScale); }
long metresView(const cJSON* item) { return scaleTrunc(item->valuedouble, kMetreScale); }
long wholeView(const cJSON* item) { return scaleTrunc(item->valuedouble, 1.0); }

using View = long (*)(const cJSON*);

// ---------------------------------------------------------------- shared reading steps
//
// The steps below do the work of the named readers. Their log lines carry the
// name of the reader they work for (and the line of the call), as if that
// reader had written them: the log is searched by the reader names.

struct Caller {
  // Implicit on purpose: a reader passes __func__ and the call's line comes
  // along (the builtin in a default argument is evaluated at the call).
  Caller(const char* reader, int at = __builtin_LINE()) : name(reader), line(at) {}
  const char* name;
  int line;
};

void say(const Caller& caller, int32 level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
void say(const Caller& caller, int32 level, const char* fmt, ...) {
  if (!v2xlog_IsEnabled(&g_curTag, level)) return;
  char text[V2XLOG_LINE_MAX];
  va_list args;
  va_start(args, fmt);
  std::vsnprintf(text, sizeof(text), fmt, args);
  va_end(args);
  v2xlog_Print(&g_curTag, level, "%s:%s:%d:%s", __FILE__, caller.name, caller.line, text);
}

constexpr int32 kNoCode = -1;

// One way a step fails: the error line, the result, and the download error
// code recorded before the line (if any).
struct Fault {
  const char* text;
  int32 ret;
  int32 code = kNoCode;
};

int32 report(const Caller& caller, const Fault& fault) {
  if (fault.code != kNoCode) v2xmapconv_SetErrorCode(fault.code);
  say(caller, 2, "%s", fault.text);
  return fault.ret;
}

// A sub-reader's result; a failure is reported and passed on as it is.
int32 checked(const Caller& caller, int32 ret, const char* text, int32 code = kNoCode) {
  return ret == 0 ? 0 : report(caller, {text, ret, code});
}

// The range check of a message-set type, and how a value outside it is
// reported. The value stays in the record either way. No check: anything goes.
struct Bound {
  asn_constr_check_f* check;
  Fault outside;
};

int32 checkBound(const Caller& caller, const Bound& bound, const long* value) {
  if (bound.check == nullptr || bound.check(nullptr, value, nullptr, nullptr) == 0) return 0;
  return report(caller, bound.outside);
}

// A number the reader needs under key, viewed into *target and range-checked.
// *real, when given, gets the value as sent.
int32 readNumber(const Caller& caller, cJSON* json, const char* key, long* target, const Fault& missing,
                 View view = intView, const Bound& bound = {}, double* real = nullptr) {
  const cJSON* item = cJSON_GetObjectItem(json, key);
  if (item == nullptr) return report(caller, missing);
  if (real != nullptr) *real = item->valuedouble;
  *target = view(item);
  return checkBound(caller, bound, target);
}

// Allocates the optional record *field when it is still empty.
template <typename T>
bool ensureRecord(T** field) {
  if (*field == nullptr) *field = newRecord<T>();
  return *field != nullptr;
}

// An optional item: when present, read(item, record) fills the optional
// record *field, allocated first if needed. An absent item changes nothing.
template <typename T, typename Read>
int32 withRecord(const Caller& caller, cJSON* item, T** field, const Fault& noMemory, Read read) {
  if (item == nullptr) return 0;
  if (!ensureRecord(field)) return report(caller, noMemory);
  return read(item, *field);
}

// An optional number (item may be null) into the optional field *field.
int32 readOptionalNumber(const Caller& caller, cJSON* item, long** field, const Fault& noMemory, View view = intView,
                         const Bound& bound = {}) {
  return withRecord(caller, item, field, noMemory, [&](const cJSON* found, long* value) {
    *value = view(found);
    return checkBound(caller, bound, value);
  });
}

// A node reference the reader needs under key. A reference without its own
// "id" keeps 0; its holder is still read.
int32 readReference(const Caller& caller, cJSON* json, const char* key, NodeReferenceID* id, const Fault& missing) {
  cJSON* item = cJSON_GetObjectItem(json, key);
  if (item == nullptr) return report(caller, missing);
  GetNodeReferenceIDFromJson(item, id);
  return 0;
}

// How an array walk fails: an item the array does not give (the text is
// followed by the array's size), an element that cannot be allocated, one that
// cannot be appended.
struct ElementFaults {
  Fault missing;
  Fault noMemory;
  Fault notAdded;
};

constexpr Fault kNotAdded = {"ASN_SEQUENCE_ADD faild \n", -4};

// Reads each item of array (null: none) into a new element appended to set.
// The first failing element ends the walk and is released; the elements
// before it stay.
template <typename Set, typename ReadOne>
int32 readElements(const Caller& caller, cJSON* array, Set* set, asn_TYPE_descriptor_t& td, const ElementFaults& faults,
                   ReadOne readOne) {
  using Element = std::remove_pointer_t<std::remove_pointer_t<decltype(set->array)>>;
  if (array == nullptr) return 0;
  int32 ret = 0;
  int count = cJSON_GetArraySize(array);
  for (int i = 0; i < count && ret == 0; ++i) {
    cJSON* item = cJSON_GetArrayItem(array, i);
    if (item == nullptr) {
      say(caller, 2, "%s%d", faults.missing.text, count);
      return faults.missing.ret;
    }
    Element* element = newRecord<Element>();
    if (element == nullptr) return report(caller, faults.noMemory);
    if ((ret = readOne(item, element)) == 0 && asn_set_add(set, element) != 0) ret = report(caller, faults.notAdded);
    if (ret != 0) dropRecord(td, element);
  }
  return ret;
}

// An array (null: absent) read into the optional list record *list.
template <typename List, typename ReadOne>
int32 readList(const Caller& caller, cJSON* array, List** list, const Fault& noList, asn_TYPE_descriptor_t& td,
               const ElementFaults& faults, ReadOne readOne) {
  return withRecord(caller, array, list, noList, [&](cJSON* found, List* record) {
    return readElements(caller, found, &record->list, td, faults, readOne);
  });
}

// ---------------------------------------------------------------- records

// The name of a node or link: the text's bytes without terminator.
int32 readName(cJSON* json, DescriptiveName_t** name, const char* what) {
  const cJSON* item = cJSON_GetObjectItem(json, "name");
  if (item == nullptr) return 0;
  if (!cJSON_IsString(item) || item->valuestring == nullptr) {
    V2XLOG(&g_curTag, 3, "%s name is not a text, ignored", what);
    return 0;
  }
  size_t len = std::strlen(item->valuestring);
  DescriptiveName_t* record = newRecord<DescriptiveName_t>();
  if (record != nullptr) {
    record->buf = static_cast<uint8_t*>(std::malloc(len > 0 ? len : 1));
    if (record->buf == nullptr) {
      std::free(record);
      record = nullptr;
    }
  }
  if (record == nullptr) {
    V2XLOG(&g_curTag, 2, "%s->name calloc failed!", what);
    return -2;
  }
  std::memcpy(record->buf, item->valuestring, len);
  record->size = static_cast<int>(len);
  *name = record;
  return 0;
}

// The reference position of a node, in this order: "lon", "lat", then the
// optional "ele". The degrees and metres also go into the floating-point
// position that the link reader carries.
int32 readRefPos(cJSON* json, Node_t* node, c_pos3D_t* refPos) {
  cJSON* pos = cJSON_GetObjectItem(json, "refPos");
  if (pos == nullptr) return report(__func__, {"Get refPos item failed!", -9, ERROR_CODE_NODE_REFPOS});
  refPos->posIsValid = true;
  int32 ret = readNumber(__func__, pos, "lon", &node->refPos.Long,
                         {"Get refPos->lon item failed!", -4, ERROR_CODE_NODE_REFPOS_LON}, degreesView,
                         {Longitude_constraint, {"error: longitude out of range", -3, ERROR_CODE_NODE_REFPOS_LON}},
                         &refPos->lon);
  if (ret != 0) return ret;
  ret =
      readNumber(__func__, pos, "lat", &node->refPos.lat,
                 {"Get refPos->lat item failed!", -6, ERROR_CODE_NODE_REFPOS_LAT}, degreesView,
                 {Latitude_constraint, {"error: latitude out of range", -5, ERROR_CODE_NODE_REFPOS_LAT}}, &refPos->lat);
  if (ret != 0) return ret;
  cJSON* ele = cJSON_GetObjectItem(pos, "ele");
  refPos->elevIsValid = ele != nullptr;
  if (ele != nullptr) refPos->elevation = ele->valuedouble;
  return readOptionalNumber(__func__, ele, &node->refPos.elevation, {"refPos.elevation calloc failed", -8}, metresView,
                            {Elevation_constraint, {"error: elevation out of range", -7, ERROR_CODE_NODE_REFPOS_ELE}});
}

// One node: identity and reference position decide; its links never reject it.
int32 readNode(cJSON* item, Node_t* node) {
  c_pos3D_t refPos{};
  GetNameFromNodesJson(item, node);
  int32 ret = checked(__func__, GetIdFromNodesJson(item, node), "GetIdFromNodesJson return failed!");
  if (ret == 0)
    ret = checked(__func__, GetRefPosFromNodesJson(item, node, &refPos), "GetRefPosFromNodesJson return failed!");
  // The node keeps the links read before a faulty one.
  if (ret == 0) GetInLinksFromNodesJson(item, node, &refPos);
  return ret;
}

// One link; upstream node, width and lanes decide, the rest only record codes.
int32 readLink(cJSON* item, Link_t* link) {
  GetNameFromLinkJson(item, link);
  int32 ret = checked(__func__, GetUpstreamNodeIdFromLinkJson(item, link),
                      "GetUpstreamNodeIdFromLinkJson return failed!", ERROR_CODE_LINK_UPSTREAMNODEID);
  if (ret != 0) return ret;
  GetSpeedLimitsFromJson(item, &link->speedLimits);
  ret = checked(__func__, GetLinkWidthFromLinkJson(item, link), "GetLinkWidthFromLinkJson return failed!",
                ERROR_CODE_LINK_LINKWIDTH);
  if (ret != 0) return ret;
  GetPointsFromJson(item, &link->points);
  GetMovementsFromLinkJson(item, link);
  return checked(__func__, GetLanesFromLinkJson(item, link), "GetLanesFromLinkJson return failed!",
                 ERROR_CODE_LINK_LANES);
}

int32 readSpeedLimit(cJSON* item, RegulatorySpeedLimit_t* limit) {
  const cJSON* type = cJSON_GetObjectItem(item, "type");
  if (type == nullptr) return report(__func__, {"Get speedLimit->type item failed!", -3, ERROR_CODE_LINK_SPEEDLIMIT});
  if (cJSON_IsString(type)) {
    GetSpeedLimitsTypeFromStr(type->valuestring, &limit->type);
  } else if (cJSON_IsNumber(type)) {
    limit->type = intView(type);  // the enumeration value as sent
  }
  return readNumber(__func__, item, "speed", &limit->speed,
                    {"Get speedLimit->speed item failed!", -5, ERROR_CODE_LINK_SPEEDLIMIT}, intView,
                    {Speed_constraint, {"error: speed out of range", -4, ERROR_CODE_LINK_SPEEDLIMIT}});
}

// One point as an absolute position: "lon", "lat" and the optional "ele".
int32 readAbsolutePoint(cJSON* item, RoadPoint_t* point) {
  point->posOffset.offsetLL.present = PositionOffsetLL_PR_position_LatLon;
  Position_LLmD_64b_t& ll = point->posOffset.offsetLL.choice.position_LatLon;
  int32 ret = readNumber(
      __func__, item, "lon", &ll.lon, {"Get points->lon item failed!", -4, ERROR_CODE_LINK_LANES_POINTS_LON},
      degreesView, {Longitude_constraint, {"error: longitude out of range", -3, ERROR_CODE_LINK_LANES_POINTS_LON}});
  if (ret != 0) return ret;
  ret = readNumber(__func__, item, "lat", &ll.lat,
                   {"Get points->lat item failed!", -6, ERROR_CODE_LINK_LANES_POINTS_LAT}, degreesView,
                   {Latitude_constraint, {"error: latitude out of range", -5, ERROR_CODE_LINK_LANES_POINTS_LAT}});
  if (ret != 0) return ret;
  return withRecord(
      __func__, cJSON_GetObjectItem(item, "ele"), &point->posOffset.offsetV,
      {"road_point->posOffset.offsetV calloc failed!", -8}, [reader = __func__](const cJSON* ele, VerticalOffset_t* v) {
        v->present = VerticalOffset_PR_elevation;
        v->choice.elevation = metresView(ele);
        return checkBound(
            reader, {Elevation_constraint, {"error: elevation out of range", -7, ERROR_CODE_LINK_LANES_POINTS_ELE}},
            &v->choice.elevation);
      });
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------- error code

int32 v2xmapconv_SetErrorCode(int32 error_code) {
  V2XLOG(&g_curTag, 7, "%s start", __func__);
  int32 ret = 0;
  if (error_code < ERROR_CODE_NONE || error_code >= ERROR_CODE_MAPDOWN_NUM) {
    V2XLOG(&g_curTag, 2, "unknown error code %d refused", error_code);
    ret = -2;
  } else {
    g_errorCode = static_cast<ErrorCode_MapDown>(error_code);
  }
  V2XLOG(&g_curTag, 7, "%s end ", __func__);
  return ret;
}

int32 v2xmapconv_GetErrorCode(void) { return g_errorCode; }

const char* v2xmapconv_GetErrorDesc(int32 error_code) {
  if (error_code < ERROR_CODE_NONE || error_code >= ERROR_CODE_MAPDOWN_NUM) return "Unknown error";
  return g_errorDescriptions[error_code];
}

// ---------------------------------------------------------------- envelope

int32 GetMapSliceFromJson(cJSON* json, v2xcloud_map_data_t* map_data) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  const char* text = nullptr;
  if (json == nullptr || map_data == nullptr) {
    ret = -2;
  } else if ((text = textItem(json, "mapSlice")) == nullptr) {
    ret = report(__func__, {"Get mapSlice error!", -3});
  } else {
    map_data->mapSlice = leadingNumberMod256(text);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetMapDwonAckFromJson(cJSON* json, v2xcloud_map_data_t* map_data) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  if (json == nullptr || map_data == nullptr) {
    ret = -2;
  } else {
    const cJSON* item = cJSON_GetObjectItem(json, "ack");
    if (item != nullptr) map_data->ack = cJSON_IsTrue(item);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetMapDwonSeqNumFromJson(cJSON* json, v2xcloud_map_data_t* map_data) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  if (json == nullptr || map_data == nullptr) {
    ret = -2;
  } else {
    const char* text = textItem(json, "seqNum");
    if (text != nullptr) copyText(map_data->seqNum, sizeof(map_data->seqNum), text);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetMapEtagFromJson(cJSON* json, v2xcloud_map_data_t* map_data) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  const char* text = nullptr;
  if (json == nullptr || map_data == nullptr) {
    ret = -2;
  } else if ((text = textItem(json, "eTag")) == nullptr) {
    ret = report(__func__, {"Get eTag error!", -3});
  } else {
    copyText(map_data->eTag, sizeof(map_data->eTag), text);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

// ---------------------------------------------------------------- map, nodes

int32 GetMapFromJson(cJSON* json, MapData* map) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  cJSON* body = nullptr;
  if (json == nullptr || map == nullptr) {
    ret = -2;
  } else if ((body = cJSON_GetObjectItem(json, "map")) == nullptr) {
    ret = report(__func__, {"Parse nodes error!", -3});
  } else {
    ret = checked(__func__, GetNodesFromJson(body, map), "GetNodesFromJson return failed!");
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetNodesFromJson(cJSON* json, MapData* map) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  cJSON* nodes = nullptr;
  if (json == nullptr || map == nullptr) {
    ret = -2;
  } else if ((nodes = cJSON_GetObjectItem(json, "nodes")) == nullptr) {
    ret = report(__func__, {"Parse nodes error!", -3});
  } else {
    ret = readElements(
        __func__, nodes, &map->nodes.list, asn_DEF_Node,
        {{"Get nodes item error,nodes_count:", -2}, {"node calloc failed!", -2}, {"ASN_SEQUENCE_ADD failed!", -4}},
        readNode);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetNameFromNodesJson(cJSON* json, Node* node) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || node == nullptr) ? -2 : readName(json, &node->name, "node");
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetIdFromNodesJson(cJSON* json, Node* node) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || node == nullptr)
                  ? -2
                  : readReference(__func__, json, "id", &node->id, {"Get id item failed!", -3, ERROR_CODE_NODE_ID});
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetNodeReferenceIDFromJson(cJSON* json, NodeReferenceID* id) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && id != nullptr) {
    ret = readOptionalNumber(__func__, cJSON_GetObjectItem(json, "region"), &id->region,
                             {"id->region calloc failed", -2});
    if (ret == 0) ret = readNumber(__func__, json, "id", &id->id, {"Get id->id item failed!", -3});
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetRefPosFromNodesJson(cJSON* json, Node* node, c_pos3D* refPos) {
  V2XLOG_START(&g_curTag);
  int32 ret = json == nullptr || node == nullptr || refPos == nullptr ? -2 : readRefPos(json, node, refPos);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

// ---------------------------------------------------------------- links

int32 GetInLinksFromNodesJson(cJSON* json, Node* node, const c_pos3D* refPos) {
  V2XLOG_START(&g_curTag);
  // The node's position is carried for relative point lists; the link and
  // lane points are read as absolute positions.
  (void)refPos;
  int32 ret = 0;
  cJSON* links = nullptr;
  if (json == nullptr || node == nullptr) {
    ret = -2;
  } else if ((links = cJSON_GetObjectItem(json, "inLinks")) == nullptr) {
    ret = report(__func__, {"Get inLinks item failed!", -3});
  } else {
    // A dropped link ends the node's list; the links before it stay.
    ret = readList(__func__, links, &node->inLinks, {"node->inLinks calloc failed!", -2}, asn_DEF_Link,
                   {{"Get links item error,links_count:", -2}, {"node->inLinks calloc failed!", -2}, kNotAdded},
                   readLink);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetNameFromLinkJson(cJSON* json, Link* link) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || link == nullptr) ? -2 : readName(json, &link->name, "link");
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetUpstreamNodeIdFromLinkJson(cJSON* json, Link* link) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || link == nullptr)
                  ? -2
                  : readReference(__func__, json, "upstreamNodeId", &link->upstreamNodeId,
                                  {"Get link->upstreamNodeId item failed!", -3});
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetSpeedLimitsFromJson(cJSON* json, SpeedLimitList** speedLimits) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && speedLimits != nullptr) {
    ret = readList(__func__, cJSON_GetObjectItem(json, "speedLimits"), speedLimits, {"speedLimits calloc failed!", -9},
                   asn_DEF_RegulatorySpeedLimit,
                   {{"Get speedLimits item error,speedLimits_count:", -8},
                    {"speedLimit calloc failed!", -6},
                    {"ASN_SEQUENCE_ADD faild \n", -7}},
                   readSpeedLimit);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetSpeedLimitsTypeFromStr(const char* typeStr, long* type) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  if (typeStr == nullptr || type == nullptr) {
    ret = -2;
  } else if (std::strcmp(typeStr, "vehicleMaxSpeed") == 0) {
    *type = SpeedLimitType_vehicleMaxSpeed;
  } else if (std::strcmp(typeStr, "truckMaxSpeed") == 0) {
    *type = SpeedLimitType_truckMaxSpeed;
  } else {
    *type = SpeedLimitType_unknown;
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetLinkWidthFromLinkJson(cJSON* json, Link* link) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || link == nullptr)
                  ? -2
                  : readNumber(__func__, json, "linkWidth", &link->linkWidth, {"Get link->linkWidth item failed!", -3});
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetMovementsFromLinkJson(cJSON* json, Link* link) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && link != nullptr) {
    ret = readList(__func__, cJSON_GetObjectItem(json, "movements"), &link->movements,
                   {"link->movements calloc failed!", -2}, asn_DEF_Movement,
                   {{"Get movements item error,movements_count:", -2}, {"movement calloc failed!", -2}, kNotAdded},
                   [](cJSON* item, Movement_t* movement) {
                     GetRemoteIntersectionFromMovementJson(item, movement);
                     GetPhaseIdFromMovementJson(item, movement);
                     return 0;
                   });
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetRemoteIntersectionFromMovementJson(cJSON* json, Movement* movement) {
  V2XLOG_START(&g_curTag);
  // The message names another key; log readers know it by this text.
  int32 ret = (json == nullptr || movement == nullptr)
                  ? -2
                  : readReference(__func__, json, "remoteIntersection", &movement->remoteIntersection,
                                  {"Get link->upstreamNodeId item failed!", -3});
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetPhaseIdFromMovementJson(cJSON* json, Movement* movement) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && movement != nullptr) {
    // An out-of-range phase is kept as sent; only the code tells the cloud.
    ret = readOptionalNumber(
        __func__, cJSON_GetObjectItem(json, "phaseId"), &movement->phaseId, {"movement->phaseId calloc failed!", -4},
        intView, {PhaseID_constraint, {"error: phaseId out of range", -3, ERROR_CODE_LINK_MOVEMENTS_PHASEID}});
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetTimeStampFromJson(cJSON* json, MapData* map) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || map == nullptr)
                  ? -2
                  : readOptionalNumber(__func__, cJSON_GetObjectItem(json, "timeStamp"), &map->timeStamp,
                                       {"timeStamp calloc failed!", -2}, wholeView);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

// ---------------------------------------------------------------- lanes

int32 GetLanesFromLinkJson(cJSON* json, Link* link) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && link != nullptr) {
    ret = readElements(__func__, cJSON_GetObjectItem(json, "lanes"), &link->lanes.list, asn_DEF_Lane,
                       {{"Get lanes item error,lanes_count:", -2}, {"lan calloc failed!", -2}, kNotAdded},
                       [reader = __func__](cJSON* item, Lane_t* lan) {
                         // The link reader records its own code over this one.
                         int32 laneRet = checked(reader, GetLaneIdFromLaneJson(item, lan),
                                                 "GetLanesFromLinkJson return failed!", ERROR_CODE_LINK_LANES_LANEID);
                         if (laneRet != 0) return laneRet;
                         // Everything else in a lane only records a code; the lane is kept.
                         GetLaneWidthFromLaneJson(item, lan);
                         GetLaneAttributesFromLaneJson(item, lan);
                         GetManeuversFromJson(item, &lan->maneuvers);
                         GetConnectsToFromLaneJson(item, lan);
                         GetSpeedLimitsFromJson(item, &lan->speedLimits);
                         GetPointsFromJson(item, &lan->points);
                         return 0;
                       });
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetLaneIdFromLaneJson(cJSON* json, Lane* lan) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || lan == nullptr)
                  ? -2
                  : readNumber(__func__, json, "laneId", &lan->laneID, {"Get lan->laneID item error", -2});
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetLaneWidthFromLaneJson(cJSON* json, Lane* lan) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && lan != nullptr) {
    ret = readOptionalNumber(
        __func__, cJSON_GetObjectItem(json, "laneWidth"), &lan->laneWidth, {"lan->laneWidth calloc failed!", -4},
        intView, {LaneWidth_constraint, {"error: laneWidth out of range", -3, ERROR_CODE_LINK_LANES_LANEWIDTH}});
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetLaneAttributesFromLaneJson(cJSON* json, Lane* lan) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && lan != nullptr) {
    ret = withRecord(__func__, cJSON_GetObjectItem(json, "laneAttributes"), &lan->laneAttributes,
                     {"lan->laneAttributes calloc failed!", -2}, [](cJSON* attributes, LaneAttributes_t* record) {
                       GetShareWithFromLaneAttributesJson(attributes, record);
                       GetLaneTypeFromLaneAttributesJson(attributes, record);
                       return 0;
                     });
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetShareWithFromLaneAttributesJson(cJSON* json, LaneAttributes* laneAttributes) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  const cJSON* share = nullptr;
  if (json == nullptr || laneAttributes == nullptr) {
    ret = -2;
  } else if ((share = cJSON_GetObjectItem(json, "shareWith")) != nullptr && laneAttributes->shareWith == nullptr) {
    // The number is the string's whole 16-bit value, not shifted into the 10 bits.
    newBitString(intView(share), 10, &laneAttributes->shareWith);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetLaneTypeFromLaneAttributesJson(cJSON* json, LaneAttributes* laneAttributes) {
  V2XLOG_START(&g_curTag);
  struct LaneTypeKey {
    const char* key;
    LaneTypeAttributes_PR present;
    int8 bits;
  };
  // Looked up in this order; the first key present decides.
  static const LaneTypeKey kKeys[] = {
      {"vehicle", LaneTypeAttributes_PR_vehicle, 8},
      {"crosswalk", LaneTypeAttributes_PR_crosswalk, 16},
      {"bikeLane", LaneTypeAttributes_PR_bikeLane, 16},
      {"sidewalk", LaneTypeAttributes_PR_sidewalk, 16},
      {"median", LaneTypeAttributes_PR_median, 16},
      {"striping", LaneTypeAttributes_PR_striping, 16},
      {"trackedVehicle", LaneTypeAttributes_PR_trackedVehicle, 16},
      {"parking", LaneTypeAttributes_PR_parking, 16},
  };
  int32 ret = 0;
  cJSON* type = nullptr;
  if (json == nullptr || laneAttributes == nullptr) {
    ret = -2;
  } else if ((type = cJSON_GetObjectItem(json, "laneType")) == nullptr) {
    ret = report(__func__, {"Get laneAttributes->laneType item error", -2});
  } else if (laneAttributes->laneType.present == LaneTypeAttributes_PR_NOTHING) {
    LaneTypeAttributes_t& lt = laneAttributes->laneType;
    for (const LaneTypeKey& k : kKeys) {
      const cJSON* value = cJSON_GetObjectItem(type, k.key);
      if (value == nullptr) continue;
      // Every alternative is a bit string; pick the member that belongs to it.
      BIT_STRING_t* bs = nullptr;
      switch (k.present) {
        case LaneTypeAttributes_PR_vehicle: bs = &lt.choice.vehicle; break;
        case LaneTypeAttributes_PR_crosswalk: bs = &lt.choice.crosswalk; break;
        case LaneTypeAttributes_PR_bikeLane: bs = &lt.choice.bikeLane; break;
        case LaneTypeAttributes_PR_sidewalk: bs = &lt.choice.sidewalk; break;
        case LaneTypeAttributes_PR_median: bs = &lt.choice.median; break;
        case LaneTypeAttributes_PR_striping: bs = &lt.choice.striping; break;
        case LaneTypeAttributes_PR_trackedVehicle: bs = &lt.choice.trackedVehicle; break;
        case LaneTypeAttributes_PR_parking: bs = &lt.choice.parking; break;
        default: break;
      }
      if (bs == nullptr) break;
      int64 v = intView(value);
      v2xcodec_long2BitString(&v, k.bits, bs);
      lt.present = k.present;
      break;
    }
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetLaneTypeFromLaneAttributesJson_old(cJSON* json, LaneAttributes* laneAttributes) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  const cJSON* type = nullptr;
  if (json == nullptr || laneAttributes == nullptr) {
    ret = -2;
  } else if ((type = cJSON_GetObjectItem(json, "laneType")) == nullptr) {
    ret = report(__func__, {"Get laneAttributes->laneType item error", -2});
  } else if (laneAttributes->laneType.present == LaneTypeAttributes_PR_NOTHING) {
    int64 v = 0;
    if (cJSON_IsString(type) && type->valuestring != nullptr) {
      v = static_cast<int64>(std::strtol(type->valuestring, nullptr, 10));
    } else {
      v = intView(type);
    }
    v2xcodec_long2BitString(&v, 8, &laneAttributes->laneType.choice.vehicle);
    laneAttributes->laneType.present = LaneTypeAttributes_PR_vehicle;
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetManeuversFromJson(cJSON* json, BIT_STRING_s** maneuver) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  const cJSON* value = nullptr;
  if (json == nullptr || maneuver == nullptr) {
    ret = -2;
  } else if ((value = cJSON_GetObjectItem(json, "maneuvers")) == nullptr || *maneuver != nullptr) {
    ret = 0;
  } else {
    // The cloud sends the 12 maneuver bits as written; they fill the string
    // from its first bit once moved past the 4 padding bits.
    int32 shifted = static_cast<int32>(static_cast<uint32>(value->valueint) << 4);
    if (newBitString(shifted, 12, maneuver) != 0) ret = report(__func__, {"maneuver calloc failed!", -2});
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetConnectsToFromLaneJson(cJSON* json, Lane* lan) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && lan != nullptr) {
    // A connection without its remote intersection ends the list; the lane stays.
    ret = readList(__func__, cJSON_GetObjectItem(json, "connectsTo"), &lan->connectsTo,
                   {"lan->connectsTo calloc failed!", -2}, asn_DEF_Connection,
                   {{"Get connection item error,ConnectsTo_count:", -2}, {"connection calloc failed!", -2}, kNotAdded},
                   [reader = __func__](cJSON* item, Connection_t* connt) {
                     int32 connRet = checked(reader, GetRemoteIntersectionFromConnectionJson(item, connt),
                                             "GetRemoteIntersectionFromConnectionJson return failed!");
                     if (connRet != 0) return connRet;
                     GetConnectingLaneFromConnectionJson(item, connt);
                     GetPhaseIdFromConnectionJson(item, connt);
                     return 0;
                   });
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetRemoteIntersectionFromConnectionJson(cJSON* json, Connection* connt) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || connt == nullptr)
                  ? -2
                  : readReference(__func__, json, "remoteIntersection", &connt->remoteIntersection,
                                  {"Get remoteIntersection item failed!", -3});
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetConnectingLaneFromConnectionJson(cJSON* json, Connection* connt) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && connt != nullptr) {
    ret = withRecord(__func__, cJSON_GetObjectItem(json, "connectingLane"), &connt->connectingLane,
                     {"connt->connectingLane calloc failed!", -2},
                     [reader = __func__](cJSON* lane, ConnectingLane_t* record) {
                       int32 laneRet = checked(reader, GetLaneIdFromConnectingLaneJson(lane, record),
                                               "GetLaneIdFromConnectingLaneJson return failed!");
                       if (laneRet == 0) GetManeuversFromJson(lane, &record->maneuver);
                       return laneRet;
                     });
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetLaneIdFromConnectingLaneJson(cJSON* json, ConnectingLane* connt_lane) {
  V2XLOG_START(&g_curTag);
  int32 ret = (json == nullptr || connt_lane == nullptr)
                  ? -2
                  : readNumber(__func__, json, "laneId", &connt_lane->lane, {"Get laneId item failed!", -3});
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetPhaseIdFromConnectionJson(cJSON* json, Connection* connt) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && connt != nullptr) {
    ret = readOptionalNumber(
        __func__, cJSON_GetObjectItem(json, "phaseId"), &connt->phaseId, {"connt->phaseId calloc failed!", -4}, intView,
        {PhaseID_constraint, {"error: phaseId out of range", -3, ERROR_CODE_LINK_LANES_CONNECTSTO_PHASEID}});
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 Bitstring2Hex(int64* num, const char* bitstr) {
  V2XLOG(&g_curTag, 7, "%s start", __func__);
  if (num != nullptr && bitstr != nullptr) {
    // Unsigned arithmetic: a long text wraps instead of overflowing.
    uint64 value = static_cast<uint64>(*num);
    for (const char* p = bitstr; *p != '\0'; ++p) value = value * 2u + (*p == '1' ? 1u : 0u);
    *num = static_cast<int64>(value);
  }
  V2XLOG(&g_curTag, 7, "%s end", __func__);
  return 0;
}

// ---------------------------------------------------------------- points

int32 GetPointsFromJson(cJSON* json, PointList** points) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && points != nullptr) {
    ret = readList(__func__, cJSON_GetObjectItem(json, "points"), points, {"link->points calloc failed!", -12},
                   asn_DEF_RoadPoint,
                   {{"Get points item error,points_count:", -11},
                    {"road_point calloc failed!", -9},
                    {"ASN_SEQUENCE_ADD faild \n", -10}},
                   readAbsolutePoint);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 GetPointsFromLinkJsonRelative(cJSON* json, PointList** points, c_pos3D* refPos) {
  V2XLOG_START(&g_curTag);
  int32 ret = -2;
  if (json != nullptr && points != nullptr && refPos != nullptr) {
    cJSON* list = cJSON_GetObjectItem(json, "points");
    ret = readList(__func__, cJSON_IsNull(list) ? nullptr : list, points, {"link->points calloc failed!", -2},
                   asn_DEF_RoadPoint,
                   {{"Get points item error,points_count:", -2}, {"road_point calloc failed!", -2}, kNotAdded},
                   [reader = __func__, refPos](cJSON* item, RoadPoint_t* point) {
                     const cJSON* lon = cJSON_GetObjectItem(item, "lon");
                     const cJSON* lat = cJSON_GetObjectItem(item, "lat");
                     const cJSON* ele = cJSON_GetObjectItem(item, "ele");
                     if (lon == nullptr) return report(reader, {"Get points->lon item failed!", -3});
                     if (lat == nullptr) return report(reader, {"Get points->lat item failed!", -3});
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
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

// ---------------------------------------------------------------- entry point

int32 v2xmapconv_MapDownJsonToStruct(char* map_json, v2xcloud_map_data_t* map_data) {
  V2XLOG_START(&g_curTag);
  int32 ret = -1;
  if (map_json == nullptr || map_data == nullptr) {
    ret = -2;
    V2XLOG_END(&g_curTag, ret);
    return ret;
  }
  v2xmapconv_SetErrorCode(ERROR_CODE_NONE);
  cJSON* root = cJSON_Parse(map_json);
  if (root == nullptr) {
    V2XLOG(&g_curTag, 2, "cJSON_Parse Error!");
    ret = -2;
    V2XLOG_END(&g_curTag, ret);
    return ret;
  }
  map_conv_config_t* cfg = nullptr;
  GetMapSliceFromJson(root, map_data);
  GetMapDwonAckFromJson(root, map_data);
  GetMapDwonSeqNumFromJson(root, map_data);
  if ((ret = GetMapEtagFromJson(root, map_data)) != 0) {
    v2xmapconv_SetErrorCode(ERROR_CODE_ETAG);
    V2XLOG(&g_curTag, 2, "GetMapEtagFromJson return failed!");
  } else if ((ret = v2xmapconv_GetCfgData(&cfg)) != 0 || cfg == nullptr) {
    V2XLOG(&g_curTag, 2, "Get config failed!");
    if (ret == 0) ret = -1;
  } else if (std::strncmp(map_data->eTag, cfg->m_eTag, sizeof(cfg->m_eTag)) == 0) {
    V2XLOG(&g_curTag, 4, "The etag of map is consistent, no need to update map! ");
    ret = MAP_CONV_ETAG_UNCHANGED;
  } else {
    if (map_data->mapSlice == 1) V2XLOG(&g_curTag, 4, "Recv MAP end, the eTag is: %s]", map_data->eTag);
    // The frame comes from the caller with the map choice; anything else is
    // not ours to fill (and would not be released as a map).
    MessageFrame_t* frame = map_data->map;
    if (frame != nullptr && frame->present == MessageFrame_PR_NOTHING) frame->present = MessageFrame_PR_mapFrame;
    MapData_t* map =
        (frame != nullptr && frame->present == MessageFrame_PR_mapFrame) ? &frame->choice.mapFrame : nullptr;
    if ((ret = GetMapFromJson(root, map)) != 0) V2XLOG(&g_curTag, 2, "GetMapFromJson return failed!");
  }
  cJSON_Delete(root);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

// ---------------------------------------------------------------- acknowledgement

int32 v2xmapconv_MapDownAckBuild(const v2xcloud_map_data_t* map_data, char* text, uint32 size) {
  if (map_data == nullptr || text == nullptr || size == 0) return -2;
  cJSON* ack = cJSON_CreateObject();
  if (ack == nullptr) {
    V2XLOG(&g_curTag, 2, "cJSON_Parse Error!");
    return -2;
  }
  char seqNum[sizeof(map_data->seqNum)];
  copyText(seqNum, sizeof(seqNum), map_data->seqNum);
  cJSON_AddStringToObject(ack, "seqNum", seqNum);
  if (g_errorCode != ERROR_CODE_NONE) {
    // The cloud reads the code from its text; the number only says "failed".
    cJSON_AddNumberToObject(ack, "errorCode", 1);
    cJSON_AddStringToObject(ack, "errorDesc", v2xmapconv_GetErrorDesc(g_errorCode));
  }
  int32 ret = -3;
  char* printed = cJSON_PrintUnformatted(ack);
  if (printed != nullptr) {
    size_t len = std::strlen(printed);
    if (len < size) {
      std::memcpy(text, printed, len + 1);
      ret = static_cast<int32>(len);
    }
    cJSON_free(printed);
  }
  cJSON_Delete(ack);
  if (ret < 0) V2XLOG(&g_curTag, 2, "acknowledgement text does not fit in %u bytes", size);
  return ret;
}

int32 v2xmapconv_MapDownAckToCloud(v2xcloud_map_data_t* map_data) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  if (map_data == nullptr) return -2;
  char text[512];
  int32 len = v2xmapconv_MapDownAckBuild(map_data, text, sizeof(text));
  if (len == -2) return -2;
  if (len < 0) return -1;
  v2xcloud_comm_ddsinfo_t* ddsinfo = v2xmapconv_GetddsInfo();
  if (ddsinfo != nullptr && ddsinfo->mp_map_down_ack_topic != nullptr) {
    v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_map_down_ack_topic, text, static_cast<unsigned int>(len));
  } else {
    V2XLOG(&g_curTag, 2, "Get ddsinfo failed!");
  }
  return -1;
}

// ---------------------------------------------------------------- storage

int32 delete_directory(const char* path) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  if (path == nullptr) return -2;
  DIR* dir = opendir(path);
  if (dir == nullptr) {
    V2XLOG(&g_curTag, 7, "open dir:%s failed!", path);
    return -1;
  }
  char entryPath[PATH_MAX];
  for (struct dirent* entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    int n = std::snprintf(entryPath, sizeof(entryPath), "%s/%s", path, entry->d_name);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(entryPath)) {
      // A cut path names another file: leave the entry alone.
      V2XLOG(&g_curTag, 3, "path of %s in %s too long, kept", entry->d_name, path);
      continue;
    }
    bool isDir = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN) {
      // Some file systems do not report the type; ask, without following links.
      struct stat st {};
      isDir = lstat(entryPath, &st) == 0 && S_ISDIR(st.st_mode);
    }
    if (isDir) {
      delete_directory(entryPath);
      rmdir(entryPath);
    } else {
      unlink(entryPath);
    }
  }
  closedir(dir);
  return 0;
}

int32 v2xmapconv_WriteMapDataToCfg(v2xcloud_map_data_t* map_data, v2xipc_mapRefresh_t* refresh) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  if (map_data == nullptr) return -2;
  map_conv_config_t* cfg = nullptr;
  int32 ret = v2xmapconv_GetCfgData(&cfg);
  if (ret != 0 || cfg == nullptr) {
    V2XLOG(&g_curTag, 2, "Get config failed!");
    return ret != 0 ? ret : -1;
  }
  char eTag[sizeof(map_data->eTag)];
  copyText(eTag, sizeof(eTag), map_data->eTag);
  // Slices of the map completed last in this run are not stored again.
  if (std::strncmp(eTag, cur_eTag, std::strlen(eTag)) == 0) return 0;

  // Without a configured directory there is no file to write; an empty setting
  // would otherwise name the working directory itself.
  char* dataDir = nullptr;
  if (cfg->m_MapDataDir[0] != '\0') v2xmapconv_GetMapDataDir(cfg->m_MapDataDir, &dataDir);
  if (dataDir != nullptr && dataDir[0] != '\0') {
    if (del_map_dir_flag) {
      delete_directory(dataDir);
      del_map_dir_flag = false;
    }
    uint8 fileId = static_cast<uint8>(map_data->mapSlice - 1);
    if (refresh != nullptr) refresh->m_mapFileID = fileId;
    char mapPath[300];
    char recordPath[300];
    int n1 = std::snprintf(mapPath, sizeof(mapPath), "%s/%s%d", dataDir, cfg->m_MapFilename, fileId);
    int n2 = std::snprintf(recordPath, sizeof(recordPath), "%s/%s%d", dataDir, cfg->m_MapCfgname, fileId);
    if (n1 < 0 || n2 < 0 || static_cast<size_t>(n1) >= sizeof(mapPath) ||
        static_cast<size_t>(n2) >= sizeof(recordPath)) {
      V2XLOG(&g_curTag, 2, "map file path too long in %s", dataDir);
      return -3;
    }

    uint8 encoded[MAP_CONV_UPER_BUF_SIZE];
    uint32 encodedLen = sizeof(encoded);
    ret = v2xapp_GBMapUperEncode(map_data->map, encoded, &encodedLen);
    if (ret != 0) {
      V2XLOG(&g_curTag, 2, "v2xapp_GBMapUperEncode error ret=%d ", ret);
      return ret;
    }
    if (encodedLen > sizeof(encoded)) {
      // Never a cut file: the slice is refused as a whole.
      V2XLOG(&g_curTag, 2, "encoded map of %u bytes does not fit in %zu bytes", encodedLen, sizeof(encoded));
      return -5;
    }
    // The file service's result is deliberately not acted on: a map file
    // that cannot be written is logged by the file service itself (the old
    // file, if any, stays whole), and the record and eTag steps still run.
    (void)v2xpub_WriteFileData(mapPath, encoded, encodedLen);
    V2XLOG(&g_curTag, 4, "save generate file to %s SUCCESS", mapPath);

    unsigned char digest[16] = {};
#if defined(MBEDTLS_VERSION_NUMBER) && MBEDTLS_VERSION_NUMBER >= 0x03000000
    int md5ret = mbedtls_md5(encoded, encodedLen, digest);
#else
    int md5ret = mbedtls_md5_ret(encoded, encodedLen, digest);
#endif
    if (md5ret != 0) {
      V2XLOG(&g_curTag, 2, "mbedtls md5 error ret=%d ", md5ret);
      return -6;
    }
    if (refresh != nullptr) std::memcpy(refresh->m_CheckSum, digest, sizeof(digest));
    char md5Text[64] = {};
    for (size_t i = 0; i < sizeof(digest); ++i) std::snprintf(md5Text + 2 * i, 3, "%02x", digest[i]);
    ret = v2xmapconv_WriteMapCfg(recordPath, eTag, md5Text, &g_last_mapdown_timestamp);
    if (ret != 0) {
      V2XLOG(&g_curTag, 2, "v2xmapconv_WriteMapCfg error ret=%d ", ret);
      return ret;
    }
  }

  // Slice 1 completes the map: remember it here and in the configuration, and
  // let the next map start in an empty directory.
  if (map_data->mapSlice == 1) {
    copyText(cur_eTag, sizeof(cur_eTag), eTag);
    del_map_dir_flag = true;
    copyText(cfg->m_eTag, sizeof(cfg->m_eTag), eTag);
    ret = v2xmapconv_SetCfgData(cfg);
    if (ret != 0) {
      V2XLOG(&g_curTag, 2, "Set MAP config failed!");
      return ret;
    }
  }
  return ret;
}

int32 v2xmapconv_GetMapDownLastTimestamp(uint64* timeStamp) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  if (timeStamp == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    ret = -2;
  } else {
    *timeStamp = g_last_mapdown_timestamp;
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

void v2xmapconv_MapDownResetForTest(void) {
  g_errorCode = ERROR_CODE_NONE;
  std::memset(cur_eTag, 0, sizeof(cur_eTag));
  del_map_dir_flag = true;
  g_last_mapdown_timestamp = 0;
}

}  // extern "C"
