// v2x_stack_sim: stands in for the RSU's V2X protocol process ("RSU_RCV").
// It answers map data requests with the UPER map files of a directory or of
// the command line, acknowledges map refresh notices, and prints every packet
// it gets. It ends after a packet count or a time bound, or on Ctrl-C.
#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "map_conv_stack_interface.h"
#include "v2xipc.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

const char* kUsage =
    "usage: v2x_stack_sim [-w WORKDIR | -c FILE] [-m DIR] [-p PREFIX] [-n COUNT] [-t SECONDS] [FILE...]\n"
    "  -w, --workdir DIR   ports from DIR/conf/v2x_ipc_port.cfg, maps from DIR/mapdata\n"
    "                      (m_app_rs_rcvport 0: any free port, printed at start)\n"
    "  -c, --config FILE   ports from FILE\n"
    "  -m, --maps DIR      answer map data requests with the map files of DIR\n"
    "  -p, --prefix TEXT   names of the map files in DIR start so (default \"map_data_\")\n"
    "  -n, --count N       end after N packets\n"
    "  -t, --time SECONDS  end after SECONDS\n"
    "  FILE...             answer with these UPER files (instead of a directory)\n"
    "  -h, --help          print this text and exit\n"
    "  --version           print the version and exit\n";

struct Options {
  bool help = false;
  bool version = false;
  std::string workDir;
  std::string config;
  std::string mapDir;
  std::string prefix = "map_data_";
  std::vector<std::string> files;
  long count = 0;      // 0: no bound
  double seconds = 0;  // 0: no bound
};

Options g_opt;
std::atomic<long> g_packets{0};
volatile sig_atomic_t g_stop = 0;

void onSignal(int) { g_stop = 1; }

std::string hex(const uint8* p, size_t n) {
  static const char digits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}

bool readWhole(const std::string& path, std::vector<uint8>& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return true;
}

