// The error text handed to the host after a failed self-test run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "fipsval.h"
#include "selftest/registry.h"
#include "selftest/selftest.h"

namespace fipsval {
namespace {

// Appends as much of text as fits in size - 1 characters in all.
void Append(char* buffer, std::size_t size, std::string_view text) {
  const std::size_t length = std::strlen(buffer);
  const std::size_t n = std::min(text.size(), size - 1 - length);
  std::memcpy(buffer + length, text.data(), n);
  buffer[length + n] = '\0';
}

}  // namespace

void get_self_test_errstr(uint32_t mask, char* buffer, std::size_t size) {
  if (size == 0) return;
  std::snprintf(buffer, size, "FIPS error: ");
  bool first = true;
  // The messages' order is neither that of the tests nor that of the bits;
  // it is kept as it is on purpose.
  for (const selftest::SelfTest* t : selftest::kErrorTextOrder) {
    if (!(mask & t->bit)) continue;
    if (!first) Append(buffer, size, ", ");
    Append(buffer, size, t->error_text);
    first = false;
  }
}

}  // namespace fipsval
