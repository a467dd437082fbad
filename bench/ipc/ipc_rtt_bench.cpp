// Round-trip time of v2xipc_SocketReqSend against an echoing server socket on
// 127.0.0.1: the request's size is the argument (36: a map data request,
// 20497: the largest map data response). Reports median and 99th percentile.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

#include "v2xipc.h"
#include "v2xlog.h"

namespace {

void echo(V2X_UDPSOCKHANDLE h, void* data, void* addr, int16_t addrLen) {
  v2xipc_SocketRespSend(h, nullptr, static_cast<v2xpub_UdpSocketDataHead_t*>(data), addr, addrLen);
}

uint16 freePort() {
  int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(a);
  uint16 port = 0;
  if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
    port = ntohs(a.sin_port);
  close(fd);
  return port;
}

void BM_RoundTrip(benchmark::State& state) {
  v2xlog_SetAllTagLevel(2);
  const uint16 port = freePort();
  v2xpub_SocketInitPara_t s{};
  std::strcpy(s.m_sockName, "BENCH_SVR");
  std::strcpy(s.m_localIP, "127.0.0.1");
  s.m_svrPort = port;
  s.m_svrEnable = 1;
  s.f_msgFunc = echo;
  v2xpub_SocketInitPara_t c{};
  std::strcpy(c.m_sockName, "BENCH_CLI");
  std::strcpy(c.m_localIP, "127.0.0.1");
  c.m_cliEnable = 1;
  V2X_UDPSOCKHANDLE server = nullptr, client = nullptr;
  if (v2xipc_SocketInit(&server, nullptr, &s) != 0 || v2xipc_SocketInit(&client, nullptr, &c) != 0 ||
      v2xipc_SocketSetSendAddr(client, nullptr, "127.0.0.1", port) != 0) {
    state.SkipWithError("sockets not opened");
    return;
  }
  std::vector<uint8> request(static_cast<size_t>(state.range(0)), 0x5A);
  std::vector<uint8> answer(V2XIPC_MSG_MAX);
  std::vector<double> micros;
  micros.reserve(200000);
  int failures = 0;
  for (auto _ : state) {
    v2xpub_UdpSocketDataHead_t send{static_cast<int16>(request.size()), request.data()};
    v2xpub_UdpSocketDataHead_t recv{V2XIPC_MSG_MAX, answer.data()};
    auto t0 = std::chrono::steady_clock::now();
    if (v2xipc_SocketReqSend(client, nullptr, 1000, &send, &recv) != 0) ++failures;
    micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
  }
  std::sort(micros.begin(), micros.end());
  if (!micros.empty()) {
    state.counters["p50_us"] = micros[micros.size() / 2];
    state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
  }
  state.counters["failures"] = failures;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0) * 2);
  v2xipc_SocketClose(client);
  v2xipc_SocketClose(server);
}

BENCHMARK(BM_RoundTrip)->Arg(36)->Arg(101)->Arg(17 + 20480)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
