// CTR_DRBG runner. The DRBG under test is the random-device driver: each
// test's inputs go to it in one rbg_params block (include/fipsval_drbg.h)
// through an ioctl on "/dev/urandom", and the bytes it puts back in the
// block are the answer.
//
// The call must reach a host's own ioctl (include/fipsval_drbg.h): with
// 64-bit time on a 32-bit C library, <sys/ioctl.h> would rename it to
// __ioctl_time64, which such a host does not define.
#undef _TIME_BITS
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "harness/drbg_block.h"
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr char kReturnedBitsTag[] = "[ReturnedBitsLen = ";
constexpr long long kReturnedBitsMax = 8 * kRbgReturnedMax;

// Hands the block to the driver; 1 when it ran the test.
int set_key(rbg_params* block) {
  const int fd = open(FIPSVAL_DRBG_DEVICE, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    Fail("Error opening urandom");
    return 0;
  }
  fipsval_drbg_store_le32(&block->length, kRbgParamsFollowing);
  const int rc = ioctl(fd, kRbgSetParamsIoctl, block);
  close(fd);
  if (rc != 0) {
    std::printf("Error %s %d\n", "set_key", 62);
    return 0;
  }
  return 1;
}

struct Input {
  const char* tag;
  std::size_t offset;
  std::size_t size;
  bool required;
};

#define FIPSVAL_FIELD(name) offsetof(rbg_params, name), sizeof(rbg_params::name)
// The inputs of one test in request order, each decoded into its own field
// of the block. Entropy input, nonce and reseed entropy are required; the
// others may be empty, and then their fields stay zero.
constexpr Input kInputs[] = {
    {"EntropyInput = ", FIPSVAL_FIELD(entropy), true},
    {"Nonce = ", FIPSVAL_FIELD(nonce), true},
    {"PersonalizationString = ", FIPSVAL_FIELD(personalization), false},
    {"EntropyInputReseed = ", FIPSVAL_FIELD(entropy_reseed), true},
    {"AdditionalInputReseed = ", FIPSVAL_FIELD(additional_reseed), false},
    {"AdditionalInput = ", FIPSVAL_FIELD(additional1), false},
    {"AdditionalInput = ", FIPSVAL_FIELD(additional2), false},
};
#undef FIPSVAL_FIELD

// Answers the test whose COUNT line was just copied; false ends the run.
bool AnswerTest(const Session& s, int32_t returned_len) {
  rbg_params block = {};
  fipsval_drbg_store_le32(&block.returned_len,
                          static_cast<uint32_t>(returned_len));
  for (const Input& input : kInputs) {
    auto* const field = reinterpret_cast<uint8_t*>(&block) + input.offset;
    const auto n = ParseHexField(s, input.tag, {field, input.size});
    if (!n || (input.required && *n == 0)) return false;
  }
  if (!set_key(&block)) {
    Fail("Error set params  ");
    return false;
  }
  // A negative count returns no bytes.
  HexText<kRbgReturnedMax> text;
  return s.Answer("ReturnedBits = ", block.returned, returned_len,
                  {"Error converting rnd to ascii",
                   "Problem writing rnd tag to rsp file",
                   "Problem writing rnd to rsp file"},
                  text);
}

}  // namespace

void test_rbg_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<1024> s(req, rsp);
  if (!s.CopyUntil("[AES-256 use df]", "Never found starting marker") ||
      !s.CopyUntil(kReturnedBitsTag, "Never found ReturnedBitsLen")) {
    return;
  }
  // The number stands where the tag ends when the tag begins the line.
  char* const number = s.line() + std::strlen(kReturnedBitsTag);
  char* const close_bracket = std::strchr(number, ']');
  if (!close_bracket) return;
  *close_bracket = 0;
  // In 64 bits on every host: long has 32 bits on some.
  const long long bits = std::strtoll(number, nullptr, 10);
  // The driver returns at most 512 bits into a 64-byte field, and the answer
  // is read back from that field: a longer output cannot be answered, so it
  // is refused here, before any test reaches the driver.
  if (bits > kReturnedBitsMax) {
    std::printf("ReturnedBitsLen %lld is above %lld: not answered\n", bits,
                kReturnedBitsMax);
    return;
  }
  const auto returned_len =
      static_cast<int32_t>(std::max<long long>(bits / 8, INT32_MIN));
  while (s.Next()) {
    if (!s.Copy()) return;
    if (s.Has("COUNT = ") && !AnswerTest(s, returned_len)) return;
  }
}

}  // namespace fipsval
