// Local UDP IPC: the port configuration (libconfig file) and IPv4 UDP sockets,
// a server socket served by its own receive thread and a client socket for
// request/response exchanges.
#include "v2xipc.h"

#include <arpa/inet.h>
#include <libconfig.h>
#include <linux/errqueue.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "v2xlog.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "VIPC"};

using Clock = std::chrono::steady_clock;

void copyText(char* dst, size_t size, const char* src) { std::snprintf(dst, size, "%s", src != nullptr ? src : ""); }

bool parseAddr(const char* text, in_addr* out) {
  in_addr tmp{};
  if (text == nullptr || inet_pton(AF_INET, text, &tmp) != 1) return false;
  if (out != nullptr) *out = tmp;
  return true;
}

const v2xipc_endpoint_t* findEntry(const v2xipc_endpoint_t* list, uint16 num, const char* name) {
  for (uint16 i = 0; i < num && i < V2XIPC_MAX_ENDPOINTS; ++i)
    if (std::strncmp(list[i].m_name, name, V2XIPC_NAME_LEN) == 0) return &list[i];
  return nullptr;
}

void setEntry(v2xipc_endpoint_t* list, uint16* num, const char* name, const char* addr) {
  for (uint16 i = 0; i < *num; ++i) {
    if (std::strncmp(list[i].m_name, name, V2XIPC_NAME_LEN) == 0) {
      copyText(list[i].m_addr, sizeof(list[i].m_addr), addr);
      return;
    }
  }
  if (*num >= V2XIPC_MAX_ENDPOINTS) {
    V2XLOG(&g_curTag, 3, "more than %d addresses configured, %s ignored", V2XIPC_MAX_ENDPOINTS, name);
    return;
  }
  copyText(list[*num].m_name, sizeof(list[*num].m_name), name);
  copyText(list[*num].m_addr, sizeof(list[*num].m_addr), addr);
  ++*num;
}

v2x_ipc_config_t makeDefaults() {
  v2x_ipc_config_t conf;
  std::memset(&conf, 0, sizeof(conf));
  conf.m_map_conv_sndport = V2XIPC_DEFAULT_MAP_CONV_SNDPORT;
  conf.m_mapconv_logtool_rcvport = V2XIPC_DEFAULT_MAPCONV_LOGTOOL_RCVPORT;
  conf.m_app_rs_rcvport = V2XIPC_DEFAULT_APP_RS_RCVPORT;
  setEntry(conf.m_endpoints, &conf.m_endpointNum, "RSU_RCV", V2XIPC_DEFAULT_ADDR);
  setEntry(conf.m_endpoints, &conf.m_endpointNum, "MAP_C_LOGTOOL", V2XIPC_DEFAULT_ADDR);
  return conf;
}

v2x_ipc_config_t g_ipcConf = makeDefaults();

void readPort(const config_t* cfg, const char* key, uint16* port) {
  char path[96];
  std::snprintf(path, sizeof(path), "ports.%s", key);
  int value = 0;
  if (config_lookup_int(cfg, path, &value) == CONFIG_TRUE) {
    if (value >= 0 && value <= 65535) {
      *port = static_cast<uint16>(value);
      return;
    }
    V2XLOG(&g_curTag, 3, "%s = %d is not a port, default %u kept", path, value, *port);
  } else if (config_lookup(cfg, path) != nullptr) {
    V2XLOG(&g_curTag, 3, "%s is not an integer, default %u kept", path, *port);
  } else {
    V2XLOG(&g_curTag, 3, "%s missing, default %u kept", path, *port);
  }
}

// Reads a group of name = "IPv4 address" settings into a list.
void readAddrGroup(const config_t* cfg, const char* group, v2xipc_endpoint_t* list, uint16* num) {
  config_setting_t* g = config_lookup(cfg, group);
  if (g == nullptr) return;
  if (config_setting_is_group(g) != CONFIG_TRUE) {
    V2XLOG(&g_curTag, 3, "%s is not a group, ignored", group);
    return;
  }
  int count = config_setting_length(g);
  for (int i = 0; i < count; ++i) {
    config_setting_t* e = config_setting_get_elem(g, static_cast<unsigned int>(i));
    const char* name = e != nullptr ? config_setting_name(e) : nullptr;
    const char* addr = e != nullptr ? config_setting_get_string(e) : nullptr;
    if (name == nullptr) continue;
    if (std::strlen(name) >= V2XIPC_NAME_LEN || !parseAddr(addr, nullptr)) {
      V2XLOG(&g_curTag, 3, "%s.%s is not an IPv4 address text, ignored", group, name);
      continue;
    }
    setEntry(list, num, name, addr);
  }
}

