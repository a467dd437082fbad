// "validate": a cloud map-down document run through the service's own reader
// and encoder, with every fault the reader meets (through the readers'
// observer, so the rules are the service's and nothing else) and the
// encoder's verdict on the frame the service would store.
#include "map_tool_validate.h"

#include <cjson/cJSON.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

#include "Elevation.h"
#include "LaneWidth.h"
#include "Latitude.h"
#include "Longitude.h"
#include "PhaseID.h"
#include "Speed.h"
#include "map_conv_config.h"
#include "map_conv_mapdown.h"
#include "map_conv_mapdown_observer.h"
#include "map_tool.h"
#include "map_tool_validate_frame.h"
#include "map_tool_validate_scan.h"
#include "v2xapp_gbmap.h"
#include "v2xpub.h"

namespace maptool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "validate";
constexpr const char* kEntryPoint = "v2xmapconv_MapDownJsonToStruct";

// The reader's keys as the cloud writes them: paths name every key so,
// whatever the case of letters in the document.
const char* const kKeys[] = {
    "mapSlice",
    "eTag",
    "ack",
    "seqNum",
    "map",
    "timeStamp",
    "nodes",
    "name",
    "id",
    "region",
    "refPos",
    "lon",
    "lat",
    "ele",
    "inLinks",
    "upstreamNodeId",
    "speedLimits",
    "type",
    "speed",
    "linkWidth",
    "points",
    "movements",
    "remoteIntersection",
    "phaseId",
    "lanes",
    "laneId",
    "laneWidth",
    "laneAttributes",
    "shareWith",
    "laneType",
    "vehicle",
    "crosswalk",
    "bikeLane",
    "sidewalk",
    "median",
    "striping",
    "trackedVehicle",
    "parking",
    "maneuvers",
    "connectsTo",
    "connectingLane",
};

std::string canonicalKey(const char* key) {
  for (const char* k : kKeys) {
    if (strcasecmp(k, key) == 0) return k;
  }
  return key;
}

bool pathTo(const cJSON* node, const cJSON* target, std::string& path) {
  if (node == target) return true;
  int i = 0;
  for (const cJSON* child = node->child; child != nullptr; child = child->next, ++i) {
    size_t mark = path.size();
    if (child->string != nullptr) {
      path += '.';
      path += canonicalKey(child->string);
    } else {
      path += '[';
      path += std::to_string(i);
      path += ']';
    }
    if (pathTo(child, target, path)) return true;
    path.resize(mark);
  }
  return false;
}

// The document path of target (with key below it): the envelope's keys stand
// alone, the map body's are counted from "map".
std::string documentPath(const cJSON* root, const cJSON* target, const char* key) {
  std::string path;
  if (root == nullptr || target == nullptr || !pathTo(root, target, path)) path.clear();
  if (key != nullptr) {
    path += '.';
    path += canonicalKey(key);
  }
  if (path.rfind(".map.", 0) == 0) return path.substr(5);
  return path.empty() ? path : path.substr(1);
}

// The range of a message-set type in the document's units.
std::string rangeOf(const asn_TYPE_descriptor_s* type) {
  struct Unit {
    const asn_TYPE_descriptor_t* type;
    double scale;
    int decimals;
    const char* unit;
  };
  const Unit units[] = {
      {&asn_DEF_Longitude, 1e7, 7, " degrees"}, {&asn_DEF_Latitude, 1e7, 7, " degrees"},
      {&asn_DEF_Elevation, 10, 1, " metres"},   {&asn_DEF_LaneWidth, 1, 0, " cm"},
      {&asn_DEF_Speed, 1, 0, " (0.02 m/s)"},    {&asn_DEF_PhaseID, 1, 0, ""},
  };
  for (const Unit& u : units) {
    if (u.type != type || u.type->per_constraints == nullptr) continue;
    const asn_per_constraint_t& c = u.type->per_constraints->value;
    char text[96];
    std::snprintf(text, sizeof(text), "%.*f to %.*f%s", u.decimals, static_cast<double>(c.lower_bound) / u.scale,
                  u.decimals, static_cast<double>(c.upper_bound) / u.scale, u.unit);
    return text;
  }
  return "";
}

// Collects what the readers report, while the document's tree is there.
class Collector : public v2xmapconv::MapDownObserver {
 public:
  struct Entry {
    Finding finding;
    bool ranged = false;
    bool refused = false;
    std::string dropped;
  };

  void onDocument(const cJSON* root) override { root_ = root; }

