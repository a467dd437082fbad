// Periodic tasks on their own threads, wall-clock time, atomic file writes.
#include "v2xpub.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "v2xlog.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "TASK"};

// Temporary files of an atomic write: "<target>.tmp" and mkstemp's six characters.
constexpr char kTempMark[] = ".tmp";
constexpr size_t kTempMarkLen = sizeof(kTempMark) - 1;
constexpr size_t kTempRandomLen = 6;

bool isTempName(const char* name) {
  const size_t n = std::strlen(name);
  if (n <= kTempMarkLen + kTempRandomLen) return false;  // a target name comes first
  const char* tail = name + n - kTempRandomLen;
  if (std::strncmp(tail - kTempMarkLen, kTempMark, kTempMarkLen) != 0) return false;
  for (size_t i = 0; i < kTempRandomLen; ++i) {
    const char c = tail[i];
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))) return false;
  }
  return true;
}

class PeriodicTask {
 public:
  explicit PeriodicTask(const v2xpub_TaskInitPara_t& para) : para_(para) {}

  bool start() {
    try {
      thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  }

  void stop() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) thread_.join();
  }

  uint64 runs() const { return runs_.load(std::memory_order_relaxed); }

 private:
  void run() {
    using clock = std::chrono::steady_clock;
    const auto period = std::chrono::microseconds(para_.m_intervals);
    if (para_.f_tskFunEnter != nullptr) para_.f_tskFunEnter(para_.mp_arg);
    auto next = clock::now() + period;
    for (;;) {
      {
        std::unique_lock lock(mutex_);
        if (cv_.wait_until(lock, next, [this] { return stopping_; })) break;
      }
      para_.f_tskFunExec(para_.mp_arg);
      runs_.fetch_add(1, std::memory_order_relaxed);
      if (para_.m_isOneShot) break;
      // Fixed rate: the next period starts one interval after the previous
      // start; periods missed by an overrunning routine are skipped.
      next += period;
      auto now = clock::now();
      if (next <= now) next += period * ((now - next) / period + 1);
    }
    if (para_.f_tskFunExit != nullptr) para_.f_tskFunExit(para_.mp_arg);
  }

  v2xpub_TaskInitPara_t para_;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable cv_;
  bool stopping_ = false;
  std::atomic<uint64> runs_{0};
};

}  // namespace

extern "C" {

int32 v2xpub_PubSubInit(void) { return 0; }

int32 v2xpub_TaskCreate(V2XPUB_TASKHANDLE* handle, const v2xpub_TaskInitPara_t* para) {
  if (handle == nullptr || para == nullptr || para->f_tskFunExec == nullptr || para->m_intervals == 0 ||
      para->m_eventTrigFlag) {
    return -2;
  }
  auto* task = new PeriodicTask(*para);
  if (!task->start()) {
    V2XLOG(&g_curTag, 2, "cannot start task %.32s", para->m_taskName);
    delete task;
    return -1;
  }
  V2XLOG(&g_curTag, 5, "task %.32s every %u us", para->m_taskName, para->m_intervals);
  *handle = task;
  return 0;
}

int32 v2xpub_TaskStop(V2XPUB_TASKHANDLE handle) {
  if (handle == nullptr) return -2;
  auto* task = static_cast<PeriodicTask*>(handle);
  task->stop();
  delete task;
  return 0;
}

uint64 v2xpub_TaskRunCount(V2XPUB_TASKHANDLE handle) {
  return handle != nullptr ? static_cast<PeriodicTask*>(handle)->runs() : 0;
}

uint64 v2xpub_CommGetCurrentTime64(void) {
  using namespace std::chrono;
  return static_cast<uint64>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

int32 v2xpub_WriteFileData(const char* path, const void* data, uint32 len) {
  if (path == nullptr || path[0] == '\0' || (data == nullptr && len != 0)) return -2;
  std::string tmp = std::string(path) + kTempMark + std::string(kTempRandomLen, 'X');
  int fd = mkstemp(tmp.data());
  if (fd < 0) {
    V2XLOG(&g_curTag, 2, "create temporary file for %s error: %s", path, std::strerror(errno));
    return -1;
  }
  const auto* p = static_cast<const unsigned char*>(data);
  uint32 left = len;
  bool ok = true;
  while (left > 0) {
    ssize_t n = write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = false;
      break;
    }
    p += n;
    left -= static_cast<uint32>(n);
  }
  ok = ok && fchmod(fd, 0644) == 0 && fsync(fd) == 0;
  ok = (close(fd) == 0) && ok;
  if (ok && rename(tmp.c_str(), path) != 0) ok = false;
  if (!ok) {
    V2XLOG(&g_curTag, 2, "write %s error: %s", path, std::strerror(errno));
    unlink(tmp.c_str());
    return -1;
  }
  // Make the rename itself durable.
  std::string dir = path;
  auto slash = dir.rfind('/');
  dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : dir.substr(0, slash));
  int dfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY);
  if (dfd >= 0) {
    fsync(dfd);
    close(dfd);
  }
  return 0;
}

int32 v2xpub_RemoveStaleTempFiles(const char* dir) {
  if (dir == nullptr || dir[0] == '\0') return -2;
  DIR* d = opendir(dir);
  if (d == nullptr) {
    V2XLOG(&g_curTag, 3, "cannot look for stale temporary files in %s: %s", dir, std::strerror(errno));
    return -1;
  }
  int32 removed = 0;
  while (const dirent* e = readdir(d)) {
    if (!isTempName(e->d_name)) continue;
    const std::string path = std::string(dir) + "/" + e->d_name;
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    if (unlink(path.c_str()) == 0) {
      V2XLOG(&g_curTag, 4, "removed %s, left by a write that did not finish", path.c_str());
      ++removed;
    } else {
      V2XLOG(&g_curTag, 3, "cannot remove %s: %s", path.c_str(), std::strerror(errno));
    }
  }
  closedir(d);
  return removed;
}

}  // extern "C"
