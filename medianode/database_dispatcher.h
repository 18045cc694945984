// Turns the sample configurations and fingerprints received into databases for the pipeline.
//
// A configuration names the samples of every rule; their fingerprints arrive one by one. They are
// collected in a container set aside, payloads of the container before it being reused; when all
// are in, or after five seconds without one, the container's hash databases are built and the
// container is published. The pipeline picks it up with its next call.
//
// Invariants:
// 1. A published container never changes. A sample that arrives after publication goes into a fresh
//    container, which shares the payloads and rules of the published one.
// 2. Calls keep the hash database they started with; a switch concerns those that ask after it.
// 3. The pipeline and the control side meet only in m_exchanger, and neither waits for the other.
// 4. Without memory (std::bad_alloc from what receives) nothing has changed. A build that finds too
//    little is reported as failed and tried again five seconds later; calls keep what there is.
// Threads: get_hash_database() belongs to the pipeline, everything else to the thread of control
// events.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_set>

#include "audio/audio_sample_packet.h"
#include "audio/audio_samples_database.h"
#include "core/clock.h"
#include "core/reference_countable.h"
#include "medianode/exchanger.h"

namespace cv::mn {

/// A sample configuration as received: which samples each rule looks for, under which terms.
struct SampleConfig {
  using Samples = std::map<uint32_t, rc_ptr<audio::SampleMetadata>>;  // by sample identifier

  explicit SampleConfig(uint64_t config_version) : version(config_version) {}

  /// False when the rule has a sample of that identifier already: the first one stays.
  bool add(uint64_t rule_id, const rc_ptr<audio::SampleMetadata>& sample) {
    return rules[rule_id].try_emplace(sample->id, sample).second;
  }

  uint64_t version;
  std::map<uint64_t, Samples> rules;  // by rule identifier
};

class DatabaseDispatcher {
 public:
  class DatabaseContainer : public ReferenceCountable {
   public:
    explicit DatabaseContainer(const audio::SamplesDatabase& contents);
    ~DatabaseContainer() override;

    static inline std::atomic<uint64_t> counter{0};

    const uint64_t id;  // counts constructions from 1; for log lines
    audio::SamplesDatabase database;
  };

  using SwapCallback = std::function<void(bool built)>;

  explicit DatabaseDispatcher(const IClock& clock = steady_clock()) : m_clock(clock) {}

  /// Called after every attempt to publish; to be set before the first configuration arrives.
  void set_on_swap(SwapCallback on_swap) { m_on_swap = std::move(on_swap); }

  /// 0: built and published, nothing is to be requested. 1: samples are to be requested: those
  /// `missing` points to (valid until the next call), or all when it is null (first configuration).
  int on_config_received(const SampleConfig& config, std::unordered_set<uint32_t>*& missing);

  /// False when the packet is refused; a sample that nobody configured is no reason to. One that the
  /// built database holds as it is changes nothing.
  bool on_sample_received(uint32_t sample_id, const audio::SamplePacket& packet);

  /// To be called whenever there is nothing else to do; ends the wait for samples that do not come.
  void on_event_timeout();

  /// A container for `config` without payloads; every sample identifier of it is added to
  /// `missing`.
  static rc_ptr<DatabaseContainer> prepare_database(const SampleConfig& config,
                                                    std::unordered_set<uint32_t>& missing);

  /// Builds the pending container's hash databases, with whatever payloads it has.
  void build_database();
  /// Publishes what build_database() built and reports to the swap callback.
  void swap_database();

  /// Pipeline thread. The newest database of a rule; empty when no database has been published, the
  /// rule is unknown, or it was not built. `version` becomes the database's version if there is
  /// one.
  rc_ptr<audio::HashDatabase> get_hash_database(uint64_t rule_id, uint64_t& version);

 private:
  enum class State : int32_t {
    Built = 0,
    BuiltIncomplete = 1,  // some samples missed or empty
    Failed = 2,
    Waiting = 3,
  };
  struct Unusable;  // samples that a build could not use

  bool is_built() const { return m_state == State::Built || m_state == State::BuiltIncomplete; }
  /// What is reused is `missing` no more.
  static void reuse_payloads(const DatabaseContainer& from, audio::SamplesDatabase& into,
                             std::unordered_set<uint32_t>& missing);
  bool holds(uint32_t sample_id, const audio::HashSamplePayload& payload) const;
  void unshare_pending();
  void log_build_result(const Unusable& missed, const Unusable& empty) const;
  void build_and_swap();
  void update_db_exchanger(rc_ptr<DatabaseContainer> container);

  const IClock& m_clock;
  uint64_t m_version = 0;                  // of the configuration being prepared
  int64_t m_request_time = 0;              // us; last progress, 0 when nothing is awaited
  std::unordered_set<uint32_t> m_missing;  // samples the pending container still lacks
  rc_ptr<DatabaseContainer> m_pending;     // stays after a build, as the source of payloads
  bool m_pending_published = false;        // m_pending is read-only from then on
  SwapCallback m_on_swap;
  State m_state = State::Waiting;
  Exchanger<DatabaseContainer> m_exchanger;
  rc_ptr<DatabaseContainer> m_current;  // pipeline thread only
};

}  // namespace cv::mn