  void onFault(const v2xmapconv::MapDownFault& f) override {
    if (f.misfit) return;  // the document scan reports wrong kinds, with what the service reads instead
    Entry e;
    e.finding.path = documentPath(root_, f.item, f.key);
    if (f.key == nullptr) {
      e.finding.value = printed(f.item);
    } else {
      const cJSON* there = cJSON_GetObjectItem(f.item, f.key);
      e.finding.value = there == nullptr ? "absent" : printed(there) + " (not of the expected kind)";
    }
    e.finding.range = f.type != nullptr ? rangeOf(f.type) : (f.key != nullptr ? "required" : "");
    e.finding.log = f.text;
    e.finding.code = f.code > 0 ? f.code : 0;
    e.ranged = f.type != nullptr;
    entries_.push_back(e);
  }

  void onPassedOn(const char* reader, const char* text, int32_t code) override {
    if (entries_.empty()) return;
    Entry& e = entries_.back();
    if (code > 0) e.finding.code = code;
    if (std::strcmp(reader, kEntryPoint) == 0) e.refused = true;
    (void)text;
  }

  void onDropped(const cJSON* element) override {
    // The outermost list wins: a lane's fault can drop its link too.
    if (!entries_.empty()) entries_.back().dropped = documentPath(root_, element, nullptr);
  }

  bool sawDocument() const { return root_ != nullptr; }
  std::vector<Entry>& entries() { return entries_; }

 private:
  const cJSON* root_ = nullptr;
  std::vector<Entry> entries_;
};

// The reader needs the service's configuration (its stored eTag): a private
// working directory with an empty one, read once and removed at once.
bool prepareService() {
  static const bool ready = [] {
    char tmpl[] = "/tmp/v2x_map_tool.XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return false;
    fs::path dir = tmpl;
    std::error_code ec;
    fs::create_directory(dir / "conf", ec);
    const std::string cfg =
        "rsuMapConvertInfo :\n{\n  eTag = \"\";\n  MapDataDir = \"\";\n  MapFilename = \"map_data_\";\n"
        "  MapCfgname = \"map_cfg_\";\n  Sysinfoname = \"\";\n};\n";
    fs::path cfgPath = dir / "conf/v2x_map_convert.cfg";
    bool ok = !ec && v2xpub_WriteFileData(cfgPath.c_str(), cfg.data(), static_cast<uint32>(cfg.size())) == 0;
    map_conv_config_t* read = nullptr;
    if (ok) {
      v2xmapconv_InitCfg(dir.c_str());
      ok = v2xmapconv_GetCfgData(&read) == 0 && read != nullptr;
    }
    fs::remove_all(dir, ec);
    return ok;
  }();
  return ready;
}

// One run of the service's reader over a text.
struct ReaderRun {
  int32 result = -1;
  bool readable = false;
  std::vector<Collector::Entry> entries;
  v2xcloud_map_data_t record{};
  V2XAPP_GBMHANDLE frame = nullptr;

  ReaderRun() = default;
  ReaderRun(const ReaderRun&) = delete;
  ReaderRun& operator=(const ReaderRun&) = delete;
  ~ReaderRun() {
    if (frame != nullptr) v2xapp_GBMapStrDel(&frame);
  }

  bool run(const std::string& text) {
    if (v2xapp_GBMapStrInit(&frame) != 0) return false;
    record.map = static_cast<MessageFrame*>(frame);
    std::string copy = text;
    Collector collector;
    v2xmapconv::MapDownObserver* before = v2xmapconv::setMapDownObserver(&collector);
    result = v2xmapconv_MapDownJsonToStruct(copy.data(), &record);
    v2xmapconv::setMapDownObserver(before);
    readable = collector.sawDocument();
    entries = std::move(collector.entries());
    return true;
  }
};

Finding finish(Collector::Entry& e) {
  Finding f = e.finding;
  if (e.refused) {
    f.effect = "document refused";
    f.reach = kReachRefuses;
  } else if (!e.dropped.empty()) {
    f.effect = e.dropped + " dropped with the rest of its list";
    f.reach = kReachDropsList;
  } else if (e.ranged) {
    f.effect = "value kept";
    f.reach = kReachValueKept;
  } else {
    f.effect = "nothing dropped";
    f.reach = kReachLogged;
  }
  f.text = v2xmapconv_GetErrorDesc(f.code);
  return f;
}

// The path's steps: keys and "[i]".
std::vector<std::string> steps(const std::string& path) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : path) {
    if (c == '.' || c == '[') {
      if (!cur.empty()) out.push_back(cur);
      cur.clear();
      if (c == '[') cur.push_back('[');
    } else {
      cur += c;
    }
  }
  if (!cur.empty()) out.push_back(cur);
  return out;
}

