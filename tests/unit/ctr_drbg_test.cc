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
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "host/core/ctr_drbg.h"
#include "host/core/drbg_standin.h"
#include "harness/drbg_block.h"

namespace fipsval::testing {
namespace {

using ByteVec = std::vector<uint8_t>;

ByteVec FromHex(std::string_view hex) {
  ByteVec out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(
        std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return out;
}

std::string ToHex(const uint8_t* bytes, std::size_t len) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (std::size_t i = 0; i < len; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 15];
  }
  return out;
}

// One DRBGVS test case as hex text; empty strings are empty inputs.
struct Vector {
  std::string entropy, nonce, personalization, entropy_reseed,
      additional_reseed, additional1, additional2, returned;
};

void Put(uint8_t* field, std::size_t size, const std::string& hex) {
  const ByteVec bytes = FromHex(hex);
  ASSERT_LE(bytes.size(), size);
  std::copy(bytes.begin(), bytes.end(), field);
}

rbg_params BlockFor(const Vector& v, int32_t returned_len) {
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

// NIST's CTR_DRBG AES-256 use df answers (no prediction resistance).
const Vector kAllEmpty = {
    "2d4c9f46b981c6a0b2b5d8c69391e569ff13851437ebc0fc00d616340252fed5",
    "0bf814b411f65ec4866be1abb59d3c32",
    "",
    "93500fae4fa32b86033b7a7bac9d37e710dcc67ca266bc8607d665937766d207",
    "",
    "",
    "",
    "322dd28670e75c0ea638f3cb68d6a9d6e50ddfd052b772a7b1d78263a7b8978b6740c2b6"
    "5a9550c3a76325866fa97e16d74006bc96f26249b9f0a90d076f08e5"};
const Vector kEverything = {
    "174b46250051a9e3d80c56ae7163dafe7e54481a56cafd3b8625f99bbb29c442",
    "98ffd99c466e0e94a45da7e0e82dbc6b",
    "7095268e99938b3e042734b9176c9aa051f00a5f8d2a89ada214b89beef18ebf",
    "e88be1967c5503f65d23867bbc891bd679db03b4878663f6c877592df25f0d9a",
    "cdf6ad549e45b6aa5cd67d024931c33cd133d52d5ae500c3015020beb30da063",
    "c7228e90c62f896a09e11684530102f926ec90a3255f6c21b857883c75800143",
    "76a94f224178fe4cbf9e2b8acc53c9dc3e50bb613aac8936601453cda3293b17",
    "1a6d8dbd642076d13916e5e23038b60b26061f13dd4e006277e0268698ffb2c87e453bae"
    "1251631ac90c701a9849d933995e8b0221fe9aca1985c546c2079027"};

// The DRBGVS procedure run on CtrDrbg directly.
std::string RunDirect(const Vector& v, std::size_t len) {
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
  return ToHex(out.data(), out.size());
}

TEST(CtrDrbg, ReproducesNistAnswers) {
  for (const Vector* v : {&kAllEmpty, &kEverything}) {
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
  rbg_params empty = BlockFor(kAllEmpty, 64);
  ASSERT_EQ(RunDrbgStandin(&empty), 0);
  EXPECT_EQ(ToHex(empty.returned, 64), kAllEmpty.returned);
  for (int32_t len : {0, 1, 17, 32, 63, 64}) {
    rbg_params p = BlockFor(kEverything, len);
    std::memset(p.returned, 0xAA, sizeof p.returned);
    const rbg_params before = p;
    ASSERT_EQ(RunDrbgStandin(&p), 0) << len;
    EXPECT_EQ(ToHex(p.returned, len),
              RunDirect(kEverything, static_cast<std::size_t>(len)));
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
    rbg_params p = BlockFor(kAllEmpty, len);
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

// Every AES-256 use df answer in NIST's response file.
TEST(DrbgStandin, MatchesEveryAes256UseDfAnswer) {
  std::ifstream fax(std::string(FIPSVAL_CAVP_DIR) +
                    "/DRBG800-90A/fax/CTR_DRBG.fax");
  if (!fax) GTEST_SKIP() << "no CAVP vectors at " << FIPSVAL_CAVP_DIR;
  bool in_section = false;
  int additional_seen = 0, checked = 0;
  Vector v;
  for (std::string line; std::getline(fax, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.size() > 4 && line.ends_with("df]")) {
      in_section = line == "[AES-256 use df]";
    }
    if (!in_section) continue;
    const auto value = [&](std::string_view tag) {
      return line.substr(tag.size());
    };
    if (line.starts_with("COUNT = ")) {
      v = {};
      additional_seen = 0;
    } else if (line.starts_with("EntropyInput = ")) {
      v.entropy = value("EntropyInput = ");
    } else if (line.starts_with("Nonce = ")) {
      v.nonce = value("Nonce = ");
    } else if (line.starts_with("PersonalizationString = ")) {
      v.personalization = value("PersonalizationString = ");
    } else if (line.starts_with("EntropyInputReseed = ")) {
      v.entropy_reseed = value("EntropyInputReseed = ");
    } else if (line.starts_with("AdditionalInputReseed = ")) {
      v.additional_reseed = value("AdditionalInputReseed = ");
    } else if (line.starts_with("AdditionalInput = ")) {
      (additional_seen++ == 0 ? v.additional1 : v.additional2) =
          value("AdditionalInput = ");
    } else if (line.starts_with("ReturnedBits = ")) {
      rbg_params p = BlockFor(v, 64);
      ASSERT_EQ(RunDrbgStandin(&p), 0);
      EXPECT_EQ(ToHex(p.returned, 64), value("ReturnedBits = "))
          << "entropy " << v.entropy;
      ++checked;
    }
  }
  EXPECT_EQ(checked, 240);
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
  rbg_params p = BlockFor(kAllEmpty, 64);
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
  rbg_params p = BlockFor(kEverything, 64);
  ASSERT_EQ(InterposedIoctl(urandom.fd, kRbgSetParamsIoctl, &p), 0);
  EXPECT_EQ(ToHex(p.returned, 64), kEverything.returned);

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
