// "validate": the document's text and kinds as the service's reader takes
// them, where its error codes stay silent.
#include "map_tool_validate_scan.h"

#include <cjson/cJSON.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "map_conv_mapdown.h"
#include "map_tool.h"

namespace maptool {
namespace {

// What the reader expects under a key.
enum class Want { Text, Bool, Int, Real, TypeValue, Object, Array, Any };

// The kinds of object in a document.
enum Kind {
  kEnvelope,
  kMap,
  kNode,
  kRef,
  kRefPos,
  kLink,
  kSpeedLimit,
  kMovement,
  kLane,
  kAttributes,
  kLaneType,
  kConnection,
  kConnecting,
  kPoint,
  kKinds
};

struct KeySpec {
  const char* key;
  Want want;
  Kind child;     // objects and lists: the kind of the object, or of the list's elements
  int fieldCode;  // the code the field profile records for a value of the wrong kind (0: none)
  const char* unit;
};

struct KindSpec {
  std::vector<KeySpec> keys;
};

const KindSpec& spec(Kind k) {
  static const KindSpec specs[kKinds] = {
      /* kEnvelope */ {{{"mapSlice", Want::Any, kKinds, 0, ""},
                        {"eTag", Want::Any, kKinds, 0, ""},
                        {"ack", Want::Bool, kKinds, 0, ""},
                        {"seqNum", Want::Text, kKinds, 0, ""},
                        {"map", Want::Object, kMap, 0, ""}}},
      /* kMap */ {{{"timeStamp", Want::Any, kKinds, 0, ""}, {"nodes", Want::Array, kNode, 0, ""}}},
      /* kNode */
      {{{"name", Want::Text, kKinds, 0, ""},
        {"id", Want::Object, kRef, ERROR_CODE_NODE_ID, ""},
        {"refPos", Want::Object, kRefPos, ERROR_CODE_NODE_REFPOS, ""},
        {"inLinks", Want::Array, kLink, 0, ""}}},
      /* kRef */ {{{"region", Want::Int, kKinds, 0, ""}, {"id", Want::Int, kKinds, 0, ""}}},
      /* kRefPos */
      {{{"lon", Want::Real, kKinds, ERROR_CODE_NODE_REFPOS_LON, " degrees"},
        {"lat", Want::Real, kKinds, ERROR_CODE_NODE_REFPOS_LAT, " degrees"},
        {"ele", Want::Real, kKinds, ERROR_CODE_NODE_REFPOS_ELE, " metres"}}},
      /* kLink */
      {{{"name", Want::Text, kKinds, 0, ""},
        {"upstreamNodeId", Want::Object, kRef, ERROR_CODE_LINK_UPSTREAMNODEID, ""},
        {"speedLimits", Want::Array, kSpeedLimit, ERROR_CODE_LINK_SPEEDLIMIT, ""},
        {"linkWidth", Want::Int, kKinds, ERROR_CODE_LINK_LINKWIDTH, " cm"},
        {"points", Want::Array, kPoint, 0, ""},
        {"movements", Want::Array, kMovement, 0, ""},
        {"lanes", Want::Array, kLane, ERROR_CODE_LINK_LANES, ""}}},
      /* kSpeedLimit */
      {{{"type", Want::TypeValue, kKinds, ERROR_CODE_LINK_SPEEDLIMIT, ""},
        {"speed", Want::Int, kKinds, ERROR_CODE_LINK_SPEEDLIMIT, " (0.02 m/s)"}}},
      /* kMovement */
      {{{"remoteIntersection", Want::Object, kRef, 0, ""},
        {"phaseId", Want::Int, kKinds, ERROR_CODE_LINK_MOVEMENTS_PHASEID, ""}}},
      /* kLane */
      {{{"laneId", Want::Int, kKinds, ERROR_CODE_LINK_LANES, ""},
        {"laneWidth", Want::Int, kKinds, ERROR_CODE_LINK_LANES_LANEWIDTH, " cm"},
        {"laneAttributes", Want::Object, kAttributes, 0, ""},
        {"maneuvers", Want::Int, kKinds, 0, ""},
        {"connectsTo", Want::Array, kConnection, 0, ""},
        {"speedLimits", Want::Array, kSpeedLimit, ERROR_CODE_LINK_SPEEDLIMIT, ""},
        {"points", Want::Array, kPoint, 0, ""}}},
      /* kAttributes */
      {{{"shareWith", Want::Int, kKinds, 0, ""}, {"laneType", Want::Object, kLaneType, 0, ""}}},
      /* kLaneType */
      {{{"vehicle", Want::Int, kKinds, 0, ""},
        {"crosswalk", Want::Int, kKinds, 0, ""},
        {"bikeLane", Want::Int, kKinds, 0, ""},
        {"sidewalk", Want::Int, kKinds, 0, ""},
        {"median", Want::Int, kKinds, 0, ""},
        {"striping", Want::Int, kKinds, 0, ""},
        {"trackedVehicle", Want::Int, kKinds, 0, ""},
        {"parking", Want::Int, kKinds, 0, ""}}},
      /* kConnection */
      {{{"remoteIntersection", Want::Object, kRef, 0, ""},
        {"connectingLane", Want::Object, kConnecting, 0, ""},
        {"phaseId", Want::Int, kKinds, ERROR_CODE_LINK_LANES_CONNECTSTO_PHASEID, ""}}},
      /* kConnecting */ {{{"laneId", Want::Int, kKinds, 0, ""}, {"maneuvers", Want::Int, kKinds, 0, ""}}},
      /* kPoint */
      {{{"lon", Want::Real, kKinds, ERROR_CODE_LINK_LANES_POINTS_LON, " degrees"},
        {"lat", Want::Real, kKinds, ERROR_CODE_LINK_LANES_POINTS_LAT, " degrees"},
        {"ele", Want::Real, kKinds, ERROR_CODE_LINK_LANES_POINTS_ELE, " metres"}}},
  };
  return specs[k];
}

const char* kindName(const cJSON* item) {
  if (cJSON_IsString(item)) return "a text";
  if (cJSON_IsNumber(item)) return "a number";
  if (cJSON_IsBool(item)) return "true or false";
  if (cJSON_IsNull(item)) return "null";
  if (cJSON_IsArray(item)) return "a list";
  return "an object";
}

// The integer the reader takes from any item (the JSON library's int view).
long intView(const cJSON* item) {
  if (cJSON_IsNumber(item)) return item->valueint;
  return cJSON_IsTrue(item) ? 1 : 0;
}

class Scanner {
 public:
  Scanner(std::vector<Finding>& faults, std::vector<Finding>& warnings) : faults_(faults), warnings_(warnings) {}

