// Service entry: options, start-up sequence, signals and the main loop.
#include "map_conv_deamon.h"

#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "map_conv_config.h"
#include "map_conv_deamon_check.h"
#include "map_conv_interface.h"
#include "map_conv_mapdown_stage.h"
#include "map_conv_profile.h"
#include "map_conv_stack_interface.h"
#include "map_conv_v2xcloud_dds.h"
#include "v2xipc.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "MMAP"};

int32 g_logLevelFlag = 4;
char g_logfilePath[256] = "/opt/v2x_service/log/map_conv.log";
char g_workDir[256] = "/opt/v2x_service";
// Cleared by a stop signal, whichever thread the kernel runs the handler on.
std::atomic<bool> g_appRunningFlag{true};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler writes it");
// The handler also writes a byte here, so the main loop wakes at once.
int g_wakePipe[2] = {-1, -1};
int32 g_lopt = 0;
v2xcloud_comm_ddsinfo_t g_ddsinfo;
// The process's exit status: 0 in the reference behaviour; in the field a
// start-up that failed ends with 1, so the service manager sees the failure.
int32 g_exitStatus = 0;
// Option character of --check (it has no short form).
constexpr int kCheckOpt = 0x100;
bool g_checkOnly = false;

struct option g_longOpts[] = {
    {"help", no_argument, &g_lopt, 'h'},
    {"version", no_argument, &g_lopt, 'v'},
    {"loglevel", required_argument, &g_lopt, 'd'},
    {"logfile", required_argument, &g_lopt, 'f'},
    {"workdir", required_argument, &g_lopt, 'w'},
    {"check", no_argument, &g_lopt, kCheckOpt},
    {nullptr, 0, nullptr, 0},
};

const char g_help[4096] =
    " -h             print Help;\n"
    " -v version     v2x_map_convert version;\n"
    " -d loglevel    start with debug log level <level>,eg: \n"
    "                <v2x_map_convert -d 7>, start with all log level 7; \n"
    " -f logfile     start with debug log file <logfile>,eg: \n"
    "                <v2x_map_convert -f /opt/v2x_service/log/map_conv.log>; \n"
    " -w workdir     start with workdir,eg: \n"
    "                <v2x_map_convert -w /opt/v2x_service>;\n";

// Tags registered at start, in this order. The codec's "UPER" is left out on
// purpose: its lines follow the logger's default level.
const char* const kTags[] = {"UDPA", "TASK", "MQPS", "MCFG", "MDDS", "MMAP", "INTF",
                             "SINF", "DOWN", "MAPU", "VCFG", "GMAP", "LSKU", "VIPC"};

void copyArg(char* dst, size_t size, const char* arg) {
  std::memset(dst, 0, size);
  std::strncpy(dst, arg, size - 1);
}

