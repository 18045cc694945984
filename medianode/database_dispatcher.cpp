#include "medianode/database_dispatcher.h"

#include <new>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "log/log.h"

namespace cv::mn {

namespace {

constexpr int64_t sample_timeout_us = 5000000;

rc_ptr<audio::HashSamplePayload> make_payload(const audio::SamplePacket& packet) {
  try {
    rc_ptr<audio::HashSamplePayload> payload(new audio::HashSamplePayload);
    payload->points = packet.points();
    return payload;
  } catch (const std::bad_alloc&) {
    return {};
  }
}

}  // namespace

struct DatabaseDispatcher::Unusable {
  void add(uint32_t sample_id) {
    if (count++ > 0) identifiers += ", ";
    identifiers += std::to_string(sample_id);
  }

  std::size_t count = 0;
  std::string identifiers;
};

DatabaseDispatcher::DatabaseContainer::DatabaseContainer(const audio::SamplesDatabase& contents)
    : id(++counter), database(contents) {
  CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: database container (" << id << ") created";
}

DatabaseDispatcher::DatabaseContainer::~DatabaseContainer() {
  CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: database container (" << id << ") destroyed";
}

rc_ptr<DatabaseDispatcher::DatabaseContainer> DatabaseDispatcher::prepare_database(
    const SampleConfig& config, std::unordered_set<uint32_t>& missing) {
  rc_ptr<DatabaseContainer> container(
      new DatabaseContainer(audio::SamplesDatabase(config.version)));
  for (const auto& [rule_id, samples] : config.rules) {
    audio::SamplesConfiguration rule{rule_id, {}};
    for (const auto& [sample_id, metadata] : samples) {
      missing.insert(sample_id);
      container->database.announce_payload(sample_id);
      rule.samples.push_back(metadata);
    }
    container->database.add_configuration(std::move(rule));
  }
  return container;
}

int DatabaseDispatcher::on_config_received(const SampleConfig& config,
                                           std::unordered_set<uint32_t>*& missing) {
  missing = nullptr;
  const bool first = !m_pending;
  std::unordered_set<uint32_t> lacking;
  rc_ptr<DatabaseContainer> container = prepare_database(config, lacking);
  if (!first) reuse_payloads(*m_pending, container->database, lacking);

  // From here on nothing fails: it is the old configuration or the new one, never a part of it.
  m_version = config.version;
  m_missing = std::move(lacking);
  m_state = State::Waiting;
  m_request_time = m_clock.now_us();
  m_pending = std::move(container);
  m_pending_published = false;

  if (first && !config.rules.empty()) return 1;
  if (!m_missing.empty()) {
    missing = &m_missing;
    return 1;
  }
  build_and_swap();
  return 0;
}

void DatabaseDispatcher::reuse_payloads(const DatabaseContainer& from, audio::SamplesDatabase& into,
                                        std::unordered_set<uint32_t>& missing) {
  for (auto sample = missing.begin(); sample != missing.end();) {
    if (const auto payload = from.database.payload(*sample)) {
      into.set_payload(*sample, payload);
      sample = missing.erase(sample);
    } else {
      ++sample;
    }
  }
}

bool DatabaseDispatcher::on_sample_received(uint32_t sample_id, const audio::SamplePacket& packet) {
  if (packet.flags() != 0) {
    CV_LOG(ErrorMessage) << "DATABASE_DISPATCHER: sample (" << sample_id
                         << ") unknown flags: " << std::hex << packet.flags();
    return false;
  }
  CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: received sample (" << sample_id << ") with ("
                        << packet.count() << ") hash(s)";
  rc_ptr<audio::HashSamplePayload> payload = make_payload(packet);
  if (!payload) {
    CV_LOG(ErrorMessage) << "DATABASE_DISPATCHER: failed to allocate hash sample payload";
    return false;
  }
  // Before the first configuration nobody can have asked for it, and there is nothing to build.
  if (!m_pending) return true;
  if (is_built() && holds(sample_id, *payload)) return true;

  unshare_pending();
  m_pending->database.set_payload(sample_id, std::move(payload));
  m_missing.erase(sample_id);
  m_request_time = m_clock.now_us();
  if (m_missing.empty()) {
    CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: all samples received, database building started";
    build_and_swap();
  }
  return true;
}

/// A sample that was asked for twice comes twice, and with it all the others: to build again what is
/// there already would take as many builds as there are samples.
bool DatabaseDispatcher::holds(uint32_t sample_id, const audio::HashSamplePayload& payload) const {
  const auto held = m_pending->database.payload(sample_id);
  return held && held->points == payload.points;
}

/// Makes m_pending a container that may be changed.
void DatabaseDispatcher::unshare_pending() {
  if (!m_pending_published) return;
  m_pending = rc_ptr<DatabaseContainer>(new DatabaseContainer(m_pending->database));
  m_pending_published = false;
}

void DatabaseDispatcher::on_event_timeout() {
  // Runs a thousand times a second: the clock is read only while samples are awaited.
  if (m_state != State::Waiting || m_request_time == 0) return;
  if (m_clock.now_us() - m_request_time < sample_timeout_us) return;
  CV_LOG(WarningMessage) << "DATABASE_DISPATCHER: request has been timed out; trying to build what "
                            "has been received";
  build_and_swap();
}

void DatabaseDispatcher::build_and_swap() {
  m_request_time = 0;
  try {
    build_database();
  } catch (const std::bad_alloc&) {
    CV_LOG(ErrorMessage) << "DATABASE_DISPATCHER: out of memory, database version (" << m_version
                         << ") is not built; trying again after a while";
  }
  const bool failed = m_state == State::Failed;
  swap_database();
  if (!failed || !m_pending) return;
  m_state = State::Waiting;
  m_request_time = m_clock.now_us();
}

void DatabaseDispatcher::build_database() {
  m_state = State::Failed;
  if (!m_pending) {
    CV_LOG(ErrorMessage) << "DATABASE_DISPATCHER: database does not exist";
    return;
  }
  unshare_pending();
  audio::SamplesDatabase& database = m_pending->database;
  if (database.configuration_count() == 0) {
    CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: new database has no configurations to build";
    m_state = State::Built;
    return;
  }
  if (!m_missing.empty()) {
    CV_LOG(WarningMessage) << "DATABASE_DISPATCHER: not all samples are received";
  }
  CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: building database version (" << m_version
                        << ") with " << database.configuration_count() << " configuration(s) and "
                        << database.payload_count() << " sample(s)";

  Unusable missed;
  Unusable empty;
  database.build(
      true,
      [&](audio::SamplesDatabase::BuildStatus status, unsigned sample_id) {
        const bool is_empty = status == audio::SamplesDatabase::BuildStatus::SampleEmpty;
        (is_empty ? empty : missed).add(sample_id);
      },
      false);
  m_state = missed.count + empty.count == 0 ? State::Built : State::BuiltIncomplete;
  log_build_result(missed, empty);
}

void DatabaseDispatcher::log_build_result(const Unusable& missed, const Unusable& empty) const {
  if (m_state == State::Built) {
    CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: database version (" << m_version
                          << ") successfully built";
  }
  const auto log_unusable = [this](const Unusable& samples, const char* kind) {
    if (samples.count == 0) return;
    CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: database version (" << m_version
                          << ") built with (" << samples.count << ") " << kind
                          << " sample(s): " << samples.identifiers;
  };
  log_unusable(missed, "missed");
  log_unusable(empty, "empty");
}

void DatabaseDispatcher::swap_database() {
  if (m_state == State::Waiting) {
    CV_LOG(ErrorMessage) << "DATABASE_DISPATCHER: Cannot swap not build database";
    return;
  }
  if (is_built()) {
    m_pending_published = true;
    update_db_exchanger(m_pending);
    CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: database container swapped";
  }
  if (m_on_swap) m_on_swap(is_built());
}

void DatabaseDispatcher::update_db_exchanger(rc_ptr<DatabaseContainer> container) {
  if (const auto untaken = m_exchanger.publish(std::move(container))) {
    CV_LOG(InfoMessage) << "DATABASE_DISPATCHER: database container (" << untaken->id
                        << ") wasn't switched; releasing";
  }
}

rc_ptr<audio::HashDatabase> DatabaseDispatcher::get_hash_database(uint64_t rule_id,
                                                                  uint64_t& version) {
  rc_ptr<DatabaseContainer> newest = m_exchanger.take();
  if (newest && newest != m_current) {
    m_current = std::move(newest);
    CV_LOG(SystemMessage) << "DATABASE_DISPATCHER: database switched to (" << m_current->id << ")";
  }
  if (!m_current) return {};
  version = m_current->database.version();
  return m_current->database.hash_database(rule_id);
}

}  // namespace cv::mn