  void object(const cJSON* obj, Kind kind, const std::string& path) {
    const KindSpec& ks = spec(kind);
    for (const cJSON* m = obj->child; m != nullptr; m = m->next) {
      if (m->string == nullptr) continue;
      const std::string at = join(path, m->string);
      const cJSON* first = obj->child;
      while (first != m && strcasecmp(first->string, m->string) != 0) first = first->next;
      if (first != m) {
        warn(at, m, "repeats \"" + std::string(first->string) + "\" but for the case of letters",
             "the service looks keys up ignoring case and takes the first, \"" + std::string(first->string) + "\" (" +
                 printed(first) + "); this one is never read");
        continue;
      }
      const KeySpec* key = nullptr;
      for (const KeySpec& k : ks.keys) {
        if (strcasecmp(k.key, m->string) == 0) key = &k;
      }
      if (key == nullptr) {
        unknown(at, m, ks);
        continue;
      }
      member(join(path, key->key), m, *key);
    }
  }

 private:
  std::vector<Finding>& faults_;
  std::vector<Finding>& warnings_;
  int holderCode_ = 0;  // while inside a node reference: the field code of the key that holds it

  static std::string join(const std::string& path, const char* key) {
    return path.empty() ? std::string(key) : path + "." + key;
  }

  void warn(const std::string& path, const cJSON* item, const std::string& what, const std::string& effect) {
    Finding f;
    f.path = path;
    f.value = printed(item);
    f.text = what;
    f.effect = effect;
    f.reach = kReachIgnored;
    warnings_.push_back(f);
  }

