// v2x_cloud_sim: the cloud platform and the RSU communication software as one
// DDS peer of v2x_map_convert, for tests, demonstrations and measurements.
//
// It publishes map documents on rsu/<id>/map/down (files given with --map, or
// realistic slices it generates with --gen), can publish a communication
// software status record, and prints every acknowledgement, map upload, map
// record and service status record it receives, one line each, decoded
// (acknowledgements and uploads with their whole text after raw=). With
// --ack-uploads it answers every upload on rsu/<id>/map/up/ack.
#include <cjson/cJSON.h>
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "map_conv_types.h"
#include "v2xdds.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kDomain = 200;

const char kUsage[] =
    "usage: v2x_cloud_sim --device ID [options]\n"
    "  --device ID              RSU device id (names the rsu/<ID>/... topics)\n"
    "  --map FILE               publish FILE on rsu/<ID>/map/down (repeat for several slices, sent in order)\n"
    "  --raw FILE               like --map, but FILE is sent as is, however long\n"
    "  --gen N                  publish a generated map of N slices (N..1), realistic intersections\n"
    "  --etag TEXT              eTag of generated slices (default sim-<time>)\n"
    "  --no-ack                 generated slices do not ask for an acknowledgement\n"
    "  --commsoft-status T,S    publish a communication software status record (service type T, run status S)\n"
    "  --ack-uploads            answer every map upload on rsu/<ID>/map/up/ack\n"
    "  --count N                end after N received records of --kind\n"
    "  --kind K                 what --count counts: ack, up, rsucloud, status or all (default all)\n"
    "  --timeout SEC            end after SEC seconds in any case (default 60)\n"
    "  --bench N                publish N generated one-slice maps, each after the last one's acknowledgement,\n"
    "                           and print the publish-to-acknowledgement times\n"
    "  --quiet                  print only the summary lines\n"
    "  -h, --help               print this text and exit\n"
    "  --version                print the version and exit\n"
    "Exit status: 0 done, 1 DDS or input failure, 2 usage, 3 time bound reached before --count.\n";

enum Kind { kAck, kUp, kRsuCloud, kStatus, kAll };

struct Options {
  bool help = false;
  bool version = false;
  std::string device;
  std::vector<std::pair<std::string, bool>> files;  // path, raw
  int gen = 0;
  std::string eTag;
  bool ack = true;
  bool commsoft = false;
  int commsoftType = 0;
  int commsoftStatus = 0;
  bool ackUploads = false;
  long count = -1;
  Kind kind = kAll;
  double timeout = 60;
  int bench = 0;
  bool quiet = false;
};

struct Topics {
  std::string down, downAck, up, upAck, rsuCloud;
  std::string statusIn = "/murel/v2x/cloud/service_status";   // the services' status
  std::string statusOut = "/murel/cloud/v2x/service_status";  // the communication software's
};

// ---- Received messages ----

// Joins the samples of one topic; a sample shorter than V2XDDS_SAMPLE_MAX
// ends a message (a zero tail after a full sample lands in the message).
struct Joiner {
  std::vector<uint8_t> buf;
  bool add(const void* data, unsigned len) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    buf.insert(buf.end(), p, p + len);
    return len < V2XDDS_SAMPLE_MAX;
  }
  std::string take() {
    std::string s(buf.begin(), buf.end());
    buf.clear();
    // A terminator the sender added is not part of the text.
    while (!s.empty() && s.back() == '\0') s.pop_back();
    return s;
  }
};

struct State {
  std::mutex m;
  std::condition_variable cv;
  long counts[kAll + 1] = {};
  std::vector<std::string> ackSeqNums;  // in arrival order
  Joiner ack, up, rsuCloud, status;
  void* dds = nullptr;
  Topics topics;
  Options opt;
};
State g;

