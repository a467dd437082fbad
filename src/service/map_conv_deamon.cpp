// Service entry: options, start-up sequence, signals and the main loop.
#include "map_conv_deamon.h"

#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "map_conv_config.h"
#include "map_conv_interface.h"
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
volatile sig_atomic_t g_appRunningFlag = 1;
int32 g_lopt = 0;
v2xcloud_comm_ddsinfo_t g_ddsinfo;

struct option g_longOpts[] = {
    {"help", no_argument, &g_lopt, 'h'},           {"version", no_argument, &g_lopt, 'v'},
    {"loglevel", required_argument, &g_lopt, 'd'}, {"logfile", required_argument, &g_lopt, 'f'},
    {"workdir", required_argument, &g_lopt, 'w'},  {nullptr, 0, nullptr, 0},
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
  static int32 count = 0;
  switch (sig) {
    case SIGINT: writeSignalLine("SIGINT", ++count); break;
    case SIGQUIT: writeSignalLine("SIGQUIT", ++count); break;
    case SIGTERM: writeSignalLine("SIGTERM", ++count); break;
    default: writeSignalLine("default", count); break;
  }
  g_appRunningFlag = 0;
}

void v2xmapconv_signalsRegister(void) {
  signal(SIGPIPE, SIG_IGN);
  struct sigaction act {};
  act.sa_sigaction = sigHandler;
  sigemptyset(&act.sa_mask);
  act.sa_flags = SA_SIGINFO;
  sigaction(SIGINT, &act, nullptr);
  sigaction(SIGQUIT, &act, nullptr);
  sigaction(SIGTERM, &act, nullptr);
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
      // No range check: a non-number gives level 0, as documented.
      case 'd':
        g_logLevelFlag = std::atoi(optarg);  // NOLINT(cert-err34-c)
        break;
      case 'f': copyArg(g_logfilePath, sizeof(g_logfilePath), optarg); break;
      case 'w': copyArg(g_workDir, sizeof(g_workDir), optarg); break;
      default: std::printf("this param error\n"); break;
    }
  }
  std::fflush(stdout);

  v2xlog_Init(g_logfilePath, "MMAP", 1, 1, 0);
  for (const char* tag : kTags) v2xlog_SetTagLevel(v2xlog_AddTag(tag), g_logLevelFlag);
  V2XLOG(&g_curTag, 4, "%s starting, work directory %s, log level %d", MAP_CONV_VERSION, g_workDir, g_logLevelFlag);

  v2xipc_CfgInit(g_workDir);
  v2xmapconv_signalsRegister();
  v2xmapconv_InitCfg(g_workDir);
  v2xpub_PubSubInit();

  map_conv_config_t* p_mapconvcfg = nullptr;
  int32 ret = v2xmapconv_GetCfgData(&p_mapconvcfg);
  if (ret != 0) {
    g_appRunningFlag = 0;
    return ret;
  }
  v2xmapconv_StackInterfaceInit();
  v2xmapconv_SetMapConvStatus(V2X_CONV_RUN_STATUS_AVAILABLE);
  v2xcloud_ddsInit(&g_ddsinfo, p_mapconvcfg->m_sysinfo.m_device_id);
  v2xmapconv_TaskInit();
  V2XLOG(&g_curTag, 4, "started, device id %s", p_mapconvcfg->m_sysinfo.m_device_id);
  return 0;
}

int32 v2xmapconv_exec(void) {
  // Whole one-second steps: a signal does not cut a step short, so a stop is
  // seen at the next step, at most a second later.
  while (g_appRunningFlag != 0) {
    struct timespec step = {1, 0};
    while (nanosleep(&step, &step) != 0 && errno == EINTR) {
    }
  }
  V2XLOG(&g_curTag, 4, "stopping");
  v2xcloud_ddsExit(&g_ddsinfo);
  v2xlog_Flush();
  return 0;
}

v2xcloud_comm_ddsinfo_t* v2xmapconv_GetddsInfo(void) { return &g_ddsinfo; }

}  // extern "C"
