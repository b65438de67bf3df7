// The library's generic owners: UniqueFile closes a FILE*, UniquePtr<T>
// frees an OpenSSL object with its matching function, OpensslString frees
// strings that OpenSSL allocates (BN_bn2hex). The aliases below are the
// only names the library uses for them.
#pragma once

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <memory>

namespace fipsval {

struct FileCloser {
  void operator()(std::FILE* f) const noexcept { std::fclose(f); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

template <typename T>
struct OpensslDeleter;

#define FIPSVAL_OPENSSL_DELETER(type, free_function)              \
  template <>                                                     \
  struct OpensslDeleter<type> {                                   \
    void operator()(type* p) const noexcept { free_function(p); } \
  }

FIPSVAL_OPENSSL_DELETER(EVP_CIPHER_CTX, EVP_CIPHER_CTX_free);
FIPSVAL_OPENSSL_DELETER(EVP_MD_CTX, EVP_MD_CTX_free);
FIPSVAL_OPENSSL_DELETER(HMAC_CTX, HMAC_CTX_free);
FIPSVAL_OPENSSL_DELETER(RSA, RSA_free);
FIPSVAL_OPENSSL_DELETER(BIGNUM, BN_free);
FIPSVAL_OPENSSL_DELETER(BN_CTX, BN_CTX_free);

#undef FIPSVAL_OPENSSL_DELETER

template <typename T>
using UniquePtr = std::unique_ptr<T, OpensslDeleter<T>>;

using UniqueBignum = UniquePtr<BIGNUM>;
using UniqueBnCtx = UniquePtr<BN_CTX>;
using UniqueRsa = UniquePtr<RSA>;
using UniqueCipherCtx = UniquePtr<EVP_CIPHER_CTX>;
using UniqueMdCtx = UniquePtr<EVP_MD_CTX>;

struct OpensslStringFree {
  void operator()(char* s) const noexcept { OPENSSL_free(s); }
};
using OpensslString = std::unique_ptr<char, OpensslStringFree>;

}  // namespace fipsval