void emit(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void emit(const char* fmt, ...) {
  if (g.opt.quiet) return;
  va_list ap;
  va_start(ap, fmt);
  std::vprintf(fmt, ap);
  va_end(ap);
  std::fflush(stdout);
}

void counted(Kind k) {
  {
    std::lock_guard<std::mutex> l(g.m);
    g.counts[k]++;
    g.counts[kAll]++;
  }
  g.cv.notify_all();
}

bool publish(const std::string& topic, const std::string& msg);

std::string jsonString(const cJSON* obj, const char* key) {
  const cJSON* item = cJSON_GetObjectItemCaseSensitive(obj, key);
  return cJSON_IsString(item) && item->valuestring != nullptr ? item->valuestring : "";
}

void onAck(void* data, unsigned int len) {
  if (!g.ack.add(data, len)) return;
  std::string text = g.ack.take();
  cJSON* root = cJSON_Parse(text.c_str());
  std::string seq = jsonString(root, "seqNum");
  const cJSON* code = cJSON_GetObjectItemCaseSensitive(root, "errorCode");
  if (root == nullptr)
    emit("ACK unreadable raw=%s\n", text.c_str());
  else if (cJSON_IsNumber(code))
    emit("ACK seqNum=%s errorCode=%d errorDesc=\"%s\" raw=%s\n", seq.c_str(), code->valueint,
         jsonString(root, "errorDesc").c_str(), text.c_str());
  else
    emit("ACK seqNum=%s ok raw=%s\n", seq.c_str(), text.c_str());
  cJSON_Delete(root);
  {
    std::lock_guard<std::mutex> l(g.m);
    g.ackSeqNums.push_back(seq);
  }
  counted(kAck);
}

void onUpload(void* data, unsigned int len) {
  if (!g.up.add(data, len)) return;
  std::string text = g.up.take();
  cJSON* root = cJSON_Parse(text.c_str());
  int nodes = -1;
  if (const cJSON* map = cJSON_GetObjectItemCaseSensitive(root, "map"))
    nodes = cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(map, "nodes"));
  std::string seq = jsonString(root, "seqNum");
  // The whole document as received, like the acknowledgements' raw text.
  if (root == nullptr)
    emit("UP unreadable bytes=%zu raw=%s\n", text.size(), text.c_str());
  else
    emit("UP seqNum=%s mapSlice=%s eTag=%s nodes=%d bytes=%zu raw=%s\n", seq.c_str(),
         jsonString(root, "mapSlice").c_str(), jsonString(root, "eTag").c_str(), nodes, text.size(), text.c_str());
  cJSON_Delete(root);
  if (g.opt.ackUploads) {
    cJSON* reply = cJSON_CreateObject();
    cJSON_AddStringToObject(reply, "seqNum", seq.c_str());
    char* replyText = cJSON_PrintUnformatted(reply);
    if (replyText != nullptr) publish(g.topics.upAck, replyText);
    cJSON_free(replyText);
    cJSON_Delete(reply);
  }
  counted(kUp);
}

void onRsuCloud(void* data, unsigned int len) {
  if (!g.rsuCloud.add(data, len)) return;
  std::vector<uint8_t> rec(g.rsuCloud.buf);
  g.rsuCloud.buf.clear();
  if (rec.size() < sizeof(map_to_rsucloud_t)) {
    emit("RSUCLOUD short record of %zu bytes\n", rec.size());
  } else {
    map_to_rsucloud_t r;
    std::memcpy(&r, rec.data(), sizeof(r));
    r.eTag[sizeof(r.eTag) - 1] = '\0';
    emit("RSUCLOUD mapSlice=%u eTag=%s\n", r.mapSlice, r.eTag);
  }
  counted(kRsuCloud);
}

void onStatus(void* data, unsigned int len) {
  if (!g.status.add(data, len)) return;
  std::vector<uint8_t> rec(g.status.buf);
  g.status.buf.clear();
  if (rec.size() < sizeof(service_status_t)) {
    emit("STATUS short record of %zu bytes\n", rec.size());
  } else {
    service_status_t s;
    std::memcpy(&s, rec.data(), sizeof(s));
    emit("STATUS service_type=%u run_status=%u tx_packet_count=%u rx_packet_count=%u bytes=%zu\n", s.service_type,
         s.run_status, static_cast<unsigned>(s.tx_packet_count), static_cast<unsigned>(s.rx_packet_count), rec.size());
  }
  counted(kStatus);
}

// ---- Documents ----

