#include "host/platform/integrity.h"

#include <fcntl.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/base/file_io.h"
#include "host/base/owners.h"
#include "host/base/text.h"

namespace fipsval::host {
namespace {

// A digest file is a line: the digest and a name.
constexpr std::size_t kMaxDigestFileBytes = std::size_t{1} << 20;

Status Errno(const std::string& what, const std::string& path) {
  return Failed(what + " " + path + ": " + std::strerror(errno));
}

// Opens a path the operator named, without waiting on a FIFO or a device:
// only a regular file is read or written.
Status OpenRegular(const std::string& path, int flags, const char* mode,
                   UniqueFile* file) {
  UniqueFd fd(open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644));
  // ENXIO: a FIFO without a reader, or a device without its driver.
  if (!fd) return errno == ENXIO ? Refused("not a regular file") : FromErrno(errno);
  struct stat st{};
  if (fstat(fd.get(), &st) != 0) return FromErrno(errno);
  if (!S_ISREG(st.st_mode)) return Refused("not a regular file");
  fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
  file->reset(fdopen(fd.get(), mode));
  if (!*file) return FromErrno(errno);
  static_cast<void>(fd.Release());  // the FILE owns it now
  return Ok();
}

}  // namespace

Status DigestFile(const std::string& path, Sha256* digest) {
  UniqueFile f;
  if (Status s = OpenRegular(path, O_RDONLY, "rb", &f); !s.ok()) {
    return s.Prefixed("cannot read " + path + ": ");
  }
  SHA256_CTX ctx;
  SHA256_Init(&ctx);
  unsigned char buf[65536];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f.get())) > 0;) {
    SHA256_Update(&ctx, buf, n);
  }
  if (std::ferror(f.get())) return Errno("cannot read", path);
  SHA256_Final(digest->data(), &ctx);
  return Ok();
}

Status ReadStoredDigest(const std::string& path, Sha256* digest) {
  std::string text;
  if (Status read = ReadGivenFile(path, kMaxDigestFileBytes, &text);
      !read.ok()) {
    return read.Prefixed("cannot read the stored digest " + path + ": ");
  }
  if (text.size() < 2 * digest->size()) {
    return Refused("stored digest " + path + " is too short");
  }
  const auto bytes = HexBytes(std::string_view(text).substr(0, 2 * digest->size()));
  if (!bytes) return Refused("stored digest " + path + " is not hexadecimal");
  std::copy(bytes->begin(), bytes->end(), digest->begin());
  return Ok();
}

Status StoreDigest(const std::string& path, const Sha256& digest,
                   const std::string& name) {
  UniqueFile f;
  if (Status s = OpenRegular(path, O_WRONLY | O_CREAT, "w", &f); !s.ok()) {
    return s.Prefixed("cannot write " + path + ": ");
  }
  if (ftruncate(fileno(f.get()), 0) != 0) return Errno("cannot write", path);
  for (uint8_t b : digest) std::fprintf(f.get(), "%02x", b);
  std::fprintf(f.get(), "  %s\n", name.c_str());
  // Data still buffered fails only when flushed or closed.
  if (std::fflush(f.get()) != 0 || std::fclose(f.release()) != 0) {
    return Errno("cannot write", path);
  }
  return Ok();
}

HashRecord& LastConfigHash() {
  static HashRecord record;
  return record;
}

int CheckIntegrity(const char* test, const std::string& file,
                   const std::string& stored_digest, int force) {
  Sha256 actual{}, expected{};
  Status read = DigestFile(file, &actual);
  if (read.ok()) read = ReadStoredDigest(stored_digest, &expected);
  if (!read.ok()) {
    std::fprintf(stderr, "fipsval: %s: %s\n", test, read.message().c_str());
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
