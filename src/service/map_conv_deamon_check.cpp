// Service entry, start-up checks: the working directory's lock, the profile
// of a configuration that cannot be read, and `--check`.
#include "map_conv_deamon_check.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "map_conv_config.h"
#include "map_conv_mapdown_stage.h"
#include "map_conv_profile.h"
#include "v2xipc.h"

namespace {

std::string lockPath(const char* workDir) { return std::string(workDir) + "/" + MAP_CONV_LOCK_FILE; }

// The process id a lock file holds, as text ("?" when empty).
std::string holderOf(int fd) {
  char text[32] = {};
  const ssize_t n = pread(fd, text, sizeof(text) - 1, 0);
  std::string pid = n > 0 ? std::string(text, static_cast<size_t>(n)) : "";
  while (!pid.empty() && std::isspace(static_cast<unsigned char>(pid.back()))) pid.pop_back();
  return pid.empty() ? "?" : pid;
}

class Report {
 public:
  explicit Report(FILE* out) : out_(out) {}
  void problem(const char* fmt, ...) __attribute__((format(printf, 2, 3))) {
    va_list ap;
    va_start(ap, fmt);
    std::vfprintf(out_, fmt, ap);
    va_end(ap);
    std::fputc('\n', out_);
    ++count_;
  }
  int32 count() const { return count_; }

 private:
  FILE* out_;
  int32 count_ = 0;
};

// A directory the service writes into: it must be one, and writable.
void checkWritableDir(Report& r, const char* what, const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) {
    r.problem("%s %s: %s", what, path.c_str(), std::strerror(errno));
  } else if (!S_ISDIR(st.st_mode)) {
    r.problem("%s %s: not a directory", what, path.c_str());
  } else if (access(path.c_str(), W_OK | X_OK) != 0) {
    r.problem("%s %s: not writable: %s", what, path.c_str(), std::strerror(errno));
  }
}

void checkDeviceFile(Report& r, map_conv_config_t* cfg) {
  FILE* f = std::fopen(cfg->m_SysinfoName, "rb");
  if (f == nullptr) {
    r.problem("device file %s: %s", cfg->m_SysinfoName, std::strerror(errno));
    return;
  }
  std::fclose(f);
  if (v2xmapconv_GetSysinfo(cfg) != 0) {
    r.problem("device file %s: cannot be read", cfg->m_SysinfoName);
  } else if (cfg->m_sysinfo.m_device_id[0] == '\0') {
    r.problem("device file %s: no device_id of 1 to 31 characters", cfg->m_SysinfoName);
  }
}

// The map data directory; in the field also its parent, where the link to
// the current map version is replaced.
void checkMapDir(Report& r, const map_conv_config_t* cfg, map_conv_profile_e profile) {
  if (cfg->m_MapDataDir[0] == '\0') return;  // no map files are written
  char* path = nullptr;
  v2xmapconv_GetMapDataDir(cfg->m_MapDataDir, &path);
  std::string dir = path;
  struct stat st {};
  // In the field a missing directory or a link to nothing is what a killed
  // run may leave: the start repairs it.
  const bool repaired = profile == MAP_CONV_PROFILE_FIELD && (lstat(dir.c_str(), &st) != 0 || S_ISLNK(st.st_mode));
  if (!repaired) checkWritableDir(r, "map data directory", dir);
  if (profile == MAP_CONV_PROFILE_FIELD) {
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    const size_t slash = dir.rfind('/');
    checkWritableDir(r, "directory of the map data link", slash == std::string::npos ? "." : dir.substr(0, slash + 1));
    const std::string versions = dir + MAP_CONV_VERSIONS_SUFFIX;
    if (lstat(versions.c_str(), &st) == 0) checkWritableDir(r, "map versions directory", versions);
  }
}

// A local IPC socket: its port must be free on its address (0: any port).
void checkPort(Report& r, const v2x_ipc_config_t* conf, const char* name, uint16 port) {
  if (port == 0) return;
  char addr[V2XIPC_ADDR_LEN] = V2XIPC_DEFAULT_ADDR;
  for (uint16 i = 0; i < conf->m_bindNum && i < V2XIPC_MAX_ENDPOINTS; ++i)
    if (std::strcmp(conf->m_binds[i].m_name, name) == 0)
      std::snprintf(addr, sizeof(addr), "%s", conf->m_binds[i].m_addr);
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  if (inet_pton(AF_INET, addr, &sa.sin_addr) != 1) {
    r.problem("IPC socket %s: bind address %s is not an IPv4 address", name, addr);
    return;
  }
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) != 0)
    r.problem("IPC socket %s: cannot bind %s:%u: %s", name, addr, port, std::strerror(errno));
  if (fd >= 0) close(fd);
}

