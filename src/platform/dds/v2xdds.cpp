// DDS wrapper over Eclipse Cyclone DDS (C API): byte messages cut into
// samples of at most V2XDDS_SAMPLE_MAX bytes, reliable and in order, with a
// dispatch thread per object that runs the receive callbacks.
#include "v2xdds.h"

#include <arpa/inet.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dds/dds.h"
#include "v2xdds_sample.h"
#include "v2xlog.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "VDDS"};

// A blocked write (readers' history full) waits this long per attempt, and a
// sample is attempted this many times (10 s in all) before the message is
// given up; a stopped object gives up after the attempt in progress.
constexpr dds_duration_t kMaxBlocking = DDS_MSECS(100);
constexpr int kWriteAttempts = 100;
// Reader history for keep-all topics: samples held by DDS while the dispatch
// queue is full. When it is full too, the remote writer waits.
constexpr int32_t kReaderMaxSamples = 4096;
// Discovery looks for peers on this many participant indices of the address.
constexpr int kMaxParticipantIndex = 40;
// Samples taken per dds_take call.
constexpr int32_t kTakeBatch = 32;

// Longest wait, all writers together, for readers to acknowledge at exit. A
// live reader on loopback answers within milliseconds; a reader that vanished
// without leaving (killed, stopped) is not waited for longer than this.
constexpr int kExitAckWaitMs = 300;

struct Object;

struct Topic {
  Object* owner = nullptr;
  std::string name;     // as the caller knows it
  std::string ddsName;  // after v2xdds_MapTopicName
  dds_recv_cb* callback = nullptr;
  bool publish = false;
  int32 histKind = V2XDDS_HISTORY_KEEP_ALL;
  int32 histDepth = 0;
  dds_entity_t topic = 0;
  dds_entity_t reader = 0;
  dds_entity_t writer = 0;
  bool backlog = false;  // samples may be waiting in the reader (queue was full); queue lock
  std::mutex sendMutex;  // keeps the samples of one message together
};

struct Item {
  dds_recv_cb* callback;
  std::vector<uint8_t> data;
};

struct Object {
  // Configuration: topics, domain, state. Never held while a callback runs.
  std::mutex cfgMutex;
  std::map<std::string, std::unique_ptr<Topic>> topics;
  bool hasDomain = false;
  uint32 domainId = 0;
  std::string iface = "127.0.0.1";
  bool started = false;
  dds_entity_t participant = 0;

  // Reception: the queue to the dispatch thread and the readers feeding it.
  std::mutex queueMutex;
  std::condition_variable queueCv;
  std::deque<Item> queue;
  std::vector<Topic*> readers;
  bool stopping = false;
  std::thread dispatcher;

  // Set by dds_stop: blocked writes give up.
  std::atomic<bool> stopped{false};
};

// ---- Domains: one Cyclone domain per id and process, shared by objects ----

struct Domain {
  dds_entity_t handle = 0;  // 0 when the domain was created outside the wrapper
  int refs = 0;
  std::string iface;
};

std::mutex g_domainMutex;
std::map<uint32, Domain> g_domains;

std::string domainConfig(const std::string& iface) {
  // Writers deleted with unacknowledged data linger this long at most (the
  // wrapper has already waited for acknowledgements at exit).
  static const char kLinger[] = "100 ms";
  char xml[1024];
  bool loopback = iface.compare(0, 4, "127.") == 0;
  if (loopback) {
    // Loopback has no multicast: discovery goes by unicast to the participant
    // ports of the same address.
    std::snprintf(xml, sizeof(xml),
                  "<CycloneDDS><Domain id=\"any\"><General><Interfaces><NetworkInterface address=\"%s\"/>"
                  "</Interfaces><AllowMulticast>false</AllowMulticast></General>"
                  "<Discovery><ParticipantIndex>auto</ParticipantIndex>"
                  "<MaxAutoParticipantIndex>%d</MaxAutoParticipantIndex>"
                  "<Peers><Peer address=\"%s\"/></Peers></Discovery>"
                  "<Internal><Watermarks><WhcHighInit>500 kB</WhcHighInit><WhcAdaptive>false</WhcAdaptive>"
                  "</Watermarks><WriterLingerDuration>%s</WriterLingerDuration></Internal></Domain></CycloneDDS>",
                  iface.c_str(), kMaxParticipantIndex, iface.c_str(), kLinger);
  } else {
    std::snprintf(xml, sizeof(xml),
                  "<CycloneDDS><Domain id=\"any\"><General><Interfaces><NetworkInterface address=\"%s\"/>"
                  "</Interfaces></General>"
                  "<Internal><Watermarks><WhcHighInit>500 kB</WhcHighInit><WhcAdaptive>false</WhcAdaptive>"
                  "</Watermarks><WriterLingerDuration>%s</WriterLingerDuration></Internal></Domain></CycloneDDS>",
                  iface.c_str(), kLinger);
  }
  return xml;
}

