// Map download storage under the field profile: every map is staged in a
// version directory of its own; storing its slice 1 swaps the map data
// directory's link to it with one rename(2) and removes the previous version.
// A transfer that breaks off, a failed slice or a crash leaves the previous
// map in place; the next start removes what was being staged.
#include "map_conv_mapdown_stage.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "map_conv_mapdown_detail.h"

using namespace v2xmapconv::mapdown::detail;

namespace {

constexpr int kFileIds = 256;
constexpr long kNoVersion = -1;

// Where the versions live, for one map data directory.
struct Layout {
  std::string link;      // the map data directory as configured: the link
  std::string base;      // its last component
  std::string parent;    // the directory holding the link
  std::string versions;  // link + ".versions"
  std::string linkTmp;   // the next link, before it is renamed over the old one
};

struct Stage {
  bool active = false;  // a map is being staged
  bool broken = false;  // one of its slices failed: it can no longer be completed
  char eTag[64] = {};
  int lastSlice = 0;  // slice number stored (or failed) last
  long version = kNoVersion;
  bool has[kFileIds] = {};
  v2xipc_mapRefresh_t notices[kFileIds] = {};
  alignas(std::atomic_ref<uint64>::required_alignment) uint64 stamp = 0;
};

// Module state, used by the map-down callback thread (and start-up before it
// runs): the layout found at start, the current version, the next number and
// the map being staged, and the notices of a map that became current.
bool g_recovered = false;
Layout g_layout;
long g_current = kNoVersion;
long g_next = 1;
Stage g_stage;
v2xipc_mapRefresh_t g_ready[kFileIds];
int g_readyCount = 0;
int g_readyNext = 0;

Layout layoutOf(const char* dataDir) {
  Layout l;
  l.link = dataDir;
  while (l.link.size() > 1 && l.link.back() == '/') l.link.pop_back();
  const size_t slash = l.link.rfind('/');
  l.base = slash == std::string::npos ? l.link : l.link.substr(slash + 1);
  l.parent = slash == std::string::npos ? "." : (slash == 0 ? "/" : l.link.substr(0, slash));
  l.versions = l.link + MAP_CONV_VERSIONS_SUFFIX;
  l.linkTmp = l.link + ".link-tmp";
  return l;
}

std::string versionPath(long version) { return g_layout.versions + "/" + std::to_string(version); }

// The version a directory entry names, or kNoVersion.
long versionNumber(const char* name) {
  if (name[0] < '1' || name[0] > '9') return kNoVersion;
  char* end = nullptr;
  errno = 0;
  const long n = std::strtol(name, &end, 10);
  return (errno == 0 && *end == '\0' && n > 0 && n < LONG_MAX) ? n : kNoVersion;
}

void syncDir(const std::string& dir) {
  const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

void removeVersion(long version) {
  const std::string path = versionPath(version);
  delete_directory(path.c_str());
  if (rmdir(path.c_str()) != 0 && errno != ENOENT)
    V2XLOG(&g_curTag, 3, "cannot remove map version %s: %s", path.c_str(), std::strerror(errno));
}

// Points the link at a version: a new link beside it, renamed over it.
bool pointLinkAt(long version) {
  const std::string target = g_layout.base + MAP_CONV_VERSIONS_SUFFIX + "/" + std::to_string(version);
  unlink(g_layout.linkTmp.c_str());
  if (symlink(target.c_str(), g_layout.linkTmp.c_str()) != 0 ||
      rename(g_layout.linkTmp.c_str(), g_layout.link.c_str()) != 0) {
    V2XLOG(&g_curTag, 2, "cannot point %s at %s: %s", g_layout.link.c_str(), target.c_str(), std::strerror(errno));
    unlink(g_layout.linkTmp.c_str());
    return false;
  }
  syncDir(g_layout.parent);
  return true;
}

// The version the link names, or kNoVersion (no link, or one of another kind).
long linkedVersion() {
  char target[PATH_MAX];
  const ssize_t n = readlink(g_layout.link.c_str(), target, sizeof(target) - 1);
  if (n <= 0) return kNoVersion;
  target[n] = '\0';
  const std::string prefix = g_layout.base + MAP_CONV_VERSIONS_SUFFIX + "/";
  if (std::strncmp(target, prefix.c_str(), prefix.size()) != 0) return kNoVersion;
  const long version = versionNumber(target + prefix.size());
  struct stat st {};
  return (version != kNoVersion && stat(versionPath(version).c_str(), &st) == 0 && S_ISDIR(st.st_mode)) ? version
                                                                                                        : kNoVersion;
}

// Removes every version but keep (with remove set); returns the highest
// number seen.
long scanVersions(long keep, bool remove) {
  long highest = keep;
  DIR* dir = opendir(g_layout.versions.c_str());
  if (dir == nullptr) return highest;
  std::string stale[64];
  int staleCount = 0;
  for (const dirent* e = readdir(dir); e != nullptr; e = readdir(dir)) {
    if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
    const long version = versionNumber(e->d_name);
    if (version > highest) highest = version;
    if (remove && version != keep && staleCount < 64) stale[staleCount++] = e->d_name;
  }
  closedir(dir);
  for (int i = 0; i < staleCount; ++i) {
    const std::string path = g_layout.versions + "/" + stale[i];
    V2XLOG(&g_curTag, 4, "removing %s, a map that was not completed", path.c_str());
    delete_directory(path.c_str());
    if (rmdir(path.c_str()) != 0) unlink(path.c_str());
  }
  return highest;
}

// Makes the layout (see the header) from whatever a previous run left.
int32 recover(const char* dataDir) {
  g_layout = layoutOf(dataDir);
  g_current = kNoVersion;
  g_stage = Stage{};
  g_readyCount = g_readyNext = 0;
  if (g_layout.base.empty() || g_layout.base == "." || g_layout.base == ".." || g_layout.base == "/") {
    V2XLOG(&g_curTag, 2, "map data directory %s cannot be versioned", dataDir);
    return -1;
  }
  if (mkdir(g_layout.versions.c_str(), 0755) != 0 && errno != EEXIST) {
    V2XLOG(&g_curTag, 2, "cannot make %s: %s", g_layout.versions.c_str(), std::strerror(errno));
    return -1;
  }
  unlink(g_layout.linkTmp.c_str());
  struct stat st {};
  const bool exists = lstat(g_layout.link.c_str(), &st) == 0;
  long keep = linkedVersion();
  const long highest = scanVersions(keep, false);
  g_next = (highest > 0 ? highest : 0) + 1;
  if (keep == kNoVersion && exists && S_ISDIR(st.st_mode)) {
    // A plain directory (the first start in the field): it becomes the first
    // version as it is. Killed between the two steps, the next start finds
    // no link and this version alone.
    keep = g_next++;
    if (rename(g_layout.link.c_str(), versionPath(keep).c_str()) != 0) {
      V2XLOG(&g_curTag, 2, "cannot move %s into %s: %s", dataDir, g_layout.versions.c_str(), std::strerror(errno));
      return -1;
    }
    V2XLOG(&g_curTag, 4, "map data directory %s is now a link to its versions in %s", dataDir,
           g_layout.versions.c_str());
  } else if (keep == kNoVersion && exists && !S_ISLNK(st.st_mode)) {
    V2XLOG(&g_curTag, 2, "map data directory %s is neither a directory nor a link", dataDir);
    return -1;
  } else if (keep == kNoVersion) {
    // No link, or one to nothing: the highest version left (a migration cut
    // short), or an empty map.
    struct stat vs {};
    if (highest > 0 && stat(versionPath(highest).c_str(), &vs) == 0 && S_ISDIR(vs.st_mode)) {
      keep = highest;
    } else {
      keep = g_next++;
      if (mkdir(versionPath(keep).c_str(), 0755) != 0) {
        V2XLOG(&g_curTag, 2, "cannot make %s: %s", versionPath(keep).c_str(), std::strerror(errno));
        return -1;
      }
    }
  }
  if (linkedVersion() != keep && !pointLinkAt(keep)) return -1;
  scanVersions(keep, true);
  g_current = keep;
  g_recovered = true;
  return 0;
}

void dropStage() {
  if (g_stage.version != kNoVersion) removeVersion(g_stage.version);
  g_stage = Stage{};
}

int32 startStage(const char* eTag) {
  dropStage();
  const long version = g_next++;
  if (mkdir(versionPath(version).c_str(), 0755) != 0) {
    V2XLOG(&g_curTag, 2, "cannot make %s: %s", versionPath(version).c_str(), std::strerror(errno));
    return -1;
  }
  g_stage.active = true;
  g_stage.version = version;
  copyText(g_stage.eTag, sizeof(g_stage.eTag), eTag);
  return 0;
}

// The staged map becomes current; its notices are queued for sending.
int32 switchToStage(uint64* stamp) {
  syncDir(versionPath(g_stage.version));
  if (!pointLinkAt(g_stage.version)) return -1;
  const long previous = g_current;
  g_current = g_stage.version;
  g_stage.version = kNoVersion;
  if (previous != kNoVersion) removeVersion(previous);
  g_readyCount = g_readyNext = 0;
  for (int id = kFileIds - 1; id >= 0; --id)
    if (g_stage.has[id]) g_ready[g_readyCount++] = g_stage.notices[id];
  if (stamp != nullptr) std::atomic_ref<uint64>(*stamp).store(g_stage.stamp);
  V2XLOG(&g_curTag, 4, "map %s is current: %s", g_stage.eTag, versionPath(g_current).c_str());
  g_stage = Stage{};
  return 0;
}

}  // namespace

namespace v2xmapconv::mapdown::detail {

int32 stageSlice(const char* dataDir, const map_conv_config_t* cfg, v2xcloud_map_data_t* map_data, const char* eTag,
                 uint64* stamp) {
  if (!g_recovered || g_layout.link != layoutOf(dataDir).link) {
    if (recover(dataDir) != 0) return -1;
  }
  const int slice = map_data->mapSlice;
  // Slices of one map come down to slice 1; a number that is not lower than
  // the last one's starts the map again.
  const bool sameMap = g_stage.active && std::strcmp(g_stage.eTag, eTag) == 0 && slice < g_stage.lastSlice;
  if (!sameMap) {
    if (startStage(eTag) != 0) return -1;
  } else if (g_stage.broken) {
    V2XLOG(&g_curTag, 2, "slice %d of map %s not stored: an earlier slice of it failed", slice, eTag);
    return -7;
  }
  g_stage.lastSlice = slice;
  const std::string dir = versionPath(g_stage.version);
  v2xipc_mapRefresh_t notice;
  std::memset(&notice, 0, sizeof(notice));
  int32 ret = writeSlice(dir.c_str(), cfg, map_data, eTag, &notice, &g_stage.stamp);
  if (ret == 0) {
    g_stage.has[notice.m_mapFileID] = true;
    g_stage.notices[notice.m_mapFileID] = notice;
    if (slice == 1) ret = switchToStage(stamp);
  }
  if (ret != 0) g_stage.broken = true;
  return ret;
}

#ifdef V2X_TEST_SEAMS
void resetStageForTest() {
  g_recovered = false;
  g_layout = Layout{};
  g_current = kNoVersion;
  g_next = 1;
  g_stage = Stage{};
  g_readyCount = g_readyNext = 0;
}
#endif

}  // namespace v2xmapconv::mapdown::detail

extern "C" {

int32 v2xmapconv_MapStoreRecover(void) {
  map_conv_config_t* cfg = nullptr;
  if (v2xmapconv_GetCfgData(&cfg) != 0 || cfg == nullptr) return -2;
  if (cfg->m_MapDataDir[0] == '\0') return 0;  // no map files at all
  char* dataDir = nullptr;
  v2xmapconv_GetMapDataDir(cfg->m_MapDataDir, &dataDir);
  return recover(dataDir);
}

int32 v2xmapconv_TakeMapRefresh(v2xipc_mapRefresh_t* notice) {
  if (notice == nullptr) return -2;
  if (g_readyNext >= g_readyCount) return 0;
  *notice = g_ready[g_readyNext++];
  return 1;
}

}  // extern "C"
