// The native AES engine beside OpenSSL's AES: one-block encryption, CBC
// throughput over 16 KiB, and the wall time of the three CBC Monte Carlo
// request files.
//
// The program runs its benchmarks twice: first as started (OpenSSL may use
// AES-NI), then re-executes itself with OPENSSL_ia32cap masking AES-NI and
// SSSE3, so that OpenSSL falls back to its table-based code. The variable
// must be set before OpenSSL initialises, hence the second process. Set
// OPENSSL_ia32cap yourself to run only one configuration.
//
// The Monte Carlo benchmarks use the fixed request and response paths and
// are registered only inside the sandbox:
//   build/tests/support/sandbox_run build/bench/aes_bench
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <openssl/aes.h>
#include <openssl/evp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "fipsval.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace {

constexpr char kMaskAesNi[] = "~0x200000200000000";
constexpr std::size_t kCbcBytes = 16 * 1024;

std::array<uint8_t, 32> TestKey() {
  std::array<uint8_t, 32> key;
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(i * 11 + 3);
  return key;
}

constexpr std::array<uint8_t, 16> kIv = {1, 2, 3, 4, 5, 6, 7, 8,
                                         9, 10, 11, 12, 13, 14, 15, 16};

// ---------------------------------------------------------------------------
// One block. Each encryption feeds the next, as in the Monte Carlo loops.

void NativeBlock(benchmark::State& state) {
  const int bits = static_cast<int>(state.range(0));
  const auto key = TestKey();
  uint32_t rk[4 * (MAXNR + 1)];
  const int nr = rijndaelKeySetupEnc(rk, key.data(), bits);
  std::array<uint8_t, 16> block{};
  for (auto _ : state) {
    rijndaelEncrypt(rk, nr, block.data(), block.data());
    benchmark::DoNotOptimize(block);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 16);
}

void NativeBlockDecrypt(benchmark::State& state) {
  const int bits = static_cast<int>(state.range(0));
  const auto key = TestKey();
  uint32_t rk[4 * (MAXNR + 1)];
  const int nr = rijndaelKeySetupDec(rk, key.data(), bits);
  std::array<uint8_t, 16> block{};
  for (auto _ : state) {
    rijndaelDecrypt(rk, nr, block.data(), block.data());
    benchmark::DoNotOptimize(block);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 16);
}

void OpenSslBlock(benchmark::State& state) {
  const auto key = TestKey();
  AES_KEY ks;
  AES_set_encrypt_key(key.data(), static_cast<int>(state.range(0)), &ks);
  std::array<uint8_t, 16> block{};
  for (auto _ : state) {
    AES_encrypt(block.data(), block.data(), &ks);
    benchmark::DoNotOptimize(block);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 16);
}

void OpenSslBlockDecrypt(benchmark::State& state) {
  const auto key = TestKey();
  AES_KEY ks;
  AES_set_decrypt_key(key.data(), static_cast<int>(state.range(0)), &ks);
  std::array<uint8_t, 16> block{};
  for (auto _ : state) {
    AES_decrypt(block.data(), block.data(), &ks);
    benchmark::DoNotOptimize(block);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 16);
}

// ---------------------------------------------------------------------------
// CBC over 16 KiB.

