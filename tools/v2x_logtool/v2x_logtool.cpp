// v2x_logtool: reads and sets the log levels of a running map conversion
// service over its log tool socket.
//   v2x_logtool [-w WORKDIR | -c FILE] [-a ADDR] [-p PORT] [-T MS] read
//   v2x_logtool [...] set TAG|ALL LEVEL
#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "map_conv_stack_interface.h"
#include "v2xipc.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

const char* kUsage =
    "usage: v2x_logtool [-w WORKDIR | -c FILE] [-a ADDR] [-p PORT] [-T MS] read\n"
    "       v2x_logtool [-w WORKDIR | -c FILE] [-a ADDR] [-p PORT] [-T MS] set TAG|ALL LEVEL\n"
    "  -w, --workdir DIR   port from DIR/conf/v2x_ipc_port.cfg\n"
    "  -c, --config FILE   port from FILE\n"
    "  -a, --addr ADDR     service address (default: endpoint MAP_C_LOGTOOL, else 127.0.0.1)\n"
    "  -p, --port PORT     service port (default: m_mapconv_logtool_rcvport)\n"
    "  -T, --timeout MS    wait this long for the reply (default 2000)\n"
    "  -h, --help          print this text and exit\n"
    "  --version           print the version and exit\n";

constexpr uint32 kHeadLen = sizeof(v2xipc_dataHead);
constexpr uint32 kCmdLen = sizeof(v2xipc_logCmd);

struct Options {
  bool help = false;
  bool version = false;
  std::string workDir, config, addr;
  long port = -1;
  long timeoutMs = 2000;
  bool set = false;
  std::string tag;
  long level = 0;
};

