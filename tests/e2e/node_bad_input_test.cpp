// Whatever arrives over Kafka, the node says what was wrong with it and lives.

#include "e2e/node_fixture.h"

namespace cv::test {
namespace {

using NodeBadInput = NodeFixture;

TEST_F(NodeBadInput, EveryBadBodyGetsItsLineAndChangesNothing) {
  start_ready_node({"vm-goodbye"});
  const std::string deep = "{\"type\":\"corvanth_sample_configuration\",\"version\":9,\"data\":" +
                           std::string(100000, '[') + std::string(100000, ']') + "}";
  // Not compressible tenfold, or the limit on inflation would drop it first.
  std::string noise;
  for (unsigned i = 0, state = 1; i < 60000; ++i) {
    state = state * 1103515245 + 12345;
    noise += static_cast<char>('a' + (state >> 16) % 26);
  }
  const std::string deep_and_noisy =
      deep.substr(0, deep.size() - 1) + ",\"noise\":\"" + noise + "\"}";
  const auto sample_list = [](const std::string& data) {
    return pack_event(R"({"type":"corvanth_sample_list","data":)" + data + "}");
  };
  struct Case {
    std::string body;
    std::string line;
  };
  const Case cases[] = {
      {"no zlib stream", "MESSAGE_BROKER: message decompressing error (-3)"},
      {compressed(std::string(100000, '\0')), "MESSAGE_BROKER: message decompressing error (-5)"},
      {compressed(std::string("\1binary", 7)),
       "EVENT_DISPATCHER: binary event is not supported, ignoring; size (6) bytes"},
      {pack_event(""), "EVENT_DISPATCHER: JSON parse error at [0]: \"The document is empty.\""},
      {pack_event("{\"kind\":1}"), "EVENT_DISPATCHER: JSON element \"type\" is not found"},
      {pack_event(deep_and_noisy), "EVENT_DISPATCHER: "},
      {pack_event(R"({"type":"config_versions"})"), "SERVICE: field \"data\" is not found"},
      {pack_event(R"({"type":"corvanth_sample_configuration","data":[]})"),
       "SERVICE: field \"version\" is not found, it's a mandatory"},
      {pack_event(R"({"type":"corvanth_deadair_configuration","version":2,"data":{}})"),
       "SERVICE: field \"data\" has invalid format"},
      {sample_list(R"({"id":4294967296,"hash":"00"})"),
       "SERVICE: field \"id\" is out of bound (4294967296)"},
      {sample_list(R"({"id":101,"hash":"4748zz"})"), "SERVICE: field \"hash\" parsing error\n"},
      {sample_list(R"({"id":101,"hash":"47480000000000"})"),
       "SERVICE: field \"hash\" parsing error: too short"},
      {sample_list(R"({"id":101,"hash":"0000000000000000"})"),
       "SERVICE: field \"hash\" parsing error: not a hash data"},
      {sample_list(R"({"id":101,"hash":"4748010000000000"})"),
       "DATABASE_DISPATCHER: sample (101) unknown flags: 1"},
      {sample_list(R"({"id":101,"hash":"47480000FFFFFFFF"})"),
       "SERVICE: field \"hash\" parsing error: less data than its count says"}};
  for (const Case& bad : cases) {
    const size_t before = node().output().size();
    m_kafka.produce(node_topic(), bad.body);
    EXPECT_TRUE(node().wait_for_output(bad.line, before)) << bad.line << "\n" << node().output();
    EXPECT_EQ(node().output().find("database container swapped", before), std::string::npos);
  }

  // The node still follows a good configuration, and the old one was kept until then.
  send_to_node(sample_configuration(8, {{101, "vm-goodbye"}}));
  EXPECT_TRUE(node_logged("SERVICE: No sample configuration update is required"));
  expect_clean_stop();
}

}  // namespace
}  // namespace cv::test
