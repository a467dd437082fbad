// A datagram on the log tool's socket, as the IPC library's receive thread
// hands it to the service: in a buffer of the largest packet size (the reply
// is built in place), with the received length. There is no socket, so the
// reply's send fails as it would after the tool went away.
#include <netinet/in.h>

#include <cstring>
#include <vector>

#include "map_conv_stack_interface.h"
#include "support.h"
#include "v2xlog.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  v2xfuzz::quietLogger();
  // The tags the service registers at start, so that a read lists them.
  for (const char* tag :
       {"UDPA", "TASK", "MQPS", "MCFG", "MDDS", "MMAP", "INTF", "SINF", "DOWN", "MAPU", "VCFG", "GMAP", "LSKU", "VIPC"})
    v2xlog_AddTag(tag);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > V2XIPC_MSG_MAX) return 0;
  std::vector<uint8_t> buffer(V2XIPC_MSG_MAX, 0);
  std::memcpy(buffer.data(), data, size);
  v2xpub_UdpSocketDataHead_t received{static_cast<int16>(size), buffer.data()};
  sockaddr_in from{};
  from.sin_family = AF_INET;
  from.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  GetLogCtl(nullptr, &received, &from, static_cast<int16_t>(sizeof(from)));
  return 0;
}