int32 loadFile(const char* path) {
  v2x_ipc_config_t conf = makeDefaults();
  copyText(conf.m_cfgPath, sizeof(conf.m_cfgPath), path);
  config_t cfg;
  config_init(&cfg);
  if (config_read_file(&cfg, path) != CONFIG_TRUE) {
    if (config_error_type(&cfg) == CONFIG_ERR_FILE_IO) {
      V2XLOG(&g_curTag, 2, "IPC port configuration %s cannot be read, using default ports", path);
    } else {
      V2XLOG(&g_curTag, 2, "IPC port configuration %s line %d: %s; using default ports", path, config_error_line(&cfg),
             config_error_text(&cfg));
    }
    config_destroy(&cfg);
    g_ipcConf = conf;
    return -1;
  }
  readPort(&cfg, "m_map_conv_sndport", &conf.m_map_conv_sndport);
  readPort(&cfg, "m_mapconv_logtool_rcvport", &conf.m_mapconv_logtool_rcvport);
  readPort(&cfg, "m_app_rs_rcvport", &conf.m_app_rs_rcvport);
  readAddrGroup(&cfg, "endpoints", conf.m_endpoints, &conf.m_endpointNum);
  readAddrGroup(&cfg, "bind", conf.m_binds, &conf.m_bindNum);
  config_destroy(&cfg);
  conf.m_fromFile = true;
  g_ipcConf = conf;
  V2XLOG(&g_curTag, 4, "IPC ports from %s: map_conv_snd %u, map_conv_logtool %u, app_rs %u", path,
         conf.m_map_conv_sndport, conf.m_mapconv_logtool_rcvport, conf.m_app_rs_rcvport);
  return 0;
}

// ---------------------------------------------------------------- sockets

struct Sock {
  char name[V2XIPC_NAME_LEN] = {};
  int cliFd = -1;
  int svrFd = -1;
  int stopFd = -1;  // readable once the handle is shut down
  v2xipc_MsgFunc_t func = nullptr;
  std::thread rxThread;
  // One request/response exchange at a time; shutdown ends the wait for a turn.
  std::mutex turnMutex;
  std::condition_variable turnCv;
  bool busy = false;
  bool shutDown = false;
  std::mutex destMutex;
  sockaddr_in dest{};
  bool destSet = false;
};

const char* addrText(const sockaddr_in& a, char* buf, size_t size) {
  if (inet_ntop(AF_INET, &a.sin_addr, buf, static_cast<socklen_t>(size)) == nullptr) copyText(buf, size, "?");
  return buf;
}

int openUdp(const char* sockName, const in_addr& addr, uint16 port, bool reportErrors) {
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    V2XLOG(&g_curTag, 2, "socket %s: socket() failed: %s", sockName, std::strerror(errno));
    return -1;
  }
  // Lets a client learn at once that nobody listens at the destination
  // (ICMP port unreachable) instead of waiting out its time-out.
  int on = 1;
  if (reportErrors) setsockopt(fd, IPPROTO_IP, IP_RECVERR, &on, sizeof(on));
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_addr = addr;
  local.sin_port = htons(port);
  if (bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0) {
    char text[INET_ADDRSTRLEN];
    V2XLOG(&g_curTag, 2, "socket %s: bind %s:%u failed: %s", sockName, addrText(local, text, sizeof(text)), port,
           std::strerror(errno));
    close(fd);
    return -1;
  }
  return fd;
}

// Empties the socket's error queue and pending error; true when one of them
// says the destination refused (nobody listening).
bool takeErrors(int fd) {
  bool refused = false;
  for (;;) {
    char data[64];
    alignas(cmsghdr) char control[512];
    iovec iov{data, sizeof(data)};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    if (recvmsg(fd, &msg, MSG_ERRQUEUE | MSG_DONTWAIT) < 0) break;
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
      if (c->cmsg_level != IPPROTO_IP || c->cmsg_type != IP_RECVERR) continue;
      sock_extended_err ee;
      std::memcpy(&ee, CMSG_DATA(c), sizeof(ee));
      if (ee.ee_errno == ECONNREFUSED || ee.ee_errno == EHOSTUNREACH || ee.ee_errno == ENETUNREACH) refused = true;
    }
  }
  int err = 0;
  socklen_t len = sizeof(err);
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) == 0 && err == ECONNREFUSED) refused = true;
  return refused;
}

