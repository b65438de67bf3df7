#include "host/verify/pkcs1.h"

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <array>

#include "host/base/owners.h"

namespace fipsval::host {

bool Pkcs1Verifies(int digest_nid, std::span<const uint8_t> message,
                   std::span<const uint8_t> signature, const BIGNUM* n,
                   const BIGNUM* e) {
  std::array<uint8_t, EVP_MAX_MD_SIZE> md;
  unsigned md_len = 0;
  const EVP_MD* type = EVP_get_digestbynid(digest_nid);
  if (!type || !EVP_Digest(message.data(), message.size(), md.data(), &md_len,
                           type, nullptr)) {
    return false;
  }
  Rsa rsa(RSA_new());
  Bignum n_copy(BN_dup(n));
  Bignum e_copy(BN_dup(e));
  if (!rsa || !n_copy || !e_copy ||
      !RSA_set0_key(rsa.get(), n_copy.get(), e_copy.get(), nullptr)) {
    return false;
  }
  n_copy.release();  // owned by rsa now
  e_copy.release();
  return RSA_verify(digest_nid, md.data(), md_len, signature.data(),
                    static_cast<unsigned>(signature.size()), rsa.get()) == 1;
}

}  // namespace fipsval::host
