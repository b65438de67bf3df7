#include "host/base/clock.h"

namespace fipsval::host {

std::string UtcStamp(std::time_t when) {
  std::tm utc{};
  gmtime_r(&when, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

double SecondsSince(SteadyTime start) {
  return std::chrono::duration<double>(Now() - start).count();
}

}  // namespace fipsval::host
