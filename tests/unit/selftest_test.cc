// The power-on self-tests as the host sees them: progress output, the
// failure mask, the forced-failure marker, the error text and the host
// callbacks; and the algorithm known-answer tests, where each forced
// failure strikes seen through wrappers of the OpenSSL calls.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/aes.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <climits>

#include "fipsval.h"
#include "selftest/selftest.h"
#include "selftest/vectors.h"
#include "tests/support/host_doubles.h"
#include "tests/support/test_env.h"

// What the wrapped calls saw; each forwards to OpenSSL.
namespace {
int t_aes_decrypt_setups, t_verifies, t_verifies_ok;
std::vector<uint8_t> t_tdes_decrypt_in, t_tdes_decrypt_out;
template <typename Fn>
Fn Real(Fn, const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" int AES_set_decrypt_key(const unsigned char* key, const int bits, AES_KEY* ks) {
  static const auto real = Real(&AES_set_decrypt_key, "AES_set_decrypt_key");
  ++t_aes_decrypt_setups;
  return real(key, bits, ks);
}
extern "C" int EVP_DecryptUpdate(EVP_CIPHER_CTX* ctx, unsigned char* out, int* outl,
                                 const unsigned char* in, int inl) {
  static const auto real = Real(&EVP_DecryptUpdate, "EVP_DecryptUpdate");
  t_tdes_decrypt_in.assign(in, in + inl);
  const int ok = real(ctx, out, outl, in, inl);
  t_tdes_decrypt_out.assign(out, out + 8);  // the test reads 8 bytes whatever *outl says
  return ok;
}
extern "C" int RSA_verify(int type, const unsigned char* m, unsigned int m_len,
                          const unsigned char* sig, unsigned int sig_len, RSA* rsa) {
  static const auto real = Real(&RSA_verify, "RSA_verify");
  const int ok = real(type, m, m_len, sig, sig_len, rsa);
  ++t_verifies;
  t_verifies_ok += ok != 0;
  return ok;
}

namespace fipsval::testing {
namespace {

constexpr char kMarker[] = "/data/etc/katfail";
using Ints = std::vector<int>;
using Texts = std::vector<std::string>;
using ErrorModes = std::vector<std::pair<int, std::string>>;

// The eight tests in the order they run; a host test has its double's
// result field.
const struct Expected {
  const char *label, *name;
  int bit;
  const char* message;
  int HostDoubles::*host_result;
} kTests[] = {
    {"Running Configuration Integrity test...", "Configuration", 64,
     "Configuration Integrity test failed", &HostDoubles::vpn_cfg_result},
    {"Running AES test...", "AES", 2, "AES self-test failed", nullptr},
    {"Running SHA1 HMAC test...", "SHA1-HMAC", 4, "SHA1 HMAC self-test failed", nullptr},
    {"Running SHA256 HMAC test...", "SHA256-HMAC", 128, "SHA256 HMAC self-test failed", nullptr},
    {"Running 3DES test...", "3DES", 8, "3DES self-test failed", nullptr},
    {"Running RSA test...", "RSA", 16, "RSA self-test failed", nullptr},
    {"Running Firmware integrity test...", "Firmware-integrity", 1,
     "Firmware integrity test failed", &HostDoubles::firmware_result},
    {"Running RNG test...", "RNG", 32, "RNG self-test failed", &HostDoubles::rng_result}};

// The whole output of a run in which the tests in `failed` fail.
std::string ExpectedRun(int failed) {
  std::string out = "\nFIPS-CC mode: Starting self-tests.\n";
  for (const Expected& t : kTests) {
    out += std::string(t.label).append(46, ' ').substr(0, 46) +
           (failed & t.bit ? "failed\n" : "passed\n");
  }
  return out + (failed ? "Self-tests failed\n" : "Self-tests passed\n");
}

std::pair<int, std::string> Call(int (*fn)()) {
  int result = -99;
  std::string out = CaptureStdout([&] { result = fn(); });
  return {result, out};
}

class SelfTests : public ::testing::Test {
 protected:
  void SetUp() override { unlink(kMarker); }
  void TearDown() override { unlink(kMarker); }
};

// Each name forces its test alone: the library's own tests fail, a host
// test gets its own bit (never 1) and fails only if the host honours it.
// A log result that is not negative is a logged error.
TEST_F(SelfTests, EachNameForcesItsTestAloneAndEntersTheErrorMode) {
  for (const Expected& f : kTests) {
    for (bool host_honours : {true, false}) {
      if (!f.host_result && !host_honours) continue;
      ResetHost();
      Host().log_result = 3;
      if (f.host_result && host_honours) Host().*f.host_result = 0;
      WriteFile(kMarker, f.name);
      const int mask = host_honours ? f.bit : 0;
      const std::string text = std::string("FIPS error: ") + f.message;
      EXPECT_EQ(Call(fips_self_tests),
                std::make_pair(mask, "\nForcing failure of " + std::string(f.name) + "\n" +
                                         ExpectedRun(mask))) << f.name;
      EXPECT_EQ(std::tuple(Host().vpn_cfg_args, Host().firmware_args, Host().rng_args),
                std::tuple(Ints{f.bit & 64}, Ints{f.bit & 1}, Ints{f.bit & 32})) << f.name;
      EXPECT_EQ(Host().logged, mask ? Texts{text} : Texts{}) << f.name;
      EXPECT_EQ(Host().error_modes, (mask ? ErrorModes{{-3, text}} : ErrorModes{})) << f.name;
      EXPECT_FALSE(FileExists(kMarker)) << f.name;
    }
  }
}

// Any host result of 1 or more passes; the firmware failing does not stop
// the RNG test; a failed log is said (without a line end) and the error
// mode is entered all the same.
TEST_F(SelfTests, HostResultsBelowOneFailAndEveryTestStillRuns) {
  ResetHost();
  Host().vpn_cfg_result = 2;
  Host().firmware_result = 0;
  Host().rng_result = -1;
  Host().log_result = -1;
  const std::string text = "FIPS error: Firmware integrity test failed, RNG self-test failed";
  EXPECT_EQ(Call(fips_self_tests),
            std::make_pair(33, ExpectedRun(33) + "Failed to log self-test failure: " + text));
  EXPECT_EQ(Host().logged, Texts{text});
  EXPECT_EQ(Host().error_modes, (ErrorModes{{-3, text}}));
}

// The first line must be exactly a name (its newline takes part); the
// marker is deleted whatever it holds. No marker is the quiet case.
TEST_F(SelfTests, MarkerLineMustBeExactlyOneNameAndIsDeleted) {
  const std::string long_line(200, 'A');
  const struct {
    std::string content;
    int bit;
    std::string printed;  // after "Forcing failure of "
  } cases[] = {
      {"RSA", 16, "RSA"}, {"", 0, ""}, {"RSA\n", 0, "RSA\n"}, {"RSA\nAES", 0, "RSA\n"},
      {"Configuration\r\n", 0, "Configuration\r\n"}, {long_line, 0, long_line.substr(0, 63)},
      {"AESx", 0, "AESx"}, {"AE", 0, "AE"}, {" AES", 0, " AES"}, {"aes", 0, "aes"}};
  for (const auto& c : cases) {
    WriteFile(kMarker, c.content);
    EXPECT_EQ(Call(fips_check_fail),
              std::make_pair(c.bit, c.printed.empty() ? "" : "\nForcing failure of " + c.printed +
                                                                 "\n"));
    EXPECT_FALSE(FileExists(kMarker)) << c.content;
  }
  EXPECT_EQ(Call(fips_check_fail), std::make_pair(0, std::string()));

  // A host started with standard input closed opens the marker as 0.
  WriteFile(kMarker, "RSA");
  const int stdin_copy = dup(0);
  close(0);
  const int bit = fips_check_fail();
  dup2(stdin_copy, 0);
  close(stdin_copy);
  EXPECT_EQ(bit, 16);
}

// Only a regular file of its own is read: anything else at the path is
// left in place, said to be ignored, and never opened in a way that could
// block or show another file's content ("AES" in the victim would force).
TEST_F(SelfTests, MarkerThatIsNoRegularFileIsIgnoredAndSaidSo) {
  constexpr char kVictim[] = "/data/victim";
  const struct {
    int (*make)(const char* victim);
    const char* reason;
  } cases[] = {
      {[](const char*) { return mkfifo(kMarker, 0600); }, "it is a FIFO, not a regular file"},
      {[](const char* v) { return symlink(v, kMarker); },
       "it is a symbolic link, not a regular file"},
      {[](const char*) { return mkdir(kMarker, 0755); }, "it is a directory, not a regular file"},
      {[](const char*) { return mknod(kMarker, S_IFCHR | 0600, makedev(1, 3)); },
       "it is a device, not a regular file"},
      {[](const char* v) { return link(v, kMarker); }, "it has other hard links"}};
  for (const auto& c : cases) {
    WriteFile(kVictim, "AES");
    if (c.make(kVictim) != 0) {
      // A user namespace may not make device nodes: that case only.
      ASSERT_EQ(errno, EPERM) << c.reason;
      std::printf("skipped here (no permission to make it): %s\n", c.reason);
      continue;
    }
    alarm(10);  // a marker read that blocks ends the test here
    EXPECT_EQ(Call(fips_check_fail),
              std::make_pair(0, std::string("Ignoring /data/etc/katfail: ") + c.reason + "\n"));
    alarm(0);
    struct stat st;
    EXPECT_EQ(lstat(kMarker, &st), 0) << c.reason << ": left in place";
    EXPECT_EQ(ReadFile(kVictim), "AES") << c.reason;
    std::remove(kMarker);
  }
  unlink(kVictim);
}

// No marker is the normal case, also where /data/etc is not a directory;
// a path that cannot be looked up at all is said.
TEST_F(SelfTests, MarkerPathThatCannotBeLookedUp) {
  ASSERT_EQ(rename("/data/etc", "/data/etc.saved"), 0);
  WriteFile("/data/etc", "");
  const auto not_a_directory = Call(fips_check_fail);
  unlink("/data/etc");
  symlink("/data/etc", "/data/etc");  // a loop
  const auto loop = Call(fips_check_fail);
  unlink("/data/etc");
  ASSERT_EQ(rename("/data/etc.saved", "/data/etc"), 0);
  EXPECT_EQ(not_a_directory, std::make_pair(0, std::string()));
  EXPECT_EQ(loop, std::make_pair(0, std::string("Ignoring /data/etc/katfail: cannot read it "
                                                "(Too many levels of symbolic links)\n")));
}

TEST_F(SelfTests, MarkerThatCannotBeDeletedSaysTheFailureWillRepeat) {
  ASSERT_EQ(mount("etc", "/data/etc", "tmpfs", 0, nullptr), 0);
  WriteFile(kMarker, "RSA");
  ASSERT_EQ(mount(nullptr, "/data/etc", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  const auto r = Call(fips_check_fail);
  const bool still_there = FileExists(kMarker);
  umount("/data/etc");
  EXPECT_EQ(r, std::make_pair(16, std::string("\nForcing failure of RSA\nCannot delete "
                                              "/data/etc/katfail (Read-only file system): the "
                                              "forced failure will repeat at the next start\n")));
  EXPECT_TRUE(still_there);
}

TEST(ErrorText, ListsMessagesInTableOrderAndNeverExceedsTheSize) {
  const auto text = [](uint32_t mask, std::size_t size = 900) {
    std::string buf(900, '\x7f');
    get_self_test_errstr(mask, buf.data(), size);
    return buf.substr(0, buf.find_last_not_of('\x7f') + 1);  // the text and its terminator
  };
  EXPECT_EQ(text(0), std::string("FIPS error: ", 13));
  EXPECT_EQ(text(256), text(0));  // bits of no test add nothing
  EXPECT_EQ(text(66), std::string("FIPS error: AES self-test failed, Configuration Integrity "
                                  "test failed\0", 70));
  const std::string all =
      "FIPS error: Firmware integrity test failed, AES self-test failed, "
      "SHA1 HMAC self-test failed, SHA256 HMAC self-test failed, 3DES self-test failed, "
      "RSA self-test failed, RNG self-test failed, Configuration Integrity test failed";
  for (std::size_t size = 0; size <= all.size() + 2; ++size) {
    EXPECT_EQ(text(0xffffffffu, size), size ? all.substr(0, size - 1) + '\0' : "") << size;
  }
}

// Only a result of exactly 1 passes here (2 passes the start-up run); it
// is never forced, a failure is reported as the mode says, and enters the
// error mode.
TEST_F(SelfTests, CheckConfigPassesOnlyOnExactlyOneAndReportsByMode) {
  WriteFile(kMarker, "Configuration");
  const std::string report = "\nConfiguration Integrity check failed\n";
  const struct {
    int host_result, mode, result;
    std::string printed, host_message;
  } cases[] = {{1, 1, 0, "", ""}, {2, 2, -1, report, ""}, {0, 1, -1, "", report},
               {0, 0, -1, "", ""}, {0, 3, -1, "", ""}, {0, -1, -1, "", ""}};
  for (const auto& c : cases) {
    ResetHost();
    Host().vpn_cfg_result = c.host_result;
    int result = 0;
    EXPECT_EQ(CaptureStdout([&] { result = fips_check_config(c.mode); }), c.printed);
    EXPECT_EQ(result, c.result) << c.mode;
    EXPECT_EQ(Host().messages, c.host_message.empty() ? Texts{} : Texts{report}) << c.mode;
    EXPECT_EQ(Host().vpn_cfg_args, Ints{0});
    EXPECT_EQ(Host().error_modes, (c.result ? ErrorModes{{-4, "configuration"}} : ErrorModes{}));
  }
  EXPECT_TRUE(FileExists(kMarker));
  for (int enabled : {1, 0, -1}) {  // update-config hashes only in FIPS-CC mode
    ResetHost();
    Host().fips_cc_enabled = enabled;
    EXPECT_EQ(fips_update_config(), 0);
    EXPECT_EQ(Host().hash_cfg_args, enabled ? Ints{0} : Ints{}) << enabled;
  }
  EXPECT_EQ(fips_get_max_hash_tests(), 1);
}

// The published vectors, and an RSA key that OpenSSL finds consistent.
TEST(KnownAnswer, VectorsAreThePublishedOnesAndTheRsaKeyIsConsistent) {
  EXPECT_EQ(Hex(kat::kAesKey), "06a9214036b8a15b512e03d534120006");  // RFC 3602 case 1
  EXPECT_STREQ(kat::kAesPlaintext, "Single block msg");
  // RFC 2202 and RFC 4231 test case 2 (key "Jefe").
  EXPECT_EQ(Hex(kat::kHmacSha1Mac), "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
  EXPECT_EQ(Hex(kat::kHmacSha256Mac),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  RSA* rsa = RSA_new();
  EXPECT_EQ(fips_set_rsa_key(rsa), 0);
  EXPECT_EQ(fips_set_rsa_key(nullptr), -1);
  EXPECT_EQ(RSA_check_key(rsa), 1);
  EXPECT_EQ(RSA_bits(rsa), 2048);
  EXPECT_EQ(BN_get_word(RSA_get0_e(rsa)), 65537u);
  RSA_free(rsa);
}

// The exported tests and the OpenSSL ones behind them: 1 pass, 0 fail.
constexpr int (*kKats[])(int) = {fips_kat_aes_test, fips_kat_sha1_test, fips_kat_sha256_test,
                                 fips_kat_3des_test, fips_kat_rsa_test,
                                 fipsval::fips_openssl_aes_test, fipsval::fips_openssl_3des_test,
                                 fipsval::fips_openssl_sha1_test, fipsval::fips_openssl_sha256_test,
                                 fipsval::fips_openssl_rsa_test};

TEST(KnownAnswer, EachPassesUnforcedAndFailsOnAnyForce) {
  for (auto* kat : kKats) {
    EXPECT_EQ(kat(0), 1);
    for (int force : {1, 2, 128, -1, INT_MIN}) EXPECT_EQ(kat(force), 0) << force;
    EXPECT_EQ(kat(0), 1) << "a forced run leaves nothing behind";
  }
}

// Where each forced failure strikes: AES at the ciphertext comparison (the
// decryption never runs), TDES in the decrypted bytes of a decryption of
// the genuine ciphertext, RSA only at the verification of a signature that
// was made and matched.
TEST(KnownAnswer, ForcedFailuresCorruptTheirOwnIntermediateResult) {
  t_aes_decrypt_setups = 0;
  EXPECT_EQ(fips_kat_aes_test(2), 0);
  EXPECT_EQ(t_aes_decrypt_setups, 0);
  EXPECT_EQ(fips_kat_aes_test(0), 1);
  EXPECT_EQ(t_aes_decrypt_setups, 1);

  t_tdes_decrypt_in.clear();
  t_tdes_decrypt_out.clear();
  EXPECT_EQ(fips_kat_3des_test(8), 0);
  EXPECT_EQ(Hex(t_tdes_decrypt_in), Hex(kat::kTdesCiphertext)) << "the stored ciphertext";
  EXPECT_EQ(Hex(t_tdes_decrypt_out), Hex(kat::kTdesPlaintext)) << "decrypted right";

  t_verifies = t_verifies_ok = 0;  // verification comes after the signature matched
  EXPECT_EQ(fips_kat_rsa_test(16), 0);
  EXPECT_EQ(std::make_pair(t_verifies, t_verifies_ok), std::make_pair(1, 0));
  EXPECT_EQ(fips_kat_rsa_test(0), 1);
  EXPECT_EQ(std::make_pair(t_verifies, t_verifies_ok), std::make_pair(2, 1));
}

}  // namespace
}  // namespace fipsval::testing
