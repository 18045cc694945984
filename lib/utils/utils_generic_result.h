// A status of an enumeration that also answers "did it succeed?".
#pragma once

namespace cv::utils {

template <typename E, E Ok>
class GenericResult {
 public:
  constexpr GenericResult(E result_status) : m_status(result_status) {}

  constexpr E status() const { return m_status; }
  constexpr explicit operator bool() const { return m_status == Ok; }

 private:
  E m_status;
};

}  // namespace cv::utils
