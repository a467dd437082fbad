// The map reader as the service runs it on a joined map-down text: the
// document into a fresh map frame, then the UPER encoding that storage writes.
// A map the encoder accepts must decode again, as the V2X protocol process
// will decode the stored file.
#include <cstring>
#include <vector>

#include "map_conv_mapdown.h"
#include "support.h"
#include "v2xapp_gbmap.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  v2xfuzz::quietLogger();
  v2xfuzz::serviceWorkdir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 9999) return 0;  // the reception joins at most 9999 bytes
  std::vector<char> text(data, data + size);
  text.push_back('\0');
  v2xcloud_map_data_t record;
  std::memset(&record, 0, sizeof(record));
  V2XAPP_GBMHANDLE frame = nullptr;
  v2xfuzz::require(v2xapp_GBMapStrInit(&frame) == 0, "no frame");
  record.map = static_cast<struct MessageFrame*>(frame);
  if (v2xmapconv_MapDownJsonToStruct(text.data(), &record) == 0) {
    uint8_t uper[MAP_CONV_UPER_BUF_SIZE];
    uint32_t len = sizeof(uper);
    if (v2xapp_GBMapUperEncode(frame, uper, &len) == 0 && len <= sizeof(uper)) {
      V2XAPP_GBMHANDLE back = nullptr;
      v2xfuzz::require(v2xapp_GBMapUperDecode(&back, uper, len) == 0, "a stored map does not decode");
      v2xapp_GBMapStrDel(&back);
    }
  }
  v2xapp_GBMapStrDel(&frame);
  return 0;
}
