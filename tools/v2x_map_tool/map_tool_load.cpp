// Map files of any form for the export and drawing subcommands: cloud map
// documents through the service's own reader, XER and UPER through the MAP
// library's decoders.
#include <cjson/cJSON.h>

#include <cstring>

#include "MessageFrame.h"
#include "map_conv_mapdown.h"
#include "map_tool.h"
#include "map_tool_geometry.h"
#include "v2xapp_gbmap.h"

namespace maptool {
namespace {

bool looksLikeJson(const std::vector<uint8_t>& data) {
  size_t i = 0;
  if (data.size() >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF) i = 3;  // UTF-8 mark
  while (i < data.size() && (data[i] == ' ' || data[i] == '\t' || data[i] == '\r' || data[i] == '\n')) i++;
  return i < data.size() && (data[i] == '{' || data[i] == '[');
}

// The document's map body read into frame as the service reads it.
bool readDocument(const char* cmd, const std::string& path, std::vector<uint8_t>& data, MessageFrame_t* frame,
                  std::string* documentText) {
  const size_t mark = data.size() >= 3 && data[0] == 0xEF ? 3 : 0;
  const char* end = nullptr;
  cJSON* root =
      cJSON_ParseWithLengthOpts(reinterpret_cast<const char*>(data.data()) + mark, data.size() - mark, &end, false);
  const char* last = reinterpret_cast<const char*>(data.data() + data.size());
  while (root != nullptr && end < last && (*end == ' ' || *end == '\t' || *end == '\r' || *end == '\n')) end++;
  if (root == nullptr || !cJSON_IsObject(root) || end != last) {
    fail(cmd, "%s: not a JSON object", path.c_str());
    cJSON_Delete(root);
    return false;
  }
  if (documentText != nullptr && cJSON_GetObjectItem(root, "map") != nullptr) {
    documentText->assign(reinterpret_cast<const char*>(data.data()) + mark, data.size() - mark);
  }
  // A bare map body is read as the "map" of a document.
  if (cJSON_GetObjectItem(root, "map") == nullptr && cJSON_GetObjectItem(root, "nodes") != nullptr) {
    cJSON* doc = cJSON_CreateObject();
    cJSON_AddItemToObject(doc, "map", root);
    root = doc;
  }
  v2xmapconv_SetErrorCode(ERROR_CODE_NONE);
  const int32 ret = GetMapFromJson(root, &frame->choice.mapFrame);
  cJSON_Delete(root);
  if (ret != 0) {
    const int32 code = v2xmapconv_GetErrorCode();
    if (code != ERROR_CODE_NONE) {
      fail(cmd, "%s: the service refuses the map: error code %d (%s)", path.c_str(), code,
           v2xmapconv_GetErrorDesc(code));
    } else {
      fail(cmd, "%s: the service refuses the map: no \"map\" with \"nodes\"", path.c_str());
    }
    return false;
  }
  return true;
}

// A frame from a cloud document (as the service reads it), XER or UPER.
bool frameOf(const char* cmd, const std::string& path, std::vector<uint8_t>& data, void** handle,
             std::string* documentText) {
  if (!looksLikeJson(data)) return decodeFrame(cmd, path, data, looksLikeXml(data), handle);
  if (v2xapp_GBMapStrInit(handle) != 0) {
    fail(cmd, "no memory for a frame");
    return false;
  }
  if (readDocument(cmd, path, data, static_cast<MessageFrame_t*>(*handle), documentText)) return true;
  freeFrame(handle);
  return false;
}

}  // namespace

bool loadMap(const char* cmd, const std::string& path, GeoMap& map, std::string* documentText) {
  std::vector<uint8_t> data;
  return readInput(cmd, path, data) && loadMapData(cmd, path, data, map, documentText);
}

bool readAnyFrame(const char* cmd, const std::string& path, void** handle) {
  std::vector<uint8_t> data;
  return readInput(cmd, path, data) && frameOf(cmd, path, data, handle, nullptr);
}

bool loadMapData(const char* cmd, const std::string& path, std::vector<uint8_t>& data, GeoMap& map,
                 std::string* documentText) {
  void* handle = nullptr;
  bool ok = frameOf(cmd, path, data, &handle, documentText);
  if (ok && !mapGeometry(*static_cast<const MessageFrame_t*>(handle), map)) {
    const auto* frame = static_cast<const MessageFrame_t*>(handle);
    fail(cmd, "%s: a %s, not a map", path.c_str(), asn_DEF_MessageFrame.elements[frame->present - 1].name);
    ok = false;
  }
  freeFrame(&handle);
  return ok;
}

}  // namespace maptool
