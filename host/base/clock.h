// Time as the host records it: UTC stamps and elapsed seconds.
#pragma once

#include <chrono>
#include <ctime>
#include <string>

namespace fipsval::host {

// "2026-11-23T11:43:32Z"; `when` defaults to now.
std::string UtcStamp(std::time_t when = std::time(nullptr));

using SteadyTime = std::chrono::steady_clock::time_point;

inline SteadyTime Now() { return std::chrono::steady_clock::now(); }

// Seconds from `start` to now.
double SecondsSince(SteadyTime start);

}  // namespace fipsval::host
