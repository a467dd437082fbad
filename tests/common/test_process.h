// Test support: start a real program, read its output, signal it, wait for it
// with bounded waits. Header-only, for the process-level tests.
#pragma once

#include <elf.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace v2xtest {

// In a cross build the tests run under qemu-user (V2X_TEST_EMULATOR, the
// emulator's path; the target's libraries through QEMU_LD_PREFIX). Programs of
// the build are started through it too, so the kernel needs no binfmt_misc
// entry for them; host programs (/bin/sh, chromium) start as they are.
#ifdef V2X_TEST_EMULATOR
inline bool isTargetProgram(const std::string& path) {
  Elf32_Ehdr head{};  // e_machine sits at the same place in 32- and 64-bit headers
  std::ifstream in(path, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(&head), sizeof(head))) return false;
#if defined(__aarch64__)
  const int own = EM_AARCH64;
#elif defined(__arm__)
  const int own = EM_ARM;
#else
  const int own = -1;
#endif
  return std::memcmp(head.e_ident, ELFMAG, SELFMAG) == 0 && head.e_machine == own;
}

// argv as the kernel must see it: the emulator in front of a target program.
// "/proc/self/exe" would name the emulator in the new process: use the path.
inline std::vector<std::string> withEmulator(std::vector<std::string> argv) {
  if (argv.empty() || !isTargetProgram(argv[0])) return argv;
  if (argv[0] == "/proc/self/exe") {
    char self[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n > 0) argv[0].assign(self, static_cast<size_t>(n));
  }
  argv.insert(argv.begin(), V2X_TEST_EMULATOR);
  return argv;
}
// The words to put in front of a build program in a shell command line.
inline std::string shellPrefix() { return std::string("'") + V2X_TEST_EMULATOR + "' "; }
#else
inline std::vector<std::string> withEmulator(std::vector<std::string> argv) { return argv; }
inline std::string shellPrefix() { return {}; }
#endif

class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() {
    if (pid_ > 0 && !exited_) {
      ::kill(pid_, SIGKILL);
      int st = 0;
      ::waitpid(pid_, &st, 0);
    }
    if (outFd_ >= 0) ::close(outFd_);
  }

  // Starts argv[0] with the given arguments; extra environment as NAME=VALUE.
  // Standard output is captured; standard error goes to errFile (or /dev/null).
  bool start(const std::vector<std::string>& program, const std::vector<std::string>& env = {},
             const std::string& errFile = "/dev/null") {
    const std::vector<std::string> argv = withEmulator(program);
    int fds[2];
    if (::pipe(fds) != 0) return false;
    pid_ = ::fork();
    if (pid_ < 0) return false;
    if (pid_ == 0) {
      ::dup2(fds[1], STDOUT_FILENO);
      int err = ::open(errFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      if (err >= 0) ::dup2(err, STDERR_FILENO);
      ::close(fds[0]);
      ::close(fds[1]);
      for (const auto& e : env) ::putenv(const_cast<char*>(e.c_str()));
      std::vector<char*> args;
      for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
      args.push_back(nullptr);
      ::execv(args[0], args.data());
      ::_exit(127);
    }
    ::close(fds[1]);
    outFd_ = fds[0];
    return true;
  }

  pid_t pid() const { return pid_; }

  // Reads output until `needle` appears or the time bound passes.
  bool waitForOutput(const std::string& needle, std::chrono::milliseconds bound = std::chrono::seconds(20)) {
    auto end = std::chrono::steady_clock::now() + bound;
    while (out_.find(needle) == std::string::npos) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
      if (left.count() <= 0 || !readSome(static_cast<int>(left.count()))) return out_.find(needle) != std::string::npos;
    }
    return true;
  }

  bool signal(int sig) { return pid_ > 0 && !exited_ && ::kill(pid_, sig) == 0; }

  // Waits for the exit (bounded); drains the output. Returns the wait status or -1.
  int waitExit(std::chrono::milliseconds bound = std::chrono::seconds(20)) {
    auto end = std::chrono::steady_clock::now() + bound;
    while (std::chrono::steady_clock::now() < end) {
      int st = 0;
      pid_t r = ::waitpid(pid_, &st, WNOHANG);
      if (r == pid_) {
        exited_ = true;
        while (readSome(0)) {
        }
        return st;
      }
      readSome(50);
    }
    return -1;
  }

  const std::string& output() const { return out_; }

 private:
  // One bounded read; false on end of output or time-out.
  bool readSome(int timeoutMs) {
    if (outFd_ < 0) return false;
    pollfd p{outFd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0) return false;
    char buf[4096];
    ssize_t n = ::read(outFd_, buf, sizeof(buf));
    if (n <= 0) return false;
    out_.append(buf, static_cast<size_t>(n));
    return true;
  }

  pid_t pid_ = -1;
  int outFd_ = -1;
  bool exited_ = false;
  std::string out_;
};

