// Format: the text forms of times and progress shown to the user and printed by --cli.
#pragma once

#include <string>

namespace qv::Format {

std::string timecode(double t);   // "4:05", "1:02:03"; floor, 0 when negative
std::string duration(double t);   // "42 s", "3 min", "1 h 05"; rounded
std::string fileTime(double t);   // "4m05", "1h02m03"; rounded, 0 when negative
std::string countdown(double t);  // "0:05"; rounded up, 0 when negative
// The progress of a job, "68 %": whole percents rounded down, so 100 % only
// when it is done; outside 0 to 1 (or NaN) it is held at the nearest end.
std::string percent(double fraction);

}  // namespace qv::Format
