// Frame helpers of v2x_map_tool over the MAP library.
#include "MessageFrame.h"
#include "map_tool.h"
#include "v2x_asn_codec.h"
#include "v2xapp_gbmap.h"

namespace maptool {

bool decodeFrame(const char* cmd, const std::string& path, const std::vector<uint8_t>& data, bool xer, void** handle) {
  *handle = nullptr;
  if (data.size() > UINT32_MAX) {
    fail(cmd, "%s: file too large", path.c_str());
    return false;
  }
  std::string strict;
  if (xer && !checkXerElements(data, strict)) {
    fail(cmd, "%s: not a valid XER MessageFrame: %s", path.c_str(), strict.c_str());
    return false;
  }
  auto* bytes = const_cast<uint8_t*>(data.data());
  auto len = static_cast<uint32_t>(data.size());
  int32_t rc = xer ? v2xapp_GBMapXerDecode(handle, bytes, len) : v2xapp_GBMapUperDecode(handle, bytes, len);
  if (rc != 0) {
    // Name the frame's kind when the decoder got that far: the other kinds
    // than the map are known to this system by name only.
    std::string kind;
    const auto* frame = static_cast<const MessageFrame_t*>(*handle);
    if (frame != nullptr && frame->present != MessageFrame_PR_NOTHING && frame->present != MessageFrame_PR_mapFrame &&
        frame->present != MessageFrame_PR_msgFrameExt &&
        static_cast<int>(frame->present) <= asn_DEF_MessageFrame.elements_count) {
      kind = std::string(" (a ") + asn_DEF_MessageFrame.elements[frame->present - 1].name + ", not supported)";
    }
    fail(cmd, "%s: not a valid %s MessageFrame: %s%s", path.c_str(), xer ? "XER" : "UPER", v2x_asn_last_error(),
         kind.c_str());
    v2xapp_GBMapStrDel(handle);  // whatever the decoder built
    *handle = nullptr;
    return false;
  }
  return true;
}

bool encodeFrame(const char* cmd, void* handle, bool xer, std::vector<uint8_t>& out) {
  // The library reports the full length when the buffer is too small: grow
  // once to that length and encode again.
  out.assign(4096, 0);
  for (int attempt = 0; attempt < 2; attempt++) {
    auto len = static_cast<uint32_t>(out.size());
    int32_t rc =
        xer ? v2xapp_GBMapXerEncode(handle, out.data(), &len) : v2xapp_GBMapUperEncode(handle, out.data(), &len);
    if (rc != 0) {
      fail(cmd, "cannot encode the frame as %s: %s", xer ? "XER" : "UPER", v2x_asn_last_error());
      return false;
    }
    if (len <= out.size()) {
      out.resize(len);
      return true;
    }
    out.assign(len, 0);
  }
  fail(cmd, "encoded length changed between two encodings");
  return false;
}

bool readFrame(const char* cmd, const std::string& path, void** handle) {
  std::vector<uint8_t> data;
  return readInput(cmd, path, data) && decodeFrame(cmd, path, data, looksLikeXml(data), handle);
}

void freeFrame(void** handle) {
  if (*handle != nullptr) v2xapp_GBMapStrDel(handle);
}

}  // namespace maptool
