// TDES Monte Carlo: the runner on the three CAVP request files against the
// bare cost of the same number of single-block EDE3-CBC operations, keyed
// once per record. Uses "/tmp/req" and "/tmp/resp": run it through
// sandbox_run.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "harness/owners.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace {

constexpr const char* kFiles[] = {"TCBCMonte1", "TCBCMonte2", "TCBCMonte3"};
constexpr int kSeedsPerFile = 2;  // one encrypt and one decrypt seed
constexpr int kRecords = 400;
constexpr int kChain = 10000;
constexpr int64_t kOperations =
    int64_t{std::size(kFiles)} * kSeedsPerFile * kRecords * kChain;

using EvpCipherCtx = fipsval::UniquePtr<EVP_CIPHER_CTX>;

bool StageRequests() {
  fipsval::testing::ResetVectorDirs();
  for (const char* name : kFiles) {
    const std::string file = std::string(name) + ".req";
    std::error_code error;
    std::filesystem::copy_file(
        std::filesystem::path(FIPSVAL_CAVP_DIR) / "TDES" / "req" / file,
        std::filesystem::path("/tmp/req") / file, error);
    if (error) return false;
  }
  return true;
}

void BM_TdesMonteCarloRunner(benchmark::State& state) {
  if (!StageRequests()) {
    state.SkipWithError("cannot stage the TDES Monte Carlo requests");
    return;
  }
  for (auto _ : state) {
    const std::string console = fipsval::testing::CaptureStdout([] {
      for (const char* name : kFiles) {
        fipsval::test_3des_tcbc_mct_from_file(name);
      }
    });
    benchmark::DoNotOptimize(console.data());
  }
  state.SetItemsProcessed(state.iterations() * kOperations);
}

// Chains `records` records of 10000 single-block operations, each record
// with its own keyed context, feeding every output back as the next input.
bool BareChain(EVP_CIPHER_CTX* ctx, int enc, int records,
               std::array<uint8_t, 24>& key, std::array<uint8_t, 8>& block) {
  std::array<uint8_t, 8> iv{};
  for (int i = 0; i < records; ++i) {
    if (EVP_CipherInit_ex(ctx, EVP_des_ede3_cbc(), nullptr, key.data(),
                          iv.data(), enc) != 1 ||
        EVP_CIPHER_CTX_set_padding(ctx, 0) != 1) {
      return false;
    }
    std::array<uint8_t, 8> out;
    for (int j = 0; j < kChain; ++j) {
      int produced = 0;
      if (EVP_CipherUpdate(ctx, out.data(), &produced, block.data(), 8) != 1) {
        return false;
      }
      block = out;
    }
    for (std::size_t b = 0; b < key.size(); ++b) key[b] ^= out[b % 8];
    iv = out;
  }
  return true;
}

void BM_TdesBareOperations(benchmark::State& state) {
  EvpCipherCtx ctx(EVP_CIPHER_CTX_new());
  std::array<uint8_t, 24> key{};
  std::array<uint8_t, 8> block{};
  for (auto _ : state) {
    for (std::size_t f = 0; f < std::size(kFiles); ++f) {
      for (int enc : {1, 0}) {
        if (!BareChain(ctx.get(), enc, kRecords, key, block)) {
          state.SkipWithError("EVP failure");
          return;
        }
      }
    }
    benchmark::DoNotOptimize(block.data());
  }
  state.SetItemsProcessed(state.iterations() * kOperations);
}

// For scale: one record of 10000 operations with a new context and key
// schedule for every block, as a per-block cipher call does.
void BM_TdesContextPerBlock(benchmark::State& state) {
  const std::array<uint8_t, 24> key{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,
                                    13, 14, 15, 16, 17, 18, 19, 20, 21, 22,
                                    23, 24};
  std::array<uint8_t, 8> block{}, iv{};
  for (auto _ : state) {
    for (int j = 0; j < kChain; ++j) {
      EvpCipherCtx ctx(EVP_CIPHER_CTX_new());
      std::array<uint8_t, 8> out;
      int produced = 0;
      if (!ctx ||
          EVP_EncryptInit_ex(ctx.get(), EVP_des_ede3_cbc(), nullptr,
                             key.data(), iv.data()) != 1 ||
          EVP_CIPHER_CTX_set_padding(ctx.get(), 0) != 1 ||
          EVP_EncryptUpdate(ctx.get(), out.data(), &produced, block.data(),
                            8) != 1) {
        state.SkipWithError("EVP failure");
        return;
      }
      iv = out;
      block = out;
    }
    benchmark::DoNotOptimize(block.data());
  }
  state.SetItemsProcessed(state.iterations() * kChain);
}

// Each pass is 24 million operations: one iteration per repetition.
BENCHMARK(BM_TdesMonteCarloRunner)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3);
BENCHMARK(BM_TdesBareOperations)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3);
BENCHMARK(BM_TdesContextPerBlock)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