// One realistic slice: an intersection with four approaches, each with lanes,
// connections, speed limits, movements and curved point lists; a few kB of
// JSON that encodes well under the 4096-byte slice limit.
std::string generateSlice(int slice, const std::string& eTag, const std::string& seqNum, bool ack) {
  cJSON* root = cJSON_CreateObject();
  cJSON_AddStringToObject(root, "mapSlice", std::to_string(slice).c_str());
  cJSON_AddStringToObject(root, "eTag", eTag.c_str());
  cJSON_AddBoolToObject(root, "ack", ack);
  cJSON_AddStringToObject(root, "seqNum", seqNum.c_str());
  cJSON* map = cJSON_AddObjectToObject(root, "map");
  cJSON_AddNumberToObject(map, "timeStamp", 462346);
  cJSON* nodes = cJSON_AddArrayToObject(map, "nodes");
  const double lat0 = 31.2840 + 0.01 * slice, lon0 = 121.1650;
  const int nodeId = 100 + slice;
  cJSON* node = cJSON_CreateObject();
  cJSON_AddItemToArray(nodes, node);
  cJSON_AddStringToObject(node, "name", ("Cross" + std::to_string(slice)).c_str());
  cJSON* id = cJSON_AddObjectToObject(node, "id");
  cJSON_AddNumberToObject(id, "region", 1);
  cJSON_AddNumberToObject(id, "id", nodeId);
  cJSON* ref = cJSON_AddObjectToObject(node, "refPos");
  cJSON_AddNumberToObject(ref, "lon", lon0);
  cJSON_AddNumberToObject(ref, "lat", lat0);
  cJSON_AddNumberToObject(ref, "ele", 4.6);
  cJSON* links = cJSON_AddArrayToObject(node, "inLinks");
  const double dirs[4][2] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};  // approach from east, north, west, south
  for (int a = 0; a < 4; a++) {
    cJSON* link = cJSON_CreateObject();
    cJSON_AddItemToArray(links, link);
    cJSON_AddStringToObject(link, "name", ("Approach" + std::to_string(a)).c_str());
    cJSON* up = cJSON_AddObjectToObject(link, "upstreamNodeId");
    cJSON_AddNumberToObject(up, "region", 1);
    cJSON_AddNumberToObject(up, "id", nodeId * 10 + a);
    cJSON* sl = cJSON_AddArrayToObject(link, "speedLimits");
    cJSON* lim = cJSON_CreateObject();
    cJSON_AddStringToObject(lim, "type", "vehicleMaxSpeed");
    cJSON_AddNumberToObject(lim, "speed", 833);  // 60 km/h in 0.02 m/s
    cJSON_AddItemToArray(sl, lim);
    cJSON_AddNumberToObject(link, "linkWidth", 1050);
    cJSON* mv = cJSON_AddArrayToObject(link, "movements");
    for (int k = 0; k < 2; k++) {
      cJSON* m = cJSON_CreateObject();
      cJSON* ri = cJSON_AddObjectToObject(m, "remoteIntersection");
      cJSON_AddNumberToObject(ri, "region", 1);
      cJSON_AddNumberToObject(ri, "id", nodeId * 10 + (a + 1 + k) % 4);
      cJSON_AddNumberToObject(m, "phaseId", a * 2 + k + 1);
      cJSON_AddItemToArray(mv, m);
    }
    cJSON* lanes = cJSON_AddArrayToObject(link, "lanes");
    for (int l = 0; l < 3; l++) {
      cJSON* lane = cJSON_CreateObject();
      cJSON_AddItemToArray(lanes, lane);
      cJSON_AddNumberToObject(lane, "laneId", a * 10 + l + 1);
      cJSON_AddNumberToObject(lane, "laneWidth", 350);
      cJSON* attr = cJSON_AddObjectToObject(lane, "laneAttributes");
      cJSON_AddNumberToObject(attr, "shareWith", 0);
      cJSON* lt = cJSON_AddObjectToObject(attr, "laneType");
      cJSON_AddNumberToObject(lt, "vehicle", 0);
      cJSON_AddNumberToObject(lane, "maneuvers", l == 0 ? 2048 : (l == 1 ? 1024 : 512));
      cJSON* conn = cJSON_AddArrayToObject(lane, "connectsTo");
      cJSON* c = cJSON_CreateObject();
      cJSON* ri = cJSON_AddObjectToObject(c, "remoteIntersection");
      cJSON_AddNumberToObject(ri, "region", 1);
      cJSON_AddNumberToObject(ri, "id", nodeId * 10 + (a + l + 1) % 4);
      cJSON* cl = cJSON_AddObjectToObject(c, "connectingLane");
      cJSON_AddNumberToObject(cl, "laneId", ((a + l + 1) % 4) * 10 + 1);
      cJSON_AddNumberToObject(cl, "maneuvers", 2048);
      cJSON_AddNumberToObject(c, "phaseId", a * 2 + 1);
      cJSON_AddItemToArray(conn, c);
      cJSON* pts = cJSON_AddArrayToObject(lane, "points");
      for (int p = 0; p < 5; p++) {
        // From 80 m out to the stop line, offset sideways per lane.
        double along = (80.0 - 18.0 * p) * 1e-5, side = (l - 1) * 3.5e-5;
        cJSON* pt = cJSON_CreateObject();
        cJSON_AddNumberToObject(pt, "lon", lon0 + dirs[a][0] * along - dirs[a][1] * side);
        cJSON_AddNumberToObject(pt, "lat", lat0 + dirs[a][1] * along + dirs[a][0] * side);
        cJSON_AddNumberToObject(pt, "ele", 4.6);
        cJSON_AddItemToArray(pts, pt);
      }
    }
  }
  char* text = cJSON_PrintUnformatted(root);
  std::string s = text != nullptr ? text : "";
  cJSON_free(text);
  cJSON_Delete(root);
  return s;
}

