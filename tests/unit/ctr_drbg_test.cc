// The user-space CTR_DRBG (AES-256 with derivation function), the stand-in
// that answers the driver's test block with it, and the ioctl interposer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/core/ctr_drbg.h"
#include "host/core/drbg_standin.h"
#include "harness/drbg_block.h"
#include "tests/support/test_util.h"

namespace fipsval::testing {
namespace {

using ByteVec = std::vector<uint8_t>;

void Put(uint8_t* field, std::size_t size, std::string_view hex) {
  const ByteVec bytes = FromHex(hex);
  ASSERT_LE(bytes.size(), size);
  std::copy(bytes.begin(), bytes.end(), field);
}

rbg_params BlockFor(const DrbgVector& v, int32_t returned_len) {
  rbg_params p = {};
  p.length = kRbgParamsFollowing;
  p.returned_len = returned_len;
  Put(p.entropy, sizeof p.entropy, v.entropy);
  Put(p.nonce, sizeof p.nonce, v.nonce);
  Put(p.personalization, sizeof p.personalization, v.personalization);
  Put(p.entropy_reseed, sizeof p.entropy_reseed, v.entropy_reseed);
  Put(p.additional_reseed, sizeof p.additional_reseed, v.additional_reseed);
  Put(p.additional1, sizeof p.additional1, v.additional1);
  Put(p.additional2, sizeof p.additional2, v.additional2);
  return p;
}

// The DRBGVS procedure run on CtrDrbg directly.
std::string RunDirect(const DrbgVector& v, std::size_t len) {
  const ByteVec e = FromHex(v.entropy), n = FromHex(v.nonce),
                ps = FromHex(v.personalization), er = FromHex(v.entropy_reseed),
                ar = FromHex(v.additional_reseed), a1 = FromHex(v.additional1),
                a2 = FromHex(v.additional2);
  CtrDrbg drbg;
  drbg.Instantiate(e, n, ps);
  drbg.Reseed(er, ar);
  ByteVec out(len);
  EXPECT_TRUE(drbg.Generate(out, a1));
  EXPECT_TRUE(drbg.Generate(out, a2));
  return Hex(out);
}

TEST(CtrDrbg, ReproducesNistAnswers) {
  for (const DrbgVector* v : {&kDrbgAllEmpty, &kDrbgEverything}) {
    EXPECT_EQ(RunDirect(*v, 64), v->returned);
  }
}

TEST(CtrDrbg, RefusesWhatTheStandardForbids) {
  CtrDrbg drbg;
  ByteVec out(16, 0xAA);
  EXPECT_FALSE(drbg.Generate(out, {})) << "generate before instantiate";
  EXPECT_EQ(out, ByteVec(16, 0xAA));

  const ByteVec entropy(32, 1), nonce(16, 2);
  drbg.Instantiate(entropy, nonce, {});
  ByteVec too_long(CtrDrbg::kMaxRequest + 1);
  EXPECT_FALSE(drbg.Generate(too_long, {}));
  ByteVec longest(CtrDrbg::kMaxRequest);
  EXPECT_TRUE(drbg.Generate(longest, {}));
}

TEST(CtrDrbg, PartialBlockIsThePrefixOfTheKeystream) {
  // Within one generate call, a shorter request yields the leading bytes
  // of a longer one made from the same state.
  const ByteVec entropy(32, 7), nonce(16, 9);
  CtrDrbg a, b;
  a.Instantiate(entropy, nonce, {});
  b.Instantiate(entropy, nonce, {});
  ByteVec short_out(21), long_out(48);
  ASSERT_TRUE(a.Generate(short_out, {}));
  ASSERT_TRUE(b.Generate(long_out, {}));
  EXPECT_TRUE(std::equal(short_out.begin(), short_out.end(), long_out.begin()));
}

TEST(CtrDrbg, DerivationFunctionJoinsItsParts) {
  const ByteVec whole = FromHex("000102030405060708090a0b0c0d0e0f1011");
  const CtrDrbg::Bytes all(whole);
  EXPECT_EQ(CtrDrbg::DerivationFunction({all}),
            CtrDrbg::DerivationFunction({all.first(5), all.subspan(5)}));
  // Lengths around the padding boundary (8 + len + 1 a multiple of 16).
  const ByteVec seven(7, 0x5c), eight(8, 0x5c);
  EXPECT_NE(CtrDrbg::DerivationFunction({seven}),
            CtrDrbg::DerivationFunction({eight}));
}

// --- the stand-in --------------------------------------------------------

// All-zero optional fields are empty inputs (NIST's answers come out), and
// only the returned length is written.
TEST(DrbgStandin, AnswersTheBlockInPlace) {
  rbg_params empty = BlockFor(kDrbgAllEmpty, 64);
  ASSERT_EQ(RunDrbgStandin(&empty), 0);
  EXPECT_EQ(Hex({empty.returned, 64}), kDrbgAllEmpty.returned);
  for (int32_t len : {0, 1, 17, 32, 63, 64}) {
    rbg_params p = BlockFor(kDrbgEverything, len);
    std::memset(p.returned, 0xAA, sizeof p.returned);
    const rbg_params before = p;
    ASSERT_EQ(RunDrbgStandin(&p), 0) << len;
    EXPECT_EQ(Hex(std::span<const uint8_t>(p.returned, len)),
              RunDirect(kDrbgEverything, static_cast<std::size_t>(len)));
    EXPECT_EQ(0, std::memcmp(p.returned + len, before.returned + len,
                             sizeof p.returned - len));
    EXPECT_EQ(0, std::memcmp(&p, &before, offsetof(rbg_params, returned)))
        << "inputs are left as they were";
  }
}

TEST(DrbgStandin, RefusesMalformedBlocksWithoutReadingThem) {
  // A block that does not announce the full layout is refused after its
  // first word: a 4-byte allocation is all that is read (ASan builds check).
  for (uint32_t word : {0u, 275u, 277u, 0xffffffffu}) {
    auto tiny = std::make_unique<uint8_t[]>(4);
    std::memcpy(tiny.get(), &word, 4);
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
  errno = 0;
  EXPECT_EQ(RunDrbgStandin(nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
}

// --- the interposer ------------------------------------------------------

struct Fd {
  explicit Fd(int fd) : fd(fd) {}
  ~Fd() {
    if (fd >= 0) close(fd);
  }
  int fd;
};

bool KernelAnswersTestIoctl() {
  Fd urandom(open("/dev/urandom", O_RDONLY));
  rbg_params probe = {};
  probe.length = kRbgParamsFollowing;
  return syscall(SYS_ioctl, urandom.fd, kRbgSetParamsIoctl, &probe) == 0;
}

TEST(InterposedIoctl, PassesOtherRequestsAndDevicesThrough) {
  int pipe_fds[2];
  ASSERT_EQ(pipe(pipe_fds), 0);
  Fd read_end(pipe_fds[0]), write_end(pipe_fds[1]);
  ASSERT_EQ(write(write_end.fd, "abc", 3), 3);
  int pending = -1;
  EXPECT_EQ(InterposedIoctl(read_end.fd, FIONREAD, &pending), 0);
  EXPECT_EQ(pending, 3);

  // The test request on anything but /dev/urandom keeps the kernel's answer.
  Fd null_dev(open("/dev/null", O_RDONLY));
  rbg_params p = BlockFor(kDrbgAllEmpty, 64);
  const rbg_params before = p;
  errno = 0;
  EXPECT_EQ(InterposedIoctl(null_dev.fd, kRbgSetParamsIoctl, &p), -1);
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(0, std::memcmp(&p, &before, sizeof p));

  // Another request on /dev/urandom: the kernel's error, untouched.
  Fd urandom(open("/dev/urandom", O_RDONLY));
  errno = 0;
  EXPECT_EQ(InterposedIoctl(urandom.fd, kRbgSetParamsIoctl + 1, &p), -1);
  EXPECT_TRUE(errno == ENOTTY || errno == EINVAL) << errno;
  EXPECT_EQ(0, std::memcmp(&p, &before, sizeof p));

  errno = 0;
  EXPECT_EQ(InterposedIoctl(-1, kRbgSetParamsIoctl, &p), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(InterposedIoctl, AnswersTheTestRequestOnUrandom) {
  if (KernelAnswersTestIoctl()) GTEST_SKIP() << "the kernel answers it";
  Fd urandom(open("/dev/urandom", O_RDONLY));
  rbg_params p = BlockFor(kDrbgEverything, 64);
  ASSERT_EQ(InterposedIoctl(urandom.fd, kRbgSetParamsIoctl, &p), 0);
  EXPECT_EQ(Hex({p.returned, 64}), kDrbgEverything.returned);

  p.length = 0;
  errno = 0;
  EXPECT_EQ(InterposedIoctl(urandom.fd, kRbgSetParamsIoctl, &p), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(InterposedIoctl, BackendDescriptionNamesWhoAnswers) {
  const std::string text = DrbgBackendDescription();
  EXPECT_NE(text.find(KernelAnswersTestIoctl() ? "kernel's random-device"
                                               : "user-space CTR_DRBG"),
            std::string::npos)
      << text;
}

}  // namespace
}  // namespace fipsval::testing
