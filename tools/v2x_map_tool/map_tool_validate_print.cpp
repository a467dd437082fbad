// "validate": the command, its report for people and its JSON for scripts.
#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdio>

#include "map_conv_mapdown.h"
#include "map_tool.h"
#include "map_tool_validate.h"

namespace maptool {
namespace {

constexpr const char* kName = "validate";

const char* verdictText(const Validation& v) {
  if (!v.readable) return "not JSON: the service reads nothing and sends no acknowledgement";
  if (v.tooLong) return "too long for one map-down message: the service stores nothing and sends no acknowledgement";
  if (v.result == MAP_CONV_ETAG_UNCHANGED) return "eTag equal to the stored one: nothing converted";
  if (v.result != 0) return "the service refuses the document";
  if (!v.stored) return "the service reads the document but cannot store the map";
  if (!v.findings.empty()) return "the service stores the map with the faults above";
  return v.warnings.empty() ? "the service stores the map" : "the service stores the map without the members above";
}

void printHuman(const std::string& name, const Validation& v) {
  std::printf("%s: %zu fault%s\n", name.c_str(), v.findings.size(), v.findings.size() == 1 ? "" : "s");
  auto line = [](const Finding& f) {
    std::printf("  %s: %s", f.path.empty() ? "(whole document)" : f.path.c_str(), f.value.c_str());
    if (!f.range.empty()) std::printf(" (allowed: %s)", f.range.c_str());
    std::printf("\n      [%s] ", f.reach.c_str());
    if (f.code != 0) {
      std::printf("code %d \"%s\"; ", f.code, f.text.c_str());
    } else if (!f.text.empty() && f.text != "No error") {
      std::printf("%s; ", f.text.c_str());
    }
    std::printf("%s", f.effect.c_str());
    if (!f.log.empty()) std::printf("; logged \"%s\"", f.log.c_str());
    std::printf("\n");
    if (!f.field.empty()) std::printf("      field profile: %s\n", f.field.c_str());
  };
  for (const Finding& f : v.findings) line(f);
  if (!v.notes.empty()) std::printf("  logged without a code:\n");
  for (const Finding& f : v.notes) line(f);
  if (!v.warnings.empty()) {
    std::printf("  %zu warning%s: members the service never reads\n", v.warnings.size(),
                v.warnings.size() == 1 ? "" : "s");
  }
  for (const Finding& f : v.warnings) line(f);
  std::printf("  verdict    %s\n", verdictText(v));
  if (v.tooLong) {
    std::printf("  ack        none (the reader never gets the message whole)\n");
  } else if (v.readable) {
    std::printf("  ack        %s%s\n", v.ack.c_str(), v.ackRequested ? "" : " (not requested)");
  }
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
    cJSON_AddStringToObject(o, "reach", f.reach.c_str());
    if (!f.reads.empty()) cJSON_AddStringToObject(o, "reads", f.reads.c_str());
    if (!f.field.empty()) cJSON_AddStringToObject(o, "field", f.field.c_str());
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
  cJSON_AddBoolToObject(o, "tooLong", v.tooLong);
  cJSON_AddNumberToObject(o, "file", v.fileNumber);
  cJSON_AddStringToObject(o, "verdict", verdictText(v));
  cJSON_AddItemToObject(o, "findings", findingsJson(v.findings));
  cJSON_AddItemToObject(o, "notes", findingsJson(v.notes));
  cJSON_AddItemToObject(o, "warnings", findingsJson(v.warnings));
  cJSON* ack = v.readable && !v.tooLong ? cJSON_Parse(v.ack.c_str()) : nullptr;
  cJSON_AddItemToObject(o, "ack", ack != nullptr ? ack : cJSON_CreateNull());
  cJSON_AddBoolToObject(o, "ackRequested", v.ackRequested);
  printJsonLine(o);
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
    } else if (!v.findings.empty() || !v.warnings.empty() || (v.result != 0 && v.result != MAP_CONV_ETAG_UNCHANGED)) {
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
                     "the frame the service would store with its encoder, and reports everything\n"
                     "the service would refuse, change or lose: its place in the document\n"
                     "(nodes[0].inLinks[1].lanes[2].laneWidth), the value found, what the service\n"
                     "accepts there, the error code and text the service records, what the\n"
                     "service does with it and how far that reaches: refuses the document, drops\n"
                     "a list, value kept, value changed (a value of the wrong JSON kind, with what\n"
                     "is read instead; a slice number outside 1 to 255, with the file it lands\n"
                     "in), or not reached by the service (found past a fault that stops the reader,\n"
                     "by reading again with the stopping values mended). Every part of the map the\n"
                     "encoder refuses comes last (code 18, \"Set MAP config error\"). A document\n"
                     "over 9999 bytes, which the service never reads whole, and a text that is not\n"
                     "JSON (with its line, column and byte offset) are faults too. Where the field\n"
                     "profile behaves otherwise, a line says what it does. Then the warnings\n"
                     "(members the reader does not know, with the nearest known name; keys repeated\n"
                     "but for the case of letters, of which the service takes the first) and the\n"
                     "acknowledgement the service sends when the document has \"ack\": true. The\n"
                     "stored eTag is taken as empty. Problems the service only logs, without a code,\n"
                     "are listed apart.\n"
                     "\n"
                     "--json prints one JSON object per document with the same: findings, notes\n"
                     "and warnings (path, code, text, value, range, effect, log, reach, and reads\n"
                     "and field where they apply), tooLong, file (the slice's file number), ack\n"
                     "(the acknowledgement object, null when none is sent), verdict.\n"
                     "\n"
                     "Exit status 0 when every document is stored as written, 1 when a document\n"
                     "has faults or warnings or is refused, 2 when one cannot be read or is not JSON\n"
                     "(or for a wrong command line).\n",
                     maptool::runValidate)
