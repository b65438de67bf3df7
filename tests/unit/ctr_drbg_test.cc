// The user-space CTR_DRBG (AES-256 with derivation function) that stands in
// for the random-device driver: it answers the test block with NIST's
// answers, writes nothing but the returned bytes, and refuses a malformed
// block without reading it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "harness/drbg_block.h"
#include "host/platform/ctr_drbg.h"
#include "host/platform/drbg_standin.h"
#include "tests/support/test_util.h"

namespace fipsval::testing {
namespace {

using host::RunDrbgStandin;

rbg_params BlockFor(const DrbgVector& v, int32_t returned_len) {
  rbg_params p = {};
  fipsval_drbg_store_le32(&p.length, kRbgParamsFollowing);
  fipsval_drbg_store_le32(&p.returned_len, static_cast<uint32_t>(returned_len));
  using Field = std::pair<uint8_t*, std::string_view>;  // the vectors fit their fields
  for (const auto& [field, hex] :
       {Field{p.entropy, v.entropy}, Field{p.nonce, v.nonce}, Field{p.personalization, v.personalization},
        Field{p.entropy_reseed, v.entropy_reseed}, Field{p.additional_reseed, v.additional_reseed},
        Field{p.additional1, v.additional1}, Field{p.additional2, v.additional2}}) {
    const std::vector<uint8_t> bytes = FromHex(hex);
    std::copy(bytes.begin(), bytes.end(), field);
  }
  return p;
}

// The block's integers are little-endian bytes on either byte order: the
// helpers go byte by byte and never through a word in the host's order.
TEST(DrbgBlock, IntegersAreLittleEndianBytes) {
  for (const auto& [value, hex] : {std::pair{276u, "14010000"}, {0x12345678u, "78563412"},
                                   {static_cast<uint32_t>(-8), "f8ffffff"}}) {
    uint8_t encoded[4];
    fipsval_drbg_store_le32(encoded, value);
    EXPECT_EQ(Hex(encoded), hex) << value;
    EXPECT_EQ(fipsval_drbg_load_le32(FromHex(hex).data()), value) << hex;
  }
}

// All-zero optional fields are empty inputs (NIST's answers come out); only
// returned_len bytes of the returned field are written.
TEST(DrbgStandin, AnswersTheBlockInPlace) {
  for (const DrbgVector* v : {&kDrbgAllEmpty, &kDrbgEverything}) {
    for (int32_t len : {64, 0, 17}) {
      rbg_params p = BlockFor(*v, len);
      std::memset(p.returned, 0xAA, sizeof p.returned);
      const rbg_params before = p;
      ASSERT_EQ(RunDrbgStandin(&p), 0) << len;
      EXPECT_TRUE(len != 64 || Hex({p.returned, 64}) == v->returned) << Hex({p.returned, 64});
      EXPECT_EQ(0, std::memcmp(p.returned + len, before.returned + len, sizeof p.returned - len));
      EXPECT_EQ(0, std::memcmp(&p, &before, offsetof(rbg_params, returned))) << "inputs changed";
    }
  }
  rbg_params negative = BlockFor(kDrbgAllEmpty, -1);  // ReturnedBitsLen below 0: no bytes
  const rbg_params before = negative;
  EXPECT_EQ(RunDrbgStandin(&negative), 0);
  EXPECT_EQ(0, std::memcmp(&negative, &before, sizeof negative));
}

TEST(DrbgStandin, RefusesMalformedBlocksWithoutReadingThem) {
  // A block that does not announce the full layout is refused after its
  // first word: a 4-byte allocation is all that is read (ASan builds check).
  for (uint32_t word : {0u, 275u, 277u, 0xffffffffu}) {
    const auto tiny = std::make_unique<uint32_t>(word);
    errno = 0;
    EXPECT_EQ(RunDrbgStandin(tiny.get()), -1);
    EXPECT_EQ(errno, EINVAL);
  }
  for (int32_t len : {65, 1 << 30}) {
    rbg_params p = BlockFor(kDrbgAllEmpty, len);
    const rbg_params before = p;
    errno = 0;
    EXPECT_EQ(RunDrbgStandin(&p), -1) << len;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(0, std::memcmp(&p, &before, sizeof p));
  }
  EXPECT_EQ(RunDrbgStandin(nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
}

// Other requests on the random device are the kernel's alone, even when
// it refuses them.
TEST(DrbgStandin, OtherRequestsStayWithTheKernel) {
  const int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  rbg_params p = BlockFor(kDrbgAllEmpty, 64);
  errno = 0;
  EXPECT_EQ(host::InterposedIoctl(fd, TCGETS, &p), -1);
  EXPECT_EQ(errno, EINVAL);  // the random driver's own answer
  close(fd);
}

// A generate request may be as long as SP 800-90A allows, not a byte more,
// and none before instantiation.
TEST(CtrDrbg, RequestLimits) {
  host::CtrDrbg drbg;
  std::vector<uint8_t> out(host::CtrDrbg::kMaxRequest + 1);
  EXPECT_FALSE(drbg.Generate({out.data(), 1}, {}));
  drbg.Instantiate(FromHex(kDrbgAllEmpty.entropy), FromHex(kDrbgAllEmpty.nonce), {});
  EXPECT_FALSE(drbg.Generate(out, {}));
  EXPECT_TRUE(drbg.Generate({out.data(), out.size() - 1}, {}));
}

}  // namespace
}  // namespace fipsval::testing
