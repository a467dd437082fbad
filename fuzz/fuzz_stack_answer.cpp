// An answer of the V2X protocol process to the map data request, as the IPC
// library hands it over: the packet's exact bytes and their count. The
// handler checks the head, walks the maps in the body, decodes each and passes
// it to the upload.
#include "map_conv_stack_interface.h"
#include "support.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  v2xfuzz::quietLogger();
  v2xfuzz::serviceWorkdir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > V2XIPC_MSG_MAX) return 0;  // the IPC library delivers no more
  auto packet = v2xfuzz::heapCopy(data, size);
  v2xpub_UdpSocketDataHead_t received{static_cast<int16>(size), packet.get()};
  v2xmapconv_GetMapDataResp(&received);
  return 0;
}