bool acquireDomain(uint32 id, const std::string& iface) {
  std::lock_guard<std::mutex> lock(g_domainMutex);
  auto it = g_domains.find(id);
  if (it != g_domains.end()) {
    if (it->second.iface != iface)
      V2XLOG(&g_curTag, 3, "domain %u already set up on %s, not on %s", id, it->second.iface.c_str(), iface.c_str());
    it->second.refs++;
    return true;
  }
  Domain d;
  d.iface = iface;
  d.refs = 1;
  dds_entity_t h = dds_create_domain(id, domainConfig(iface).c_str());
  if (h == DDS_RETCODE_PRECONDITION_NOT_MET) {
    V2XLOG(&g_curTag, 3, "domain %u was set up elsewhere in this process; its configuration applies", id);
  } else if (h < 0) {
    V2XLOG(&g_curTag, 2, "dds_create_domain(%u) failed: %s", id, dds_strretcode(h));
    return false;
  } else {
    d.handle = h;
  }
  g_domains[id] = d;
  return true;
}

void releaseDomain(uint32 id) {
  std::lock_guard<std::mutex> lock(g_domainMutex);
  auto it = g_domains.find(id);
  if (it == g_domains.end() || --it->second.refs > 0) return;
  if (it->second.handle > 0) dds_delete(it->second.handle);
  g_domains.erase(it);
}

// ---- Reception ----

// Moves samples from the topic's reader into the dispatch queue while there is
// room. Called with queueMutex held, so takes and queue order agree.
void takeIntoQueue(Object* o, Topic* t, dds_entity_t reader) {
  while (o->queue.size() < V2XDDS_DISPATCH_QUEUE_MAX) {
    int32_t room = static_cast<int32_t>(V2XDDS_DISPATCH_QUEUE_MAX - o->queue.size());
    if (room > kTakeBatch) room = kTakeBatch;
    void* samples[kTakeBatch] = {};
    dds_sample_info_t infos[kTakeBatch];
    dds_return_t n = dds_take(reader, samples, infos, static_cast<size_t>(room), static_cast<uint32_t>(room));
    if (n <= 0) {
      if (n < 0) V2XLOG(&g_curTag, 2, "dds_take on %s failed: %s", t->name.c_str(), dds_strretcode(n));
      t->backlog = false;
      return;
    }
    for (dds_return_t i = 0; i < n; i++) {
      if (!infos[i].valid_data) continue;
      const auto* s = static_cast<const v2xdds_Sample*>(samples[i]);
      const uint8_t* p = s->data._buffer;
      uint32_t len = s->data._length;
      if (len > V2XDDS_SAMPLE_MAX) len = V2XDDS_SAMPLE_MAX;  // the type is bounded; never trust a length
      o->queue.push_back(Item{t->callback, std::vector<uint8_t>(p, p + len)});
    }
    dds_return_loan(reader, samples, n);
    if (n < room) {
      t->backlog = false;
      return;
    }
  }
  t->backlog = true;
}

// Cyclone's listener: take and queue, nothing else.
void onDataAvailable(dds_entity_t reader, void* arg) {
  Topic* t = static_cast<Topic*>(arg);
  Object* o = t->owner;
  {
    std::lock_guard<std::mutex> lock(o->queueMutex);
    if (o->stopping) return;
    takeIntoQueue(o, t, reader);
  }
  o->queueCv.notify_one();
}

void dispatchLoop(Object* o) {
  std::unique_lock<std::mutex> lock(o->queueMutex);
  for (;;) {
    o->queueCv.wait(lock, [o] { return o->stopping || !o->queue.empty(); });
    if (o->stopping) return;
    Item item = std::move(o->queue.front());
    o->queue.pop_front();
    if (o->queue.size() <= V2XDDS_DISPATCH_QUEUE_MAX / 2) {
      // Samples left in a reader while the queue was full get no new listener
      // call of their own: fetch them here.
      for (Topic* t : o->readers)
        if (t->backlog && t->reader > 0) takeIntoQueue(o, t, t->reader);
    }
    lock.unlock();
    uint8_t none = 0;  // an empty sample still comes with a valid pointer
    item.callback(item.data.empty() ? &none : item.data.data(), static_cast<unsigned int>(item.data.size()));
    lock.lock();
  }
}

