// Shared set-up of the fuzz targets: a logger that formats every line and
// writes none, the service's working directory, and the property check.
#ifndef V2X_FUZZ_SUPPORT_H
#define V2X_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace v2xfuzz {

// Logger without outputs, every tag at level 7: each line's arguments are
// still read and formatted, so a log call that reads too far is caught.
void quietLogger();

// Once per process: a temporary working directory with the service's
// configuration (conf/v2x_map_convert.cfg, a map data directory), made the
// service's configuration directory. Removed at exit.
void serviceWorkdir();

// A heap copy of exactly size bytes (one for an empty input), so that a read
// past the end is caught.
std::unique_ptr<uint8_t[]> heapCopy(const uint8_t* data, size_t size);

// The frame's UPER encoding through the MAP library, sized to fit; false
// when the encoder refuses the frame.
bool encodeUper(void* frame, std::vector<uint8_t>& out);

// Stops the run (abort, so the fuzzer keeps the input) when a property that
// every input must keep is broken.
void require(bool ok, const char* what);

}  // namespace v2xfuzz

// Both drivers call these: libFuzzer, and the replay of kept inputs.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#endif
