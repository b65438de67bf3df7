// CTR_DRBG runner. The DRBG under test is the random-device driver: each
// test's inputs go to it in one rbg_params block through an ioctl on
// "/dev/urandom", and the bytes it puts back in the block are the answer.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harness/runner_io.h"
#include "harness/runners.h"
#include "suites/rbg_params.h"

namespace fipsval {
namespace {

constexpr char kStartMarker[] = "[AES-256 use df]";
constexpr char kReturnedBitsTag[] = "[ReturnedBitsLen = ";
constexpr long kReturnedBitsMax = 8 * kRbgReturnedMax;

// Decodes the next field line into the block at `offset`. A value longer
// than its field runs on into the fields after it, as the driver's own
// users have always seen, but the decode is bounded by the end of the
// block. Returns the number of bytes the value encodes (0 on failure).
int parse_field(const RunnerFiles& files, const char* tag, rbg_params& block,
                std::size_t offset) {
  auto* const bytes = reinterpret_cast<uint8_t*>(&block);
  return ParseKeyBounded(files.req(), files.rsp(), tag, bytes + offset,
                         sizeof block - offset);
}

// Hands the block to the driver; 1 when it ran the test.
int set_key(rbg_params* block) {
  const int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    Fail("Error opening urandom");
    return 0;
  }
  block->length = kRbgParamsFollowing;
  const int rc = ioctl(fd, kRbgSetParamsIoctl, block);
  close(fd);
  if (rc != 0) {
    std::printf("Error %s %d\n", "set_key", 62);
    return 0;
  }
  return 1;
}

// Copies lines through up to and including the first one holding `marker`;
// false at the end of the request (after printing `missing`) or on a short
// write.
bool copy_through(const RunnerFiles& files, char* line, int size,
                  const char* marker, const char* missing) {
  for (;;) {
    if (!files.ReadLine(line, size)) {
      Fail(missing);
      return false;
    }
    if (!files.Copy(line)) return false;
    if (std::strstr(line, marker)) return true;
  }
}

}  // namespace

void test_rbg_from_file(const char* name) {
  RunnerFiles files;
  if (!files.Open(name)) return;
  char line[1024] = {};

  if (!copy_through(files, line, sizeof line, kStartMarker,
                    "Never found starting marker") ||
      !copy_through(files, line, sizeof line, kReturnedBitsTag,
                    "Never found ReturnedBitsLen")) {
    return;
  }
  // The number stands where the tag ends when the tag begins the line.
  char* const number = line + std::strlen(kReturnedBitsTag);
  char* const close_bracket = std::strchr(number, ']');
  if (!close_bracket) return;
  *close_bracket = 0;
  const long bits = std::strtol(number, nullptr, 10);
  // The driver returns at most 512 bits into a 64-byte field, and the answer
  // is read back from that field: a length outside 0 to 512 cannot be
  // answered, so it is refused here, before any test reaches the driver.
  if (bits < 0 || bits > kReturnedBitsMax) {
    std::printf("ReturnedBitsLen %ld is outside 0 to %ld: not answered\n",
                bits, kReturnedBitsMax);
    return;
  }
  const int returned_len = static_cast<int>(bits / 8);

  const AnswerMessages messages = {"Error converting rnd to ascii",
                                   "Problem writing rnd tag to rsp file",
                                   "Problem writing rnd to rsp file"};
  char text[2 * kRbgReturnedMax + 1];
  while (files.ReadLine(line, sizeof line)) {
    if (!files.Copy(line)) return;
    if (!std::strstr(line, "COUNT = ")) continue;

    rbg_params block = {};
    block.returned_len = returned_len;
    // Entropy input, nonce and reseed entropy are required; the other
    // inputs may be empty, and then their fields stay zero.
    if (!parse_field(files, "EntropyInput = ", block,
                     offsetof(rbg_params, entropy)) ||
        !parse_field(files, "Nonce = ", block, offsetof(rbg_params, nonce))) {
      return;
    }
    parse_field(files, "PersonalizationString = ", block,
                offsetof(rbg_params, personalization));
    if (!parse_field(files, "EntropyInputReseed = ", block,
                     offsetof(rbg_params, entropy_reseed))) {
      return;
    }
    parse_field(files, "AdditionalInputReseed = ", block,
                offsetof(rbg_params, additional_reseed));
    parse_field(files, "AdditionalInput = ", block,
                offsetof(rbg_params, additional1));
    parse_field(files, "AdditionalInput = ", block,
                offsetof(rbg_params, additional2));

    if (!set_key(&block)) {
      Fail("Error set params  ");
      return;
    }
    if (!WriteAnswer(files, "ReturnedBits = ", block.returned, returned_len,
                     text, sizeof text, messages)) {
      return;
    }
  }
}

}  // namespace fipsval
