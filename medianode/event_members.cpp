#include "medianode/event_members.h"

#include <cmath>
#include <limits>

#include "log/log.h"
#include "utils/utils_json.h"

namespace cv::mn {

const rapidjson::Value* find_member(const rapidjson::Value& object, const char* name) {
  const auto member = object.FindMember(name);
  return member == object.MemberEnd() ? nullptr : &member->value;
}

const rapidjson::Value* require_member(const rapidjson::Value& object, const char* name) {
  const rapidjson::Value* value = find_member(object, name);
  if (value == nullptr) {
    CV_LOG(ErrorMessage) << "SERVICE: field \"" << name << "\" is not found, it's a mandatory";
  }
  return value;
}

bool refuse_member(const char* name) {
  CV_LOG(ErrorMessage) << "SERVICE: field \"" << name << "\" has invalid format";
  return false;
}

bool read_member(const rapidjson::Value& value, const char* name, uint64_t& out) {
  if (!value.IsUint64()) return refuse_member(name);
  out = value.GetUint64();
  return true;
}

bool read_member(const rapidjson::Value& value, const char* name, double& out) {
  // Finite is worth asking: the parser lets some numbers beyond a double's range through.
  if (!value.IsNumber() || !std::isfinite(value.GetDouble())) return refuse_member(name);
  out = value.GetDouble();
  return true;
}

bool read_member(const rapidjson::Value& value, const char* name, std::string& out) {
  if (!value.IsString()) return refuse_member(name);
  out.assign(value.GetString(), value.GetStringLength());
  return true;
}

bool read_sample_id(const rapidjson::Value& value, const char* name, uint32_t& out) {
  uint64_t id = 0;
  if (!read_member(value, name, id)) return false;
  if (id > std::numeric_limits<uint32_t>::max()) {
    CV_LOG(ErrorMessage) << "SERVICE: field \"" << name << "\" is out of bound (" << id << ")";
    return false;
  }
  out = static_cast<uint32_t>(id);
  return true;
}

bool read_hits(const rapidjson::Value& value, const char* name, uint64_t& out) {
  if (!value.IsUint()) return refuse_member(name);
  out = value.GetUint();
  return true;
}

}  // namespace cv::mn