// ---- Entities ----

dds_qos_t* makeQos(const Topic* t, bool forReader) {
  dds_qos_t* q = dds_create_qos();
  dds_qset_reliability(q, DDS_RELIABILITY_RELIABLE, kMaxBlocking);
  dds_qset_durability(q, DDS_DURABILITY_VOLATILE);
  dds_qset_ignorelocal(q, DDS_IGNORELOCAL_PARTICIPANT);
  if (t->histKind == V2XDDS_HISTORY_KEEP_LAST) {
    int32_t depth = t->histDepth < V2XDDS_HISTORY_MIN_DEPTH ? V2XDDS_HISTORY_MIN_DEPTH : t->histDepth;
    dds_qset_history(q, DDS_HISTORY_KEEP_LAST, depth);
  } else {
    dds_qset_history(q, DDS_HISTORY_KEEP_ALL, 0);
    if (forReader) dds_qset_resource_limits(q, kReaderMaxSamples, DDS_LENGTH_UNLIMITED, kReaderMaxSamples);
  }
  return q;
}

// Creates the DDS topic and the reader and/or writer of a registered topic.
// cfgMutex held; the object is started.
bool createEntities(Object* o, Topic* t) {
  if (t->topic <= 0) {
    t->topic = dds_create_topic(o->participant, &v2xdds_Sample_desc, t->ddsName.c_str(), nullptr, nullptr);
    if (t->topic < 0) {
      V2XLOG(&g_curTag, 2, "dds_create_topic(%s) failed: %s", t->ddsName.c_str(), dds_strretcode(t->topic));
      t->topic = 0;
      return false;
    }
  }
  if (t->callback != nullptr && t->reader <= 0) {
    dds_qos_t* q = makeQos(t, true);
    dds_listener_t* l = dds_create_listener(t);
    dds_lset_data_available(l, onDataAvailable);
    {
      // Listed before the reader exists: its listener may run before
      // dds_create_reader returns (it gets the reader handle as argument).
      std::lock_guard<std::mutex> lock(o->queueMutex);
      o->readers.push_back(t);
    }
    dds_entity_t r = dds_create_reader(o->participant, t->topic, q, l);
    dds_delete_listener(l);
    dds_delete_qos(q);
    if (r < 0) {
      V2XLOG(&g_curTag, 2, "dds_create_reader(%s) failed: %s", t->ddsName.c_str(), dds_strretcode(r));
      std::lock_guard<std::mutex> lock(o->queueMutex);
      o->readers.pop_back();
      return false;
    }
    std::lock_guard<std::mutex> lock(o->queueMutex);
    t->reader = r;
  }
  if (t->publish && t->writer <= 0) {
    dds_qos_t* q = makeQos(t, false);
    dds_entity_t w = dds_create_writer(o->participant, t->topic, q, nullptr);
    dds_delete_qos(q);
    if (w < 0) {
      V2XLOG(&g_curTag, 2, "dds_create_writer(%s) failed: %s", t->ddsName.c_str(), dds_strretcode(w));
      return false;
    }
    t->writer = w;
  }
  return true;
}

Topic* findTopic(Object* o, const char* name) {
  auto it = o->topics.find(name);
  return it == o->topics.end() ? nullptr : it->second.get();
}

bool validName(const char* topic) {
  if (topic == nullptr) return false;
  size_t n = strnlen(topic, V2XDDS_TOPIC_NAME_MAX + 1);
  return n > 0 && n <= V2XDDS_TOPIC_NAME_MAX;
}

bool plainTopicChar(const char* s, size_t i) {
  unsigned char c = static_cast<unsigned char>(s[i]);
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '/') return true;
  if (c >= '0' && c <= '9') return i > 0;
  if (c == '_') return s[i + 1] != 'x';
  return false;
}

// A receive callback cannot wait for its own dispatch thread: refused, logged.
bool fromOwnCallback(Object* o, const char* what) {
  if (!o->dispatcher.joinable() || o->dispatcher.get_id() != std::this_thread::get_id()) return false;
  V2XLOG(&g_curTag, 2, "%s called from a receive callback: refused", what);
  return true;
}

// Blocked sends give up; the dispatch thread ends after the callback in progress.
void stopDispatch(Object* o) {
  o->stopped.store(true, std::memory_order_relaxed);
  {
    std::lock_guard<std::mutex> lock(o->queueMutex);
    o->stopping = true;
  }
  o->queueCv.notify_all();
  if (o->dispatcher.joinable()) o->dispatcher.join();
}

}  // namespace

