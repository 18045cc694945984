// Recordings and rules as they change on disk, and what nodes would be told; the recordings' packets
// are made from the files' text, a point a character, so that no audio is needed.
#include "tools/configd/site.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "audio/audio_sample_packet.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "tools/text_file.h"

namespace cv::tools {
namespace {

class SiteTest : public testing::Test {
 protected:
  SiteTest() {
    record("a.wav", "one");
    record("b.wav", "two");
    rules(R"({"rules": [{"id": 1, "samples": ["*"]}]})");
  }

  std::string samples() const { return m_folder / "samples"; }
  void record(const std::string& name, const std::string& content) {
    m_folder.write("samples/" + name, content);
  }
  void rules(const std::string& text) { m_folder.write("rules.json", text); }

  void start(unsigned drop_common = 0, uint64_t first_version = 100) {
    auto state = StateFile::open(m_folder / "state", first_version, m_error);
    ASSERT_TRUE(state) << m_error;
    m_site.emplace(
        SiteSettings{samples(), m_folder / "rules.json", drop_common}, std::move(*state),
        [this](const std::string& name, std::string& reason) { return read(name, reason); });
    ASSERT_TRUE(m_site->start(nullptr, m_error)) << m_error;
  }

  /// "bad" cannot be read, "silent" has no points.
  std::vector<unsigned char> read(const std::string& name, std::string& error) {
    const std::string text = read_file(samples() + "/" + name, error).value_or("bad");
    error = "half copied";
    if (text == "bad") return {};
    Points points;
    for (const char c : text == "silent" ? "" : text) {
      points.push_back({static_cast<uint32_t>(c), static_cast<uint32_t>(points.size())});
    }
    return audio::write_sample_packet(points);
  }

  /// A change is taken with the second look that sees it.
  bool look_twice() {
    EXPECT_FALSE(m_site->look());
    return m_site->look();
  }

  const std::map<uint32_t, std::vector<unsigned char>>& packets() const {
    return m_site->snapshot().packets;
  }
  /// Sample version and dead-air version.
  std::pair<uint64_t, uint64_t> versions() const {
    return {m_site->snapshot().sample_version, m_site->snapshot().dead_air_version};
  }
  bool tells(const std::string& part) const {
    return m_site->snapshot().sample_data_json.find(part) != std::string::npos;
  }

