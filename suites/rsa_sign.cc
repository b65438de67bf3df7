// RSA PKCS#1 v1.5 signature runners for FIPS 186-3. The generation runner
// makes one key per modulus section, reports its public key and signs every
// test whose digest it supports; the verification runner copies the request
// only up to its first supported test.
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string_view>

#include "harness/owners.h"
#include "harness/runner_io.h"
#include "harness/runners.h"
#include "suites/rsa_common.h"

namespace fipsval {
namespace {

constexpr std::size_t kMsgSize = 1024;
constexpr std::size_t kSigSize = 512;
// SigGen keys use the public exponent 3 on purpose (reported as "e = 03");
// only the key-generation runners use 65537.
constexpr unsigned long kSignatureExponent = 3;

constexpr char kMsgTag[] = "Msg = ";
constexpr char kModulusLineTag[] = "n = ";
constexpr char kSignatureTag[] = "S = ";
constexpr char kNoModulus[] = "Never found modulus size marker";

struct DigestLine {
  std::string_view prefix;
  int nid;
};
// SHA-224 is left out on purpose: its tests are copied without an answer.
constexpr std::array<DigestLine, 4> kDigestLines = {{
    {"SHAAlg = SHA1", NID_sha1},
    {"SHAAlg = SHA256", NID_sha256},
    {"SHAAlg = SHA384", NID_sha384},
    {"SHAAlg = SHA512", NID_sha512},
}};

// The digest NID a "SHAAlg = ..." line selects, or 0 for any other line.
int DigestNid(const Session& s) {
  for (const DigestLine& d : kDigestLines) {
    if (s.Has(d.prefix, Match::kBegins)) return d.nid;
  }
  return 0;
}

UniqueRsa generate_key_pair(int method, int bits, unsigned long exponent) {
  if (method != 0) {
    Fail("Invalid method");
    return nullptr;
  }
  UniqueRsa rsa(RSA_new());
  UniqueBignum bne(BN_new());
  if (!rsa || !bne) {
    Fail("Error allocating rsa or bne");
    return nullptr;
  }
  if (!BN_set_word(bne.get(), exponent) ||
      !RSA_generate_key_ex(rsa.get(), bits, bne.get(), nullptr)) {
    Fail("Error RSA_generate_key_ex");
    return nullptr;
  }
  return rsa;
}

// Hashes msg with the digest named by nid into md (EVP_MAX_MD_SIZE bytes).
bool hash(int nid, std::span<const uint8_t> msg, uint8_t* md,
          unsigned* md_len) {
  UniqueMdCtx ctx(EVP_MD_CTX_new());
  if (!ctx) {
    Fail("Error EVP_MD_CTX_new()");
    return false;
  }
  const EVP_MD* type = EVP_get_digestbyname(OBJ_nid2sn(nid));
  if (!type || !EVP_DigestInit(ctx.get(), type) ||
      !EVP_DigestUpdate(ctx.get(), msg.data(), msg.size()) ||
      !EVP_DigestFinal(ctx.get(), md, md_len)) {
    Fail("Error computing msg digest");
    return false;
  }
  return true;
}

// PKCS#1 v1.5 signature of msg; sig has room for kSigSize bytes.
bool sign(int nid, int method, std::span<const uint8_t> msg, uint8_t* sig,
          unsigned* sig_len, RSA* key) {
  std::array<uint8_t, EVP_MAX_MD_SIZE> md;
  unsigned md_len = 0;
  if (!hash(nid, msg, md.data(), &md_len)) return false;
  if (method != 0) {
    Fail("Invalid method");
    return false;
  }
  // RSA_sign writes RSA_size bytes: refuse a key whose signature would not
  // fit before it is written.
  const int size = RSA_size(key);
  if (size < 0 || static_cast<std::size_t>(size) > kSigSize) {
    std::printf("sign_len=%d\n", size);
    return false;
  }
  if (RSA_sign(nid, md.data(), md_len, sig, sig_len, key) != 1) {
    char text[256];
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    std::printf("Error PKCS1 signing: %s\n", text);
    return false;
  }
  return true;
}

// The check a complete verification runner makes for each test; this
// version of the runner stops before its first test.
[[maybe_unused]] int verify(int nid, int method, std::span<const uint8_t> msg,
                            std::span<const uint8_t> sig, RSA* key) {
  std::array<uint8_t, EVP_MAX_MD_SIZE> md;
  unsigned md_len = 0;
  if (!hash(nid, msg, md.data(), &md_len)) return 0;
  if (method != 0) {
    Fail("Invalid method");
    return 0;
  }
  return RSA_verify(nid, md.data(), md_len, sig.data(),
                    static_cast<unsigned>(sig.size()), key);
}


// Makes the section's key and writes the section line followed by its
// public key. The "e = " line gets no line end of its own: the blank line
// that follows "[mod = ...]" in the request ends it when it is copied.
UniqueRsa StartSignSection(const Session& s, int method) {
  int bits = 0;
  if (!ReadModulusSize(s, IsSignatureModulusSize, &bits)) return nullptr;
  UniqueRsa key = generate_key_pair(method, bits, kSignatureExponent);
  if (!key) {
    Fail("Error generating key pair");
    return nullptr;
  }
  if (!s.Copy() || !s.Write("\r\n", kCopyError) ||
      !s.Write(kModulusLineTag, kCopyError) ||
      !WriteBignumHex(s, RSA_get0_n(key.get())) ||
      !s.Write("\r\n\r\ne = ", kCopyError) ||
      !WriteBignumHex(s, RSA_get0_e(key.get()))) {
    return nullptr;
  }
  return key;
}

// Answers one test whose "SHAAlg = ..." line has been copied; the line
// buffer serves as the text buffer of the signature afterwards.
bool SignTest(const Session& s, int nid, int method, RSA* key) {
  if (!s.ReadField(kMsgTag, "Msg field not present", Match::kBegins)) {
    return false;
  }
  std::array<uint8_t, kMsgSize> msg;
  const std::size_t msg_len = s.Hex(kMsgTag, msg.data(), msg.size());
  if (msg_len == 0) {
    Fail("Error extracting msg");
    return false;
  }
  if (msg_len > msg.size()) {
    std::printf("Msg field too long (%zu bytes, at most %zu)\n", msg_len,
                msg.size());
    return false;
  }
  if (!s.Copy()) return false;

  std::array<uint8_t, kSigSize> sig;
  unsigned sig_len = 0;
  if (!sign(nid, method, std::span(msg.data(), msg_len), sig.data(), &sig_len,
            key)) {
    Fail("Error signing");
    return false;
  }
  return s.Answer(kSignatureTag, sig.data(), static_cast<int>(sig_len),
                  {.convert = "Error converting cipher to ascii",
                   .tag = "Problem writing signature tag to rsp file",
                   .value = "Problem writing signature to rsp file"});
}

}  // namespace

void test_rsa_sign_from_stream(std::FILE* req, std::FILE* rsp, int method) {
  const BufferedSession<4096> s(req, rsp);
  if (!s.CopyUntil(kModulusTag, kNoModulus, MarkerLine::kKept,
                   Match::kBegins)) {
    return;
  }
  UniqueRsa key = StartSignSection(s, method);
  if (!key) return;
  while (s.Next()) {
    if (s.Has(kModulusTag, Match::kBegins)) {
      key = StartSignSection(s, method);
      if (!key) return;
      continue;
    }
    const int nid = DigestNid(s);
    if (!s.Copy()) return;
    if (nid != 0 && !SignTest(s, nid, method, key.get())) return;
  }
}

void test_rsa_verify_from_stream(std::FILE* req, std::FILE* rsp,
                                 int /*unused_method*/) {
  const BufferedSession<4096> s(req, rsp);
  // The key a complete runner would fill from the request; this version
  // stops at the first test before using it.
  UniqueRsa rsa(RSA_new());
  if (!rsa) {
    Fail("Couldn't create rsa struct");
    return;
  }
  int bits = 0;
  if (!s.CopyUntil(kModulusTag, kNoModulus, MarkerLine::kKept,
                   Match::kBegins) ||
      !ReadModulusSize(s, IsSignatureModulusSize, &bits) ||
      !s.Copy()) {
    return;
  }
  while (s.Next()) {
    if (s.Has(kModulusTag, Match::kBegins)) {
      if (!ReadModulusSize(s, IsSignatureModulusSize, &bits)) return;
    } else if (s.Has(kModulusLineTag, Match::kBegins)) {
      // BN_hex2bn stops at the line's CR LF.
      BIGNUM* value = nullptr;
      const UniqueBignum n(
          BN_hex2bn(&value, s.line() + sizeof kModulusLineTag - 1) ? value
                                                                   : nullptr);
      if (!n) {
        Fail("Error extracting modulus");
        return;
      }
    } else if (DigestNid(s) != 0) {
      if (!s.Copy()) return;
      Fail("RSA param n is null");
      return;
    }
    if (!s.Copy()) return;
  }
}

}  // namespace fipsval