// Discards whatever arrived while no exchange was open: late answers to
// requests that timed out, strays, old errors.
void drainStale(Sock* s) {
  uint8 scratch[64];
  int dropped = 0;
  for (;;) {
    if (recv(s->cliFd, scratch, sizeof(scratch), MSG_DONTWAIT) >= 0) {
      ++dropped;
    } else if (errno != ECONNREFUSED && errno != EINTR) {
      break;
    }
  }
  takeErrors(s->cliFd);
  if (dropped > 0) V2XLOG(&g_curTag, 4, "socket %s: %d stale datagram(s) discarded", s->name, dropped);
}

bool sameAddr(const sockaddr_in& a, const sockaddr_in& b) {
  return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

void rxLoop(Sock* s) {
  std::vector<uint8> buf(V2XIPC_MSG_MAX);
  pollfd fds[2] = {{s->svrFd, POLLIN, 0}, {s->stopFd, POLLIN, 0}};
  for (;;) {
    int r = poll(fds, 2, -1);
    if (r < 0) {
      if (errno == EINTR) continue;
      V2XLOG(&g_curTag, 2, "socket %s: poll failed: %s", s->name, std::strerror(errno));
      return;
    }
    if (fds[1].revents != 0) return;
    if ((fds[0].revents & POLLNVAL) != 0) return;
    if ((fds[0].revents & POLLERR) != 0) takeErrors(s->svrFd);
    if ((fds[0].revents & POLLIN) == 0) continue;
    sockaddr_in from{};
    socklen_t fromLen = sizeof(from);
    ssize_t n = recvfrom(s->svrFd, buf.data(), buf.size(), MSG_DONTWAIT | MSG_TRUNC, reinterpret_cast<sockaddr*>(&from),
                         &fromLen);
    if (n < 0) continue;
    if (n > V2XIPC_MSG_MAX) {
      char text[INET_ADDRSTRLEN];
      V2XLOG(&g_curTag, 1, "socket %s: datagram of %zd bytes from %s:%u exceeds %d, dropped", s->name, n,
             addrText(from, text, sizeof(text)), ntohs(from.sin_port), V2XIPC_MSG_MAX);
      continue;
    }
    v2xpub_UdpSocketDataHead_t packet{static_cast<int16>(n), buf.data()};
    s->func(s, &packet, &from, static_cast<int16_t>(fromLen));
  }
}

// Wakes every wait on the handle for good: the receive thread, an exchange
// waiting for its answer and one waiting for its turn.
void shutDown(Sock* s) {
  {
    std::lock_guard lock(s->turnMutex);
    if (s->shutDown) return;
    s->shutDown = true;
  }
  s->turnCv.notify_all();
  uint64_t one = 1;
  if (s->stopFd >= 0) {
    ssize_t w = write(s->stopFd, &one, sizeof(one));
    (void)w;
  }
}

void closeSock(Sock* s) {
  shutDown(s);
  if (s->rxThread.joinable()) s->rxThread.join();
  for (int fd : {s->cliFd, s->svrFd, s->stopFd})
    if (fd >= 0) close(fd);
  delete s;
}

uint16 localPort(int fd) {
  sockaddr_in a{};
  socklen_t len = sizeof(a);
  if (fd < 0 || getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) return 0;
  return ntohs(a.sin_port);
}

// Takes the handle's exchange turn, waiting until the deadline at most.
int32 takeTurn(Sock* s, Clock::time_point deadline) {
  std::unique_lock lock(s->turnMutex);
  if (!s->turnCv.wait_until(lock, deadline, [s] { return s->shutDown || !s->busy; })) return V2XIPC_ERR_TIMEOUT;
  if (s->shutDown) return V2XIPC_ERR_CLOSED;
  s->busy = true;
  return V2XIPC_OK;
}

void giveTurn(Sock* s) {
  {
    std::lock_guard lock(s->turnMutex);
    s->busy = false;
  }
  s->turnCv.notify_one();
}

// One datagram from the client socket to dest.
int32 sendTo(Sock* s, const sockaddr_in& dest, const v2xpub_UdpSocketDataHead_t* send) {
  if (sendto(s->cliFd, send->mp_data, static_cast<size_t>(send->m_curMsgLen), 0,
             reinterpret_cast<const sockaddr*>(&dest), sizeof(dest)) >= 0)
    return V2XIPC_OK;
  int err = errno;
  char text[INET_ADDRSTRLEN];
  V2XLOG(&g_curTag, 3, "socket %s: send to %s:%u failed: %s", s->name, addrText(dest, text, sizeof(text)),
         ntohs(dest.sin_port), std::strerror(err));
  return err == ECONNREFUSED ? V2XIPC_ERR_REFUSED : V2XIPC_ERR_SYS;
}

// One exchange on the client socket, the turn held: send, then wait for the
// destination's answer until the deadline or a shutdown.
int32 exchange(Sock* s, Clock::time_point deadline, v2xpub_UdpSocketDataHead_t* send,
               v2xpub_UdpSocketDataHead_t* recv) {
  sockaddr_in dest{};
  {
    std::lock_guard destLock(s->destMutex);
    if (!s->destSet) return V2XIPC_ERR_NODEST;
    dest = s->dest;
  }
  drainStale(s);
  char text[INET_ADDRSTRLEN];
  int32 sent = sendTo(s, dest, send);
  if (sent != V2XIPC_OK) return sent;

  const size_t capacity = static_cast<size_t>(recv->m_curMsgLen);
  for (;;) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return V2XIPC_ERR_TIMEOUT;
    pollfd p[2] = {{s->cliFd, POLLIN, 0}, {s->stopFd, POLLIN, 0}};
    int r = poll(p, 2, static_cast<int>(left));
    if (r < 0) {
      if (errno == EINTR) continue;
      return V2XIPC_ERR_SYS;
    }
    if (r == 0) return V2XIPC_ERR_TIMEOUT;
    if (p[1].revents != 0) return V2XIPC_ERR_CLOSED;
    if ((p[0].revents & POLLERR) != 0 && takeErrors(s->cliFd)) return V2XIPC_ERR_REFUSED;
    if ((p[0].revents & POLLIN) == 0) continue;
    sockaddr_in from{};
    socklen_t fromLen = sizeof(from);
    ssize_t n = recvfrom(s->cliFd, recv->mp_data, capacity, MSG_DONTWAIT | MSG_TRUNC,
                         reinterpret_cast<sockaddr*>(&from), &fromLen);
    if (n < 0) {
      if (errno == ECONNREFUSED) {
        takeErrors(s->cliFd);
        return V2XIPC_ERR_REFUSED;
      }
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) continue;
      return V2XIPC_ERR_SYS;
    }
    if (!sameAddr(from, dest)) {
      V2XLOG(&g_curTag, 4, "socket %s: datagram from %s:%u discarded (not the destination)", s->name,
             addrText(from, text, sizeof(text)), ntohs(from.sin_port));
      continue;
    }
    if (static_cast<size_t>(n) > capacity) {
      V2XLOG(&g_curTag, 2, "socket %s: response of %zd bytes exceeds the buffer of %zu", s->name, n, capacity);
      return V2XIPC_ERR_TOOBIG;
    }
    recv->m_curMsgLen = static_cast<int16>(n);
    return V2XIPC_OK;
  }
}

}  // namespace

