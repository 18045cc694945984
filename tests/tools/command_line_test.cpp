#include "support/run_command.h"
#include "support/sound_folder.h"
#include "tools/text_file.h"

namespace cv::tools {
namespace {

TEST(CommandLine, ExitStatusesAreDoneFailedAndUsage) {
  const test::TemporaryFolder folder;
  const std::string file = folder.write("a.wav", "no audio");
  const std::vector<std::string> site = {"--samples", folder.path(), "--rules", file};
  const std::vector<std::string> play = {"play", "--to", "127.0.0.1:9"};
  const std::string packet = folder.write("a.packet", {"GH\0\0\0\0\0\0", 8});
  const std::string silence = folder / "silence.wav";
  test::write_sound(silence, std::vector<int16_t>(8000), 8000, 1);
  const std::string kept = folder.write("kept.packet", "an earlier packet");
  const std::vector<std::string> listen = {"listen", "--port", "0", "--timeout", "0.01"};
  const struct {
    int status;
    std::vector<std::string> command, more;
  } table[] = {
      {0, {"--help"}, {}},
      {2, {}, {}},
      {2, {"fingerprint", "-o", "x", file, file}, {}},
      {1, {"fingerprint", "-o", kept, silence}, {}},
      {1, {"inspect", file}, {}},
      {1, {"inspect", packet, "--speech", file}, {}},
      {2, {"lint", "--ignore", "nothing"}, site},
      {1, {"lint"}, site},
      {2, play, {"--rule", "1", "--uuid", "12", file}},
      {1, play, {"--rule", "1", "/nonexistent.wav"}},
      {2, play, {"--rule", "-1", "/nonexistent.wav"}},
      {2, play, {"--rule", "010", "/nonexistent.wav"}},
      {2, play, {"--rule", "18446744073709551616", "/nonexistent.wav"}},
      {2, play, {"--rule", "1", "--speed", "nan", "/nonexistent.wav"}},
      {2, play, {"--rule", "1", "--speed", "1e3x", "/nonexistent.wav"}},
      {0, listen, {}},
      {1, listen, {"--count", "1"}},
      {2, {"configd", "--brokers", "b:1", "--embedded-broker"}, site},
      {1, {"configd", "--embedded-broker"}, site},
      {2, {"analyse", "--list"}, {}},
      {2, {"analyse", "--pcap", file}, {file}},
      {2, {"analyse", file}, site},
      {1, {"analyse", "--list", "--pcap", file}, {}},
      {2, {"evaluate", "--samples", folder.path()}, {"--thresholds", "3:8:1e300"}},
      {2, {"evaluate", "--samples", folder.path()}, {"--plant", "1", "--seed", "-1"}},
  };
  for (const auto& row : table) {
    const auto run = test::run_command(row.command, row.more);
    EXPECT_EQ(run.status, row.status) << testing::PrintToString(row.command) << run.err;
    EXPECT_TRUE(row.status == 0 || (!run.err.empty() && run.out.empty())) << run.out;
  }
  std::string error;
  EXPECT_EQ(read_file(kept, error), "an earlier packet") << "silence is nothing to replace it";

  // A state file that is good says nothing of a folder that is not there.
  const std::string rules = folder.write("rules.json", R"({"rules": []})");
  folder.write("rules.json.state", R"({"format": 1, "samples": {},
    "sample_configuration": {"version": 4, "content": "0"},
    "deadair_configuration": {"version": 4, "content": "0"}})");
  const auto load = test::run_command({"load", folder.path(), "--to", "127.0.0.1:9", "--rule", "1",
                                       "--calls", "1", "--rules", rules, "--samples", "/nowhere"});
  EXPECT_TRUE(load.status == 1 && load.says("/nowhere: No such file")) << load.err;
}

}  // namespace
}  // namespace cv::tools
