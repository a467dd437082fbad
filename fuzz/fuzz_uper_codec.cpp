// UPER decoding of a map frame, as the service decodes each map of a V2X
// protocol process answer, then re-encoding what decoded. A frame the decoder
// accepts meets every constraint, so it encodes again, and that encoding is
// stable: it decodes and encodes to the same bytes.
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
  if (v2xapp_GBMapUperDecode(&frame, input.data(), static_cast<uint32_t>(input.size())) == 0) {
    std::vector<uint8_t> first, second;
    v2xfuzz::require(v2xfuzz::encodeUper(frame, first), "a decoded frame does not encode");
    V2XAPP_GBMHANDLE again = nullptr;
    v2xfuzz::require(v2xapp_GBMapUperDecode(&again, first.data(), static_cast<uint32_t>(first.size())) == 0,
                     "a re-encoded frame does not decode");
    v2xfuzz::require(v2xfuzz::encodeUper(again, second) && second == first, "re-encoding is not stable");
    v2xapp_GBMapStrDel(&again);
  }
  v2xapp_GBMapStrDel(&frame);  // also what a failed decode built
  return 0;
}
