// Captures written by libpcap itself, of the same call in many wrappings.

#include "tools/analyse/capture.h"

#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <pcap/pcap.h>

#include "support/recordings.h"
#include "support/run_command.h"
#include "support/sound_folder.h"
#include "tools/analyse/rtp_stream.h"
#include "tools/evaluate/sound_codec.h"
#include "tools/text_file.h"

namespace cv::tools {
namespace {

constexpr std::size_t block = 160;

/// The lowest bytes of a number, in the network's order.
std::string be(int bytes, uint64_t value) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(value >> 8 * bytes);
  return text;
}

struct Rtp {
  uint16_t sequence = 0;
  uint32_t timestamp = 0;
  std::string payload{};
  uint8_t type = payload_type_mulaw;
  uint32_t ssrc = 0x1A2B;
};

std::string rtp(const Rtp& packet) {
  return be(2, 0x8000 | packet.type) + be(2, packet.sequence) + be(4, packet.timestamp) +
         be(4, packet.ssrc) + packet.payload;
}

std::string udp(const std::string& payload) {
  return be(2, 4000) + be(2, 5000) + be(2, 8 + payload.size()) + be(2, 0) + payload;
}

std::string ipv4(const std::string& payload, uint32_t from = 0x0A000001, uint32_t to = 0x0A000002,
                 uint16_t fragment = 0) {
  return be(2, 0x4500) + be(2, 20 + payload.size()) + be(4, fragment) + be(4, 0x40110000) +
         be(4, from) + be(4, to) + payload;
}

std::string ipv6(const std::string& payload, const std::string& extensions = "", int next = 17) {
  const std::string network = be(8, 0x20010DB800000000);
  return be(4, 0x60000000) + be(2, extensions.size() + payload.size()) +
         be(2, static_cast<uint64_t>(next) << 8 | 64) + network + be(8, 1) + network + be(8, 2) +
         extensions + payload;
}

std::string ethernet(uint16_t type, const std::string& payload) {
  return std::string(12, 'E') + be(2, type) + payload;
}

/// A block of codes, one after the other.
std::string codes(uint8_t first) {
  std::string payload(block, 0);
  std::iota(payload.begin(), payload.end(), static_cast<char>(first));
  return payload;
}

std::vector<int16_t> decoded(const std::string& codes) {
  return decode_sound({codes.begin(), codes.end()}, SoundCodec::mulaw);
}

struct CaptureTest : testing::Test {
  struct Captured {
    std::string frame;
    int64_t at_us;
    std::size_t captured = SIZE_MAX;
  };

  std::string write(int link_type, const std::vector<Captured>& frames) {
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> dead(pcap_open_dead(link_type, 65535),
                                                              &pcap_close);
    const std::string path = folder / "capture";
    pcap_dumper_t* dumper = pcap_dump_open(dead.get(), path.c_str());
    for (const auto& [frame, at_us, captured] : frames) {
      pcap_pkthdr header{};
      header.ts = {1600000000 + at_us / 1000000, at_us % 1000000};
      header.len = static_cast<bpf_u_int32>(frame.size());
      header.caplen = static_cast<bpf_u_int32>(std::min(frame.size(), captured));
      pcap_dump(reinterpret_cast<u_char*>(dumper), &header,
                reinterpret_cast<const u_char*>(frame.data()));
    }
    pcap_dump_close(dumper);
    return path;
  }

  /// The call's sides; what was wrong is in `error`.
  std::optional<Recording> read(const std::string& path, std::array<std::string, 2> choices = {}) {
    error.clear();
    const auto capture = read_capture(path, error);
    if (!capture) return std::nullopt;
    const auto streams = choose_streams(*capture, choices, error);
    if (!streams) return std::nullopt;
    return call_source(path, *streams).read(error);
  }