bool readFileText(const std::string& path, std::string* out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::stringstream ss;
  ss << in.rdbuf();
  *out = ss.str();
  return true;
}

// Sends one message the way the service's receivers expect it: a message of
// a multiple of V2XDDS_SAMPLE_MAX bytes is ended by one zero byte.
bool publish(const std::string& topic, const std::string& msg) {
  if (dds_send(g.dds, topic.c_str(), msg.data(), static_cast<unsigned>(msg.size())) != 0) return false;
  if (msg.size() % V2XDDS_SAMPLE_MAX == 0) {
    uint8_t zero = 0;
    return dds_send(g.dds, topic.c_str(), &zero, 1) == 0;
  }
  return true;
}

bool waitMatched(const std::string& topic, Clock::time_point deadline) {
  while (get_match_cnt(g.dds, topic.c_str()) <= 0) {
    if (Clock::now() >= deadline) return false;
    usleep(10000);
  }
  return true;
}

// Waits until acknowledgement number n (counted from 1) has arrived.
bool waitAcks(size_t n, Clock::time_point deadline) {
  std::unique_lock<std::mutex> l(g.m);
  return g.cv.wait_until(l, deadline, [n] { return g.ackSeqNums.size() >= n; });
}

double percentile(std::vector<double> v, double p) {
  std::sort(v.begin(), v.end());
  size_t i = static_cast<size_t>(std::lround(p * static_cast<double>(v.size() - 1)));
  return v[std::min(i, v.size() - 1)];
}

int runBench(Clock::time_point deadline) {
  std::vector<double> ms;
  std::string stem = "bench-" + std::to_string(getpid()) + "-" + std::to_string(std::time(nullptr));
  size_t bytes = 0;
  for (int i = 0; i < g.opt.bench; i++) {
    std::string doc = generateSlice(1, stem + "-" + std::to_string(i), std::to_string(i), true);
    bytes = doc.size();
    auto t0 = Clock::now();
    if (!publish(g.topics.down, doc)) return 1;
    if (!waitAcks(static_cast<size_t>(i) + 1, std::min(deadline, Clock::now() + std::chrono::seconds(10)))) {
      std::printf("BENCH no acknowledgement for map %d\n", i);
      return 3;
    }
    ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
  }
  if (ms.empty()) return 0;
  std::printf("BENCH maps=%zu bytes=%zu median_ms=%.3f p90_ms=%.3f p99_ms=%.3f min_ms=%.3f max_ms=%.3f\n", ms.size(),
              bytes, percentile(ms, 0.5), percentile(ms, 0.9), percentile(ms, 0.99), percentile(ms, 0.0),
              percentile(ms, 1.0));
  std::fflush(stdout);
  return 0;
}

