// XER decoding of a map frame, as v2x_map_tool reads a map written by hand.
// A frame the decoder accepts meets every constraint: it encodes to UPER, and
// that decodes again. A failed decode leaves a partial frame that the library
// frees as a whole.
#include <vector>

#include "support.h"
#include "v2xapp_gbmap.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  v2xfuzz::quietLogger();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<uint8_t> input(data, data + size);
  V2XAPP_GBMHANDLE frame = nullptr;
  if (v2xapp_GBMapXerDecode(&frame, input.data(), static_cast<uint32_t>(input.size())) == 0) {
    std::vector<uint8_t> uper;
    v2xfuzz::require(v2xfuzz::encodeUper(frame, uper), "a decoded frame does not encode");
    V2XAPP_GBMHANDLE back = nullptr;
    v2xfuzz::require(v2xapp_GBMapUperDecode(&back, uper.data(), static_cast<uint32_t>(uper.size())) == 0,
                     "the encoding of a decoded frame does not decode");
    v2xapp_GBMapStrDel(&back);
  }
  v2xapp_GBMapStrDel(&frame);
  return 0;
}