bool parse(int argc, char** argv, Options& o) {
  const option longOpts[] = {{"workdir", required_argument, nullptr, 'w'}, {"config", required_argument, nullptr, 'c'},
                             {"addr", required_argument, nullptr, 'a'},    {"port", required_argument, nullptr, 'p'},
                             {"timeout", required_argument, nullptr, 'T'}, {"help", no_argument, nullptr, 'h'},
                             {"version", no_argument, nullptr, 'V'},       {nullptr, 0, nullptr, 0}};
  int c;
  while ((c = getopt_long(argc, argv, "w:c:a:p:T:h", longOpts, nullptr)) != -1) {
    switch (c) {
      case 'w': o.workDir = optarg; break;
      case 'c': o.config = optarg; break;
      case 'a': o.addr = optarg; break;
      case 'p': o.port = std::strtol(optarg, nullptr, 10); break;
      case 'T': o.timeoutMs = std::strtol(optarg, nullptr, 10); break;
      case 'h': o.help = true; return true;
      case 'V': o.version = true; return true;
      default: return false;
    }
  }
  std::vector<std::string> args(argv + optind, argv + argc);
  if (o.port > 65535 || o.timeoutMs <= 0 || o.timeoutMs > 600000) return false;
  if (args.size() == 1 && args[0] == "read") return true;
  if (args.size() != 3 || args[0] != "set" || args[1].empty() || args[1].size() > 8) return false;
  char* end = nullptr;
  o.level = std::strtol(args[2].c_str(), &end, 10);
  if (end == args[2].c_str() || *end != '\0' || o.level < -32768 || o.level > 32767) return false;
  o.set = true;
  o.tag = args[1];
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!parse(argc, argv, o)) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (o.help || o.version) {
    std::fputs(o.help ? kUsage : "v2x_logtool " V2X_PACKAGE_VERSION "\n", stdout);
    return 0;
  }
  v2xlog_SetAllTagLevel(2);
  if (!o.config.empty()) {
    v2xipc_CfgInitFile(o.config.c_str());
  } else if (!o.workDir.empty()) {
    v2xipc_CfgInit(o.workDir.c_str());
  }
  v2x_ipc_config_t* conf = nullptr;
  v2xipc_GetIpcConfValue(&conf);
  const uint16 port = o.port >= 0 ? static_cast<uint16>(o.port) : conf->m_mapconv_logtool_rcvport;
  std::string dest = o.addr;
  if (dest.empty()) {
    char addr[V2XIPC_ADDR_LEN];
    dest = v2xipc_GetEndpointAddr(conf, "MAP_C_LOGTOOL", addr) == 0 ? addr : V2XIPC_DEFAULT_ADDR;
  }

  v2xpub_SocketInitPara_t para{};
  std::snprintf(para.m_sockName, sizeof(para.m_sockName), "LOGTOOL_CLI");
  // On loopback unless the service is elsewhere.
  std::snprintf(para.m_localIP, sizeof(para.m_localIP), "%s", dest.rfind("127.", 0) == 0 ? dest.c_str() : "0.0.0.0");
  para.m_cliEnable = 1;
  V2X_UDPSOCKHANDLE handle = nullptr;
  if (v2xipc_SocketInit(&handle, conf, &para) != 0 || v2xipc_SocketSetSendAddr(handle, conf, dest.c_str(), port) != 0) {
    std::fprintf(stderr, "v2x_logtool: cannot open a socket towards %s:%u\n", dest.c_str(), port);
    if (handle != nullptr) v2xipc_SocketClose(handle);
    return 1;
  }

  std::vector<uint8> request(kHeadLen + kCmdLen + sizeof(v2xipc_logData), 0);
  auto* head = reinterpret_cast<v2xipc_dataHead*>(request.data());
  auto* cmd = reinterpret_cast<v2xipc_logCmd*>(head->m_pack);
  uint32 packLen = kCmdLen;
  if (o.set) {
    v2xipc_logData entry{};
    std::memcpy(entry.m_tagName, o.tag.data(), o.tag.size());
    entry.m_level = static_cast<int16>(o.level);
    cmd->m_logCmd = V2XIPC_LOG_SET;
    cmd->m_dataLen = sizeof(entry);
    std::memcpy(cmd->m_logData, &entry, sizeof(entry));
    packLen += sizeof(entry);
  } else {
    cmd->m_logCmd = V2XIPC_LOG_READ;
  }
  v2xipc_FillDataHead(request.data(), V2XIPC_CMD_LOG_REQ, packLen);

  std::vector<uint8> reply(V2XIPC_MSG_MAX, 0);
  v2xpub_UdpSocketDataHead_t send{static_cast<int16>(kHeadLen + packLen), request.data()};
  v2xpub_UdpSocketDataHead_t recv{V2XIPC_MSG_MAX, reply.data()};
  int32 ret = v2xipc_SocketReqSend(handle, conf, static_cast<int32>(o.timeoutMs), &send, &recv);
  v2xipc_SocketClose(handle);
  if (ret != 0) {
    std::fprintf(stderr,
                 "v2x_logtool: no reply from %s:%u within %ld ms (error %d): the service is not running there, or "
                 "it refused the command (unknown tag or level)\n",
                 dest.c_str(), port, o.timeoutMs, ret);
    return 1;
  }

  const uint32 total = static_cast<uint32>(recv.m_curMsgLen);
  auto* rhead = reinterpret_cast<v2xipc_dataHead*>(reply.data());
  auto* rcmd = reinterpret_cast<v2xipc_logCmd*>(rhead->m_pack);
  if (total < kHeadLen + kCmdLen || rhead->m_cmdType != V2XIPC_CMD_LOG_RESP) {
    std::fprintf(stderr, "v2x_logtool: unexpected reply of %u bytes\n", total);
    return 1;
  }
  std::printf("reply: command %u, result %d, %u bytes\n", rcmd->m_logCmd, rcmd->m_result, total);
  if (o.set) {
    std::printf("%s set to level %ld\n", o.tag.c_str(), o.level);
    return 0;
  }
  const int32 dataLen = rcmd->m_dataLen;
  if (dataLen < 0 || total < kHeadLen + kCmdLen + static_cast<uint32>(dataLen)) {
    std::fprintf(stderr, "v2x_logtool: reply announces %d bytes of levels but holds fewer\n", dataLen);
    return 1;
  }
  const int32 tags = dataLen / static_cast<int32>(sizeof(v2xipc_logData));
  std::printf("%d tags:\n", tags);
  for (int32 i = 0; i < tags; ++i) {
    v2xipc_logData entry;
    std::memcpy(&entry, reinterpret_cast<const uint8*>(rcmd->m_logData) + i * sizeof(entry), sizeof(entry));
    std::printf("  %-8.8s %d\n", reinterpret_cast<const char*>(entry.m_tagName), entry.m_level);
  }
  return 0;
}
