// Samples of the joined DDS topics as the wrapper delivers them. The input is
// a run of records: one byte picking the topic, a 16-bit little-endian length,
// then that many bytes (fewer at the end of the input) as one sample. A map
// that completes runs the whole download chain: reader, storage in the
// temporary working directory, refresh notice and acknowledgement (no socket
// and no DDS object here, so both sends fail at once).
#include "map_conv_mapup.h"
#include "map_conv_v2xcloud_dds.h"
#include "support.h"

namespace {

using Receiver = void (*)(void*, unsigned int);

// The receive callbacks that join samples, one per topic (the upload's
// acknowledgement receiver is built though the service does not register it).
const Receiver kReceivers[] = {v2xcloud_ddsRecvMapDown, v2xcloud_ddsRecvMapAck, v2xmapconv_ddsRecvMapUpAck};
constexpr size_t kTopics = sizeof(kReceivers) / sizeof(kReceivers[0]);
constexpr size_t kSampleLen = 1024;  // a shorter sample ends a message

void deliver(size_t topic, const uint8_t* bytes, size_t len, bool* pending) {
  auto sample = v2xfuzz::heapCopy(bytes, len);
  kReceivers[topic](sample.get(), static_cast<unsigned int>(len));
  pending[topic] = len >= kSampleLen;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  v2xfuzz::quietLogger();
  v2xfuzz::serviceWorkdir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  bool pending[kTopics] = {};
  size_t at = 0;
  while (at + 3 <= size) {
    const size_t topic = data[at] % kTopics;
    size_t len = data[at + 1] | (static_cast<size_t>(data[at + 2]) << 8);
    at += 3;
    if (len > size - at) len = size - at;
    deliver(topic, data + at, len, pending);
    at += len;
  }
  // End every open message, as the sender's closing one-byte sample does, so
  // that the next input starts with empty buffers.
  static const uint8_t kZero = 0;
  for (size_t topic = 0; topic < kTopics; topic++)
    if (pending[topic]) deliver(topic, &kZero, 1, pending);
  return 0;
}