  void unknown(const std::string& path, const cJSON* item, const KindSpec& ks) {
    const KeySpec* nearest = nullptr;
    size_t best = SIZE_MAX;
    for (const KeySpec& k : ks.keys) {
      const size_t d = nameDistance(item->string, k.key);
      if (d < best) {
        best = d;
        nearest = &k;
      }
    }
    std::string what = "unknown member";
    const size_t len = std::string(item->string).size();
    if (nearest != nullptr && best <= std::max<size_t>(2, len / 3)) {
      what += " (did you mean \"" + std::string(nearest->key) + "\"?)";
    }
    warn(path, item, what, "the service ignores it: its data is not in the map");
  }

  void wrongKind(const std::string& path, const cJSON* item, const KeySpec& key, const char* wanted,
                 const std::string& reads) {
    Finding f;
    f.path = path;
    f.value = printed(item) + " (" + kindName(item) + ")";
    f.range = wanted;
    f.text = "value of the wrong kind";
    f.reads = reads;
    f.effect = "the service reads " + reads + " instead, without an error code";
    f.reach = kReachValueChanged;
    // Inside a node reference the field profile records the code of the key holding it.
    const int code = key.fieldCode != 0 ? key.fieldCode : holderCode_;
    if (code != 0) {
      f.field = "records code " + std::to_string(code) + " (\"" + v2xmapconv_GetErrorDesc(code) +
                "\"), as for a value out of range";
    }
    f.log = "";
    faults_.push_back(f);
  }

  void member(const std::string& path, const cJSON* item, const KeySpec& key) {
    switch (key.want) {
      case Want::Any: return;
      case Want::Text:
        if (!cJSON_IsString(item)) wrongKind(path, item, key, "a text", "nothing (the key counts as absent)");
        return;
      case Want::Bool:
        if (!cJSON_IsBool(item)) wrongKind(path, item, key, "true or false", "false");
        return;
      case Want::TypeValue:
        if (cJSON_IsString(item)) return;
        [[fallthrough]];
      case Want::Int: {
        const long v = intView(item);
        const bool whole = cJSON_IsNumber(item) && std::trunc(item->valuedouble) == item->valuedouble &&
                           item->valuedouble >= INT_MIN && item->valuedouble <= INT_MAX;
        if (!whole) wrongKind(path, item, key, "a whole number", std::to_string(v) + key.unit);
        return;
      }
      case Want::Real:
        if (!cJSON_IsNumber(item)) wrongKind(path, item, key, "a number", std::string("0") + key.unit);
        return;
      case Want::Object:
        if (!cJSON_IsObject(item)) {
          wrongKind(path, item, key, "an object", "an object without members");
          return;
        }
        {
          const int outer = holderCode_;
          if (key.child == kRef) holderCode_ = key.fieldCode;
          // The map body's keys are named from "nodes" on, as the reader's are.
          object(item, key.child, key.child == kMap ? std::string() : path);
          holderCode_ = outer;
        }
        return;
      case Want::Array:
        if (!cJSON_IsArray(item)) {
          wrongKind(path, item, key, "a list",
                    cJSON_IsObject(item) ? "a list of its members' values" : "an empty list");
          return;
        }
        int i = 0;
        for (const cJSON* e = item->child; e != nullptr; e = e->next, ++i) {
          const std::string at = path + "[" + std::to_string(i) + "]";
          if (cJSON_IsObject(e)) {
            object(e, key.child, at);
          } else {
            wrongKind(at, e, {key.key, Want::Object, key.child, key.fieldCode, ""}, "an object",
                      "an object without members");
          }
        }
        return;
    }
  }
};

}  // namespace

size_t nameDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diag = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t up = row[j];
      const bool same =
          std::tolower(static_cast<unsigned char>(a[i - 1])) == std::tolower(static_cast<unsigned char>(b[j - 1]));
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (same ? 0 : 1)});
      diag = up;
    }
  }
  return row[b.size()];
}

std::string printed(const cJSON* item) {
  char* text = cJSON_PrintUnformatted(item);
  std::string out = text != nullptr ? text : "";
  cJSON_free(text);
  if (out.size() > 60) out = out.substr(0, 57) + "...";
  return out;
}

