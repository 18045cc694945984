// The report manager's counters, written by its thread but for `passed` and `dropped`.
#pragma once

#include "core/queue_reader.h"

namespace cv::mn {

struct ReportManagerStatistic : QueueReaderStatistic {
  Counter empty_report_errors;     // reports taken from the queue without a session
  Counter audio_activity_reports;  // serialised, as are the next two
  Counter detection_reports;
  Counter sample_match_reports;  // those with a match only
};

}  // namespace cv::mn
