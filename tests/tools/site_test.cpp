// Recordings and rules as they change on disk, and what nodes would be told; the recordings' packets
// are made from the files' text, so that no audio is needed.
#include "tools/configd/site.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <random>

#include "support/log_capture.h"
#include "support/sound_folder.h"
#include "tools/text_file.h"

namespace {

using cv::tools::Site;
using cv::tools::StateFile;

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

  void start() {
    std::string error;
    auto state = StateFile::open(m_folder / "state", 100, error);
    ASSERT_TRUE(state) << error;
    m_site.emplace(
        cv::tools::SiteSettings{samples(), m_folder / "rules.json"}, std::move(*state),
        [this](const std::string& name, std::string& reason) { return read(name, reason); });
    ASSERT_TRUE(m_site->start(nullptr, error)) << error;
  }

  /// The packet is the file's text behind a header; "bad" cannot be read, "silent" has no points.
  std::vector<unsigned char> read(const std::string& name, std::string& error) {
    const std::string text = cv::tools::read_file(samples() + "/" + name, error).value_or("bad");
    if (text == "bad") error = "half copied";
    if (text == "bad") return {};
    std::string packet = std::string("GH\0\0\1\0\0\0", 8) + (text == "silent" ? "" : text);
    if (text == "long") packet += noise(1500000);
    return {packet.begin(), packet.end()};
  }

  static std::string noise(std::size_t size) {
    std::mt19937 random(1);
    std::string text(size, 0);
    for (char& c : text) c = static_cast<char>(random());
    return text;
  }

  /// A change is taken with the second look that sees it.
  bool look_twice() {
    EXPECT_FALSE(m_site->look());
    return m_site->look();
  }

