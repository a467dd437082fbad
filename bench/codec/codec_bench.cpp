// Cost of one UPER encode and one UPER decode (with release) of the 528-byte
// reference intersection through the MAP library.
#include <benchmark/benchmark.h>

#include "codec_test_util.h"
#include "v2xapp_gbmap.h"
#include "v2xlog.h"

namespace {

const codectest::Bytes& mapBytes() {
  static const codectest::Bytes bytes = codectest::fromHex(codectest::kMap528);
  return bytes;
}

void BM_MapUperEncode(benchmark::State& state) {
  v2xlog_SetAllTagLevel(0);
  codectest::Bytes in = mapBytes();
  V2XAPP_GBMHANDLE frame = nullptr;
  if (v2xapp_GBMapUperDecode(&frame, in.data(), static_cast<uint32_t>(in.size())) != 0) {
    state.SkipWithError("reference map does not decode");
    return;
  }
  uint8_t out[4096];
  for (auto _ : state) {
    uint32_t len = sizeof(out);
    if (v2xapp_GBMapUperEncode(frame, out, &len) != 0 || len != in.size()) state.SkipWithError("encode failed");
    benchmark::DoNotOptimize(out);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
  v2xapp_GBMapStrDel(&frame);
}
BENCHMARK(BM_MapUperEncode);

void BM_MapUperDecode(benchmark::State& state) {
  v2xlog_SetAllTagLevel(0);
  codectest::Bytes in = mapBytes();
  for (auto _ : state) {
    V2XAPP_GBMHANDLE frame = nullptr;
    if (v2xapp_GBMapUperDecode(&frame, in.data(), static_cast<uint32_t>(in.size())) != 0) {
      state.SkipWithError("decode failed");
    }
    v2xapp_GBMapStrDel(&frame);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}
BENCHMARK(BM_MapUperDecode);

}  // namespace

BENCHMARK_MAIN();