extern "C" {

int32 v2xipc_CfgInit(const char* workDir) {
  if (workDir == nullptr) return -2;
  char path[512];
  std::snprintf(path, sizeof(path), "%s/%s", workDir, V2XIPC_CFG_FILE);
  return loadFile(path);
}

int32 v2xipc_CfgInitFile(const char* path) {
  if (path == nullptr) return -2;
  return loadFile(path);
}

int32 v2xipc_GetIpcConfValue(v2x_ipc_config_t** conf) {
  if (conf == nullptr) return -2;
  *conf = &g_ipcConf;
  return 0;
}

int32 v2xipc_GetEndpointAddr(const v2x_ipc_config_t* conf, const char* name, char* addr) {
  if (conf == nullptr || name == nullptr || addr == nullptr) return -2;
  const v2xipc_endpoint_t* e = findEntry(conf->m_endpoints, conf->m_endpointNum, name);
  if (e == nullptr) return -2;
  copyText(addr, V2XIPC_ADDR_LEN, e->m_addr);
  return 0;
}

int32 v2xipc_SocketInit(V2X_UDPSOCKHANDLE* handle, v2x_ipc_config_t* conf, v2xpub_SocketInitPara_t* para) {
  if (handle == nullptr || para == nullptr) return V2XIPC_ERR_PARAM;
  if (conf == nullptr) conf = &g_ipcConf;
  char name[V2XIPC_NAME_LEN];
  std::snprintf(name, sizeof(name), "%.*s", static_cast<int>(sizeof(para->m_sockName)), para->m_sockName);
  if (para->m_svrEnable == 0 && para->m_cliEnable == 0) {
    V2XLOG(&g_curTag, 2, "socket %s: neither server nor client enabled", name);
    return V2XIPC_ERR_PARAM;
  }
  if (para->m_svrEnable != 0 && para->f_msgFunc == nullptr) {
    V2XLOG(&g_curTag, 2, "socket %s: server without a receive routine", name);
    return V2XIPC_ERR_PARAM;
  }
  char localText[V2XIPC_ADDR_LEN];
  const v2xipc_endpoint_t* over = findEntry(conf->m_binds, conf->m_bindNum, name);
  if (over != nullptr) {
    copyText(localText, sizeof(localText), over->m_addr);
  } else {
    std::snprintf(localText, sizeof(localText), "%.*s", static_cast<int>(sizeof(para->m_localIP)), para->m_localIP);
    if (localText[0] == '\0') copyText(localText, sizeof(localText), V2XIPC_DEFAULT_ADDR);
  }
  in_addr local{};
  if (!parseAddr(localText, &local)) {
    V2XLOG(&g_curTag, 2, "socket %s: bind address \"%s\" is not an IPv4 address", name, localText);
    return V2XIPC_ERR_PARAM;
  }

  Sock* s = new (std::nothrow) Sock;
  if (s == nullptr) return V2XIPC_ERR_SYS;
  copyText(s->name, sizeof(s->name), name);
  s->func = para->f_msgFunc;
  s->stopFd = eventfd(0, EFD_CLOEXEC);
  if (s->stopFd < 0) {
    V2XLOG(&g_curTag, 2, "socket %s: eventfd failed: %s", name, std::strerror(errno));
    closeSock(s);
    return V2XIPC_ERR_SYS;
  }
  if (para->m_cliEnable != 0) {
    s->cliFd = openUdp(name, local, para->m_cliPort, true);
    if (s->cliFd < 0) {
      closeSock(s);
      return V2XIPC_ERR_SYS;
    }
  }
  if (para->m_svrEnable != 0) {
    s->svrFd = openUdp(name, local, para->m_svrPort, false);
    if (s->svrFd < 0) {
      closeSock(s);
      return V2XIPC_ERR_SYS;
    }
    try {
      s->rxThread = std::thread(rxLoop, s);
    } catch (const std::system_error& e) {
      V2XLOG(&g_curTag, 2, "socket %s: receive thread not started: %s", name, e.what());
      closeSock(s);
      return V2XIPC_ERR_SYS;
    }
  }
  // The ports actually bound: a port of 0 in the configuration lets the kernel choose.
  V2XLOG(&g_curTag, 4, "socket %s open on %s: client port %u%s, server port %u%s", name, localText, localPort(s->cliFd),
         para->m_cliEnable != 0 ? "" : " (off)", localPort(s->svrFd), para->m_svrEnable != 0 ? "" : " (off)");
  *handle = s;
  return V2XIPC_OK;
}

int32 v2xipc_SocketSetSendAddr(V2X_UDPSOCKHANDLE handle, v2x_ipc_config_t* conf, const char* name, uint16 port) {
  if (handle == nullptr || name == nullptr) return V2XIPC_ERR_PARAM;
  if (conf == nullptr) conf = &g_ipcConf;
  Sock* s = static_cast<Sock*>(handle);
  const v2xipc_endpoint_t* e = findEntry(conf->m_endpoints, conf->m_endpointNum, name);
  in_addr addr{};
  if (!parseAddr(e != nullptr ? e->m_addr : name, &addr)) {
    V2XLOG(&g_curTag, 2, "socket %s: unknown endpoint %s", s->name, name);
    return V2XIPC_ERR_PARAM;
  }
  std::lock_guard lock(s->destMutex);
  s->dest = sockaddr_in{};
  s->dest.sin_family = AF_INET;
  s->dest.sin_addr = addr;
  s->dest.sin_port = htons(port);
  s->destSet = true;
  return V2XIPC_OK;
}

int32 v2xipc_SocketReqSend(V2X_UDPSOCKHANDLE handle, v2x_ipc_config_t* conf, int32 timeoutMs,
                           v2xpub_UdpSocketDataHead_t* send, v2xpub_UdpSocketDataHead_t* recv) {
  (void)conf;
  if (handle == nullptr || send == nullptr || send->mp_data == nullptr || send->m_curMsgLen <= 0 || timeoutMs <= 0 ||
      recv == nullptr || recv->mp_data == nullptr || recv->m_curMsgLen <= 0)
    return V2XIPC_ERR_PARAM;
  Sock* s = static_cast<Sock*>(handle);
  if (s->cliFd < 0) {
    V2XLOG(&g_curTag, 2, "socket %s has no client side", s->name);
    return V2XIPC_ERR_PARAM;
  }
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  int32 ret = takeTurn(s, deadline);
  if (ret != V2XIPC_OK) return ret;
  ret = exchange(s, deadline, send, recv);
  giveTurn(s);
  return ret;
}

int32 v2xipc_SocketSend(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketDataHead_t* send) {
  if (handle == nullptr || send == nullptr || send->mp_data == nullptr || send->m_curMsgLen <= 0)
    return V2XIPC_ERR_PARAM;
  Sock* s = static_cast<Sock*>(handle);
  if (s->cliFd < 0) {
    V2XLOG(&g_curTag, 2, "socket %s has no client side", s->name);
    return V2XIPC_ERR_PARAM;
  }
  {
    std::lock_guard lock(s->turnMutex);
    if (s->shutDown) return V2XIPC_ERR_CLOSED;
  }
  sockaddr_in dest{};
  {
    std::lock_guard destLock(s->destMutex);
    if (!s->destSet) return V2XIPC_ERR_NODEST;
    dest = s->dest;
  }
  return sendTo(s, dest, send);
}

int32 v2xipc_SocketRespSend(V2X_UDPSOCKHANDLE handle, v2x_ipc_config_t* conf, v2xpub_UdpSocketDataHead_t* data,
                            void* addr, int16_t addrLen) {
  (void)conf;
  if (handle == nullptr || data == nullptr || data->mp_data == nullptr || data->m_curMsgLen <= 0 || addr == nullptr ||
      addrLen < static_cast<int16_t>(sizeof(sockaddr_in)))
    return V2XIPC_ERR_PARAM;
  Sock* s = static_cast<Sock*>(handle);
  int fd = s->svrFd >= 0 ? s->svrFd : s->cliFd;
  if (sendto(fd, data->mp_data, static_cast<size_t>(data->m_curMsgLen), 0, static_cast<const sockaddr*>(addr),
             static_cast<socklen_t>(addrLen)) < 0) {
    int err = errno;
    V2XLOG(&g_curTag, 3, "socket %s: reply of %d bytes not sent: %s", s->name, data->m_curMsgLen, std::strerror(err));
    return err == ECONNREFUSED ? V2XIPC_ERR_REFUSED : V2XIPC_ERR_SYS;
  }
  return V2XIPC_OK;
}

int32 v2xipc_SocketShutdown(V2X_UDPSOCKHANDLE handle) {
  if (handle == nullptr) return V2XIPC_ERR_PARAM;
  shutDown(static_cast<Sock*>(handle));
  return V2XIPC_OK;
}

uint16 v2xipc_SocketLocalPort(V2X_UDPSOCKHANDLE handle, int8 server) {
  if (handle == nullptr) return 0;
  const Sock* s = static_cast<const Sock*>(handle);
  return localPort(server != 0 ? s->svrFd : s->cliFd);
}

int32 v2xipc_SocketClose(V2X_UDPSOCKHANDLE handle) {
  if (handle == nullptr) return V2XIPC_ERR_PARAM;
  closeSock(static_cast<Sock*>(handle));
  return V2XIPC_OK;
}

}  // extern "C"