// The mean of key ("lon" or "lat") over every point of a node's links and
// lanes: where a node without a usable reference position is drawn.
double meanOf(const cJSON* node, const char* key) {
  auto list = [](const cJSON* object, const char* name) {
    const cJSON* l = cJSON_GetObjectItem(object, name);
    return cJSON_IsArray(l) ? l : nullptr;
  };
  double sum = 0;
  int n = 0;
  auto take = [&](const cJSON* points) {
    const cJSON* p = nullptr;
    cJSON_ArrayForEach(p, points) {
      const cJSON* v = cJSON_GetObjectItem(p, key);
      if (cJSON_IsNumber(v)) sum += v->valuedouble, ++n;
    }
  };
  const cJSON* links = list(node, "inLinks");
  const cJSON* link = nullptr;
  cJSON_ArrayForEach(link, links) {
    take(list(link, "points"));
    const cJSON* lanes = list(link, "lanes");
    const cJSON* lane = nullptr;
    cJSON_ArrayForEach(lane, lanes) take(list(lane, "points"));
  }
  return n > 0 ? sum / n : 0.0;
}

// A value the reader takes without stopping, for the key a fault names
// (node: the node the path goes through, if any).
cJSON* placeholder(const std::vector<std::string>& at, const cJSON* node) {
  const std::string& key = at.back();
  const bool nodePosition = at.size() == 4 && at[2] == "refPos";
  if (key == "eTag") return cJSON_CreateString("-");
  if (key == "refPos") {
    cJSON* pos = cJSON_CreateObject();
    cJSON_AddNumberToObject(pos, "lon", meanOf(node, "lon"));
    cJSON_AddNumberToObject(pos, "lat", meanOf(node, "lat"));
    return pos;
  }
  if (nodePosition && (key == "lon" || key == "lat")) return cJSON_CreateNumber(meanOf(node, key.c_str()));
  if (key == "upstreamNodeId" || key == "remoteIntersection" || (key == "id" && at.size() == 3)) {
    return cJSON_Parse(R"({"id":0})");
  }
  for (const char* k : {"lon", "lat", "ele", "speed", "type", "linkWidth", "laneId"}) {
    if (key == k) return cJSON_CreateNumber(0);
  }
  return nullptr;
}

// Puts value in the place of old, under old's key when it has one.
bool replaceItem(cJSON* parent, cJSON* old, cJSON* value) {
  if (old->string != nullptr) return cJSON_ReplaceItemInObjectCaseSensitive(parent, old->string, value);
  return cJSON_ReplaceItemViaPointer(parent, old, value);
}

// Puts a placeholder where path names a value that stops the reader; false
// when there is none for it (the map body itself, say).
bool repairAt(cJSON* root, const std::string& path) {
  const std::vector<std::string> at = steps(path);
  const cJSON* node = at.size() >= 2 && at[0] == "nodes"
                          ? cJSON_GetArrayItem(cJSON_GetObjectItem(cJSON_GetObjectItem(root, "map"), "nodes"),
                                               std::atoi(at[1].c_str() + 1))
                          : nullptr;
  cJSON* value = at.empty() ? nullptr : placeholder(at, node);
  if (value == nullptr) return false;
  cJSON* cur = root;
  std::vector<std::string> walk = at;
  if (walk.front() == "nodes") walk.insert(walk.begin(), "map");
  for (size_t i = 0; i + 1 < walk.size(); ++i) {
    const std::string& s = walk[i];
    cJSON* next = s[0] == '[' ? cJSON_GetArrayItem(cur, std::atoi(s.c_str() + 1)) : cJSON_GetObjectItem(cur, s.c_str());
    if (next == nullptr) {
      cJSON_Delete(value);
      return false;
    }
    if (!cJSON_IsObject(next) && walk[i + 1][0] != '[') {
      cJSON* object = cJSON_CreateObject();
      replaceItem(cur, next, object);
      next = object;
    }
    cur = next;
  }
  cJSON* old = cJSON_GetObjectItem(cur, walk.back().c_str());
  if (old != nullptr) return replaceItem(cur, old, value);
  cJSON_AddItemToObject(cur, walk.back().c_str(), value);
  return true;
}

std::string findingKey(const Finding& f) { return f.path + "|" + std::to_string(f.code) + "|" + f.log; }

