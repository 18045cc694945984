// Captures written by libpcap itself, of the same call in many wrappings.

#include "tools/analyse/capture.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <numeric>
#include <pcap/pcap.h>

#include "support/recordings.h"
#include "support/sound_folder.h"
#include "tools/analyse/rtp_stream.h"
#include "tools/command_line.h"
#include "tools/evaluate/sound_codec.h"

namespace cv::tools {
namespace {

using Frame = std::vector<uint8_t>;

void put(Frame& frame, uint64_t value, int bytes) {
  while (bytes-- > 0) frame.push_back(static_cast<uint8_t>(value >> 8 * bytes));
}

Frame joined(std::initializer_list<Frame> parts) {
  Frame all;
  for (const Frame& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

struct Rtp {
  uint16_t sequence = 0;
  uint32_t timestamp = 0;
  Frame payload{};
  uint8_t type = payload_type_mulaw;
  uint32_t ssrc = 0x1A2B;
  uint8_t first_byte = 0x80;
};

Frame rtp(const Rtp& packet) {
  Frame frame;
  put(frame, packet.first_byte, 1);
  put(frame, packet.type, 1);
  put(frame, packet.sequence, 2);
  put(frame, packet.timestamp, 4);
  put(frame, packet.ssrc, 4);
  return joined({frame, packet.payload});
}

Frame udp(const Frame& payload, uint16_t from = 4000, uint16_t to = 5000) {
  Frame frame;
  put(frame, from, 2);
  put(frame, to, 2);
  put(frame, 8 + payload.size(), 2);
  put(frame, 0, 2);
  return joined({frame, payload});
}

Frame ipv4(const Frame& payload, uint32_t from = 0x0A000001, uint32_t to = 0x0A000002,
           uint16_t fragment = 0) {
  Frame frame;
  put(frame, 0x4500, 2);
  put(frame, 20 + payload.size(), 2);
  put(frame, fragment, 4);
  put(frame, 0x4011'0000, 4);
  put(frame, from, 4);
  put(frame, to, 4);
  return joined({frame, payload});
}

Frame ipv6(const Frame& payload, const Frame& extensions = {}, uint8_t next = 17) {
  Frame frame;
  put(frame, 0x60000000, 4);
  put(frame, extensions.size() + payload.size(), 2);
  put(frame, next, 1);
  put(frame, 64, 1);
  for (const uint8_t last : {uint8_t{1}, uint8_t{2}}) {
    put(frame, 0x20010DB8, 4);
    put(frame, 0, 8);
    put(frame, last, 4);
  }
  return joined({frame, extensions, payload});
}

Frame ethernet(uint16_t type, const Frame& payload) {
  Frame frame(12, 0xEE);
  put(frame, type, 2);
  return joined({frame, payload});
}

struct CaptureTest : testing::Test {
  struct Captured {
    Frame frame;
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
      pcap_dump(reinterpret_cast<u_char*>(dumper), &header, frame.data());
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

Frame codes(uint8_t first) {
  Frame payload(160);
  std::iota(payload.begin(), payload.end(), first);
  return payload;
}

TEST_F(CaptureTest, EveryWrappingHoldsTheSameAudio) {
  const auto expected = decode_sound(joined({codes(0), codes(100)}), SoundCodec::mulaw);
  Frame options(8, 0);  // an IPv6 extension header of 8 bytes, then UDP
  options[0] = 17;
  Frame sll(14, 0), sll2(18, 0), tags(2, 0);
  put(sll, 0x0800, 2);
  sll2.insert(sll2.begin(), {0x86, 0xDD});
  put(tags, 0x8100, 2);
  put(tags, 7, 2);
  put(tags, 0x0800, 2);
  const Frame family = {2, 0, 0, 0};
  using Wrap = std::function<Frame(const Frame&)>;
  const struct {
    const char* name;
    int link_type;
    Wrap wrap;
  } table[] = {
      {"ethernet", DLT_EN10MB, [](const Frame& f) { return ethernet(0x0800, ipv4(udp(f))); }},
      {"padded", DLT_EN10MB,
       [](const Frame& f) {
         return joined({ethernet(0x0800, ipv4(udp(f))), Frame(9, 0xAA)});
       }},
      {"two tags", DLT_EN10MB,
       [&](const Frame& f) {
         return ethernet(0x88A8, joined({tags, ipv4(udp(f))}));
       }},
      {"cooked", DLT_LINUX_SLL,
       [&](const Frame& f) {
         return joined({sll, ipv4(udp(f))});
       }},
      {"cooked 2", DLT_LINUX_SLL2,
       [&](const Frame& f) {
         return joined({sll2, ipv6(udp(f))});
       }},
      {"raw", DLT_RAW, [](const Frame& f) { return ipv4(udp(f)); }},
      {"raw, extension", DLT_RAW, [&](const Frame& f) { return ipv6(udp(f), options, 60); }},
      {"loopback", DLT_NULL,
       [&](const Frame& f) {
         return joined({family, ipv4(udp(f))});
       }},
      {"padding, extension, contributors", DLT_RAW,
       [](const Frame& f) {
         Frame more = f;
         more[0] = 0x80 | 0x20 | 0x10 | 2;
         const Frame between(8 + 4 + 4, 0);
         more.insert(more.begin() + 12, between.begin(), between.end());
         more[12 + 8 + 3] = 1;
         put(more, 3, 3);
         return ipv4(udp(more));
       }},
  };
  for (const auto& [name, link_type, wrap] : table) {
    SCOPED_TRACE(name);
    const auto call = read(write(link_type, {{wrap(rtp({7, 1000, codes(0)})), 0},
                                             {wrap(rtp({8, 1160, codes(100)})), 20000}}));
    ASSERT_TRUE(call) << error;
    EXPECT_EQ(call->sides[0], expected);
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
  add(500, 0xBBBB, payload_type_alaw, 2, 1);
  // What is no stream of audio: once alone, RTCP, other UDP.
  frames.push_back({ipv4(udp(rtp({9, 0, codes(0), 0, 0xCCCC}))), 600000});
  frames.push_back({ipv4(udp(rtp({9, 0, codes(0), 200 & 0x7F, 0xCCCC}))), 600000});
  for (const uint16_t sequence : {uint16_t{1}, uint16_t{2}}) {
    frames.push_back({ipv4(udp(rtp({sequence, 0, codes(0), 207 & 0x7F, 0xCCCC}))), 600000});
  }
  frames.push_back({ipv4(udp(Frame(40, 1))), 600000});
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
  for (int i = 0; i < 3; ++i) frames.pop_back();

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
      {"0.0.0.9", "", "is 0 streams"},
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
    EXPECT_EQ(call->there[0], !row.originator.empty());
    EXPECT_EQ(call->there[1], !row.terminator.empty());
  }
  EXPECT_TRUE(StreamChoice::parse("[2001:db8::1]:4000-[2001:db8::2]"));
  EXPECT_TRUE(StreamChoice::parse("2001:db8::1/0x1"));
  for (const char* bad : {"", "/0x1", "1.2.3", "1.2.3.4:x", "1.2.3.4:99999", "0xg", "[::1"}) {
    EXPECT_FALSE(StreamChoice::parse(bad)) << bad;
  }
}

TEST_F(CaptureTest, BadFilesAndPacketsAreCountedAndTheRestIsRead) {
  const Frame good = ethernet(0x0800, ipv4(udp(rtp({1, 0, codes(0)}))));
  const Frame next = ethernet(0x0800, ipv4(udp(rtp({2, 160, codes(0)}))));
  std::vector<Captured> frames = {{good, 0}, {next, 20000}};
  // Every length that a capture may cut a packet to, every single byte wrong: nothing reads beyond it.
  for (std::size_t cut = 0; cut < good.size(); ++cut) {
    frames.push_back({good, 30000, cut});
    if (cut >= 54) continue;
    for (const int wrong : {0x00, 0x0F, 0xF0, 0xFF}) {
      Frame bad = good;
      bad[cut] = static_cast<uint8_t>(wrong);
      frames.push_back({bad, 30000});
    }
  }
  frames.push_back({ethernet(0x0800, ipv4(udp(rtp({3, 320, codes(0)})), 1, 2, 0x2000)), 40000});
  const std::string path = write(DLT_EN10MB, frames);
  const Capture capture = read_capture(path, error).value();
  EXPECT_EQ(capture.frames, frames.size());
  EXPECT_GE(capture.truncated, 160u);
  EXPECT_GE(capture.fragments, 1u);
  EXPECT_NE(capture_faults(capture).find("captured in part only"), std::string::npos);

  std::filesystem::resize_file(path, 24 + 2 * (16 + good.size()) + 20);
  const Capture cut = read_capture(path, error).value();
  EXPECT_NE(cut.ends_early, "");
  ASSERT_EQ(cut.streams.size(), 1u);
  EXPECT_EQ(cut.streams[0].packets, 2u);

  EXPECT_FALSE(read_capture(folder / "nowhere", error));
  EXPECT_NE(error.find("nowhere: "), error.npos);
  EXPECT_FALSE(
      read_capture(folder.write("text", "no capture, but long enough for a header"), error));
  EXPECT_NE(error.find("text: "), error.npos) << error;
  EXPECT_FALSE(read_capture(folder.write("empty", ""), error));
  EXPECT_FALSE(read_capture(write(DLT_IEEE802_11, {}), error));
  EXPECT_NE(error.find("link type IEEE802_11"), error.npos) << error;
  EXPECT_FALSE(read(write(DLT_RAW, {})));
  EXPECT_NE(error.find("no stream of G.711"), error.npos) << error;
}

TEST_F(CaptureTest, ItsCallIsAnalysedAsARecordingOfItIs) {
  auto prompt = test::english_prompts(3 * 8000).front().samples;
  prompt.resize(prompt.size() / 160 * 160);
  const auto heard = through_codec(prompt, SoundCodec::mulaw);
  std::map<int16_t, uint8_t> code_of;
  for (int code = 0; code < 256; ++code) {
    const auto byte = static_cast<uint8_t>(code);
    code_of[decode_sound({byte}, SoundCodec::mulaw)[0]] = byte;
  }
  std::vector<Captured> frames;
  for (std::size_t i = 0; i < heard.size() / 160; ++i) {
    Rtp packet{static_cast<uint16_t>(i), static_cast<uint32_t>(160 * i)};
    for (std::size_t k = 160 * i; k < 160 * (i + 1); ++k) {
      packet.payload.push_back(code_of.at(heard[k]));
    }
    frames.push_back({ipv4(udp(rtp(packet))), static_cast<int64_t>(20000 * i)});
  }
  folder.write("samples/prompt.wav", "");
  test::write_sound(folder / "samples/prompt.wav", prompt, 8000, 1);
  test::write_sound(folder / "heard.wav", heard, 8000, 1);
  folder.write("rules.json", R"({"rules": [{"id": 1, "samples": ["*"]}]})");
  const auto analyse = [&](std::vector<std::string> source) {
    std::vector<std::string> arguments = {
        "corvanth", "analyse", "--samples", folder / "samples",  "--rules", folder / "rules.json",
        "--rule",   "1",       "--uuid",    std::string(32, 'a')};
    arguments.insert(arguments.end(), source.begin(), source.end());
    std::vector<const char*> argv;
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    const int status = run_command_line(static_cast<int>(argv.size()), argv.data());
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, exit_done);
    return out;
  };
  const std::string path = write(DLT_RAW, frames);
  const std::string lines = analyse({"--side", "terminator", folder / "heard.wav"});
  EXPECT_NE(lines.find("corvanth_detection"), lines.npos);
  EXPECT_EQ(analyse({"--pcap", path, "--terminator", "10.0.0.1"}), lines);
  EXPECT_NE(analyse({"--pcap", path, "--list"}).find("0x00001a2b"), std::string::npos);
}

/// Runs of samples: which code, how many.
using Runs = std::vector<std::pair<int, std::size_t>>;

TEST(RtpStream, IsInOrderAndInTimeWhateverTheNetworkDid) {
  struct Packet {
    uint16_t sequence;
    uint32_t timestamp;  // of 160 samples, in units of them
    int64_t at_ms;
    int code;  // negative: no G.711
    uint32_t ssrc = 1;
  };
  constexpr int silent = 0;
  const struct {
    const char* name;
    std::vector<Packet> packets;
    Runs runs;
    RtpFaults faults;
  } table[] = {
      {"plain", {{1, 0, 0, 1}, {2, 1, 20, 2}}, {{1, 160}, {2, 160}}, {}},
      {"reordered, the first too",
       {{2, 1, 0, 2}, {1, 0, 5, 1}, {4, 3, 45, 4}, {3, 2, 60, 3}},
       {{1, 160}, {2, 160}, {3, 160}, {4, 160}},
       {}},
      {"lost", {{1, 0, 0, 1}, {4, 3, 60, 4}}, {{1, 160}, {silent, 320}, {4, 160}}, {.lost = 2}},
      {"silence not sent",
       {{1, 0, 0, 1}, {2, 50, 1000, 2}},
       {{1, 160}, {silent, 7840}, {2, 160}},
       {}},
      {"twice", {{1, 0, 0, 1}, {1, 0, 1, 1}, {2, 1, 20, 2}}, {{1, 160}, {2, 160}}, {.late = 1}},
      {"wrap-around",
       {{65535, 26843545, 0, 1}, {0, 26843546, 20, 2}, {65534, 26843544, 21, 3}},
       {{3, 160}, {1, 160}, {2, 160}},
       {}},
      {"a digit pressed",
       {{1, 0, 0, 1}, {2, 1, 20, -1}, {3, 1, 40, -1}, {4, 3, 60, 4}},
       {{1, 160}, {silent, 320}, {4, 160}},
       {.other_type = 2}},
      {"time stamps begin anew",
       {{1, 9000, 0, 1}, {2, 0, 20, 2}, {3, 1, 40, 3}},
       {{1, 160}, {2, 160}, {3, 160}},
       {.restarts = 1}},
      {"and after a pause",
       {{1, 9000, 0, 1}, {2, 0, 1020, 2}},
       {{1, 160}, {silent, 8000}, {2, 160}},
       {.restarts = 1}},
      {"sequence begins anew",
       {{1, 0, 0, 1}, {9001, 1, 20, 2}, {9002, 2, 40, 3}},
       {{1, 160}, {2, 160}, {3, 160}},
       {.restarts = 1}},
      {"sequence begins anew, not far back",
       {{1000, 0, 0, 1}, {1001, 1, 20, 2}, {1, 2, 40, 3}, {2, 3, 60, 4}},
       {{1, 160}, {2, 160}, {3, 160}, {4, 160}},
       {.restarts = 1}},
      {"another source goes on",
       {{1, 50, 0, 1}, {1, 77, 1040, 2, 9}, {2, 78, 1060, 3, 9}},
       {{1, 160}, {silent, 8160}, {2, 160}, {3, 160}},
       {.restarts = 1}},
      {"a clock that jumps",
       {{1, 0, 0, 1}, {2, 9000, RtpStream::max_arrival_us / 1000, 2}, {3, 9001, 0, 3}},
       {{1, 160}, {silent, 1440000 - 160}, {2, 160}, {3, 160}},
       {}},
      {"a stray",
       {{1, 0, 0, 1}, {9001, 77, 10, 9}, {2, 1, 20, 2}},
       {{1, 160}, {2, 160}},
       {.stray = 1}},
      {"an hour's hold",
       {{1, 0, 0, 1}, {2, 180000, 3600000, 2}},
       {{1, 160}, {silent, 2400000}, {2, 160}},
       {.cut_gaps = 1}},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    RtpStream stream;
    for (const Packet& packet : row.packets) {
      const Frame payload(160, static_cast<uint8_t>(packet.code));
      RtpPacket rtp_packet;
      rtp_packet.key.ssrc = packet.ssrc;
      rtp_packet.sequence = packet.sequence;
      rtp_packet.timestamp = packet.timestamp * 160;
      rtp_packet.payload_type = packet.code < 0 ? 101 : payload_type_alaw;
      rtp_packet.payload = payload;
      stream.take(rtp_packet, packet.at_ms * 1000);
    }
    stream.finish();
    std::vector<int16_t> expected;
    for (const auto& [code, count] : row.runs) {
      const int16_t sample =
          code == silent ? int16_t{0}
                         : decode_sound({static_cast<unsigned char>(code)}, SoundCodec::alaw)[0];
      expected.insert(expected.end(), count, sample);
    }
    EXPECT_TRUE(stream.samples() == expected) << stream.samples().size();
    const auto all = [](const RtpFaults& f) {
      return std::array{f.lost, f.late, f.other_type, f.stray, f.restarts, f.cut_gaps};
    };
    EXPECT_EQ(all(stream.faults()), all(row.faults));
  }
}

}  // namespace
}  // namespace cv::tools