// Whole decimal numbers only: "12x" or "" are refused.
bool toLong(const char* s, long lo, long hi, long* out) {
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(s, &end, 10);
  if (errno != 0 || end == s || *end != '\0' || v < lo || v > hi) return false;
  *out = v;
  return true;
}

bool toInt(const char* s, int lo, int hi, int* out) {
  long v;
  if (!toLong(s, lo, hi, &v)) return false;
  *out = static_cast<int>(v);
  return true;
}

bool parseArgs(int argc, char** argv, Options* o) {
  enum {
    kDevice = 1,
    kMap,
    kRaw,
    kGen,
    kEtag,
    kNoAck,
    kCommsoft,
    kAckUploads,
    kCount,
    kKindOpt,
    kTimeout,
    kBench,
    kQuiet,
    kVersion
  };
  static const option longOpts[] = {
      {"device", required_argument, nullptr, kDevice},
      {"map", required_argument, nullptr, kMap},
      {"raw", required_argument, nullptr, kRaw},
      {"gen", required_argument, nullptr, kGen},
      {"etag", required_argument, nullptr, kEtag},
      {"no-ack", no_argument, nullptr, kNoAck},
      {"commsoft-status", required_argument, nullptr, kCommsoft},
      {"ack-uploads", no_argument, nullptr, kAckUploads},
      {"count", required_argument, nullptr, kCount},
      {"kind", required_argument, nullptr, kKindOpt},
      {"timeout", required_argument, nullptr, kTimeout},
      {"bench", required_argument, nullptr, kBench},
      {"quiet", no_argument, nullptr, kQuiet},
      {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, kVersion},
      {nullptr, 0, nullptr, 0},
  };
  int c;
  while ((c = getopt_long(argc, argv, "h", longOpts, nullptr)) != -1) {
    switch (c) {
      case kDevice: o->device = optarg; break;
      case kMap: o->files.emplace_back(optarg, false); break;
      case kRaw: o->files.emplace_back(optarg, true); break;
      case kGen:
        if (!toInt(optarg, 0, 255, &o->gen)) return false;
        break;
      case kEtag: o->eTag = optarg; break;
      case kNoAck: o->ack = false; break;
      case kCommsoft: {
        std::string v = optarg;
        size_t comma = v.find(',');
        if (comma == std::string::npos || !toInt(v.substr(0, comma).c_str(), 0, 255, &o->commsoftType) ||
            !toInt(v.substr(comma + 1).c_str(), 0, 255, &o->commsoftStatus))
          return false;
        o->commsoft = true;
        break;
      }
      case kAckUploads: o->ackUploads = true; break;
      case kCount:
        if (!toLong(optarg, 0, 1000000000L, &o->count)) return false;
        break;
      case kKindOpt: {
        static const char* names[] = {"ack", "up", "rsucloud", "status", "all"};
        int k = 0;
        while (k <= kAll && std::strcmp(optarg, names[k]) != 0) k++;
        if (k > kAll) return false;
        o->kind = static_cast<Kind>(k);
        break;
      }
      case kTimeout: {
        char* end = nullptr;
        o->timeout = std::strtod(optarg, &end);
        if (end == optarg || *end != '\0' || !(o->timeout > 0 && o->timeout <= 86400)) return false;
        break;
      }
      case kBench:
        if (!toInt(optarg, 0, 1000000, &o->bench)) return false;
        break;
      case kQuiet: o->quiet = true; break;
      case 'h': o->help = true; return true;
      case kVersion: o->version = true; return true;
      default: return false;
    }
  }
  return !o->device.empty() && optind == argc;
}

}  // namespace

