// File digests for the configuration- and firmware-integrity tests. Stored
// digests use the layout of sha256sum: 64 hex digits, two blanks, a name.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "host/base/status.h"

namespace fipsval::host {

using Sha256 = std::array<uint8_t, 32>;

Status DigestFile(const std::string& path, Sha256* digest);
Status ReadStoredDigest(const std::string& path, Sha256* digest);
// Writes the digest file in place, so that a file an administrator put
// there keeps its owner and mode.
Status StoreDigest(const std::string& path, const Sha256& digest,
                   const std::string& name);

// What the host's last fips_hash_vpn_cfg call did. The library ignores the
// callback's result, so update-config reads it here.
struct HashRecord {
  bool called = false;
  Status status;  // why the digest was not stored
};
HashRecord& LastConfigHash();

// 1 when the file's SHA-256 equals the stored one, 0 otherwise (with the
// reason on standard error, prefixed by `test`). A non-zero force corrupts
// the computed digest first, so that the test fails as it would for a
// modified file.
int CheckIntegrity(const char* test, const std::string& file,
                   const std::string& stored_digest, int force);

}  // namespace fipsval::host
