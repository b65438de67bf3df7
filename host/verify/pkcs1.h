// PKCS#1 v1.5 signature verification, shared by verify's SigGen check and
// `fipsval acvp --check`.
#pragma once

#include <openssl/bn.h>

#include <cstdint>
#include <span>

namespace fipsval::host {

// True when `signature` is a PKCS#1 v1.5 signature (RSA_verify) of the
// digest of `message` under the public key (n, e); digest_nid names the
// digest (NID_sha256, ...).
bool Pkcs1Verifies(int digest_nid, std::span<const uint8_t> message,
                   std::span<const uint8_t> signature, const BIGNUM* n,
                   const BIGNUM* e);

}  // namespace fipsval::host
