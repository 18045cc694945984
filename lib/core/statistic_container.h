// Holds a component's counter block: the one it was handed (in the node it lives inside the
// statistic service, which prints it), or one of its own when it was handed none.
#pragma once

#include <memory>

namespace cv {

template <typename T>
class StatisticContainer {
 public:
  /// `external` is not owned and must outlive the container; null makes the container own a block.
  explicit StatisticContainer(T* external = nullptr)
      : m_owned(external != nullptr ? nullptr : std::make_shared<T>()),
        m_statistic(external != nullptr ? external : m_owned.get()) {}
  /// Owns a block that may be a larger record beginning with T.
  explicit StatisticContainer(std::shared_ptr<T> owned)
      : m_owned(std::move(owned)), m_statistic(m_owned.get()) {}
  virtual ~StatisticContainer() = default;
  StatisticContainer(const StatisticContainer&) = delete;
  StatisticContainer& operator=(const StatisticContainer&) = delete;

  T& statistic() const { return *m_statistic; }

 protected:
  // shared_ptr only for its remembered deleter: the block may be of a type derived from T.
  std::shared_ptr<T> m_owned;
  T* m_statistic;
};

}  // namespace cv
