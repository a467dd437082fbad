// Lane matching on the four-intersection sample map: the plain walk (worst
// case: a position far from every lane, or beside the lanes without being
// on one), the prepared matcher, and the preparation itself.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "v2xapp_gbmap_match.h"
#include "v2xapp_gbmap_query.h"
#include "v2xlog.h"

namespace {

// The stored sample map, decoded once; null when it cannot be read.
V2XAPP_GBMHANDLE sampleMap() {
  static V2XAPP_GBMHANDLE map = [] {
    v2xlog_SetAllTagLevel(0);
    V2XAPP_GBMHANDLE m = nullptr;
    for (const auto& e : std::filesystem::directory_iterator(V2X_MAP4X_DIR)) {
      if (e.path().filename().string().rfind("map_data_", 0) != 0) continue;
      std::ifstream in(e.path(), std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      if (v2xapp_GBMapUperDecode(&m, bytes.data(), static_cast<uint32_t>(bytes.size())) != 0) v2xapp_GBMapStrDel(&m);
      break;
    }
    return m;
  }();
  return map;
}

c_pos3D_t at(double lat, double lon) {
  c_pos3D_t p{};
  p.posIsValid = true;
  p.lat = lat;
  p.lon = lon;
  return p;
}

// Every lane point of the map, resolved to degrees.
std::vector<c_pos3D_t> lanePoints(V2XAPP_GBMHANDLE map) {
  std::vector<c_pos3D_t> out;
  uint32_t nodes = 0, links = 0;
  v2xapp_GBMapGetNodesCnt(map, &nodes);
  for (uint32_t n = 0; n < nodes; ++n) {
    V2XAPP_GBMHANDLE node = nullptr, link = nullptr, lane = nullptr;
    int64_t lat = 0, lon = 0, elev = 0;
    bool hasElev = false;
    v2xapp_GBMapGetNodeByIndex(map, n, &node);
    v2xapp_GBMapNodeGetRefPos(node, &lat, &lon, &hasElev, &elev);
    const c_pos3D_t ref = at(static_cast<double>(lat) * 1e-7, static_cast<double>(lon) * 1e-7);
    v2xapp_GBMapNodeGetLinkCnt(node, &links);
    for (uint32_t k = 0; k < links && v2xapp_GBMapNodeGetLinkByIndex(node, k, &link) == 0; ++k) {
      int32_t lanes = 0, points = 0;
      v2xapp_GBMapGetLaneCountInMatchedLink(link, &lanes);
      for (int32_t l = 0; l < lanes && v2xapp_GBMapLinkGetLaneByIndex(link, l, &lane) == 0; ++l) {
        v2xapp_GBMapGetLanePointsNumber(lane, &points);
        for (int32_t i = 0; i < points; ++i) {
          v2xapp_gbMsg_PosStr_t rec{};
          c_pos3D_t p{};
          v2xapp_GBMapLaneGetPointByIndex(lane, i, &rec);
          v2xcodec_GBpraseMsgPos(&rec, &ref, &p);
          out.push_back(p);
        }
      }
    }
  }
  return out;
}

// Seeded positions over the map: half within 6 m of a lane point, half
// anywhere within 100 m of the lanes' extent.
const std::vector<c_pos3D_t>& positions() {
  static const std::vector<c_pos3D_t> list = [] {
    const std::vector<c_pos3D_t> pts = lanePoints(sampleMap());
    double minLat = 90, maxLat = -90, minLon = 180, maxLon = -180;
    for (const c_pos3D_t& p : pts) {
      minLat = std::min(minLat, p.lat), maxLat = std::max(maxLat, p.lat);
      minLon = std::min(minLon, p.lon), maxLon = std::max(maxLon, p.lon);
    }
    std::mt19937 rng(4);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<c_pos3D_t> out;
    constexpr double kDeg = 1e-5;  // about a metre
    while (out.size() < 4096 && !pts.empty()) {
      if (out.size() % 2 == 0) {
        const c_pos3D_t& p = pts[rng() % pts.size()];
        out.push_back(at(p.lat + (unit(rng) - 0.5) * 12 * kDeg, p.lon + (unit(rng) - 0.5) * 12 * kDeg));
      } else {
        out.push_back(at(minLat - 100 * kDeg + unit(rng) * (maxLat - minLat + 200 * kDeg),
                         minLon - 100 * kDeg + unit(rng) * (maxLon - minLon + 200 * kDeg)));
      }
    }
    return out;
  }();
  return list;
}

// Far from every lane; beside a lane's middle, outside it, with feet on
// every parallel lane; on a lane.
const c_pos3D_t kFar = at(31.30, 121.20);
const c_pos3D_t kBeside = at(31.28014, 121.1609);
const c_pos3D_t kOnLane = at(31.2800157, 121.161);

void walk(benchmark::State& state, c_pos3D_t veh) {
  V2XAPP_GBMHANDLE map = sampleMap();
  if (map == nullptr) return state.SkipWithError("sample map not found; build the bench_maplib_sample target");
  MapSearch_t res{};
  for (auto _ : state) benchmark::DoNotOptimize(v2xapp_GBMapMatchLane(&veh, map, &res));
}
BENCHMARK_CAPTURE(walk, far, kFar)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(walk, beside, kBeside)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(walk, on_lane, kOnLane)->Unit(benchmark::kMicrosecond);

void BM_WalkRandom(benchmark::State& state) {
  V2XAPP_GBMHANDLE map = sampleMap();
  if (map == nullptr) return state.SkipWithError("sample map not found");
  const std::vector<c_pos3D_t>& list = positions();
  MapSearch_t res{};
  size_t i = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(v2xapp_GBMapMatchLane(const_cast<c_pos3D_t*>(&list[i++ % list.size()]), map, &res));
}
BENCHMARK(BM_WalkRandom)->Unit(benchmark::kMicrosecond);

void prepared(benchmark::State& state, c_pos3D_t veh) {
  V2XAPP_GBMMATCHER matcher = nullptr;
  if (sampleMap() == nullptr || v2xapp_GBMapMatchPrepare(sampleMap(), &matcher) != 0) {
    return state.SkipWithError("sample map not found");
  }
  MapSearch_t res{};
  for (auto _ : state) benchmark::DoNotOptimize(v2xapp_GBMapMatchPrepared(matcher, &veh, &res));
  v2xapp_GBMapMatchRelease(&matcher);
}
BENCHMARK_CAPTURE(prepared, far, kFar)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(prepared, beside, kBeside)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(prepared, on_lane, kOnLane)->Unit(benchmark::kMicrosecond);

void BM_PreparedRandom(benchmark::State& state) {
  V2XAPP_GBMMATCHER matcher = nullptr;
  if (sampleMap() == nullptr || v2xapp_GBMapMatchPrepare(sampleMap(), &matcher) != 0) {
    return state.SkipWithError("sample map not found");
  }
  const std::vector<c_pos3D_t>& list = positions();
  MapSearch_t res{};
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(v2xapp_GBMapMatchPrepared(matcher, &list[i++ % list.size()], &res));
  v2xapp_GBMapMatchRelease(&matcher);
}
BENCHMARK(BM_PreparedRandom)->Unit(benchmark::kMicrosecond);

void BM_Prepare(benchmark::State& state) {
  if (sampleMap() == nullptr) return state.SkipWithError("sample map not found");
  for (auto _ : state) {
    V2XAPP_GBMMATCHER matcher = nullptr;
    benchmark::DoNotOptimize(v2xapp_GBMapMatchPrepare(sampleMap(), &matcher));
    v2xapp_GBMapMatchRelease(&matcher);
  }
}
BENCHMARK(BM_Prepare)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
