// The host's owners: file descriptors, stdio files and the OpenSSL objects
// it uses. Every owner in the host comes from here.
#pragma once

#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <memory>

namespace fipsval::host {

// An owned file descriptor; -1 when empty.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept;
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd();

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_ = -1;
};

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