// A fresh directory under the system's temporary directory, removed at the end.
class TempDir {
 public:
  TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "v2xtest.XXXXXX").string();
    path_ = ::mkdtemp(tmpl.data()) != nullptr ? tmpl : std::string();
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline void writeFile(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// Copies the sample working directory from etc/ into dir, as the run script does.
inline bool prepareWorkdir(const std::string& dir) {
  std::string cmd = std::string("bash ") + V2X_SOURCE_DIR + "/scripts/prepare-workdir.sh '" + dir + "' >/dev/null";
  return std::system(cmd.c_str()) == 0;
}

// A device id no other test process uses: tests run in parallel, and every
// service on DDS domain 200 meets every other under its device's topics.
inline std::string uniqueDevice(const std::string& stem) {
  static int serial = 0;
  return stem + "-" + std::to_string(::getpid()) + "." + std::to_string(++serial);
}

// The IPC port file of a working directory: the V2X protocol process listens
// at appRsPort (a port the test got from the kernel; 0: nobody), the service's
// own sockets get free ports from the kernel. No "bind" group: loopback.
inline void writeIpcConfig(const std::string& workDir, uint16_t appRsPort) {
  writeFile(workDir + "/conf/v2x_ipc_port.cfg",
            "ports : { m_app_rs_rcvport = " + std::to_string(appRsPort) +
                "; m_map_conv_sndport = 0; m_mapconv_logtool_rcvport = 0; };\n"
                "endpoints : { RSU_RCV = \"127.0.0.1\"; MAP_C_LOGTOOL = \"127.0.0.1\"; };\n");
}

// The sample working directory with its own device id and ports, for a
// service that runs beside other tests' services.
inline bool prepareWorkdir(const std::string& dir, const std::string& device, uint16_t appRsPort = 0) {
  if (!prepareWorkdir(dir)) return false;
  std::string sysinfo = readFile(dir + "/conf/rsu_sysinfo.xml");
  const size_t a = sysinfo.find("<device_id>"), b = sysinfo.find("</device_id>");
  if (a == std::string::npos || b == std::string::npos) return false;
  writeFile(dir + "/conf/rsu_sysinfo.xml", sysinfo.replace(a + 11, b - a - 11, device));
  writeIpcConfig(dir, appRsPort);
  return true;
}

// Sets the behaviour profile of a working directory's configuration.
inline void setProfile(const std::string& workDir, const std::string& profile) {
  const std::string cfg = workDir + "/conf/v2x_map_convert.cfg";
  writeFile(cfg, "profile = \"" + profile + "\";\n" + readFile(cfg));
}

inline size_t countOf(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + 1)) ++n;
  return n;
}

// Polls a file (bounded) until it holds `needle` `times` times.
inline bool waitForText(const std::string& path, const std::string& needle, size_t times = 1,
                        std::chrono::milliseconds bound = std::chrono::seconds(20)) {
  const auto end = std::chrono::steady_clock::now() + bound;
  while (countOf(readFile(path), needle) < times && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  return countOf(readFile(path), needle) >= times;
}

// The port a socket of the service got, from its log line (0: not found).
inline uint16_t loggedPort(const std::string& logText, const std::string& name, const std::string& key) {
  const size_t at = logText.find("socket " + name + " open on ");
  const size_t p = at == std::string::npos ? at : logText.find(key, at);
  return p == std::string::npos ? 0 : static_cast<uint16_t>(std::stoul(logText.substr(p + key.size())));
}
inline uint16_t loggedServerPort(const std::string& logText, const std::string& name) {
  return loggedPort(logText, name, "server port ");
}
inline uint16_t loggedClientPort(const std::string& logText, const std::string& name) {
  return loggedPort(logText, name, "client port ");
}

#ifdef V2X_SERVICE_BIN
// Starts the service on a working directory (log in log/map_conv.log, standard
// error in service.err) and waits until it reports that it has started.
inline bool startService(ChildProcess& p, const std::string& workDir, const std::vector<std::string>& extra = {},
                         const std::vector<std::string>& env = {}) {
  const std::string log = workDir + "/log/map_conv.log", started = "started, device id";
  const size_t before = countOf(readFile(log), started);
  std::vector<std::string> argv = {V2X_SERVICE_BIN, "-w", workDir, "-f", log};
  argv.insert(argv.end(), extra.begin(), extra.end());
  return p.start(argv, env, workDir + "/service.err") && waitForText(log, started, before + 1);
}
#endif

}  // namespace v2xtest