// Async-signal-safe: formats with no allocation and writes with write(2).
void writeSignalLine(const char* name, int count) {
  char line[64];
  size_t n = 0;
  for (const char* p = "Caught "; *p != '\0'; ++p) line[n++] = *p;
  for (const char* p = name; *p != '\0'; ++p) line[n++] = *p;
  line[n++] = ' ';
  line[n++] = '(';
  char digits[12];
  size_t d = 0;
  unsigned v = count < 0 ? 0U : static_cast<unsigned>(count);
  do {
    digits[d++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0 && d < sizeof(digits));
  while (d > 0) line[n++] = digits[--d];
  line[n++] = ')';
  line[n++] = '\n';
  ssize_t ignored = write(STDOUT_FILENO, line, n);
  (void)ignored;
}

void sigHandler(int sig, siginfo_t* info, void* ucontext) {
  (void)info;
  (void)ucontext;
  static std::atomic<int32> count{0};
  switch (sig) {
    case SIGINT: writeSignalLine("SIGINT", ++count); break;
    case SIGQUIT: writeSignalLine("SIGQUIT", ++count); break;
    case SIGTERM: writeSignalLine("SIGTERM", ++count); break;
    default: writeSignalLine("default", count.load()); break;
  }
  g_appRunningFlag.store(false);
  if (g_wakePipe[1] >= 0) {
    ssize_t ignored = write(g_wakePipe[1], "", 1);
    (void)ignored;
  }
}

void v2xmapconv_signalsRegister(void) {
  if (pipe2(g_wakePipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    // The main loop still looks at the flag once a second.
    V2XLOG(&g_curTag, 3, "no wake-up pipe for the main loop: %s", std::strerror(errno));
    g_wakePipe[0] = g_wakePipe[1] = -1;
  }
  signal(SIGPIPE, SIG_IGN);
  struct sigaction act {};
  act.sa_sigaction = sigHandler;
  sigemptyset(&act.sa_mask);
  act.sa_flags = SA_SIGINFO;
  sigaction(SIGINT, &act, nullptr);
  sigaction(SIGQUIT, &act, nullptr);
  sigaction(SIGTERM, &act, nullptr);
}

// Files that a write cut short (a crash, a power loss) left beside the
// configuration and the map files; nothing else writes there yet.
void removeStaleTempFiles(const map_conv_config_t* cfg) {
  char* path = nullptr;
  v2xmapconv_GetCfgDir("conf", &path);
  v2xpub_RemoveStaleTempFiles(path);
  if (cfg->m_MapDataDir[0] != '\0') {
    v2xmapconv_GetMapDataDir(cfg->m_MapDataDir, &path);
    v2xpub_RemoveStaleTempFiles(path);
  }
}

// A start-up failure that ends the process with status 1: on standard error
// (the service manager's journal) and in the log.
void failStart(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void failStart(const char* fmt, ...) {
  char text[512];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(text, sizeof(text), fmt, ap);
  va_end(ap);
  V2XLOG(&g_curTag, 2, "%s; stopping", text);
  std::fprintf(stderr, "v2x_map_convert: %s; stopping\n", text);
  g_exitStatus = 1;
}

// Sleeps until a stop signal, looking at the flag at least once a second.
void waitForStop() {
  while (g_appRunningFlag.load()) {
    pollfd p{g_wakePipe[0], POLLIN, 0};
    if (poll(&p, g_wakePipe[0] >= 0 ? 1 : 0, 1000) > 0) {
      char drain[16];
      while (read(g_wakePipe[0], drain, sizeof(drain)) > 0) {
      }
    }
  }
}

}  // namespace

extern "C" {

int32 v2xmapconv_init(int32 argc, char** argv) {
  char cwd[256] = {};
  if (getcwd(cwd, sizeof(cwd)) == nullptr) cwd[0] = '\0';

  int opt_index = 0;
  int c;
  while ((c = getopt_long(argc, argv, "hvd:f:w:", g_longOpts, &opt_index)) != -1) {
    if (c > 0) g_lopt = c;
    switch (g_lopt) {
      case 'h': std::printf("%s", g_help); std::exit(0);
      case 'v': std::printf("version:%s\n", MAP_CONV_VERSION); std::exit(0);
      // A non-number gives level 0, as documented; a number out of range is
      // reported and leaves every tag at the default level.
      case 'd':
        g_logLevelFlag = std::atoi(optarg);  // NOLINT(cert-err34-c)
        if (g_logLevelFlag < 0 || g_logLevelFlag > V2XLOG_MAX_LEVEL)
          std::fprintf(stderr, "warning: log level %d is out of range 0-%d; the tags log at level %d\n", g_logLevelFlag,
                       V2XLOG_MAX_LEVEL, V2XLOG_DEFAULT_LEVEL);
        break;
      case 'f': copyArg(g_logfilePath, sizeof(g_logfilePath), optarg); break;
      case 'w': copyArg(g_workDir, sizeof(g_workDir), optarg); break;
      case kCheckOpt: g_checkOnly = true; break;
      default: std::printf("this param error\n"); break;
    }
  }
  std::fflush(stdout);
  if (g_checkOnly) {
    // Only the problem lines: the modules' own log lines stay silent.
    v2xlog_SetAllTagLevel(0);
    const int32 problems = v2xmapconv_CheckWorkDir(g_workDir, stdout);
    std::fflush(stdout);
    std::exit(problems == 0 ? 0 : 1);
  }

  v2xlog_Init(g_logfilePath, "MMAP", 1, 1, 0);
  v2xlog_SetRepeatWindow(V2XLOG_REPEAT_WINDOW_MS);
  for (const char* tag : kTags) v2xlog_SetTagLevel(v2xlog_AddTag(tag), g_logLevelFlag);
  V2XLOG(&g_curTag, 4, "%s starting, work directory %s, log level %d", MAP_CONV_VERSION, g_workDir, g_logLevelFlag);

  v2xipc_CfgInit(g_workDir);
  v2xmapconv_signalsRegister();
  if (v2xmapconv_InitCfg(g_workDir) != 0) {
    std::fprintf(stderr, "v2x_map_convert: work directory %s is longer than %d characters, refused; stopping\n",
                 g_workDir, MAP_CONV_CFG_DIR_LEN - 1);
  }
  v2xpub_PubSubInit();

  map_conv_config_t* p_mapconvcfg = nullptr;
  int32 ret = v2xmapconv_GetCfgData(&p_mapconvcfg);
  if (ret != 0) {
    // The profile of a file that could not be read comes from its text.
    char* cfgPath = nullptr;
    v2xmapconv_GetCfgDir(MAP_CONV_CFG_FILE, &cfgPath);
    if (v2xmapconv_IsFieldProfile()) {
      // The file was read and named the field profile: its device file failed.
      failStart("device file named in %s cannot be read", cfgPath);
    } else if (v2xmapconv_PeekProfile(cfgPath) != 0) {
      failStart("configuration %s cannot be read, or names an unknown profile", cfgPath);
    }
    g_appRunningFlag.store(false);
    return ret;
  }
  const bool field = v2xmapconv_IsFieldProfile() != 0;
  V2XLOG(&g_curTag, 4, "profile %s", v2xmapconv_ProfileName(v2xmapconv_GetProfile()));
  if (field) {
    char holder[32];
    const int32 locked = v2xmapconv_LockWorkDir(g_workDir, holder, sizeof(holder));
    if (locked != 0) {
      if (locked == 1) {
        failStart("work directory %s is held by another running instance (pid %s)", g_workDir, holder);
      } else {
        failStart("cannot lock work directory %s: %s", g_workDir, std::strerror(errno));
      }
      g_appRunningFlag.store(false);
      return -1;
    }
  }
  removeStaleTempFiles(p_mapconvcfg);
  // A failed recovery is logged; every map is then refused with code 18.
  if (field) v2xmapconv_MapStoreRecover();
  if (v2xmapconv_StackInterfaceInit() != 0 && field) {
    failStart("IPC sockets cannot be opened");
    g_appRunningFlag.store(false);
    return -1;
  }
  v2xmapconv_SetMapConvStatus(V2X_CONV_RUN_STATUS_AVAILABLE);
  v2xcloud_ddsInit(&g_ddsinfo, p_mapconvcfg->m_sysinfo.m_device_id);
  v2xmapconv_TaskInit();
  V2XLOG(&g_curTag, 4, "started, device id %s", p_mapconvcfg->m_sysinfo.m_device_id);
  return 0;
}

int32 v2xmapconv_exec(void) {
  waitForStop();
  V2XLOG(&g_curTag, 4, "stopping");
  const auto start = std::chrono::steady_clock::now();
  // Every thread ends before main returns. First whatever may wait: exchanges
  // with the V2X protocol process end at once, the DDS callbacks end and DDS
  // sends stop waiting for readers; then the tasks and the sockets.
  v2xmapconv_StackInterfaceStop();
  v2xcloud_ddsExit(&g_ddsinfo);
  v2xmapconv_TaskExit();
  v2xmapconv_StackInterfaceExit();
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  V2XLOG(&g_curTag, 4, "stopped in %lld ms", static_cast<long long>(ms.count()));
  v2xlog_Flush();
  return 0;
}

v2xcloud_comm_ddsinfo_t* v2xmapconv_GetddsInfo(void) { return &g_ddsinfo; }

int32 v2xmapconv_ExitStatus(void) { return g_exitStatus; }

}  // extern "C"
