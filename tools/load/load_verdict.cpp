#include "tools/load/load_verdict.h"

#include <algorithm>
#include <cmath>

#include "tools/json_text.h"
#include "tools/load/load_sender.h"
#include "utils/utils_bytes.h"

namespace cv::tools {

namespace {

constexpr std::size_t max_examples = 20;

/// By the nearest rank: the smallest value that so large a share of all does not exceed.
Delays delays_of(std::vector<double> values_ms) {
  if (values_ms.empty()) return {};
  std::sort(values_ms.begin(), values_ms.end());
  const auto at = [&](double share) {
    const double rank = std::ceil(share * static_cast<double>(values_ms.size()));
    return values_ms[static_cast<std::size_t>(rank) - 1];
  };
  return {at(0.5), at(0.95), at(0.99), values_ms.back()};
}

void add_example(Verdict& out, const char* what, uint32_t call, const Finding& finding) {
  if (out.examples.size() == max_examples) return;
  out.examples.push_back(
      std::string(what) + ": call " + std::to_string(call) + ", " +
      (finding.side == 0 ? "originator, " : "terminator, ") +
      (finding.kind == Finding::Kind::activity ? "activity" : "\"" + finding.sample_name + "\""));
}

std::string_view text_member(const rapidjson::Value& report, const char* name) {
  const rapidjson::Value* value = find_member(report, name);
  return value != nullptr && value->IsString() ? text_of(*value) : std::string_view();
}

bool read_finding(const rapidjson::Value& report, Finding& finding) {
  const std::string_view type = text_member(report, "type");
  if (type != "corvanth_detection" && type != "audio_activity") return false;
  finding.kind = type == "audio_activity" ? Finding::Kind::activity : Finding::Kind::sample;
  finding.side = text_member(report, "call_side") == "terminator" ? 1 : 0;
  finding.sample_name = text_member(report, "sample_name");
  return true;
}

}  // namespace

LoadJudge::LoadJudge(const LoadPlan& plan, const std::vector<CallScript>& scripts, uint64_t run,
                     int64_t start_us)
    : m_plan(plan),
      m_scripts(scripts),
      m_run(run),
      m_start_us(start_us),
      m_seen(plan.calls_until(plan.end_tick)) {}

void LoadJudge::take(std::string_view text, int64_t now_us) {
  rapidjson::Document report;
  std::string error;
  uint32_t call = 0;
  Finding finding;
  if (!parse_json(text, JsonDialect::strict, report, error) || !report.IsObject() ||
      !find_call(text_member(report, "session_uuid"), call) || !read_finding(report, finding)) {
    ++m_verdict.foreign;
    return;
  }
  judge(call, finding, now_us);
}

bool LoadJudge::find_call(std::string_view text, uint32_t& call) const {
  media::Uuid uuid{};
  if (text.size() != 36 ||
      !utils::bytes::decode_uuid(std::string(text).c_str(), uuid.data(), tag::direct_update)) {
    return false;
  }
  call = 0;
  for (std::size_t i = 12; i < uuid.size(); ++i) call = call << 8 | uuid[i];
  return uuid == load_uuid(m_run, call) && call < m_seen.size();
}

void LoadJudge::judge(uint32_t call, const Finding& reported, int64_t now_us) {
  const CallScript& script = m_scripts[m_plan.script_of(call)];
  std::vector<bool>& seen = m_seen[call];
  seen.resize(script.findings.size());
  std::size_t i = 0;
  while (i < seen.size() && (seen[i] || !script.findings[i].same_report(reported))) ++i;
  if (i == seen.size()) {
    ++m_verdict.wrong;
    return add_example(m_verdict, "wrong", call, reported);
  }
  seen[i] = true;
  ++m_verdict.reported;
  const int64_t call_us = m_start_us + m_plan.call_start(call) * tick_us;
  const auto after_ms = [&](int64_t media_us) {
    return static_cast<double>(now_us - call_us - media_us) / 1000;
  };
  m_after_packet_ms.push_back(after_ms(script.findings[i].block * block_us));
  if (script.planted && script.planted->finding == i) {
    m_after_start_ms.push_back(after_ms(script.planted->start_us));
  }
}

Verdict LoadJudge::verdict(int64_t end_tick) const {
  Verdict out = m_verdict;
  for (uint32_t call = 0; call < m_plan.calls_until(end_tick); ++call) {
    const uint32_t blocks = m_plan.blocks_until(call, end_tick);
    if (blocks != 0) count_call(call, blocks, out);
  }
  out.prompts = m_after_start_ms.size();
  out.after_start = delays_of(m_after_start_ms);
  out.after_packet = delays_of(m_after_packet_ms);
  return out;
}

void LoadJudge::count_call(uint32_t call, uint32_t blocks, Verdict& out) const {
  ++out.calls;
  const CallScript& script = m_scripts[m_plan.script_of(call)];
  const std::vector<bool>& seen = m_seen[call];
  for (std::size_t i = 0; i < script.findings.size(); ++i) {
    if (script.findings[i].block >= blocks) continue;
    ++out.expected;
    if (i < seen.size() && seen[i]) continue;
    ++out.missing;
    add_example(out, "missing", call, script.findings[i]);
  }
}

}  // namespace cv::tools
