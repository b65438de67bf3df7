#include "fuzz/input_limits.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

namespace fipsval::fuzz {
namespace {

constexpr std::string_view kModulusTag = "[mod = ";
constexpr std::string_view kLoopTag = "N = ";

std::string_view View(Input in) {
  return {reinterpret_cast<const char*>(in.data()), in.size()};
}

// Calls fn with the text that follows each occurrence of tag.
template <typename Fn>
void ForEachValue(Input in, std::string_view tag, Fn fn) {
  const std::string_view text = View(in);
  for (std::size_t at = text.find(tag); at != std::string_view::npos;
       at = text.find(tag, at + 1)) {
    fn(text.substr(at + tag.size()));
  }
}

}  // namespace

std::size_t Count(Input in, std::string_view needle) {
  std::size_t n = 0;
  ForEachValue(in, needle, [&](std::string_view) { ++n; });
  return n;
}

std::size_t LongestHexRun(Input in) {
  std::size_t longest = 0;
  std::size_t run = 0;
  for (const uint8_t c : in) {
    run = std::isxdigit(c) ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  return longest;
}

int LargestModulus(Input in) {
  int largest = 0;
  ForEachValue(in, kModulusTag, [&](std::string_view value) {
    // The runners copy at most four characters, up to a zero byte.
    std::string digits(value.substr(0, 4));
    digits.resize(std::strlen(digits.c_str()));
    char* end = nullptr;
    const long bits = std::strtol(digits.c_str(), &end, 10);
    if (end != digits.c_str()) {
      largest = std::max(largest, static_cast<int>(bits));
    }
  });
  return largest;
}

long long KeysAsked(Input in) {
  long long total = 0;
  ForEachValue(in, kLoopTag, [&](std::string_view value) {
    // All that strtol could consume: blanks, a sign, digits.
    const std::size_t n = value.find_first_not_of(" \t\n\v\f\r+-0123456789");
    const std::string number(value.substr(0, n));
    const int count = static_cast<int>(std::strtol(number.c_str(), nullptr, 10));
    if (count > 0) total += count;
  });
  return total;
}

}  // namespace fipsval::fuzz