int main(int argc, char** argv) {
  if (!parseArgs(argc, argv, &g.opt)) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (g.opt.help || g.opt.version) {
    std::fputs(g.opt.help ? kUsage : "v2x_cloud_sim " V2X_PACKAGE_VERSION "\n", stdout);
    return 0;
  }
  const Options& o = g.opt;
  auto deadline = Clock::now() + std::chrono::milliseconds(static_cast<long>(o.timeout * 1000));
  const std::string base = "rsu/" + o.device + "/map/";
  g.topics.down = base + "down";
  g.topics.downAck = base + "down/ack";
  g.topics.up = base + "up";
  g.topics.upAck = base + "up/ack";
  g.topics.rsuCloud = base + "rsucloud";

  std::vector<std::string> docs;
  for (const auto& f : o.files) {
    std::string text;
    if (!readFileText(f.first, &text)) {
      std::fprintf(stderr, "cannot read %s\n", f.first.c_str());
      return 1;
    }
    if (!f.second && text.size() > 9999)
      std::fprintf(stderr, "warning: %s has %zu bytes\n", f.first.c_str(), text.size());
    docs.push_back(std::move(text));
  }
  std::string eTag = o.eTag.empty() ? "sim-" + std::to_string(std::time(nullptr)) : o.eTag;
  for (int s = o.gen; s >= 1; s--) docs.push_back(generateSlice(s, eTag, std::to_string(o.gen - s + 1), o.ack));

  g.dds = create_dds();
  const Topics& t = g.topics;
  bool ok =
      dds_reg(g.dds, kDomain, t.down.c_str(), nullptr, 0) && dds_reg(g.dds, kDomain, t.upAck.c_str(), nullptr, 0) &&
      dds_reg(g.dds, kDomain, t.statusOut.c_str(), nullptr, 0) &&
      dds_reg(g.dds, kDomain, t.downAck.c_str(), onAck, 0) && dds_reg(g.dds, kDomain, t.up.c_str(), onUpload, 0) &&
      dds_reg(g.dds, kDomain, t.rsuCloud.c_str(), onRsuCloud, 0) &&
      dds_reg(g.dds, kDomain, t.statusIn.c_str(), onStatus, 0) && set_white_list_iface(g.dds, "127.0.0.1") == 0 &&
      dds_start(g.dds) == 0;
  if (!ok) {
    std::fprintf(stderr, "DDS set-up failed\n");
    destroy_dds(g.dds);
    return 1;
  }

  int rc = 0;
  if (o.commsoft) {
    // The status topic is shared by every RSU service on the domain: a match
    // there may be another service. Wait for this device's own map reader
    // first, so the record goes to the service meant (its endpoints are
    // discovered together), then for the status reader.
    if (!waitMatched(t.down, deadline) || !waitMatched(t.statusOut, deadline)) {
      std::printf("COMMSOFT no reader on %s\n", t.statusOut.c_str());
      rc = 1;
    } else {
      service_status_t st;
      std::memset(&st, 0, sizeof(st));
      st.service_type = static_cast<uint8>(o.commsoftType);
      st.run_status = static_cast<uint8>(o.commsoftStatus);
      std::string rec(reinterpret_cast<const char*>(&st), sizeof(st));
      publish(t.statusOut, rec);
      emit("COMMSOFT sent service_type=%d run_status=%d\n", o.commsoftType, o.commsoftStatus);
    }
  }
  if (rc == 0 && (!docs.empty() || o.bench > 0)) {
    if (!waitMatched(t.down, deadline)) {
      std::printf("PUBLISH no reader on %s\n", t.down.c_str());
      rc = 1;
    }
  }
  if (rc == 0) {
    for (const std::string& d : docs) {
      if (!publish(t.down, d)) {
        rc = 1;
        break;
      }
      emit("PUBLISHED topic=%s bytes=%zu\n", t.down.c_str(), d.size());
    }
  }
  if (rc == 0 && o.bench > 0) rc = runBench(deadline);

  if (rc == 0 && !(o.bench > 0 && o.count < 0)) {
    std::unique_lock<std::mutex> l(g.m);
    bool reached = g.cv.wait_until(l, deadline, [&] { return o.count >= 0 && g.counts[o.kind] >= o.count; });
    if (o.count >= 0 && !reached) rc = 3;
  }
  destroy_dds(g.dds);
  {
    std::lock_guard<std::mutex> l(g.m);
    std::printf("DONE acks=%ld uploads=%ld rsucloud=%ld status=%ld exit=%d\n", g.counts[kAck], g.counts[kUp],
                g.counts[kRsuCloud], g.counts[kStatus], rc);
  }
  return rc;
}