TextPosition parsePosition(const std::string& text) {
  TextPosition p;
  const char* end = nullptr;
  cJSON* root = cJSON_ParseWithOpts(text.c_str(), &end, false);
  p.ok = root != nullptr;
  cJSON_Delete(root);
  if (p.ok) return p;
  p.offset = end != nullptr && end >= text.c_str() ? static_cast<size_t>(end - text.c_str()) : 0;
  p.offset = std::min(p.offset, text.size());
  for (size_t i = 0; i < p.offset; ++i) {
    if (text[i] == '\n') {
      ++p.line;
      p.column = 1;
    } else {
      ++p.column;
    }
  }
  for (size_t i = p.offset; i < text.size() && p.near.size() < 16 && text[i] != '\n'; ++i) {
    p.near += std::isprint(static_cast<unsigned char>(text[i])) ? text[i] : '?';
  }
  return p;
}

std::string positionText(const TextPosition& p) {
  std::string s = "line " + std::to_string(p.line) + ", column " + std::to_string(p.column) + " (byte " +
                  std::to_string(p.offset) + ")";
  s += p.near.empty() ? std::string(", at the end of the text") : ", near '" + p.near + "'";
  return s;
}

bool oversizeFinding(const std::string& text, Finding& out) {
  if (text.size() <= kMessageMax) return false;
  // The reception joins samples of 1024 bytes; a sample that would take the
  // message past the limit empties the buffer and is dropped, and the
  // samples after it start a new message.
  size_t joined = 0, dropped = 0, tailFrom = 0;
  for (size_t at = 0; at <= text.size(); at += 1024) {
    const size_t n = std::min<size_t>(1024, text.size() - at);
    if (joined + n > kMessageMax) {
      dropped = at + n;
      joined = 0;
      tailFrom = at + n;
    } else {
      joined += n;
    }
    if (n < 1024) break;
  }
  const std::string tail = text.substr(std::min(tailFrom, text.size()));
  std::string tailText;
  if (tail.empty()) {
    tailText = "an empty message, which is not JSON";
  } else {
    const TextPosition p = parsePosition(tail);
    tailText = p.ok ? "a JSON text the service reads as a document of its own"
                    : "not JSON (" + positionText(p) + " of the tail)";
  }
  out.path = "";
  out.value = std::to_string(text.size()) + " bytes";
  out.range = "at most " + std::to_string(kMessageMax) + " bytes";
  out.text = "message too long";
  out.effect = "the first " + std::to_string(dropped) + " bytes are dropped (logged \"Map msg data is too long\"), " +
               "the last " + std::to_string(tail.size()) + " bytes (from byte " + std::to_string(tailFrom) +
               ") are read as a new message: " + tailText + "; no map is stored and no acknowledgement is sent";
  out.log = "Map msg data is too long:" + std::to_string(kMessageMax + 1);
  out.reach = kReachRefuses;
  out.field = "dropped whole, with one log line giving its length; nothing of it is read, no acknowledgement";
  return true;
}

bool sliceFinding(const cJSON* root, unsigned fileNumber, Finding& out) {
  const cJSON* item = cJSON_GetObjectItem(root, "mapSlice");
  char* end = nullptr;
  long written = 0;
  bool plain = false;
  if (cJSON_IsString(item) && item->valuestring != nullptr) {
    written = std::strtol(item->valuestring, &end, 10);
    plain = end != item->valuestring && *end == '\0';
  }
  if (plain && written >= 1 && written <= 255) return false;
  out.path = "mapSlice";
  out.value = item == nullptr ? "absent" : printed(item) + " (" + kindName(item) + ")";
  out.range = "a text of a whole number from 1 to 255";
  out.text = "slice number out of range";
  const unsigned slice = (fileNumber + 1) & 0xFFu;
  out.reads = "slice " + std::to_string(slice);
  out.effect = "the service takes slice " + std::to_string(slice) + " (kept as an unsigned 8-bit value" +
               (cJSON_IsString(item) ? "" : "; anything but a text counts as absent") + ") and stores it as file " +
               std::to_string(fileNumber) +
               (slice == 1 ? "" : "; it is not the last slice, so the map's eTag is not stored with it");
  out.reach = kReachValueChanged;
  return true;
}

void scanKinds(const cJSON* root, std::vector<Finding>& faults, std::vector<Finding>& warnings) {
  if (!cJSON_IsObject(root)) return;
  Scanner scanner(faults, warnings);
  scanner.object(root, kEnvelope, "");
}

}  // namespace maptool
