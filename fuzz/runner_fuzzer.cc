// The request-file runners on hostile request files. This one source makes
// one fuzz target per runner family (CMakeLists.txt sets
// FIPSVAL_FUZZ_FAMILY); the input's first byte picks runners[byte % count]
// of the family, the rest becomes "/tmp/req/<name>.req". Beyond the
// sanitizers, a runner that leaves a descriptor open aborts the run.
//
// Monte Carlo and key-generation runners do large fixed work per seed or
// key: cost guards skip inputs that would take more than a few seconds.
// They read the raw bytes, not lines, so that no line cut or zero byte can
// hide a costly field from them.
#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::fuzz {
namespace {

using Input = std::string_view;

struct Runner {
  const char* name;  // request base name, as the suite's run operation uses
  void (*run)(const char* name);
  bool (*affordable)(Input request) = nullptr;  // nullptr: every request
};

std::size_t Count(Input in, std::string_view needle) {
  std::size_t n = 0;
  for (auto at = in.find(needle); at != Input::npos; at = in.find(needle, at + 1)) ++n;
  return n;
}

// A bound on every hex value a runner decodes (twice its byte count).
std::size_t LongestHexRun(Input in) {
  std::size_t longest = 0, run = 0;
  for (const char c : in) {
    run = std::isxdigit(static_cast<unsigned char>(c)) ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  return longest;
}

// Calls fn with what follows each occurrence of tag.
template <typename Fn>
void ForEachValue(Input in, std::string_view tag, Fn fn) {
  for (auto at = in.find(tag); at != Input::npos; at = in.find(tag, at + 1)) {
    fn(in.substr(at + tag.size()));
  }
}

// The largest "[mod = " value, read as the RSA runners read it: at most four
// characters, up to a zero byte.
bool ModuliAtMost2048(Input in) {
  bool ok = true;
  ForEachValue(in, "[mod = ", [&](Input value) {
    std::string digits(value.substr(0, 4));
    ok = ok && std::strtol(digits.c_str(), nullptr, 10) <= 2048;
  });
  return ok;
}

// Key pairs that the "N = " counts ask for, each read as strtol then int.
long long KeysAsked(Input in) {
  long long total = 0;
  ForEachValue(in, "N = ", [&](Input value) {
    const std::string n(value.substr(0, value.find_first_not_of(" \t\n\v\f\r+-0123456789")));
    total += std::max(0, static_cast<int>(std::strtol(n.c_str(), nullptr, 10)));
  });
  return total;
}

// AES: a seed needs a "KEY = " line, 64 hex digits hold a 256-bit key (two
// seeds, about 1.4 s). TDES: a seed has three "KEY" lines and one-block
// values (one seed, about 2.5 s).
bool AesMct(Input in) { return Count(in, "KEY = ") <= 2 && LongestHexRun(in) <= 64; }
bool TdesMct(Input in) { return Count(in, "KEY") <= 5 && LongestHexRun(in) <= 16; }
// Miller-Rabin on each candidate: up to 16 records of 2080-bit primes.
bool KeygenKat(Input in) { return LongestHexRun(in) <= 520 && Count(in, "e = ") <= 16; }
// Two keys of at most 2048 bits.
bool SigGen(Input in) { return ModuliAtMost2048(in) && Count(in, "[mod = ") <= 2; }
bool RpPrimes(Input in) { return ModuliAtMost2048(in) && KeysAsked(in) <= 2; }

void Sign0(const char* name) { test_rsa_sign_from_file(name, 0); }
void Sign1(const char* name) { test_rsa_sign_from_file(name, 1); }  // unsupported
void Verify(const char* name) { test_rsa_verify_from_file(name, 0); }

// The families, in the order of FIPSVAL_FUZZ_FAMILIES in CMakeLists.txt.
constexpr Runner kCipher[] = {{"CBCMMT128", test_aes_cbc_from_file},
                              {"ECBMMT128", test_aes_ecb_from_file},
                              {"TCBCMMT3", test_3des_tcbc_from_file}};
constexpr Runner kCipherMct[] = {{"CBCMCT128", test_aes_cbc_mct_from_file, AesMct},
                                 {"ECBMCT128", test_aes_ecb_mct_from_file, AesMct},
                                 {"TCBCMonte3", test_3des_tcbc_mct_from_file, TdesMct}};
constexpr Runner kHash[] = {{"SHA1LongMsg", test_sha1_from_file},
                            {"SHA256LongMsg", test_sha256_from_file},
                            {"HMAC", test_hmac_from_file}};
constexpr Runner kHashMct[] = {{"SHA1Monte", test_sha1_mct_from_file},
                               {"SHA256Monte", test_sha256_mct_from_file}};
constexpr Runner kRsa[] = {{"SigVer15_186-3", Verify},
                           {"KeyGen_186-3", test_rsa_keygen_from_file},
                           {"KeyGen3_3_KAT", test_rsa_keygen_kat_from_file, KeygenKat}};
constexpr Runner kRsaKeygen[] = {
    {"SigGen15_186-3", Sign0, SigGen},
    {"SigGen15_186-3", Sign1, SigGen},
    {"KeyGen_RandomProbablyPrime3_3", test_rsa_keygen_rp_prime_from_file, RpPrimes}};
constexpr Runner kDrbg[] = {{"CTR_DRBG", test_rbg_from_file}};
constexpr Runner kKdf[] = {{"ssh", test_ssh_from_file}, {"tls", test_tls_from_file}};
constexpr std::span<const Runner> kFamilies[] = {kCipher, kCipherMct, kHash,  kHashMct,
                                                 kRsa,    kRsaKeygen, kDrbg, kKdf};
constexpr std::span<const Runner> kRunners = kFamilies[FIPSVAL_FUZZ_FAMILY];

// Inputs above this are skipped; libFuzzer's -max_len keeps below it.
constexpr std::size_t kMaxRequest = 64 * 1024;

}  // namespace
}  // namespace fipsval::fuzz

using namespace fipsval::fuzz;

// The runners work on the fixed "/tmp/req" and "/tmp/resp": refuse to run
// outside sandbox_run, whose /tmp is private. Standard output goes to
// /dev/null so that libFuzzer's lines stay readable.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* sandbox = std::getenv("FIPSVAL_SANDBOX");
  if (!sandbox || std::strcmp(sandbox, "1") != 0) {
    std::fprintf(stderr, "fuzz: run this target through sandbox_run: it writes /tmp/req and /tmp/resp\n");
    std::exit(1);
  }
  fipsval::testing::ResetVectorDirs();
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null < 0 || dup2(null, STDOUT_FILENO) < 0) std::exit(1);
  close(null);
  // As the RSA suite's run operation does before its runners.
  OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > kMaxRequest) return 0;
  const Runner& runner = kRunners[data[0] % kRunners.size()];
  const Input request(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (runner.affordable && !runner.affordable(request)) return 0;
  fipsval::testing::WriteRequest(runner.name, request);
  const int before = fipsval::testing::OpenDescriptorCount();
  runner.run(runner.name);
  if (fipsval::testing::OpenDescriptorCount() != before) {
    std::fprintf(stderr, "fuzz: %s left a file descriptor open\n", runner.name);
    std::abort();
  }
  return 0;
}