void checkIpc(Report& r, const char* workDir) {
  const std::string path = std::string(workDir) + "/" + V2XIPC_CFG_FILE;
  // A missing port file gives the built-in ports; a broken one is a problem.
  if (v2xipc_CfgInit(workDir) != 0 && access(path.c_str(), F_OK) == 0)
    r.problem("IPC port file %s: cannot be read or parsed", path.c_str());
  v2x_ipc_config_t* conf = nullptr;
  v2xipc_GetIpcConfValue(&conf);
  checkPort(r, conf, "MAP_CONV_SEND", conf->m_map_conv_sndport);
  checkPort(r, conf, "MAP_C_LOGTOOL", conf->m_mapconv_logtool_rcvport);
}

void checkLock(Report& r, const char* workDir) {
  const std::string path = lockPath(workDir);
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;  // never locked here
  if (flock(fd, LOCK_SH | LOCK_NB) != 0)
    r.problem("work directory %s: held by another running instance (pid %s)", workDir, holderOf(fd).c_str());
  close(fd);
}

}  // namespace

extern "C" {

int32 v2xmapconv_LockWorkDir(const char* workDir, char* holder, uint32 holderSize) {
  if (workDir == nullptr || holder == nullptr || holderSize == 0) return -2;
  holder[0] = '\0';
  const std::string path = lockPath(workDir);
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int err = errno;
    std::snprintf(holder, holderSize, "%s", holderOf(fd).c_str());
    close(fd);
    errno = err;
    return err == EWOULDBLOCK ? 1 : -1;
  }
  char pid[32];
  const int n = std::snprintf(pid, sizeof(pid), "%ld\n", static_cast<long>(getpid()));
  if (ftruncate(fd, 0) != 0 || pwrite(fd, pid, static_cast<size_t>(n), 0) != n) {
    // The lock itself holds; only the text for a second instance is missing.
  }
  return 0;  // the descriptor stays open: the lock lasts until the process ends
}

int32 v2xmapconv_PeekProfile(const char* cfgPath) {
  std::ifstream in(cfgPath != nullptr ? cfgPath : "");
  std::string line;
  while (std::getline(in, line)) {
    size_t p = line.find_first_not_of(" \t");
    if (p == std::string::npos || line.compare(p, 7, "profile") != 0) continue;
    p = line.find_first_not_of(" \t", p + 7);
    if (p == std::string::npos || (line[p] != '=' && line[p] != ':')) continue;
    const size_t open = line.find('"', p);
    const size_t close = open == std::string::npos ? open : line.find('"', open + 1);
    const std::string value = close == std::string::npos ? "" : line.substr(open + 1, close - open - 1);
    map_conv_profile_e profile = MAP_CONV_PROFILE_REFERENCE;
    if (v2xmapconv_ParseProfile(value.c_str(), &profile) != 0) return -1;
    return profile == MAP_CONV_PROFILE_FIELD ? 1 : 0;
  }
  return 0;
}

int32 v2xmapconv_CheckWorkDir(const char* workDir, FILE* out) {
  if (workDir == nullptr || out == nullptr) return -2;
  Report r(out);
  if (v2xmapconv_InitCfg(workDir) != 0) {
    r.problem("work directory %s: longer than %d characters", workDir, MAP_CONV_CFG_DIR_LEN - 1);
    return r.count();
  }
  char* cfgPath = nullptr;
  v2xmapconv_GetCfgDir(MAP_CONV_CFG_FILE, &cfgPath);
  const std::string path = cfgPath;
  map_conv_config_t cfg;
  map_conv_profile_e profile = MAP_CONV_PROFILE_REFERENCE;
  char missing[256];
  const int32 read = v2xmapconv_ReadCfgFile(&cfg, &profile, missing, sizeof(missing));
  if (read == 1) {
    r.problem("configuration %s: cannot be read or parsed", path.c_str());
  } else {
    if (read == 2) r.problem("configuration %s: profile must be \"reference\" or \"field\"", path.c_str());
    if (missing[0] != '\0') r.problem("configuration %s: missing or not a text: %s", path.c_str(), missing);
    checkDeviceFile(r, &cfg);
    char* confDir = nullptr;
    v2xmapconv_GetCfgDir("conf", &confDir);
    checkWritableDir(r, "configuration directory", confDir);
    checkMapDir(r, &cfg, profile);
  }
  checkIpc(r, workDir);
  checkLock(r, workDir);
  if (r.count() == 0) std::fprintf(out, "check OK: %s, profile %s\n", workDir, v2xmapconv_ProfileName(profile));
  return r.count();
}

}  // extern "C"