  uint64_t sample_version() const { return m_site->snapshot().sample_version; }
  uint64_t dead_air_version() const { return m_site->snapshot().dead_air_version; }
  std::size_t count(const std::string& part) const {
    const std::string& text = m_site->snapshot().sample_data_json;
    std::size_t found = 0;
    for (auto at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++found;
    return found;
  }

  cv::test::LogCapture m_log;
  cv::test::TemporaryFolder m_folder;
  std::optional<Site> m_site;
};

TEST_F(SiteTest, TellsOfNewChangedAndRemovedRecordings) {
  start();
  EXPECT_EQ(sample_version(), 100u);
  EXPECT_EQ(m_site->snapshot().packets.size(), 2u);
  EXPECT_FALSE(look_twice()) << "nothing changed";

  const auto before = m_site->snapshot().packets;
  record("a.wav", "one, recorded again");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(sample_version(), 101u);
  EXPECT_EQ(m_site->snapshot().packets.size(), 2u);
  std::size_t kept = 0;
  for (const auto& [id, packet] : m_site->snapshot().packets) kept += before.count(id);
  EXPECT_EQ(kept, 1u) << "new content, new id: nodes keep what they hold under an id";

  record("folder/c.wav", "three");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(count(R"("sample_name":"folder/c")"), 1u);
  std::filesystem::remove(samples() + "/b.wav");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(count(R"("sample_name":"b")"), 0u);
  EXPECT_EQ(sample_version(), 103u);
  EXPECT_EQ(dead_air_version(), 100u);
}

TEST_F(SiteTest, AFileThatKeepsChangingIsLeftAloneUntilItIsStill) {
  start();
  for (const char* part : {"f", "fo", "fou", "four"}) {
    record("a.wav", part);
    EXPECT_FALSE(m_site->look()) << part;
  }
  EXPECT_TRUE(m_site->look());
  EXPECT_FALSE(m_site->look());
}

TEST_F(SiteTest, WhatIsOnlyTouchedRaisesNothing) {
  start();
  record("a.wav", "one");
  rules(R"({"rules": [ {"samples": ["*"], "id": 1, "name": "only a label"} ]})");
  EXPECT_FALSE(look_twice());
  record("README.txt", "no recording");
  record(".hidden.wav", "five");
  record(".folder/six.wav", "six");
  EXPECT_FALSE(look_twice());
  EXPECT_EQ(sample_version(), 100u);
}

TEST_F(SiteTest, AnUnusableRecordingKeepsTheFingerprintItHadAndSaysSo) {
  record("new.wav", "bad");
  record("quiet.wav", "silent");
  start();
  EXPECT_TRUE(m_log.has_containing("recording [new.wav]: half copied; left out"));
  EXPECT_TRUE(m_log.has_containing("recording [quiet.wav]: nothing to recognise"));
  EXPECT_EQ(m_site->snapshot().packets.size(), 2u);
  for (const char* content : {"bad", "silent", "long"}) {
    m_log.clear();
    record("a.wav", content);
    EXPECT_FALSE(look_twice()) << content;
    EXPECT_EQ(m_log.count_containing("recording [a.wav]"), 1u);
    EXPECT_TRUE(m_log.has_containing("the previous fingerprint stays"));
  }
  EXPECT_TRUE(m_log.has_containing("too long")) << "more than a Kafka message may have";
  record("new.wav", "good at last");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(m_site->snapshot().packets.size(), 3u);
}

TEST_F(SiteTest, RulesRaiseOnlyTheVersionOfWhatTheyChange) {
  start();
  rules(R"({"rules": [{"id": 1, "samples": ["*"], "dead_air": {"activity_hits": 3}}]})");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(sample_version(), 100u);
  EXPECT_EQ(dead_air_version(), 101u);
  rules(R"({"rules": [{"id": 1, "samples": ["a.wav"], "dead_air": {"activity_hits": 3}}]})");
  EXPECT_TRUE(look_twice());
  EXPECT_EQ(sample_version(), 101u);
  EXPECT_EQ(dead_air_version(), 101u);
  EXPECT_EQ(m_site->snapshot().packets.size(), 1u) << "only what a rule names is sent";
}

TEST_F(SiteTest, BadRulesAtRunTimeKeepTheOldOnes) {
  start();
  for (const char* bad : {"{", R"({"rules": [{"id": 1, "smaples": []}]})"}) {
    m_log.clear();
    rules(bad);
    EXPECT_FALSE(look_twice());
    EXPECT_EQ(m_log.count_containing("rules.json"), 1u);
    EXPECT_TRUE(m_log.has_containing("the previous rules stay in force"));
  }
  std::filesystem::remove(m_folder / "rules.json");
  EXPECT_FALSE(look_twice());
  record("c.wav", "three");
  EXPECT_TRUE(look_twice()) << "recordings are followed all the same";
  EXPECT_EQ(count("rule_id"), 3u);
}

TEST_F(SiteTest, VersionsAndIdsGoOnAfterARestart) {
  start();
  const auto packets = m_site->snapshot().packets;
  m_site.reset();
  start();
  EXPECT_EQ(sample_version(), 100u);
  EXPECT_EQ(m_site->snapshot().packets, packets);
  m_site.reset();
  record("a.wav", "changed while nobody looked");
  start();
  EXPECT_EQ(sample_version(), 101u);
}

TEST_F(SiteTest, NothingIsToldBeforeTheStateIsOnDisk) {
  start();
  std::filesystem::create_directory(m_folder / "state.tmp");
  record("a.wav", "changed");
  EXPECT_FALSE(look_twice());
  EXPECT_FALSE(m_site->look());
  EXPECT_EQ(sample_version(), 100u);
  EXPECT_EQ(m_log.count_containing("stays in force"), 1u) << "said once, not once a look";
  std::filesystem::remove(m_folder / "state.tmp");
  EXPECT_TRUE(m_site->look());
  EXPECT_EQ(sample_version(), 101u);
}

TEST_F(SiteTest, AFolderThatGoesAwayTakesNothingWithIt) {
  start();
  std::filesystem::rename(samples(), m_folder / "elsewhere");
  EXPECT_FALSE(look_twice());
  EXPECT_EQ(m_site->snapshot().packets.size(), 2u);
  EXPECT_EQ(m_log.count_containing("everything stays as it is"), 1u);
  std::filesystem::rename(m_folder / "elsewhere", samples());
  EXPECT_FALSE(look_twice());
}

TEST_F(SiteTest, AConfigurationTooLargeForAMessageIsRefused) {
  start();
  rules(R"({"rules": [{"id": 1, "samples": [{"file": "a.wav", "event_object": ")" + [] {
    std::string text;
    for (const char c : noise(2000000)) text += static_cast<char>('0' + (c & 63));
    for (char& c : text) c = c == '\\' ? '/' : c;
    return text;
  }() + R"("}]}]})");
  EXPECT_FALSE(look_twice());
  EXPECT_TRUE(m_log.has_containing("the sample configuration takes"));
  EXPECT_EQ(count("rule_id"), 2u);
}

TEST_F(SiteTest, StartsWithNothingUsableOnlyWhenThatIsNoMistake) {
  std::string error;
  auto attempt = [&] {
    auto state = StateFile::open(m_folder / "state", 100, error);
    Site site({samples(), m_folder / "rules.json"}, std::move(*state),
              [this](const std::string& name, std::string& reason) { return read(name, reason); });
    return site.start(nullptr, error);
  };
  rules("no rules");
  EXPECT_FALSE(attempt());
  EXPECT_NE(error.find("rules.json"), error.npos);
  rules(R"({"rules": []})");
  std::filesystem::remove_all(samples());
  EXPECT_FALSE(attempt());
  EXPECT_NE(error.find("samples"), error.npos);
  std::filesystem::create_directory(samples());
  EXPECT_TRUE(attempt()) << error;
}

}  // namespace
