// The forced-failure marker: a file naming one self-test that must fail at
// the next run, so that the failure path can be shown. It is deleted when
// read, so it applies to one run only.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string_view>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "selftest/selftest.h"

namespace fipsval {
namespace {

struct ForceName {
  std::string_view name;
  int bit;
};

constexpr std::array<ForceName, 8> kForceNames{{
    {"AES", FIPS_ST_AES},
    {"SHA1-HMAC", FIPS_ST_HMAC_SHA1},
    {"SHA256-HMAC", FIPS_ST_HMAC_SHA256},
    {"3DES", FIPS_ST_TDES},
    {"RSA", FIPS_ST_RSA},
    {"RNG", FIPS_ST_RNG},
    {"Firmware-integrity", FIPS_ST_FIRMWARE},
    {"Configuration", FIPS_ST_CONFIG},
}};

}  // namespace
}  // namespace fipsval

extern "C" FIPSVAL_API int fips_check_fail(void) {
  using namespace fipsval;
  // Zero-filled, and fgets stores at most 63 characters: always terminated.
  std::array<char, 64> line{};
  {
    UniqueFile marker(std::fopen(kForceMarkerPath, "r"));
    if (!marker) return 0;
    if (!std::fgets(line.data(), line.size(), marker.get())) {
      line.fill('\0');  // a read error leaves the buffer indeterminate
    }
  }
  if (line[0] != '\0') std::printf("\nForcing failure of %s\n", line.data());

  // The whole line must be the name, up to the terminator: "RSA\n" or
  // "AESx" force nothing.
  const std::string_view read(line.data());
  int bit = 0;
  for (const ForceName& f : kForceNames) {
    if (read == f.name) {
      bit = f.bit;
      break;
    }
  }
  unlink(kForceMarkerPath);
  return bit;
}
