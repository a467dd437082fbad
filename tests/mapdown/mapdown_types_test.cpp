// Values of the wrong JSON type: under the field profile each records its
// key's code with the reach of an out-of-range (or, for a key without a range,
// an absent) value; under the reference profile the document reads as before.
// The observer hears of each in both profiles, with what is read instead.
#include <vector>

#include "map_conv_mapdown_observer.h"
#include "map_conv_profile.h"
#include "mapdown_fixture.h"

namespace mapdown_test {
namespace {

struct Faults : v2xmapconv::MapDownObserver {
  void onDocument(const cJSON*) override {}
  void onFault(const v2xmapconv::MapDownFault& f) override {
    if (std::string(f.text).find(", read as ") != std::string::npos) seen.push_back({f.text, f.code});
  }
  void onPassedOn(const char*, const char*, int32_t) override {}
  void onDropped(const cJSON*) override {}
  struct Seen {
    std::string text;
    int32_t code;
  };
  std::vector<Seen> seen;
};

std::string withRefPos(const std::string& refPos) {
  return R"({"eTag":"e1","map":{"nodes":[{"id":{"id":7},"refPos":)" + refPos + "}]}}";
}
std::string withNodeId(const std::string& id) {
  return R"({"eTag":"e1","map":{"nodes":[{"id":)" + id + R"(,"refPos":{"lon":121.16,"lat":31.28}}]}})";
}
std::string withLane(const std::string& lane) { return docWithLanes("[" + lane + "]"); }

struct TypeCase {
  const char* name;
  std::string doc;
  int32 fieldRet;         // the reader's result under the field profile (0 under the reference one)
  int32 fieldCode;        // the code left under the field profile (0 under the reference one)
  const char* text;       // what the observer and the field log are told
  bool byCaller = false;  // the code is recorded by the reader that passes the failure on
};

class WrongType : public MapDownTest, public ::testing::WithParamInterface<TypeCase> {
 protected:
  void TearDown() override {
    v2xmapconv_SetProfile(MAP_CONV_PROFILE_REFERENCE);
    MapDownTest::TearDown();
  }
};

void PrintTo(const TypeCase& c, std::ostream* os) { *os << c.name; }

TEST_P(WrongType, FieldRecordsTheKeysCodeReferenceReadsOn) {
  const TypeCase& c = GetParam();
  for (map_conv_profile_e profile : {MAP_CONV_PROFILE_REFERENCE, MAP_CONV_PROFILE_FIELD}) {
    const bool field = profile == MAP_CONV_PROFILE_FIELD;
    SCOPED_TRACE(v2xmapconv_ProfileName(profile));
    v2xmapconv_SetProfile(profile);
    const size_t logged = logText().size();
    Faults faults;
    v2xmapconv::MapDownObserver* before = v2xmapconv::setMapDownObserver(&faults);
    const int32 ret = read(c.doc);
    v2xmapconv::setMapDownObserver(before);
    EXPECT_EQ(ret, field ? c.fieldRet : 0);
    EXPECT_EQ(v2xmapconv_GetErrorCode(), field ? c.fieldCode : 0);
    ASSERT_EQ(faults.seen.size(), 1u);
    EXPECT_NE(faults.seen[0].text.find(c.text), std::string::npos) << faults.seen[0].text;
    const bool ownCode = field && !c.byCaller && c.fieldCode != 0;
    EXPECT_EQ(faults.seen[0].code, ownCode ? c.fieldCode : -1);
    const bool inLog = logText().find(c.text, logged) != std::string::npos;
    EXPECT_EQ(inLog, field) << "only the field profile logs it";
  }
}

const TypeCase kTypeCases[] = {
    {"lat_text", withRefPos(R"({"lon":121.16,"lat":"31.28"})"), -5, 5,
     "lat is a text where a number belongs, read as 0"},
    {"lon_true", withRefPos(R"({"lon":true,"lat":31.28})"), -3, 4, "lon is true or false where a number belongs"},
    {"ele_text", withRefPos(R"({"lon":121.16,"lat":31.28,"ele":"4.6"})"), -7, 6, "ele is a text where"},
    {"node_id_text", withNodeId(R"({"id":"7"})"), 0, 2, "id is a text where a number belongs, read as 0"},
    {"node_region_fraction", withNodeId(R"({"region":1.5,"id":7})"), 0, 2,
     "region is a fraction where an integer belongs, read as 1"},
    {"upstream_id_fraction", docWithLinks(R"([{"upstreamNodeId":{"id":8.5},"linkWidth":700}])"), 0, 7,
     "id is a fraction where an integer belongs, read as 8"},
    {"link_width_fraction", docWithLinks(R"([{"upstreamNodeId":{"id":8},"linkWidth":700.5}])"), 0, 8,
     "linkWidth is a fraction", true},
    {"speed_text",
     docWithLinks(R"([{"upstreamNodeId":{"id":8},"linkWidth":700,)"
                  R"("speedLimits":[{"type":5,"speed":"500"}]}])"),
     0, 10, "speed is a text where"},
    {"speed_type_object",
     docWithLinks(R"([{"upstreamNodeId":{"id":8},"linkWidth":700,)"
                  R"("speedLimits":[{"type":{},"speed":500}]}])"),
     0, 10, "type is neither a text nor a number, read as 0"},
    {"movement_phase_text",
     docWithLinks(R"([{"upstreamNodeId":{"id":8},"linkWidth":700,)"
                  R"("movements":[{"remoteIntersection":{"id":3},"phaseId":"2"}]}])"),
     0, 11, "phaseId is a text where"},
    {"link_point_lat_text",
     docWithLinks(R"([{"upstreamNodeId":{"id":8},"linkWidth":700,)"
                  R"("points":[{"lon":121.1,"lat":"31.2"}]}])"),
     0, 16, "lat is a text where"},
    {"lane_id_text", withLane(R"({"laneId":"3"})"), 0, 9, "laneId is a text where", true},
    {"lane_width_fraction", withLane(R"({"laneId":3,"laneWidth":350.5})"), 0, 13,
     "laneWidth is a fraction where an integer belongs, read as 350"},
    {"lane_point_ele_text", withLane(R"({"laneId":3,"points":[{"lon":121.1,"lat":31.2,"ele":"1"}]})"), 0, 17,
     "ele is a text where"},
    {"connection_phase_fraction",
     withLane(R"({"laneId":3,"connectsTo":[{"remoteIntersection":{"id":3},"phaseId":2.5}]})"), 0, 14,
     "phaseId is a fraction"},
    {"maneuvers_text", withLane(R"({"laneId":3,"maneuvers":"2048"})"), 0, 0, "maneuvers is a text where"},
    {"seqnum_number", R"({"eTag":"e1","seqNum":42,"map":{"nodes":[]}})", 0, 0, "seqNum is not a text, read as absent"},
};

INSTANTIATE_TEST_SUITE_P(Keys, WrongType, ::testing::ValuesIn(kTypeCases),
                         [](const ::testing::TestParamInfo<TypeCase>& i) { return std::string(i.param.name); });

}  // namespace
}  // namespace mapdown_test
