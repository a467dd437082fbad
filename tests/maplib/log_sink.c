/* A program that never set up logging and uses the shared MAP library: a
 * thousand successful lane matches write nothing to standard error; with a
 * sink and the notice level, the sink receives one line a match, naming the
 * matching call. Exit status 0 when every check holds. */
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "c_check.h"
#include "v2xapp_gbmap.h"
#include "v2xapp_gbmap_build.h"
#include "v2xapp_gbmap_match.h"

enum { kMatches = 1000 };

struct Seen {
  int lines;
  int matchLines;
  int maxLevel;
};

static void sink(void* ctx, int level, const char* line) {
  struct Seen* seen = (struct Seen*)ctx;
  seen->lines++;
  if (strstr(line, ":v2xapp_GBMapMatchLane:") != NULL && strstr(line, "map matched nodeIndex=0") != NULL) {
    seen->matchLines++;
  }
  if (level > seen->maxLevel) seen->maxLevel = level;
}

/* One node with one lane 3.5 m wide running 111 m north from it. */
static V2XAPP_GBMHANDLE oneLaneMap(void) {
  V2XAPP_GBMHANDLE map = NULL, node = NULL, link = NULL, lane = NULL;
  CHECK(v2xapp_GBMapStrInit(&map) == 0);
  CHECK(v2xapp_GBMapNodeInit(&node, 1, NULL, NULL, 0) == 0);
  CHECK(v2xapp_GBMapNodeSetRefPos(node, 397870000, 1165119000, NULL) == 0);
  CHECK(v2xapp_GBMapLinkInit(&link) == 0);
  CHECK(v2xapp_GBMapLinkLaneInit(&lane, 1) == 0);
  CHECK(v2xapp_GBMapLinkLaneSetLaneWidth(lane, 350) == 0);
  CHECK(v2xapp_GBMapLaneAddPoint(lane, V2XAPP_GBMAP_POS_LATLON, 397870000, 1165119000, NULL, 0) == 0);
  CHECK(v2xapp_GBMapLaneAddPoint(lane, V2XAPP_GBMAP_POS_LATLON, 397880000, 1165119000, NULL, 0) == 0);
  CHECK(v2xapp_GBMapLinkAddlane(link, lane) == 0);
  CHECK(v2xapp_GBMapNodeAddLink(node, link) == 0);
  CHECK(v2xapp_GBMapAddNode(map, node) == 0);
  return map;
}

static int matchMany(V2XAPP_GBMHANDLE map) {
  int matched = 0;
  for (int i = 0; i < kMatches; ++i) {
    c_pos3D_t pos;
    memset(&pos, 0, sizeof(pos));
    pos.posIsValid = true;
    pos.lat = 39.7870100 + i * 0.0000008; /* along the lane's centre line */
    pos.lon = 116.5119000;
    MapSearch_t result = {-1, -1, -1};
    if (v2xapp_GBMapMatchLane(&pos, map, &result) == 0 && result.CurrentLane == 0) matched++;
  }
  return matched;
}

int main(void) {
  char path[] = "/tmp/maplib_log_sink_XXXXXX";
  const int fd = mkstemp(path);
  CHECK(fd >= 0);
  const int savedErr = dup(STDERR_FILENO);
  CHECK(dup2(fd, STDERR_FILENO) >= 0);

  V2XAPP_GBMHANDLE map = oneLaneMap();
  CHECK(matchMany(map) == kMatches);
  const off_t quietBytes = lseek(fd, 0, SEEK_END);

  struct Seen seen = {0, 0, 0};
  CHECK(v2xapp_GBMapSetLogSink(sink, &seen) == 0);
  CHECK(v2xapp_GBMapSetLogLevel(4) == 0);
  CHECK(matchMany(map) == kMatches);
  const off_t sinkBytes = lseek(fd, 0, SEEK_END);

  CHECK(v2xapp_GBMapSetLogSink(NULL, NULL) == 0); /* back to standard error */
  CHECK(matchMany(map) == kMatches);
  const off_t defaultBytes = lseek(fd, 0, SEEK_END);
  CHECK(v2xapp_GBMapSetLogLevel(8) == -2 && v2xapp_GBMapSetLogLevel(-1) == -2);
  CHECK(v2xapp_GBMapStrDel(&map) == 0);

  dup2(savedErr, STDERR_FILENO);
  close(fd);
  unlink(path);
  CHECK(quietBytes == 0);
  CHECK(sinkBytes == 0);
  CHECK(seen.matchLines == kMatches && seen.lines == kMatches && seen.maxLevel == 4);
  CHECK(defaultBytes > 0);
  return g_failures == 0 ? 0 : 1;
}
