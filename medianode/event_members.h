// Reading the members of a control event. Whatever is wrong with a member is logged here, under the
// member's name; the caller is only told that it cannot be used. Any thread.
#pragma once

#include <cstdint>
#include <rapidjson/fwd.h>
#include <string>

namespace cv::mn {

/// Null when the object has no such member; the first one when it has several.
const rapidjson::Value* find_member(const rapidjson::Value& object, const char* name);

/// As find_member(), and a missing one is an ERROR line.
const rapidjson::Value* require_member(const rapidjson::Value& object, const char* name);

/// Logs that `name` is of an unexpected type; always false.
bool refuse_member(const char* name);

/// Each takes a value of the one type it is for, or refuses it and leaves `out` alone. A double may
/// be given as any finite number, the others only as what they are.
bool read_member(const rapidjson::Value& value, const char* name, uint64_t& out);
bool read_member(const rapidjson::Value& value, const char* name, double& out);
bool read_member(const rapidjson::Value& value, const char* name, std::string& out);

/// A sample identifier: an unsigned integer, refused with a line of its own beyond 32 bits.
bool read_sample_id(const rapidjson::Value& value, const char* name, uint32_t& out);

/// A number of detection hits: an unsigned 32-bit integer.
bool read_hits(const rapidjson::Value& value, const char* name, uint64_t& out);

}  // namespace cv::mn
