#include "host/platform/integrity.h"

#include <openssl/sha.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "host/base/owners.h"

namespace fipsval::host {
namespace {

using File = UniqueFile;

bool Fail(std::string* error, const std::string& what, const std::string& path) {
  *error = what + " " + path + ": " + std::strerror(errno);
  return false;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

bool DigestFile(const std::string& path, Sha256* digest, std::string* error) {
  File f(std::fopen(path.c_str(), "rb"));
  if (!f) return Fail(error, "cannot read", path);
  SHA256_CTX ctx;
  SHA256_Init(&ctx);
  unsigned char buf[65536];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f.get())) > 0;) {
    SHA256_Update(&ctx, buf, n);
  }
  if (std::ferror(f.get())) return Fail(error, "cannot read", path);
  SHA256_Final(digest->data(), &ctx);
  return true;
}

bool ReadStoredDigest(const std::string& path, Sha256* digest,
                      std::string* error) {
  File f(std::fopen(path.c_str(), "r"));
  if (!f) return Fail(error, "cannot read the stored digest", path);
  char text[65] = {};
  if (std::fread(text, 1, 64, f.get()) != 64) {
    *error = "stored digest " + path + " is too short";
    return false;
  }
  for (std::size_t i = 0; i < digest->size(); ++i) {
    const int hi = HexValue(text[2 * i]), lo = HexValue(text[2 * i + 1]);
    if (hi < 0 || lo < 0) {
      *error = "stored digest " + path + " is not hexadecimal";
      return false;
    }
    (*digest)[i] = static_cast<uint8_t>(hi * 16 + lo);
  }
  return true;
}

bool StoreDigest(const std::string& path, const Sha256& digest,
                 const std::string& name, std::string* error) {
  File f(std::fopen(path.c_str(), "w"));
  if (!f) return Fail(error, "cannot write", path);
  for (uint8_t b : digest) std::fprintf(f.get(), "%02x", b);
  std::fprintf(f.get(), "  %s\n", name.c_str());
  // Data still buffered fails only when flushed or closed.
  if (std::fflush(f.get()) != 0 || std::fclose(f.release()) != 0) {
    return Fail(error, "cannot write", path);
  }
  return true;
}

HashRecord& LastConfigHash() {
  static HashRecord record;
  return record;
}

int CheckIntegrity(const char* test, const std::string& file,
                   const std::string& stored_digest, int force) {
  Sha256 actual{}, expected{};
  std::string error;
  if (!DigestFile(file, &actual, &error) ||
      !ReadStoredDigest(stored_digest, &expected, &error)) {
    std::fprintf(stderr, "fipsval: %s: %s\n", test, error.c_str());
    return 0;
  }
  if (force) actual[0] ^= 0xff;
  if (actual != expected) {
    std::fprintf(stderr, "fipsval: %s: SHA-256 of %s does not match %s%s\n",
                 test, file.c_str(), stored_digest.c_str(),
                 force ? " (forced failure)" : "");
    return 0;
  }
  return 1;
}

}  // namespace fipsval::host
