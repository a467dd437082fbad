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
      path += "." + canonicalKey(child->string);
    } else {
      path += "[" + std::to_string(i) + "]";
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
  if (key != nullptr) path += "." + canonicalKey(key);
  if (path.rfind(".map.", 0) == 0) return path.substr(5);
  return path.empty() ? path : path.substr(1);
}

std::string printed(const cJSON* item) {
  char* text = cJSON_PrintUnformatted(item);
  std::string out = text != nullptr ? text : "";
  cJSON_free(text);
  if (out.size() > 60) out = out.substr(0, 57) + "...";
  return out;
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

}  // namespace

Validation validateDocument(const std::string& text) {
  Validation v;
  if (!prepareService()) {
    fail(kName, "cannot prepare the service's configuration");
    return v;
  }
  V2XAPP_GBMHANDLE frame = nullptr;
  if (v2xapp_GBMapStrInit(&frame) != 0) {
    fail(kName, "no memory for a frame");
    return v;
  }
  v2xcloud_map_data_t record{};
  record.map = static_cast<MessageFrame*>(frame);
  std::string copy = text;
  Collector collector;
  v2xmapconv::MapDownObserver* before = v2xmapconv::setMapDownObserver(&collector);
  v.result = v2xmapconv_MapDownJsonToStruct(copy.data(), &record);
  v2xmapconv::setMapDownObserver(before);
  v.readable = collector.sawDocument();

  for (Collector::Entry& e : collector.entries()) {
    Finding& f = e.finding;
    if (e.refused) {
      f.effect = "document refused";
    } else if (!e.dropped.empty()) {
      f.effect = e.dropped + " dropped with the rest of its list";
    } else if (e.ranged) {
      f.effect = "value kept";
    } else {
      f.effect = "nothing dropped";
    }
    f.text = v2xmapconv_GetErrorDesc(f.code);
    (f.code != 0 || e.refused ? v.findings : v.notes).push_back(f);
  }

  if (v.result == 0) {
    EncoderVerdict verdict = encoderVerdict(frame);
    v.stored = verdict.ok;
    if (!verdict.ok) {
      // The reception records this when the storage fails.
      v2xmapconv_SetErrorCode(ERROR_CODE_SET_MAP_CFG);
      Finding f;
      f.path = verdict.path;
      f.value = verdict.value;
      f.range = verdict.range;
      f.code = ERROR_CODE_SET_MAP_CFG;
      f.text = v2xmapconv_GetErrorDesc(f.code);
      f.effect = "map not stored";
      f.log = verdict.message;
      v.findings.push_back(f);
    }
  }
  if (v.readable) {
    char ack[512];
    if (v2xmapconv_MapDownAckBuild(&record, ack, sizeof(ack)) >= 0) v.ack = ack;
    v.ackRequested = record.ack;
  }
  v2xapp_GBMapStrDel(&frame);
  return v;
}