// The map files to answer with, in name order, read afresh for every request.
std::vector<std::string> mapFiles() {
  if (!g_opt.files.empty()) return g_opt.files;
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(g_opt.mapDir, ec)) {
    std::string name = e.path().filename().string();
    if (e.is_regular_file(ec) && name.rfind(g_opt.prefix, 0) == 0) names.push_back(e.path().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Builds a command-21 answer of the given data type with the maps in reply;
// returns the packet length.
uint32 buildAnswer(uint8* reply, int32 dataType, const std::vector<std::string>& maps, int* mapCount) {
  auto* body = reinterpret_cast<v2xipc_rsuData*>(reply + sizeof(v2xipc_dataHead));
  const uint32 room = V2XIPC_MAX_PACK_LEN - sizeof(v2xipc_rsuData);
  uint32 used = 0;
  int n = 0;
  for (const std::string& path : maps) {
    std::vector<uint8> uper;
    if (!readWhole(path, uper)) {
      std::printf("  cannot read %s, left out\n", path.c_str());
      continue;
    }
    if (uper.size() > 0xFFFF || used + sizeof(uint16) + uper.size() > room) {
      std::printf("  %s (%zu bytes) does not fit the answer, left out\n", path.c_str(), uper.size());
      continue;
    }
    uint16 len = static_cast<uint16>(uper.size());
    std::memcpy(body->m_data + used, &len, sizeof(len));
    std::memcpy(body->m_data + used + sizeof(len), uper.data(), uper.size());
    used += static_cast<uint32>(sizeof(len) + uper.size());
    ++n;
  }
  body->m_dataType = dataType;
  body->m_dataNo = n;
  body->m_dataLen = static_cast<uint16>(used);
  body->m_checkSum = 0;
  const uint32 packLen = static_cast<uint32>(sizeof(v2xipc_rsuData)) + used;
  v2xipc_FillDataHead(reply, V2XIPC_CMD_RSU_RESP, packLen);
  *mapCount = n;
  return static_cast<uint32>(sizeof(v2xipc_dataHead)) + packLen;
}

void onPacket(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen) {
  auto* packet = static_cast<v2xpub_UdpSocketDataHead_t*>(p_data);
  const uint32 total = packet->m_curMsgLen > 0 ? static_cast<uint32>(packet->m_curMsgLen) : 0;
  const uint32 minLen = sizeof(v2xipc_dataHead) + sizeof(v2xipc_rsuData);
  auto* head = reinterpret_cast<v2xipc_dataHead*>(packet->mp_data);
  auto* body = reinterpret_cast<v2xipc_rsuData*>(head->m_pack);
  if (total < minLen || head->m_headFlag[0] != V2XIPC_HEAD_FLAG0 || head->m_headFlag[1] != V2XIPC_HEAD_FLAG1 ||
      head->m_cmdType != V2XIPC_CMD_RSU_REQ) {
    std::printf("packet: %u bytes, command %u, not a request, ignored\n", total,
                total >= sizeof(v2xipc_dataHead) ? head->m_cmdType : 0U);
    std::fflush(stdout);
    ++g_packets;
    return;
  }
  const uint32 dataLen = total - minLen;
  std::vector<uint8> reply(V2XIPC_MSG_MAX, 0);
  uint32 replyLen = 0;
  int maps = 0;
  if (body->m_dataType == V2XIPC_DATA_MAP_REFRESH && dataLen >= sizeof(v2xipc_mapRefresh_t)) {
    v2xipc_mapRefresh_t notice;
    std::memcpy(&notice, body->m_data, sizeof(notice));
    std::printf("notice: file id %u, md5 %s, file time %" PRIu64 "\n", notice.m_mapFileID,
                hex(notice.m_CheckSum, 16).c_str(), static_cast<uint64_t>(notice.m_fileTime));
    replyLen = buildAnswer(reply.data(), V2XIPC_DATA_MAP_REFRESH, {}, &maps);
  } else if (body->m_dataType == V2XIPC_DATA_GET_MAP && dataLen >= sizeof(v2xipc_getMapData)) {
    v2xipc_getMapData req;
    std::memcpy(&req, body->m_data, sizeof(req));
    replyLen = buildAnswer(reply.data(), V2XIPC_DATA_GET_MAP, mapFiles(), &maps);
    std::printf("request: file time %" PRIu64 ", answered with %d map(s), %u bytes\n",
                static_cast<uint64_t>(req.m_fileTime), maps, replyLen);
  } else {
    std::printf("packet: data type %d, %u data bytes, not understood, ignored\n", body->m_dataType, dataLen);
  }
  if (replyLen > 0) {
    v2xpub_UdpSocketDataHead_t out{static_cast<int16>(replyLen), reply.data()};
    if (v2xipc_SocketRespSend(handle, nullptr, &out, addr, addrLen) != 0) std::printf("  answer not sent\n");
  }
  std::fflush(stdout);
  ++g_packets;
}

bool parse(int argc, char** argv) {
  const option longOpts[] = {{"workdir", required_argument, nullptr, 'w'},
                             {"config", required_argument, nullptr, 'c'},
                             {"maps", required_argument, nullptr, 'm'},
                             {"prefix", required_argument, nullptr, 'p'},
                             {"count", required_argument, nullptr, 'n'},
                             {"time", required_argument, nullptr, 't'},
                             {"help", no_argument, nullptr, 'h'},
                             {"version", no_argument, nullptr, 'V'},
                             {nullptr, 0, nullptr, 0}};
  int c;
  while ((c = getopt_long(argc, argv, "w:c:m:p:n:t:h", longOpts, nullptr)) != -1) {
    switch (c) {
      case 'w': g_opt.workDir = optarg; break;
      case 'c': g_opt.config = optarg; break;
      case 'm': g_opt.mapDir = optarg; break;
      case 'p': g_opt.prefix = optarg; break;
      case 'n': g_opt.count = std::strtol(optarg, nullptr, 10); break;
      case 't': g_opt.seconds = std::strtod(optarg, nullptr); break;
      case 'h': g_opt.help = true; return true;
      case 'V': g_opt.version = true; return true;
      default: return false;
    }
  }
  for (int i = optind; i < argc; ++i) g_opt.files.emplace_back(argv[i]);
  if (g_opt.mapDir.empty() && !g_opt.workDir.empty()) g_opt.mapDir = g_opt.workDir + "/mapdata";
  return g_opt.count >= 0 && g_opt.seconds >= 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (!parse(argc, argv)) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (g_opt.help || g_opt.version) {
    std::fputs(g_opt.help ? kUsage : "v2x_stack_sim " V2X_PACKAGE_VERSION "\n", stdout);
    return 0;
  }
  v2xlog_SetAllTagLevel(2);
  if (!g_opt.config.empty()) {
    v2xipc_CfgInitFile(g_opt.config.c_str());
  } else if (!g_opt.workDir.empty()) {
    v2xipc_CfgInit(g_opt.workDir.c_str());
  }
  v2x_ipc_config_t* conf = nullptr;
  v2xipc_GetIpcConfValue(&conf);

  v2xpub_SocketInitPara_t para{};
  std::snprintf(para.m_sockName, sizeof(para.m_sockName), "RSU_RCV");
  if (v2xipc_GetEndpointAddr(conf, "RSU_RCV", para.m_localIP) != 0)
    std::snprintf(para.m_localIP, sizeof(para.m_localIP), "%s", V2XIPC_DEFAULT_ADDR);
  para.m_svrPort = conf->m_app_rs_rcvport;
  para.m_svrEnable = 1;
  para.f_msgFunc = onPacket;

  struct sigaction act {};
  act.sa_handler = onSignal;
  sigemptyset(&act.sa_mask);
  sigaction(SIGINT, &act, nullptr);
  sigaction(SIGTERM, &act, nullptr);

  V2X_UDPSOCKHANDLE handle = nullptr;
  if (v2xipc_SocketInit(&handle, conf, &para) != 0) {
    std::fprintf(stderr, "v2x_stack_sim: cannot listen on %s:%u\n", para.m_localIP, para.m_svrPort);
    return 1;
  }
  // The bound port: 0 in the port file lets the kernel choose one.
  std::printf("listening on %s:%u, maps from %s\n", para.m_localIP, v2xipc_SocketLocalPort(handle, 1),
              g_opt.files.empty() ? (g_opt.mapDir.empty() ? "(none)" : g_opt.mapDir.c_str()) : "the command line");
  std::fflush(stdout);

  const auto start = std::chrono::steady_clock::now();
  while (g_stop == 0) {
    if (g_opt.count > 0 && g_packets.load() >= g_opt.count) break;
    if (g_opt.seconds > 0 &&
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >= g_opt.seconds)
      break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  v2xipc_SocketClose(handle);
  std::printf("ended after %ld packet(s)\n", g_packets.load());
  return 0;
}
