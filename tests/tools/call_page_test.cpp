// What becomes of calls that are too long to be shown whole. How the page is read is the browser test's.

#include "tools/analyse/call_page.h"

#include <gtest/gtest.h>

#include "utils/utils_json.h"

namespace cv::tools {
namespace {

CallTrace call_of(std::size_t frames, std::size_t tracks, std::size_t points) {
  CallTrace call;
  call.name = "</script><!--<b>\"";
  SideTrace& side = call.sides[1];
  side.there = true;
  side.frames.resize(frames);
  SampleTrack track;
  for (std::size_t k = 0; k < points; ++k) {
    ScorePoint point;
    point.frame = k * frames / points;
    point.voted.score = k == points / 2 ? 9 : static_cast<double>(k % 7);
    track.points.push_back(point);
  }
  side.tracks.assign(tracks, track);
  return call;
}

TEST(CallPage, HoldsAnHourWholeAndThinsWhatIsLonger) {
  const struct {
    std::size_t frames, tracks, points;
    uint64_t column_frames, least_points, most_points;
  } table[] = {
      {0, 1, 0, 1, 0, 0},
      {225000, 1, 20000, 1, 20000, 20000},
      {262145, 50, 10000, 2, 7945, 8000},  // one of 33 frames, and all near the highest
      {530000, 1, 4001, 4, 4001, 4001},
  };
  const std::string mark = R"(<script id="data" type="application/json">)";
  for (const auto& row : table) {
    SCOPED_TRACE(row.frames);
    const std::string page = call_page(call_of(row.frames, row.tracks, row.points));
    const auto begin = page.find(mark) + mark.size();
    rapidjson::Document data;
    data.Parse(page.substr(begin, page.find("</script>", begin) - begin).c_str());
    ASSERT_FALSE(data.HasParseError());
    EXPECT_STREQ(data["name"].GetString(), "</script><!--<b>\"");
    EXPECT_EQ(data["column_frames"].GetUint64(), row.column_frames);
    const auto& side = data["sides"][0];
    EXPECT_EQ(side["amplitude"]["high"][1].GetUint64(),
              (row.frames + row.column_frames - 1) / row.column_frames);
    EXPECT_EQ(side["amplitude"].HasMember("low"), row.column_frames > 1);
    for (const auto& track : side["tracks"].GetArray()) {
      EXPECT_EQ(track["points"].GetUint64(), row.points);
      EXPECT_GE(track["steps"][1].GetUint64(), row.least_points);
      EXPECT_LE(track["steps"][1].GetUint64(), row.most_points);
    }
    // Bounded, however long the call is: these are numbers that pack well, so the bound is wide.
    EXPECT_LT(page.size(), 8u << 20);
  }
}

}  // namespace
}  // namespace cv::tools
