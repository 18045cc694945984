// The raw material of matching for one configuration version: which samples each rule looks for,
// the fingerprints received so far, and, after build(), one hash database per rule.
//
// Life: construct with a version; add_configuration() for every rule and announce_payload() for
// every sample; set_payload() as fingerprints arrive; build(). Rules and samples are kept in a
// fixed order (rules by identifier, samples as given), so the same input always builds the same
// index.
//
// A copy shares payloads, metadata and hash databases with its original by reference; building the
// copy replaces the copy's hash databases only. That is how a database that other threads read is
// built again: never in place.
// Threads: one while it is filled and built; afterwards any number may read it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>
#include <vector>

#include "audio/audio_hash_database.h"

namespace cv::audio {

/// A rule and the samples it looks for. Metadata are told apart by pointer, not by content.
struct SamplesConfiguration {
  uint64_t id = 0;
  std::vector<rc_ptr<SampleMetadata>> samples;
};

class SamplesDatabase {
 public:
  /// The result of building a rule.
  enum class ConfiguraionState : int32_t {
    NotBuilt = 0,
    Partial = 1,   // at least one sample had no hash data, or empty hash data
    Empty = 2,     // the hash database has no hash at all
    Complete = 3,  // every sample is indexed
  };

  /// What became of one sample of a rule.
  enum class BuildStatus : int32_t {
    SampleAdded = 0,
    SampleNotListed = 1,    // never announced
    SampleNotReceived = 2,  // announced, no payload
    SampleEmpty = 3,        // a payload without points
  };
  using BuildCallback = std::function<void(BuildStatus, unsigned sample_id)>;

  struct Configuration {
    SamplesConfiguration configuration;
    ConfiguraionState state = ConfiguraionState::NotBuilt;
    rc_ptr<HashDatabase> database;  // empty until built
  };
  using Configurations = std::map<uint64_t, Configuration>;
  using Payloads = std::unordered_map<uint32_t, rc_ptr<HashSamplePayload>>;

  explicit SamplesDatabase(uint64_t version) : m_version(version) {}
  SamplesDatabase(const SamplesDatabase&) = default;
  SamplesDatabase& operator=(const SamplesDatabase&) = default;
  virtual ~SamplesDatabase() = default;

  /// Enters a rule, not built; an earlier rule with its identifier is replaced. A metadata pointer
  /// listed twice counts once; none may be empty.
  void add_configuration(SamplesConfiguration configuration);
  /// Enters a sample whose payload is yet to come; drops one that is there already.
  void announce_payload(uint32_t sample_id);
  /// Stores a sample's payload, announced or not; replaces an earlier one.
  void set_payload(uint32_t sample_id, rc_ptr<HashSamplePayload> payload);

  /// Builds the hash database of every rule; with `force` false, not of those already Complete.
  /// `callback`, if not empty, is called once per sample that could not be indexed and, with
  /// `report_added`, once per sample that was. The outcome is in each rule's state and database.
  void build(bool force, const BuildCallback& callback, bool report_added);

  uint64_t version() const { return m_version; }
  const Configurations& configurations() const { return m_configurations; }
  std::size_t configuration_count() const { return m_configurations.size(); }
  /// NotBuilt for an unknown rule, too.
  ConfiguraionState state(uint64_t rule_id) const;
  /// Empty when the rule is unknown or not built.
  rc_ptr<HashDatabase> hash_database(uint64_t rule_id) const;

  const Payloads& payloads() const { return m_payloads; }
  /// Announced samples count, received or not.
  std::size_t payload_count() const { return m_payloads.size(); }
  bool announced(uint32_t sample_id) const { return m_payloads.count(sample_id) != 0; }
  /// Empty when the sample is not announced or not received.
  rc_ptr<HashSamplePayload> payload(uint32_t sample_id) const;

 private:
  BuildStatus find_payload(uint32_t sample_id, rc_ptr<HashSamplePayload>& payload) const;
  void build_rule(Configuration& rule, const BuildCallback& callback, bool report_added) const;

  uint64_t m_version;
  Configurations m_configurations;
  Payloads m_payloads;  // an empty pointer: announced, not received
};

}  // namespace cv::audio