void NativeCbc(benchmark::State& state, int encrypt) {
  const auto key = TestKey();
  fips_aes_ctx ctx;
  fips_aes_init(&ctx, encrypt, key.data(), static_cast<int>(state.range(0) / 8),
                kIv.data());
  std::vector<uint8_t> in(kCbcBytes, 0x5A), out(kCbcBytes);
  for (auto _ : state) {
    // Decryption advances the stored IV; that costs nothing here.
    fips_aes_update(&ctx, in.data(), static_cast<int>(kCbcBytes), out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kCbcBytes);
}

void OpenSslCbc(benchmark::State& state, int encrypt) {
  const auto key = TestKey();
  const int bits = static_cast<int>(state.range(0));
  AES_KEY ks;
  if (encrypt) {
    AES_set_encrypt_key(key.data(), bits, &ks);
  } else {
    AES_set_decrypt_key(key.data(), bits, &ks);
  }
  std::vector<uint8_t> in(kCbcBytes, 0x5A), out(kCbcBytes);
  std::array<uint8_t, 16> iv = kIv;
  for (auto _ : state) {
    AES_cbc_encrypt(in.data(), out.data(), kCbcBytes, &ks, iv.data(),
                    encrypt ? AES_ENCRYPT : AES_DECRYPT);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kCbcBytes);
}

using EvpCipherCtx =
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

// EVP picks OpenSSL's fastest path: AES-NI unless masked.
void EvpCbc(benchmark::State& state, int encrypt) {
  const auto key = TestKey();
  const EVP_CIPHER* cipher = state.range(0) == 128   ? EVP_aes_128_cbc()
                             : state.range(0) == 192 ? EVP_aes_192_cbc()
                                                     : EVP_aes_256_cbc();
  EvpCipherCtx ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EVP_CipherInit_ex(ctx.get(), cipher, nullptr, key.data(), kIv.data(), encrypt);
  EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
  std::vector<uint8_t> in(kCbcBytes, 0x5A), out(kCbcBytes);
  for (auto _ : state) {
    int n = 0;
    EVP_CipherUpdate(ctx.get(), out.data(), &n, in.data(),
                     static_cast<int>(kCbcBytes));
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kCbcBytes);
}

// ---------------------------------------------------------------------------
// CBC Monte Carlo files, answered by the runner end to end.

void CbcMonteCarlo(benchmark::State& state, const std::string& name) {
  using namespace fipsval::testing;
  ResetVectorDirs();
  const std::string request =
      ReadFile(std::string(FIPSVAL_CAVP_DIR) + "/AES/req/" + name + ".req");
  if (request.empty()) {
    state.SkipWithError(("missing request " + name).c_str());
    return;
  }
  WriteRequest(name, request);
  // The runner announces each file on standard output; keep it out of the
  // benchmark table.
  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, STDOUT_FILENO);
  for (auto _ : state) fipsval::test_aes_cbc_mct_from_file(name.c_str());
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(null);
  close(saved);
  if (ReadResponse(name).find("COUNT = 99") == std::string::npos) {
    state.SkipWithError("the runner did not complete the file");
  }
}

void Register(const std::string& openssl_paths) {
  const auto sizes = [](benchmark::internal::Benchmark* b) {
    b->Arg(128)->Arg(192)->Arg(256);
  };
  const std::string tag = "/openssl:" + openssl_paths;
  benchmark::RegisterBenchmark(("native_encrypt_block" + tag).c_str(),
                               NativeBlock)->Apply(sizes);
  benchmark::RegisterBenchmark(("openssl_AES_encrypt" + tag).c_str(),
                               OpenSslBlock)->Apply(sizes);
  benchmark::RegisterBenchmark(("native_decrypt_block" + tag).c_str(),
                               NativeBlockDecrypt)->Apply(sizes);
  benchmark::RegisterBenchmark(("openssl_AES_decrypt" + tag).c_str(),
                               OpenSslBlockDecrypt)->Apply(sizes);
  for (int encrypt : {1, 0}) {
    const std::string dir = encrypt ? "encrypt" : "decrypt";
    benchmark::RegisterBenchmark(("native_cbc_" + dir + "_16KiB" + tag).c_str(),
                                 NativeCbc, encrypt)->Apply(sizes);
    benchmark::RegisterBenchmark(
        ("openssl_AES_cbc_" + dir + "_16KiB" + tag).c_str(), OpenSslCbc,
        encrypt)->Apply(sizes);
    benchmark::RegisterBenchmark(("openssl_EVP_cbc_" + dir + "_16KiB" + tag).c_str(),
                                 EvpCbc, encrypt)->Apply(sizes);
  }
  if (std::getenv("FIPSVAL_SANDBOX")) {
    for (const char* name : {"CBCMCT128", "CBCMCT192", "CBCMCT256"}) {
      benchmark::RegisterBenchmark(("cbc_monte_carlo_file/" + std::string(name) + tag).c_str(),
                                   CbcMonteCarlo, std::string(name))
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime()
          ->Iterations(3);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<char*> original(argv, argv + argc + 1);
  const char* mask = std::getenv("OPENSSL_ia32cap");
  Register(mask ? "masked" : "default");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("OPENSSL_ia32cap", mask ? mask : "(unset)");
  if (!std::getenv("FIPSVAL_SANDBOX")) {
    std::fprintf(stderr,
                 "Monte Carlo file timings need the sandbox: run through "
                 "tests/support/sandbox_run\n");
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (mask) return 0;

  // Second pass with OpenSSL's hardware paths masked.
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    setenv("OPENSSL_ia32cap", kMaskAesNi, 1);
    execv("/proc/self/exe", original.data());
    std::perror("aes_bench: re-running with OPENSSL_ia32cap");
    _exit(127);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return 1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