namespace {

const char* verdictText(const Validation& v) {
  if (!v.readable) return "not JSON: the service reads nothing and sends no acknowledgement";
  if (v.result == MAP_CONV_ETAG_UNCHANGED) return "eTag equal to the stored one: nothing converted";
  if (v.result != 0) return "the service refuses the document";
  if (!v.stored) return "the service reads the document but cannot store the map";
  return v.findings.empty() ? "the service stores the map" : "the service stores the map with the faults above";
}

void printHuman(const std::string& name, const Validation& v) {
  std::printf("%s: %zu fault%s\n", name.c_str(), v.findings.size(), v.findings.size() == 1 ? "" : "s");
  auto line = [](const Finding& f) {
    std::printf("  %s: %s", f.path.empty() ? "(whole map)" : f.path.c_str(), f.value.c_str());
    if (!f.range.empty()) std::printf(" (allowed: %s)", f.range.c_str());
    std::printf("\n      ");
    if (f.code != 0) std::printf("code %d \"%s\"; ", f.code, f.text.c_str());
    std::printf("%s; logged \"%s\"\n", f.effect.c_str(), f.log.c_str());
  };
  for (const Finding& f : v.findings) line(f);
  if (!v.notes.empty()) std::printf("  logged without a code:\n");
  for (const Finding& f : v.notes) line(f);
  std::printf("  verdict    %s\n", verdictText(v));
  if (v.readable) std::printf("  ack        %s%s\n", v.ack.c_str(), v.ackRequested ? "" : " (not requested)");
}

cJSON* findingsJson(const std::vector<Finding>& list) {
  cJSON* array = cJSON_CreateArray();
  for (const Finding& f : list) {
    cJSON* o = cJSON_CreateObject();
    cJSON_AddStringToObject(o, "path", f.path.c_str());
    cJSON_AddNumberToObject(o, "code", f.code);
    cJSON_AddStringToObject(o, "text", f.text.c_str());
    cJSON_AddStringToObject(o, "value", f.value.c_str());
    cJSON_AddStringToObject(o, "range", f.range.c_str());
    cJSON_AddStringToObject(o, "effect", f.effect.c_str());
    cJSON_AddStringToObject(o, "log", f.log.c_str());
    cJSON_AddItemToArray(array, o);
  }
  return array;
}

void printJson(const std::string& name, const Validation& v) {
  cJSON* o = cJSON_CreateObject();
  cJSON_AddStringToObject(o, "document", name.c_str());
  cJSON_AddBoolToObject(o, "readable", v.readable);
  cJSON_AddNumberToObject(o, "result", v.result);
  cJSON_AddBoolToObject(o, "stored", v.stored);
  cJSON_AddStringToObject(o, "verdict", verdictText(v));
  cJSON_AddItemToObject(o, "findings", findingsJson(v.findings));
  cJSON_AddItemToObject(o, "notes", findingsJson(v.notes));
  cJSON* ack = v.readable ? cJSON_Parse(v.ack.c_str()) : nullptr;
  cJSON_AddItemToObject(o, "ack", ack != nullptr ? ack : cJSON_CreateNull());
  cJSON_AddBoolToObject(o, "ackRequested", v.ackRequested);
  char* text = cJSON_PrintUnformatted(o);
  std::printf("%s\n", text != nullptr ? text : "{}");
  cJSON_free(text);
  cJSON_Delete(o);
}

int runValidate(int argc, char** argv) {
  bool json = false;
  std::vector<const char*> docs;
  if (!parseArgs(kName, argc, argv, {{"--json", &json}}, docs)) return kExitUsage;
  if (docs.empty()) {
    fail(kName, "no document (see --help)");
    return kExitUsage;
  }
  int status = kExitOk;
  for (const char* doc : docs) {
    std::vector<uint8_t> data;
    if (!readInput(kName, doc, data)) {
      status = kExitUsage;
      continue;
    }
    Validation v = validateDocument(std::string(data.begin(), data.end()));
    if (json) {
      printJson(doc, v);
    } else {
      printHuman(doc, v);
    }
    int docStatus = kExitOk;
    if (!v.readable) {
      docStatus = kExitUsage;
    } else if (!v.findings.empty() || (v.result != 0 && v.result != MAP_CONV_ETAG_UNCHANGED)) {
      docStatus = kExitBadInput;
    }
    status = std::max(status, docStatus);
  }
  return status;
}

}  // namespace

}  // namespace maptool

V2X_MAP_TOOL_COMMAND("validate", "list every fault of cloud map-down JSON documents as the service meets it",
                     "usage: v2x_map_tool validate [--json] MAP.json...\n"
                     "\n"
                     "Reads each map-down document with the service's own reader, then encodes\n"
                     "the frame the service would store with its encoder, and reports every fault:\n"
                     "its place in the document (nodes[0].inLinks[1].lanes[2].laneWidth), the value\n"
                     "found, what the service accepts there, the error code and text the service\n"
                     "records, and what the service does with it (document refused, list element\n"
                     "dropped with the rest of its list, value kept). The encoder's verdict comes\n"
                     "last (code 18, \"Set MAP config error\", with the part it refuses). Then the\n"
                     "acknowledgement the service sends when the document has \"ack\": true. The\n"
                     "stored eTag is taken as empty. Problems the service only logs, without a code,\n"
                     "are listed apart.\n"
                     "\n"
                     "--json prints one JSON object per document: findings (path, code, text,\n"
                     "value, range, effect, log) in the order the reader meets them, notes, ack\n"
                     "(the acknowledgement object, null for a text that is not JSON), verdict.\n"
                     "\n"
                     "Exit status 0 when every document is stored without a fault, 1 when a\n"
                     "document has faults or is refused, 2 when one cannot be read or is not JSON\n"
                     "(or for a wrong command line).\n",
                     maptool::runValidate)