extern "C" {

int32 v2xdds_MapTopicName(const char* name, char* out, size_t size) {
  if (name == nullptr || name[0] == '\0' || out == nullptr || size == 0) return -2;
  static const char kHex[] = "0123456789ABCDEF";
  size_t o = 0;
  for (size_t i = 0; name[i] != '\0'; i++) {
    if (plainTopicChar(name, i)) {
      if (o + 1 >= size) return -2;
      out[o++] = name[i];
    } else {
      if (o + 4 >= size) return -2;
      unsigned char c = static_cast<unsigned char>(name[i]);
      out[o++] = '_';
      out[o++] = 'x';
      out[o++] = kHex[c >> 4];
      out[o++] = kHex[c & 0xF];
    }
  }
  out[o] = '\0';
  return static_cast<int32>(o);
}

void* create_dds(void) {
  Object* o = new (std::nothrow) Object;
  if (o == nullptr) V2XLOG(&g_curTag, 2, "out of memory");
  return o;
}

bool dds_reg(void* obj, unsigned int domain_id, const char* topic, dds_recv_cb* callback, unsigned int data_type) {
  Object* o = static_cast<Object*>(obj);
  if (o == nullptr || !validName(topic)) return false;
  if (data_type != V2XDDS_DATA_TYPE_BYTES) {
    V2XLOG(&g_curTag, 2, "topic %s: unknown data type %u", topic, data_type);
    return false;
  }
  std::lock_guard<std::mutex> lock(o->cfgMutex);
  if (o->hasDomain && o->domainId != domain_id) {
    V2XLOG(&g_curTag, 2, "topic %s: domain %u, but the object is on domain %u", topic, domain_id, o->domainId);
    return false;
  }
  Topic* t = findTopic(o, topic);
  if (t == nullptr) {
    char mapped[4 * V2XDDS_TOPIC_NAME_MAX + 1];
    if (v2xdds_MapTopicName(topic, mapped, sizeof(mapped)) < 0) return false;
    auto fresh = std::make_unique<Topic>();
    fresh->owner = o;
    fresh->name = topic;
    fresh->ddsName = mapped;
    t = fresh.get();
    o->topics.emplace(t->name, std::move(fresh));
  }
  if ((callback != nullptr && t->callback != nullptr) || (callback == nullptr && t->publish)) {
    V2XLOG(&g_curTag, 3, "topic %s registered twice", topic);
    return false;
  }
  if (callback != nullptr)
    t->callback = callback;
  else
    t->publish = true;
  o->hasDomain = true;
  o->domainId = domain_id;
  if (o->started && !createEntities(o, t)) return false;
  return true;
}

int32 set_history_qos(void* obj, const char* topic, int32 kind, int32 depth) {
  Object* o = static_cast<Object*>(obj);
  if (o == nullptr || topic == nullptr) return V2XDDS_ERR_PARAM;
  if (kind != V2XDDS_HISTORY_KEEP_ALL && kind != V2XDDS_HISTORY_KEEP_LAST) return V2XDDS_ERR_PARAM;
  std::lock_guard<std::mutex> lock(o->cfgMutex);
  Topic* t = findTopic(o, topic);
  if (t == nullptr) return V2XDDS_ERR_NOTOPIC;
  if (t->topic > 0) return V2XDDS_ERR_STATE;  // its reader or writer exists already
  t->histKind = kind;
  t->histDepth = depth;
  return 0;
}

int32 set_white_list_iface(void* obj, const char* ipv4_addr) {
  Object* o = static_cast<Object*>(obj);
  if (o == nullptr || ipv4_addr == nullptr) return V2XDDS_ERR_PARAM;
  in_addr a;
  if (inet_pton(AF_INET, ipv4_addr, &a) != 1) {
    V2XLOG(&g_curTag, 2, "not an IPv4 address: %.64s", ipv4_addr);
    return V2XDDS_ERR_PARAM;
  }
  std::lock_guard<std::mutex> lock(o->cfgMutex);
  if (o->started) return V2XDDS_ERR_STATE;
  o->iface = ipv4_addr;
  return 0;
}

int32 dds_start(void* obj) {
  Object* o = static_cast<Object*>(obj);
  if (o == nullptr) return V2XDDS_ERR_PARAM;
  std::lock_guard<std::mutex> lock(o->cfgMutex);
  if (o->started) return V2XDDS_ERR_STATE;
  if (!o->hasDomain) {
    V2XLOG(&g_curTag, 2, "no topic registered");
    return V2XDDS_ERR_STATE;
  }
  if (!acquireDomain(o->domainId, o->iface)) return V2XDDS_ERR_DDS;
  o->participant = dds_create_participant(o->domainId, nullptr, nullptr);
  if (o->participant < 0) {
    V2XLOG(&g_curTag, 2, "dds_create_participant(%u) failed: %s", o->domainId, dds_strretcode(o->participant));
    o->participant = 0;
    releaseDomain(o->domainId);
    return V2XDDS_ERR_DDS;
  }
  o->started = true;
  o->dispatcher = std::thread(dispatchLoop, o);
  // A topic DDS refuses is logged and left out; the others still work.
  for (auto& kv : o->topics) createEntities(o, kv.second.get());
  V2XLOG(&g_curTag, 5, "domain %u on %s: %zu topics", o->domainId, o->iface.c_str(), o->topics.size());
  return 0;
}

int32 dds_send(void* obj, const char* topic, const void* data, unsigned int len) {
  Object* o = static_cast<Object*>(obj);
  if (o == nullptr || topic == nullptr || (data == nullptr && len > 0)) return V2XDDS_ERR_PARAM;
  Topic* t;
  dds_entity_t writer;
  {
    std::lock_guard<std::mutex> lock(o->cfgMutex);
    if (!o->started) return V2XDDS_ERR_STATE;
    t = findTopic(o, topic);
    if (t == nullptr || t->writer <= 0) return V2XDDS_ERR_NOTOPIC;
    writer = t->writer;
  }
  const uint8_t* p = static_cast<const uint8_t*>(data);
  std::lock_guard<std::mutex> lock(t->sendMutex);
  unsigned int off = 0;
  do {
    unsigned int n = len - off < V2XDDS_SAMPLE_MAX ? len - off : V2XDDS_SAMPLE_MAX;
    v2xdds_Sample s;
    s.data._maximum = n;
    s.data._length = n;
    s.data._buffer = const_cast<uint8_t*>(p + off);
    s.data._release = false;
    dds_return_t rc = dds_write(writer, &s);
    for (int attempt = 1; attempt < kWriteAttempts && rc == DDS_RETCODE_TIMEOUT; attempt++) {
      if (o->stopped.load(std::memory_order_relaxed)) {
        V2XLOG(&g_curTag, 3, "dds_send on %s given up at byte %u of %u: the object is stopping", topic, off, len);
        return V2XDDS_ERR_STATE;
      }
      rc = dds_write(writer, &s);
    }
    if (rc != DDS_RETCODE_OK) {
      V2XLOG(&g_curTag, 2, "dds_write on %s failed at byte %u of %u: %s", topic, off, len, dds_strretcode(rc));
      return V2XDDS_ERR_DDS;
    }
    off += n;
  } while (off < len);
  return 0;
}

int32 get_match_cnt(void* obj, const char* topic) {
  Object* o = static_cast<Object*>(obj);
  if (o == nullptr || topic == nullptr) return V2XDDS_ERR_PARAM;
  dds_entity_t writer;
  {
    std::lock_guard<std::mutex> lock(o->cfgMutex);
    if (!o->started) return V2XDDS_ERR_STATE;
    Topic* t = findTopic(o, topic);
    if (t == nullptr || t->writer <= 0) return V2XDDS_ERR_NOTOPIC;
    writer = t->writer;
  }
  dds_publication_matched_status_t st;
  dds_return_t rc = dds_get_publication_matched_status(writer, &st);
  if (rc != DDS_RETCODE_OK) return V2XDDS_ERR_DDS;
  return static_cast<int32>(st.current_count);
}

void dds_stop(void* obj) {
  Object* o = static_cast<Object*>(obj);
  if (o != nullptr && !fromOwnCallback(o, "dds_stop")) stopDispatch(o);
}

void destroy_dds(void* obj) {
  Object* o = static_cast<Object*>(obj);
  if (o == nullptr || fromOwnCallback(o, "destroy_dds")) return;
  stopDispatch(o);
  if (o->participant > 0) {
    // Give matched readers a moment to acknowledge what was written last, so
    // a message sent just before leaving is not lost with the writer.
    {
      std::lock_guard<std::mutex> lock(o->cfgMutex);
      const dds_time_t deadline = dds_time() + DDS_MSECS(kExitAckWaitMs);
      for (auto& [name, t] : o->topics) {
        const dds_duration_t left = deadline - dds_time();
        if (t->writer > 0 && left > 0) (void)dds_wait_for_acks(t->writer, left);
      }
    }
    // Waits for a listener call in progress; it returns at once (stopping).
    dds_delete(o->participant);
    releaseDomain(o->domainId);
  }
  delete o;
}

}  // extern "C"
