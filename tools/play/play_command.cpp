#include "tools/play/play_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <random>

#include "core/clock.h"
#include "log/log.h"
#include "log/log_sinks.h"
#include "net/net_socket.h"
#include "tools/audio_file.h"
#include "tools/command_line.h"
#include "tools/endpoint.h"
#include "tools/number_option.h"
#include "tools/progress_bar.h"
#include "tools/stop_signals.h"
#include "utils/utils_bytes.h"
#include "utils/utils_str.h"

namespace cv::tools {

namespace {

int fail(const std::string& reason) {
  std::cerr << "corvanth: " << reason << "\n";
  return exit_failed;
}

/// Version 4, variant 1 of RFC 4122.
media::Uuid random_uuid() {
  std::random_device device;
  media::Uuid uuid;
  std::generate(uuid.begin(), uuid.end(), [&] { return static_cast<uint8_t>(device()); });
  uuid[6] = static_cast<uint8_t>((uuid[6] & 0x0F) | 0x40);
  uuid[8] = static_cast<uint8_t>((uuid[8] & 0x3F) | 0x80);
  return uuid;
}

bool read_sides(const PlayOptions& options, CallSchedule::Sides& sides, std::string& error) {
  std::size_t side = options.silent_side == "originator" ? 1 : 0;
  for (const std::string& file : options.files) {
    auto samples = read_audio(file, error);
    if (!samples) {
      error.insert(0, file + ": ");
      return false;
    }
    sides[side++] = std::move(*samples);
  }
  return true;
}

bool make_settings(const PlayOptions& options, CallSettings& settings, std::string& error) {
  settings.uuid = options.uuid.empty() ? random_uuid() : parse_uuid(options.uuid).value();
  settings.call_id = options.call_id.empty()
                         ? "corvanth-play-" + utils::str::print_uuid(settings.uuid.data())
                         : options.call_id;
  settings.rule = options.rule;
  settings.timestamp = static_cast<uint64_t>(std::time(nullptr));
  settings.features = feature_bits(options.features).value();
  if (options.report_to.empty()) return true;
  const auto reports = parse_endpoint(options.report_to, error);
  if (!reports) return false;
  settings.report_addr = reports->sin_addr.s_addr;
  settings.report_port = reports->sin_port;
  return true;
}

/// What became of the call.
struct Played {
  std::size_t packets = 0;
  int64_t media_us = 0;
  int64_t elapsed_us = 0;
  int64_t latest_us = 0;  // the largest delay behind a packet's due time
  bool sent = true;
  bool complete = true;
};

/// Every packet has its time counted from the start of the call, so that no delay adds up.
Played play(CallSchedule& schedule, const sockaddr_in& to, double speed, net::Socket& socket,
            StopSignals& stop) {
  ProgressBar bar("playing, seconds");
  Played played;
  media::Datagram packet;
  const int64_t start_us = steady_clock().now_us();
  const int64_t duration_us = schedule.duration_us();
  while (played.sent && schedule.next(played.media_us, packet)) {
    const int64_t due_us =
        start_us + static_cast<int64_t>(static_cast<double>(played.media_us) / speed);
    if (played.complete && !stop.sleep_until(due_us)) {
      played.complete = false;
      schedule.cut_short();
      continue;
    }
    played.latest_us = std::max(played.latest_us, steady_clock().now_us() - due_us);
    played.sent = socket.send(to, reinterpret_cast<const char*>(packet.data()), packet.size());
    ++played.packets;
    bar.update(static_cast<std::size_t>(played.media_us / 1000000),
               static_cast<std::size_t>(duration_us / 1000000));
  }
  played.elapsed_us = steady_clock().now_us() - start_us;
  return played;
}

void print_summary(const CallSettings& settings, const Played& played) {
  std::cerr << std::fixed << std::setprecision(2) << "corvanth: call \"" << settings.call_id
            << "\" (" << utils::str::print_uuid(settings.uuid.data()) << ")"
            << (played.complete ? "" : " broken off") << ": " << played.packets << " packets, "
            << static_cast<double>(played.media_us) / 1e6 << " s of audio in "
            << static_cast<double>(played.elapsed_us) / 1e6 << " s, at most "
            << static_cast<double>(played.latest_us) / 1e3 << " ms late\n";
}

}  // namespace

std::optional<uint8_t> feature_bits(const std::vector<std::string>& names) {
  static const std::map<std::string, uint8_t> bits = {
      {"samples", media::features_sample_detection},
      {"activity", media::features_activity_detection},
      {"activity-originator", 0x04},
      {"activity-terminator", 0x08},
      {"none", 0}};
  uint8_t features = 0;
  for (const std::string& name : names) {
    const auto found = bits.find(name);
    if (found == bits.end()) return std::nullopt;
    features = static_cast<uint8_t>(features | found->second);
  }
  return features;
}

std::optional<media::Uuid> parse_uuid(const std::string& text) {
  const auto dashes = static_cast<std::size_t>(std::count(text.begin(), text.end(), '-'));
  media::Uuid uuid{};
  if (text.size() - dashes != 2 * uuid.size() || (dashes != 0 && dashes != 4) ||
      !utils::bytes::decode_uuid(text.c_str(), uuid.data(), tag::direct_update)) {
    return std::nullopt;
  }
  return uuid;
}

std::string feature_complaint(const std::string& name) {
  return feature_bits({name}) ? "" : "unknown name";
}

std::string uuid_complaint(const std::string& text) {
  return parse_uuid(text) ? "" : "is not 32 hexadecimal digits";
}

int run_play(const PlayOptions& options) {
  std::string error;
  const auto to = parse_endpoint(options.to, error);
  if (!to) return fail(error);
  CallSettings settings;
  if (!make_settings(options, settings, error)) return fail(error);
  if (settings.call_id.size() > media::max_call_id_bytes) return fail("the call id is too long");
  CallSchedule::Sides sides;
  if (!read_sides(options, sides, error)) return fail(error);
  StopSignals stop;
  log::open_stdlog();
  net::Socket socket;
  if (!socket.open(0, INADDR_ANY)) return exit_failed;
  CallSchedule schedule(settings, std::move(sides));
  const Played played = play(schedule, *to, options.speed, socket, stop);
  print_summary(settings, played);
  return played.sent && played.complete ? exit_done : exit_failed;
}

void add_play_command(CLI::App& app, int& status) {
  auto options = std::make_shared<PlayOptions>();
  CLI::App* command = app.add_subcommand("play", "Play recordings to a media node as one call");
  command->add_option("FILE", options->files, "the originator's recording, then the terminator's")
      ->required()
      ->expected(1, 2);
  command->add_option("--to", options->to, "the node's media port, HOST:PORT")->required();
  command->add_option("--rule", options->rule, "the rule id of the call")
      ->required()
      ->check(&whole_number_complaint);
  command->add_option("--report-to", options->report_to, "where the node sends reports, HOST:PORT");
  command->add_option("--call-id", options->call_id, "text (default: made from the uuid)");
  command->add_option("--uuid", options->uuid, "32 hexadecimal digits (default: random)")
      ->check(&uuid_complaint);
  command
      ->add_option("--features", options->features,
                   "samples, activity, activity-originator, activity-terminator, none")
      ->delimiter(',')
      ->check(&feature_complaint)
      ->allow_extra_args(false)  // what follows is a FILE
      ->capture_default_str();
  command
      ->add_option("--silence", options->silent_side,
                   "the side that is silent when there is one FILE (default: terminator)")
      ->check(CLI::IsMember({"originator", "terminator"}));
  command->add_option("--speed", options->speed, "times faster than real time")
      ->check(number_between(0.01, 1000.0))
      ->capture_default_str();
  command->callback([options, &status] {
    if (!options->silent_side.empty() && options->files.size() > 1) {
      throw CLI::ValidationError("--silence", "has no meaning with two recordings");
    }
    status = run_play(*options);
  });
}

}  // namespace cv::tools