// Reads the text again and again, each time with the values that stopped the
// reader replaced by harmless ones, and adds what the service never reaches.
// The frame of the last run is handed back for the encoder (null when the
// document could not be read on).
V2XAPP_GBMHANDLE readPastRefusals(const std::string& text, const std::vector<Collector::Entry>& first,
                                  std::set<std::string>& seen, Validation& v) {
  cJSON* copy = cJSON_Parse(text.c_str());
  if (copy == nullptr) return nullptr;
  std::vector<Collector::Entry> last = first;
  std::set<std::string> repaired;
  V2XAPP_GBMHANDLE frame = nullptr;
  for (int round = 0; round < 32; ++round) {
    bool changed = false;
    for (const Collector::Entry& e : last) {
      if ((e.refused || !e.dropped.empty()) && repaired.insert(e.finding.path).second) {
        changed = repairAt(copy, e.finding.path) || changed;
      }
    }
    if (!changed) break;
    char* mended = cJSON_PrintUnformatted(copy);
    ReaderRun again;
    const bool ran = mended != nullptr && again.run(mended);
    v.mended = mended != nullptr ? mended : "";
    cJSON_free(mended);
    if (!ran) break;
    for (Collector::Entry& e : again.entries) {
      Finding f = finish(e);
      if (!seen.insert(findingKey(f)).second) continue;
      f.effect = "not reached by the service (" + f.effect + " once the faults before it are mended)";
      f.reach = kReachNotReached;
      (f.code != 0 || e.refused ? v.findings : v.notes).push_back(f);
    }
    last = again.entries;
    if (frame != nullptr) v2xapp_GBMapStrDel(&frame);
    frame = nullptr;
    if (again.result == 0) std::swap(frame, again.frame);
  }
  cJSON_Delete(copy);
  return frame;
}

void addEncoderFindings(void* frame, bool reached, Validation& v) {
  for (const EncoderVerdict& verdict : encoderVerdicts(frame)) {
    if (verdict.ok) break;
    Finding f;
    f.path = verdict.path;
    f.value = verdict.value;
    f.range = verdict.range;
    f.code = ERROR_CODE_SET_MAP_CFG;
    f.text = v2xmapconv_GetErrorDesc(f.code);
    f.effect =
        reached ? "map not stored" : "not reached by the service (map not stored once the faults before it are mended)";
    f.reach = reached ? kReachRefuses : kReachNotReached;
    f.log = verdict.message;
    v.findings.push_back(f);
  }
}

}  // namespace

Validation validateDocument(const std::string& text) {
  Validation v;
  if (!prepareService()) {
    fail(kName, "cannot prepare the service's configuration");
    return v;
  }
  ReaderRun first;
  if (!first.run(text)) {
    fail(kName, "no memory for a frame");
    return v;
  }
  v.result = first.result;
  v.readable = first.readable;
  v.fileNumber = static_cast<uint8_t>(first.record.mapSlice - 1);
  Finding f;
  v.tooLong = oversizeFinding(text, f);
  if (v.tooLong) v.findings.push_back(f);
  if (!v.readable) {
    const TextPosition p = parsePosition(text);
    Finding bad;
    bad.value = "not JSON";
    bad.range = "a JSON object";
    bad.text = "the text is not JSON: " + positionText(p);
    bad.effect = "the service reads nothing and sends no acknowledgement";
    bad.log = "cJSON_Parse Error!";
    bad.reach = kReachRefuses;
    v.findings.push_back(bad);
    return v;
  }
  cJSON* root = cJSON_Parse(text.c_str());
  if (sliceFinding(root, v.fileNumber, f)) v.findings.push_back(f);
  scanKinds(root, v.findings, v.warnings);
  cJSON_Delete(root);

  const bool sliceFault = !v.findings.empty() && v.findings.back().path == "mapSlice";
  std::set<std::string> seen;
  for (Collector::Entry& e : first.entries) {
    Finding found = finish(e);
    if (sliceFault && found.path == "mapSlice" && found.code == 0) continue;  // said above
    seen.insert(findingKey(found));
    if (v.tooLong) {
      found.effect = "not reached by the service (the message is too long): " + found.effect;
      found.reach = kReachNotReached;
    }
    (found.code != 0 || e.refused ? v.findings : v.notes).push_back(found);
  }
  if (v.result == 0) {
    const size_t before = v.findings.size();
    addEncoderFindings(first.frame, !v.tooLong, v);
    v.stored = v.findings.size() == before && !v.tooLong;
    // The reception records this when the storage fails.
    if (v.findings.size() != before) v2xmapconv_SetErrorCode(ERROR_CODE_SET_MAP_CFG);
  }
  // The acknowledgement carries the code of this reading; the readings past a
  // refusal below record their own.
  const int32 code = v2xmapconv_GetErrorCode();
  if (v.result != 0 && v.result != MAP_CONV_ETAG_UNCHANGED) {
    V2XAPP_GBMHANDLE later = readPastRefusals(text, first.entries, seen, v);
    if (later != nullptr) {
      addEncoderFindings(later, false, v);
      v2xapp_GBMapStrDel(&later);
    }
  }
  v2xmapconv_SetErrorCode(code);
  char ack[512];
  if (!v.tooLong && v2xmapconv_MapDownAckBuild(&first.record, ack, sizeof(ack)) >= 0) v.ack = ack;
  v.ackRequested = first.record.ack && !v.tooLong;
  return v;
}

}  // namespace maptool
