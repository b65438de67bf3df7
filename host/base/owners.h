// The host's own owners for stdio files and the OpenSSL objects it uses.
#pragma once

#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <memory>

namespace fipsval::host {

struct FileCloser {
  void operator()(std::FILE* f) const noexcept { std::fclose(f); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

struct BignumFree {
  void operator()(BIGNUM* p) const noexcept { BN_free(p); }
};
struct BnCtxFree {
  void operator()(BN_CTX* p) const noexcept { BN_CTX_free(p); }
};
struct RsaFree {
  void operator()(RSA* p) const noexcept { RSA_free(p); }
};
using Bignum = std::unique_ptr<BIGNUM, BignumFree>;
using BnCtx = std::unique_ptr<BN_CTX, BnCtxFree>;
using Rsa = std::unique_ptr<RSA, RsaFree>;

}  // namespace fipsval::host