  test::TemporaryFolder folder;
  std::string error;
};

TEST_F(CaptureTest, EveryWrappingHoldsTheSameAudio) {
  const std::string tags = be(2, 7) + be(2, 0x8100) + be(2, 7) + be(2, 0x0800);
  const std::string cooked = std::string(14, 0) + be(2, 0x0800);
  const std::string cooked2 = be(2, 0x86DD) + std::string(18, 0);
  const std::string options = be(8, uint64_t{17} << 56);  // of eight bytes, then UDP
  // Padding, extension and two contributors.
  const auto full = [](const std::string& f) {
    return be(1, 0xB2) + f.substr(1, 11) + be(8, 0) + be(4, 1) + be(4, 0) + f.substr(12) + be(3, 3);
  };
  using Text = const std::string&;
  const std::pair<int, std::function<std::string(Text)>> table[] = {
      {DLT_EN10MB, [](Text f) { return ethernet(0x0800, ipv4(udp(f))) + "padding"; }},
      {DLT_EN10MB, [&](Text f) { return ethernet(0x88A8, tags + ipv4(udp(f))); }},
      {DLT_LINUX_SLL, [&](Text f) { return cooked + ipv4(udp(f)); }},
      {DLT_LINUX_SLL2, [&](Text f) { return cooked2 + ipv6(udp(f)); }},
      {DLT_RAW, [](Text f) { return ipv4(udp(f)); }},
      {DLT_RAW, [&](Text f) { return ipv6(udp(f), options, 60); }},
      {DLT_NULL, [](Text f) { return be(4, 0x02000000) + ipv4(udp(f)); }},
      {DLT_RAW, [&](Text f) { return ipv4(udp(full(f))); }},
  };
  for (const auto& [link_type, wrap] : table) {
    const auto call = read(write(link_type, {{wrap(rtp({7, 1000, codes(0)})), 0},
                                             {wrap(rtp({8, 1160, codes(100)})), 20000}}));
    ASSERT_TRUE(call) << link_type << " " << error;
    EXPECT_EQ(call->sides[0], decoded(codes(0) + codes(100)));
    EXPECT_EQ(call->there, (std::array<bool, 2>{true, false}));
    EXPECT_TRUE(call->notes.empty());
  }
}

TEST_F(CaptureTest, StreamsAreListedAndPickedAndBeginTogether) {
  std::vector<Captured> frames;
  const auto add = [&](int64_t at_ms, uint32_t ssrc, uint8_t type, uint32_t from, uint32_t to) {
    for (uint16_t i = 0; i < 3; ++i) {
      frames.push_back(
          {ipv4(udp(rtp({i, i * 160U, codes(0), type, ssrc})), from, to), (at_ms + 20 * i) * 1000});
    }
  };
  add(0, 0xAAAA, payload_type_mulaw, 1, 2);
  add(400, 0xBBBB, payload_type_mulaw, 3, 1);
  EXPECT_FALSE(read(write(DLT_RAW, frames))) << "none answers the other";
  frames.resize(3);
  add(500, 0xBBBB, payload_type_alaw, 2, 1);
  // What is no stream of audio: once alone, RTCP, other UDP.
  frames.push_back({ipv4(udp(rtp({9, 0, codes(0), 0, 0xCCCC}))), 600000});
  for (const uint8_t type : {uint8_t{200 & 0x7F}, uint8_t{207 & 0x7F}}) {
    for (const uint16_t sequence : {uint16_t{1}, uint16_t{2}}) {
      frames.push_back({ipv4(udp(rtp({sequence, 0, codes(0), type, 0xCCCC}))), 600000});
    }
  }
  frames.push_back({ipv4(udp(std::string(40, 1))), 600000});
  const auto two = read(write(DLT_RAW, frames));
  ASSERT_TRUE(two) << error;
  EXPECT_EQ(two->sides[0].size(), 480u);
  ASSERT_EQ(two->sides[1].size(), 4000u + 480u) << "silent until it begins";
  EXPECT_EQ(std::count(two->sides[1].begin(), two->sides[1].begin() + 4000, 0), 4000);
  EXPECT_EQ(two->sides[1][4000], decode_sound({0}, SoundCodec::alaw)[0]);

  // A source that takes another SSRC goes on; two at once do not.
  add(1000, 0xFFFF, payload_type_mulaw, 1, 2);
  const auto changed = read(write(DLT_RAW, frames));
  ASSERT_TRUE(changed) << error;
  EXPECT_EQ(changed->sides[0].size(), 8480u);
  EXPECT_EQ(changed->sides[1].size(), 4480u);
  frames.resize(frames.size() - 3);

  add(700, 0xDDDD, 101, 1, 2);
  add(800, 0xEEEE, payload_type_mulaw, 3, 2);
  add(790, 0x9999, payload_type_mulaw, 3, 2);
  const std::string path = write(DLT_RAW, frames);
  const std::string table = capture_table(read_capture(path, error).value());
  for (const char* part : {"0.0.0.1:4000-0.0.0.2:5000/0x0000aaaa", "mu-law", "A-law",
                           "101 (not analysed)", "0x0000eeee"}) {
    EXPECT_NE(table.find(part), table.npos) << table;
  }
  EXPECT_EQ(table.find("cccc"), table.npos);
  const struct {
    std::string originator, terminator, complaint;
  } choices[] = {
      {"", "", "there are 4 streams"},
      {"0.0.0.2", "0.0.0.3:4000/0x9999", ""},
      {"0xbbbb", "0.0.0.1:4000-0.0.0.2:5000/0x0000aaaa", ""},
      {"", "0.0.0.3/0xeeee", ""},
      {"0.0.0.1", "", ""},
      {"0.0.0.3", "", "is 2 streams"},
      {"0.0.0.1:4001", "", "is 0 streams"},
      {"0xdddd", "", "carries payload type 101"},
      {"0xbbbb", "0xbbbb", "both sides are one stream"},
      {"somebody", "", "names no stream"},
  };
  for (const auto& row : choices) {
    SCOPED_TRACE(row.originator + " " + row.terminator);
    const auto call = read(path, {row.originator, row.terminator});
    EXPECT_EQ(call.has_value(), row.complaint.empty()) << error;
    EXPECT_NE(error.find(row.complaint), error.npos) << error;
    if (!call) continue;
    EXPECT_EQ(call->there, (std::array{!row.originator.empty(), !row.terminator.empty()}));
  }
  EXPECT_TRUE(StreamChoice::parse("[2001:db8::1]:4000-[2001:db8::2]"));
  EXPECT_TRUE(StreamChoice::parse("2001:db8::1/0x1"));
  for (const char* bad : {"", "/0x1", "1.2.3", "1.2.3.4:x", "1.2.3.4:99999", "0xg", "[::1"}) {
    EXPECT_FALSE(StreamChoice::parse(bad)) << bad;
  }
}

TEST_F(CaptureTest, BadFilesAndPacketsAreCountedAndTheRestIsRead) {
  const std::string good = ethernet(0x0800, ipv4(udp(rtp({1, 0, codes(0)}))));
  const std::string next = ethernet(0x0800, ipv4(udp(rtp({2, 160, codes(0)}))));
  std::vector<Captured> frames = {{good, 0}, {next, 20000}};
  // Every length that a capture may cut a packet to, every byte of the headers wrong: nothing reads
  // beyond it.
  for (std::size_t cut = 0; cut < good.size(); ++cut) {
    frames.push_back({good, 30000, cut});
    if (cut >= 54) continue;
    for (const int wrong : {0x00, 0x0F, 0xF0, 0xFF}) {
      std::string bad = good;
      bad[cut] = static_cast<char>(wrong);
      frames.push_back({bad, 30000});
    }
  }
  frames.push_back({ethernet(0x0800, ipv4(udp(rtp({3, 320, codes(0)})), 1, 2, 0x2000)), 40000});
  const std::string path = write(DLT_EN10MB, frames);
  const Capture capture = read_capture(path, error).value();
  EXPECT_EQ(capture.frames, frames.size());
  EXPECT_GE(capture.truncated, 160u);
  EXPECT_EQ(capture.fragments, 7u) << "six by a wrong byte";
  EXPECT_NE(capture_faults(capture).find("captured in part only"), std::string::npos);

  std::filesystem::resize_file(path, 24 + 2 * (16 + good.size()) + 20);
  const Capture cut = read_capture(path, error).value();
  EXPECT_NE(cut.ends_early, "");
  ASSERT_EQ(cut.streams.size(), 1u);
  EXPECT_EQ(cut.streams[0].packets, 2u);

  const auto refused = [&](const std::string& file, const char* complaint) {
    EXPECT_FALSE(read(file)) << file;
    EXPECT_NE(error.find(complaint), error.npos) << error;
  };
  refused(folder / "nowhere", "nowhere: ");
  refused(folder.write("text", "no capture, but long enough for a header"), "text: ");
  refused(folder.write("empty", ""), "empty: ");
  refused(write(DLT_IEEE802_11, {}), "link type IEEE802_11");
  refused(write(DLT_RAW, {}), "no stream of G.711");
}

TEST_F(CaptureTest, ItsCallIsAnalysedAsARecordingOfItIs) {
  auto prompt = test::english_prompts(3 * 8000).front().samples;
  prompt.resize(prompt.size() / block * block);
  test::write_sound(folder / "samples/prompt.wav", prompt, 8000, 1);
  test::write_sound(folder / "heard.wav", prompt, 8000, 1, SF_FORMAT_WAV | SF_FORMAT_ULAW);
  test::write_sound(folder / "codes", prompt, 8000, 1, SF_FORMAT_RAW | SF_FORMAT_ULAW);
  const std::string heard = read_file(folder / "codes", error).value();
  std::vector<Captured> frames;
  for (uint16_t i = 0; i * block < heard.size(); ++i) {
    frames.push_back({ipv4(udp(rtp({i, i * 160U, heard.substr(i * block, block)}))), i * 20000});
  }
  const std::string path = write(DLT_RAW, frames);
  const std::string rules = R"({"rules": [{"id": 1, "samples": ["*"]}]})";
  const std::vector<std::string> analyse = {
      "analyse",          "--rules", folder.write("rules.json", rules),
      "--rule",           "1",       "--samples",
      folder / "samples", "--uuid",  std::string(32, 'a')};
  const auto lines = test::run_command(analyse, {"--side", "terminator", folder / "heard.wav"});
  EXPECT_TRUE(lines.prints("corvanth_detection")) << lines.err;
  EXPECT_EQ(test::run_command(analyse, {"--pcap", path, "--terminator", "10.0.0.1"}).out,
            lines.out);
  EXPECT_TRUE(test::run_command({"analyse", "--pcap", path, "--list"}).prints("0x00001a2b"));
}

constexpr int digit = -1;  // in place of a code: not G.711

/// "1 49s 2": a block of A-law code 1, 49 silent ones, a block of code 2.
std::vector<int16_t> audio_of(const std::string& blocks) {
  std::vector<int16_t> audio;
  std::istringstream tokens(blocks);
  for (unsigned number = 0; tokens >> number;) {
    const auto code = static_cast<unsigned char>(number);
    if (tokens.peek() != 's') {
      audio.insert(audio.end(), block, decode_sound({code}, SoundCodec::alaw)[0]);
    } else {
      audio.resize(audio.size() + number * block);
      tokens.get();
    }
  }
  return audio;
}

TEST(RtpStream, IsInOrderAndInTimeWhateverTheNetworkDid) {
  struct Packet {
    uint16_t sequence;
    uint32_t timestamp;  // in blocks
    int64_t at_ms;
    int code;
    uint32_t ssrc = 1;
  };
  const struct {
    const char* name;
    std::vector<Packet> packets;
    const char* blocks;
    RtpFaults faults = {};
  } table[] = {
      {"reordered, the first too",
       {{2, 1, 0, 2}, {1, 0, 5, 1}, {4, 3, 45, 4}, {3, 2, 60, 3}},
       "1 2 3 4"},
      {"lost", {{1, 0, 0, 1}, {4, 3, 60, 4}}, "1 2s 4", {.lost = 2}},
      {"silence not sent", {{1, 0, 0, 1}, {2, 50, 1000, 2}}, "1 49s 2"},
      {"twice", {{1, 0, 0, 1}, {1, 0, 1, 1}, {2, 1, 20, 2}}, "1 2", {.late = 1}},
      {"wrap-around",
       {{65535, 26843545, 0, 1}, {0, 26843546, 20, 2}, {65534, 26843544, 21, 3}},
       "3 1 2"},
      {"a digit pressed",
       {{1, 0, 0, 1}, {2, 1, 20, digit}, {3, 1, 40, digit}, {4, 3, 60, 4}},
       "1 2s 4",
       {.other_type = 2}},
      {"time stamps begin anew",
       {{1, 9000, 0, 1}, {2, 0, 20, 2}, {3, 1, 40, 3}},
       "1 2 3",
       {.restarts = 1}},
      {"and after a pause", {{1, 9000, 0, 1}, {2, 0, 1020, 2}}, "1 50s 2", {.restarts = 1}},
      {"sequence begins anew",
       {{1, 0, 0, 1}, {9001, 1, 20, 2}, {9002, 2, 40, 3}},
       "1 2 3",
       {.restarts = 1}},
      {"sequence begins anew, not far back",
       {{1000, 0, 0, 1}, {1001, 1, 20, 2}, {1, 2, 40, 3}, {2, 3, 60, 4}},
       "1 2 3 4",
       {.restarts = 1}},
      {"another source goes on",
       {{1, 50, 0, 1}, {1, 77, 1040, 2, 9}, {2, 78, 1060, 3, 9}},
       "1 51s 2 3",
       {.restarts = 1}},
      {"a clock that jumps",
       {{1, 0, 0, 1}, {2, 9000, RtpStream::max_arrival_us / 1000, 2}, {3, 9001, 0, 3}},
       "1 8999s 2 3"},
      {"a stray", {{1, 0, 0, 1}, {9001, 77, 10, 9}, {2, 1, 20, 2}}, "1 2", {.stray = 1}},
      {"an hour's hold", {{1, 0, 0, 1}, {2, 180000, 3600000, 2}}, "1 15000s 2", {.cut_gaps = 1}},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    RtpStream stream;
    for (const Packet& packet : row.packets) {
      const std::vector<uint8_t> payload(block, static_cast<uint8_t>(packet.code));
      RtpPacket rtp_packet;
      rtp_packet.key.ssrc = packet.ssrc;
      rtp_packet.sequence = packet.sequence;
      rtp_packet.timestamp = packet.timestamp * block;
      rtp_packet.payload_type = packet.code == digit ? 101 : payload_type_alaw;
      rtp_packet.payload = payload;
      stream.take(rtp_packet, packet.at_ms * 1000);
    }
    stream.finish();
    EXPECT_TRUE(stream.samples() == audio_of(row.blocks)) << stream.samples().size();
    EXPECT_EQ(stream.faults(), row.faults);
  }
}

}  // namespace
}  // namespace cv::tools
