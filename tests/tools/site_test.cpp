// Recordings and rules as they change on disk, and what nodes would be told; the recordings' packets
// are made from the files' text, a point a character, so that no audio is needed.
#include "tools/configd/site.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>

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

  void start(unsigned drop_common = 0) {
    auto state = StateFile::open(m_folder / "state", 100, m_error);
    m_site.emplace(
        SiteSettings{samples(), m_folder / "rules.json", drop_common}, std::move(state.value()),
        [this](const std::string& name, std::string& reason) { return read(name, reason); });
    ASSERT_TRUE(m_site->start(nullptr, m_error)) << m_error;
  }

  /// "bad" cannot be read, "silent" has no points.
  std::vector<unsigned char> read(const std::string& name, std::string& error) {
    const std::string text = read_file(samples() + "/" + name, error).value_or("bad");
    error = "half copied";
    if (text == "bad") return {};
    std::vector<audio::HashPoint> points;
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

  std::size_t packets() const { return m_site->snapshot().packets.size(); }
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

TEST_F(SiteTest, TellsOfNewChangedAndRemovedRecordings) {
  start();
  EXPECT_EQ(versions(), Versions(100, 100));
  EXPECT_FALSE(look_twice()) << "nothing changed";

  const auto before = m_site->snapshot().packets;
  record("a.wav", "one, recorded again");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(versions(), Versions(101, 100));
  EXPECT_EQ(packets(), 2u);
  std::size_t kept = 0;
  for (const auto& [id, packet] : m_site->snapshot().packets) kept += before.count(id);
  EXPECT_EQ(kept, 1u) << "new content, new id: nodes keep what they hold under an id";

  record("folder/c.wav", "three");
  EXPECT_TRUE(look_twice());
  EXPECT_TRUE(tells(R"("sample_name":"folder/c")"));
  std::filesystem::remove(samples() + "/b.wav");
  EXPECT_TRUE(look_twice());
  EXPECT_FALSE(tells(R"("sample_name":"b")"));
  EXPECT_EQ(versions(), Versions(103, 100));
}

TEST_F(SiteTest, WhatStillChangesOrIsOnlyTouchedOrNoRecordingRaisesNothing) {
  start();
  for (const char* part : {"o", "on", "one"}) {
    record("a.wav", part);
    EXPECT_FALSE(m_site->look()) << part;
  }
  rules(R"({"rules": [ {"samples": ["*"], "id": 1, "name": "only a label"} ]})");
  for (const char* name : {"README.txt", ".hidden.wav", ".folder/six.wav"}) record(name, "six");
  EXPECT_FALSE(look_twice());
  EXPECT_EQ(versions(), Versions(100, 100));
}

TEST_F(SiteTest, AnUnusableRecordingKeepsTheFingerprintItHadAndSaysSo) {
  record("new.wav", "bad");
  record("quiet.wav", "silent");
  start();
  EXPECT_TRUE(m_log.has_containing("recording [new.wav]: half copied; left out"));
  EXPECT_TRUE(m_log.has_containing("recording [quiet.wav]: nothing to recognise"));
  EXPECT_EQ(packets(), 2u);
  for (const char* content : {"bad", "silent"}) {
    m_log.clear();
    record("a.wav", content);
    EXPECT_FALSE(look_twice()) << content;
    EXPECT_TRUE(m_log.has_containing("the previous fingerprint stays"));
  }
  record("new.wav", "good at last");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(packets(), 3u);
}

TEST_F(SiteTest, RulesRaiseOnlyTheVersionOfWhatTheyChange) {
  start();
  rules(R"({"rules": [{"id": 1, "samples": ["*"], "dead_air": {"activity_hits": 3}}]})");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(versions(), Versions(100, 101));
  rules(R"({"rules": [{"id": 1, "samples": ["a.wav"], "dead_air": {"activity_hits": 3}}]})");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(versions(), Versions(101, 101));
  EXPECT_EQ(packets(), 1u) << "only what a rule names is sent";
}

TEST_F(SiteTest, BadRulesAndAFolderThatGoesAwayKeepWhatWas) {
  start();
  rules("{");
  EXPECT_FALSE(look_twice());
  EXPECT_EQ(m_log.count_containing("the previous rules stay in force"), 1u);
  std::filesystem::remove(m_folder / "rules.json");
  std::filesystem::rename(samples(), m_folder / "elsewhere");
  EXPECT_FALSE(look_twice());
  EXPECT_EQ(m_log.count_containing("everything stays as it is"), 1u);
  std::filesystem::rename(m_folder / "elsewhere", samples());
  record("c.wav", "three");
  EXPECT_TRUE(look_twice()) << "recordings are followed all the same";
  EXPECT_EQ(packets(), 3u);
}

TEST_F(SiteTest, VersionsAndIdsGoOnAfterARestart) {
  start();
  const auto before = m_site->snapshot().packets;
  start();
  EXPECT_EQ(versions(), Versions(100, 100));
  EXPECT_EQ(m_site->snapshot().packets, before);
  record("a.wav", "changed while nobody looked");
  start();
  EXPECT_EQ(versions(), Versions(101, 100));
}

TEST_F(SiteTest, TheCommonestHashesGoAndOneMoreRecordingRenewsNoOther) {
  const std::string x(20, 'x'), y(20, 'y');
  record("a.wav", x + "ABCDEFGHIJKLMNOPQRST");
  record("b.wav", y + "ABCDEFGHIJKLMNOPQRST");
  record("short.wav", "xxz");
  record("unserved/c.wav", y + "ABCDEFGHIJKLMNOPQRST" + y);
  rules(R"({"rules": [{"id": 1, "samples": ["a.wav", "b.wav", "s*.wav", "d*.wav", "e*.wav"]}]})");
  start(1);
  const auto size_of = [this](std::size_t points) {
    std::size_t found = 0;
    for (const auto& [id, packet] : m_site->snapshot().packets) {
      found += packet.size() == 8 + 8 * points;
    }
    return found;
  };
  EXPECT_EQ(size_of(20), 1u) << "a without its x";
  EXPECT_EQ(size_of(40), 1u) << "b as it was";
  EXPECT_EQ(size_of(3), 1u) << "without its x a third would be left";
  EXPECT_TRUE(m_log.has_containing("recording [short.wav] keeps the commonest hashes"));

  // Twenty-three y: the commonest by now, but x is 22 of them, nine tenths of the votes.
  const auto before = m_site->snapshot().packets;
  record("d.wav", "yyyUVW");
  EXPECT_TRUE(look_twice());
  const auto with_d = m_site->snapshot().packets;
  EXPECT_EQ(with_d.size(), before.size() + 1);
  EXPECT_TRUE(std::includes(with_d.begin(), with_d.end(), before.begin(), before.end()));
  start(1);
  EXPECT_EQ(m_site->snapshot().packets, with_d) << "a restart chooses no other";

  record("e.wav", "yyyyUVWXYZ");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(size_of(40), 1u) << "a with its x";
  EXPECT_EQ(size_of(20), 1u) << "b without its y";
  start(0);
  EXPECT_EQ(size_of(40), 2u);
}

TEST_F(SiteTest, NothingIsToldBeforeTheStateIsOnDisk) {
  start();
  std::filesystem::create_directory(m_folder / "state.tmp");
  record("a.wav", "changed");
  EXPECT_FALSE(look_twice());
  EXPECT_FALSE(m_site->look());
  EXPECT_EQ(versions(), Versions(100, 100));
  EXPECT_EQ(m_log.count_containing("stays in force"), 1u) << "said once, not once a look";
  std::filesystem::remove(m_folder / "state.tmp");
  EXPECT_TRUE(m_site->look());
  EXPECT_EQ(versions(), Versions(101, 100));
}

}  // namespace
}  // namespace cv::tools