  test::LogCapture m_log;
  test::TemporaryFolder m_folder;
  std::optional<Site> m_site;
  std::string m_error;
};

using Versions = std::pair<uint64_t, uint64_t>;

TEST_F(SiteTest, TellsOfNewChangedAndRemovedRecordingsAndOfNothingElse) {
  start();
  EXPECT_EQ(versions(), Versions(100, 100));
  // Still being written, in the end as it was; a label; what is no recording.
  for (const char* part : {"o", "on", "one"}) {
    record("a.wav", part);
    EXPECT_FALSE(m_site->look()) << part;
  }
  rules(R"({"rules": [ {"samples": ["*"], "id": 1, "name": "only a label"} ]})");
  for (const char* name : {"README.txt", ".hidden.wav", ".folder/six.wav"}) record(name, "six");
  EXPECT_FALSE(look_twice());
  EXPECT_EQ(versions(), Versions(100, 100));

  const auto before = packets();
  record("a.wav", "one, recorded again");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(versions(), Versions(101, 100));
  ASSERT_EQ(packets().size(), 2u);
  const auto kept = std::count_if(packets().begin(), packets().end(),
                                  [&](const auto& each) { return before.count(each.first); });
  EXPECT_EQ(kept, 1) << "new content, new id: nodes keep what they hold under an id";

  record("folder/c.wav", "three");
  EXPECT_TRUE(look_twice());
  EXPECT_TRUE(tells(R"("sample_name":"folder/c")"));
  std::filesystem::remove(samples() + "/b.wav");
  EXPECT_TRUE(look_twice());
  EXPECT_FALSE(tells(R"("sample_name":"b")"));
  EXPECT_EQ(versions(), Versions(103, 100));
}

TEST_F(SiteTest, AnUnusableRecordingKeepsTheFingerprintItHadAndSaysSo) {
  record("new.wav", "bad");
  record("quiet.wav", "silent");
  start();
  EXPECT_TRUE(m_log.has_containing("recording [new.wav]: half copied; left out"));
  EXPECT_TRUE(m_log.has_containing("recording [quiet.wav]: nothing to recognise"));
  EXPECT_EQ(packets().size(), 2u);
  for (const char* content : {"bad", "silent"}) {
    m_log.clear();
    record("a.wav", content);
    EXPECT_FALSE(look_twice()) << content;
    EXPECT_TRUE(m_log.has_containing("the previous fingerprint stays"));
  }
  record("new.wav", "good at last");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(packets().size(), 3u);
}

TEST_F(SiteTest, RulesRaiseOnlyTheVersionOfWhatTheyChangeAndBadOnesNone) {
  start();
  rules(R"({"rules": [{"id": 1, "samples": ["*"], "dead_air": {"activity_hits": 3}}]})");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(versions(), Versions(100, 101));
  rules(R"({"rules": [{"id": 1, "samples": ["a.wav"], "dead_air": {"activity_hits": 3}}]})");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(versions(), Versions(101, 101));
  EXPECT_EQ(packets().size(), 1u) << "only what a rule names is sent";

  rules("{");
  EXPECT_FALSE(look_twice());
  EXPECT_FALSE(m_site->look());
  EXPECT_EQ(m_log.count_containing("the previous rules stay in force"), 1u);
  std::filesystem::remove(m_folder / "rules.json");
  std::filesystem::rename(samples(), m_folder / "elsewhere");
  EXPECT_FALSE(look_twice());
  EXPECT_EQ(m_log.count_containing("everything stays as it is"), 1u);
  std::filesystem::rename(m_folder / "elsewhere", samples());
  record("a.wav", "three");
  EXPECT_TRUE(look_twice()) << "recordings are followed all the same";
}

TEST_F(SiteTest, TheCommonestHashesGoAndOneMoreRecordingRenewsNoOther) {
  const std::string letters = "ABCDEFGHIJKLMNOPQRST", x(20, 'x'), y(20, 'y');
  record("a.wav", x + letters);
  record("b.wav", y + letters);
  record("short.wav", "xxz");
  record("unserved/c.wav", y + letters + y);
  rules(R"({"rules": [{"id": 1, "samples": ["a.wav", "b.wav", "s*.wav", "d*.wav", "e*.wav"]}]})");
  start(1);
  const auto sizes = [this] {
    std::multiset<std::size_t> points;
    for (const auto& [id, packet] : packets()) points.insert((packet.size() - 8) / 8);
    return points;
  };
  EXPECT_EQ(sizes(), (std::multiset<std::size_t>{3, 20, 40})) << "a without its x";
  EXPECT_TRUE(m_log.has_containing("recording [short.wav] keeps the commonest hashes"));

  // Twenty-three y: the commonest by now, but x is 22 of them, nine tenths of the votes.
  const auto before = packets();
  record("d.wav", "yyyUVW");
  EXPECT_TRUE(look_twice());
  const auto with_d = packets();
  EXPECT_EQ(with_d.size(), before.size() + 1);
  EXPECT_TRUE(std::includes(with_d.begin(), with_d.end(), before.begin(), before.end()));
  start(1);
  EXPECT_EQ(packets(), with_d) << "a restart chooses no other";

  // Of the twenty-four now, 22 are too few.
  record("e.wav", "yUVWXYZ");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(sizes(), (std::multiset<std::size_t>{3, 3, 6, 20, 40})) << "all but a without their y";
  start(0);
  EXPECT_EQ(sizes(), (std::multiset<std::size_t>{3, 6, 7, 40, 40}));
}

TEST_F(SiteTest, VersionsAndIdsGoOnAfterARestartWhateverTheClock) {
  record("copy.wav", "one");
  start();
  const auto before = packets();
  EXPECT_EQ(before.size(), 2u) << "one content, one id";
  start(0, 5);
  EXPECT_EQ(versions(), Versions(100, 100));
  EXPECT_EQ(packets(), before);
  for (const char* content : {"changed while nobody looked", "one"}) {
    record("a.wav", content);
    start(0, 5);
  }
  EXPECT_EQ(versions(), Versions(102, 100)) << "an old content is a new version all the same";
  EXPECT_EQ(packets(), before);
  std::filesystem::remove(m_folder / "state");
  start(0, 200);
  EXPECT_EQ(packets(), before) << "ids come from the content";
}

TEST_F(SiteTest, NothingIsToldBeforeTheStateIsOnDisk) {
  start();
  const auto on_disk = read_file(m_folder / "state", m_error);
  // A folder in the place of the temporary file: whoever runs this, it cannot be written.
  std::filesystem::create_directory(m_folder / "state.tmp");
  record("a.wav", "changed");
  EXPECT_FALSE(look_twice());
  EXPECT_FALSE(m_site->look());
  EXPECT_EQ(versions(), Versions(100, 100));
  EXPECT_EQ(read_file(m_folder / "state", m_error), on_disk);
  EXPECT_EQ(m_log.count_containing("stays in force"), 1u) << "said once, not once a look";
  std::filesystem::remove(m_folder / "state.tmp");
  EXPECT_TRUE(m_site->look());
  EXPECT_EQ(versions(), Versions(101, 100));

  // What is there stays what it is: a link, with its target's owner (only root gives files away) and
  // permissions.
  const std::string state = m_folder / "state", target = m_folder / "target";
  std::filesystem::rename(state, target);
  std::filesystem::create_symlink(target, state);
  const uid_t owner = ::chown(state.c_str(), 1, 1) == 0 ? 1 : ::geteuid();
  std::filesystem::permissions(state, std::filesystem::perms::owner_all);
  record("a.wav", "changed again");
  start();
  EXPECT_EQ(versions(), Versions(102, 100));
  EXPECT_TRUE(std::filesystem::is_symlink(state));
  struct stat kept {};
  ASSERT_EQ(::stat(state.c_str(), &kept), 0);
  EXPECT_EQ(kept.st_uid, owner);
  EXPECT_EQ(kept.st_mode & 07777, 0700u);
}

TEST_F(SiteTest, WhatIsNoStateIsRefusedAndLeftToTheOperator) {
  const std::string head = R"({"format": 1, "samples": {}, "sample_configuration": {"version": )";
  const std::string tail =
      R"(, "content": "0"}, "deadair_configuration": {"version": 4, "content": "0"})";
  for (const std::string& text :
       {std::string(), std::string(R"({"format": 2})"),
        head + "4" + tail + R"(, "dropped_hashes": [2, 1]})", head + "-1" + tail + "}"}) {
    const std::string path = m_folder.write("state", text);
    EXPECT_FALSE(StateFile::open(path, 1, m_error)) << text;
    EXPECT_EQ(m_error.find(path), 0u) << m_error;
  }
}

}  // namespace
}  // namespace cv::tools
