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
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "harness/openssl_ptr.h"
#include "harness/runner_io.h"
#include "harness/runners.h"
#include "suites/rsa_common.h"

namespace fipsval {
namespace {

constexpr int kLineSize = 4096;
constexpr std::size_t kMsgSize = 1024;
constexpr std::size_t kSigSize = 512;
// SigGen keys use the public exponent 3 on purpose (reported as "e = 03");
// only the key-generation runners use 65537.
constexpr unsigned long kSignatureExponent = 3;

constexpr char kMsgTag[] = "Msg = ";
constexpr char kModulusLineTag[] = "n = ";
constexpr char kSignatureTag[] = "S = ";

struct DigestLine {
  std::string_view prefix;
  int nid;
};
static_assert(NID_sha1 == 64 && NID_sha256 == 672 && NID_sha384 == 673 &&
              NID_sha512 == 674);
// SHA-224 is left out on purpose: its tests are copied without an answer.
constexpr std::array<DigestLine, 4> kDigestLines = {{
    {"SHAAlg = SHA1", NID_sha1},
    {"SHAAlg = SHA256", NID_sha256},
    {"SHAAlg = SHA384", NID_sha384},
    {"SHAAlg = SHA512", NID_sha512},
}};

using EvpMdCtx = UniquePtr<EVP_MD_CTX>;

// The digest NID a "SHAAlg = ..." line selects, or 0 for any other line.
int digest_nid(const char* line) {
  for (const DigestLine& d : kDigestLines) {
    if (starts_with(line, d.prefix)) return d.nid;
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
  EvpMdCtx ctx(EVP_MD_CTX_new());
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
  if (*sig_len > kSigSize) {
    std::printf("sign_len=%u\n", *sig_len);
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

// Reads the value of an "n = " line into *n (replacing what it held).
// BN_hex2bn stops at the line's CR LF.
bool extract_modulus(const char* line, UniqueBignum* n) {
  if (!starts_with(line, kModulusLineTag)) return false;
  BIGNUM* value = nullptr;
  if (BN_hex2bn(&value, line + std::strlen(kModulusLineTag)) == 0) {
    return false;
  }
  n->reset(value);
  return true;
}

// Decodes the hex value after `tag` into out, storing at most out.size()
// bytes. *len receives the full length of the value, which the caller
// compares with the capacity. True when the value holds at least one byte.
bool extract_hex_field(const char* line, std::string_view tag,
                       std::span<uint8_t> out, std::size_t* len) {
  if (!starts_with(line, tag)) return false;
  *len = DecodeHex(line + tag.size(), out.data(), out.size());
  return *len != 0;
}

bool extract_msg(const char* line, std::span<uint8_t> out, std::size_t* len) {
  return extract_hex_field(line, kMsgTag, out, len);
}

[[maybe_unused]] bool extract_signature(const char* line,
                                        std::span<uint8_t> out,
                                        std::size_t* len) {
  return extract_hex_field(line, kSignatureTag, out, len);
}

// Reads and checks the size of a section line; prints why it is refused.
bool section_size(const char* line, const char* extract_error, int* bits) {
  if (!extract_modulus_size(line, bits)) {
    Fail(extract_error);
    return false;
  }
  if (!is_signature_modulus_size(*bits)) {
    std::printf("Invalid modulus size (%d)\n", *bits);
    return false;
  }
  return true;
}

// Copies lines until a "[mod = " line, which is left in line uncopied.
bool find_first_section(const RunnerFiles& files, char* line) {
  for (;;) {
    if (!files.ReadLine(line, kLineSize)) {
      Fail("Never found modulus size marker");
      return false;
    }
    if (starts_with(line, kModulusTag)) return true;
    if (!files.Copy(line)) return false;
  }
}

// Makes the section's key and writes the section line followed by its
// public key. The "e = " line gets no line end of its own: the blank line
// that follows "[mod = ...]" in the request ends it when it is copied.
UniqueRsa start_sign_section(const RunnerFiles& files, const char* line,
                             int method, const char* extract_error) {
  int bits = 0;
  if (!section_size(line, extract_error, &bits)) return nullptr;
  UniqueRsa key = generate_key_pair(method, bits, kSignatureExponent);
  if (!key) {
    Fail("Error generating key pair");
    return nullptr;
  }
  const BIGNUM* n = nullptr;
  const BIGNUM* e = nullptr;
  RSA_get0_key(key.get(), &n, &e, nullptr);
  constexpr char kWriteError[] = "Problem writing to rsp file";
  if (!files.Copy(line) || !files.Write("\r\n", kWriteError) ||
      !files.Write(kModulusLineTag, kWriteError) ||
      !WriteBignumHex(files, n) || !files.Write("\r\n\r\ne = ", kWriteError) ||
      !WriteBignumHex(files, e)) {
    return nullptr;
  }
  return key;
}

// Answers one test: line holds its copied "SHAAlg = ..." line on entry and
// serves as the text buffer of the signature afterwards.
bool sign_test(const RunnerFiles& files, char* line, int nid, int method,
               RSA* key) {
  if (!files.ReadLine(line, kLineSize) || !starts_with(line, kMsgTag)) {
    Fail("Msg field not present");
    return false;
  }
  std::array<uint8_t, kMsgSize> msg;
  std::size_t msg_len = 0;
  if (!extract_msg(line, msg, &msg_len)) {
    Fail("Error extracting msg");
    return false;
  }
  if (msg_len > msg.size()) {
    std::printf("Msg field too long (%zu bytes, at most %zu)\n", msg_len,
                msg.size());
    return false;
  }
  if (!files.Copy(line)) return false;

  std::array<uint8_t, kSigSize> sig;
  unsigned sig_len = 0;
  if (!sign(nid, method, std::span(msg.data(), msg_len), sig.data(), &sig_len,
            key)) {
    Fail("Error signing");
    return false;
  }
  return WriteAnswer(files, kSignatureTag, sig.data(),
                     static_cast<int>(sig_len), line, kLineSize,
                     {.convert = "Error converting cipher to ascii",
                      .tag = "Problem writing signature tag to rsp file",
                      .value = "Problem writing signature to rsp file"});
}

}  // namespace

bool extract_modulus_size(const char* line, int* out) {
  if (!starts_with(line, kModulusTag)) return false;
  // Only four digits are read, by design.
  std::array<char, 5> digits{};
  const char* value = line + std::strlen(kModulusTag);
  std::memcpy(digits.data(), value, strnlen(value, 4));
  char* end = nullptr;
  const long bits = std::strtol(digits.data(), &end, 10);
  if (end == digits.data()) return false;
  *out = static_cast<int>(bits);
  return true;
}

bool is_signature_modulus_size(int bits) {
  return (bits & ~512) == 1024 || (bits & ~1024) == 2048 || bits == 4096;
}

bool WriteBignumHex(const RunnerFiles& files, const BIGNUM* bn) {
  OpensslString hex(BN_bn2hex(bn));
  if (!hex) {
    Fail("Error converting BIGNUM to hex");
    return false;
  }
  return files.Write(hex.get(), "Problem writing to rsp file");
}

void test_rsa_sign_from_file(const char* name, int method) {
  RunnerFiles files;
  if (!files.Open(name)) return;
  std::array<char, kLineSize> line{};
  if (!find_first_section(files, line.data())) return;

  UniqueRsa key = start_sign_section(files, line.data(), method,
                                     "Error extracting first modulus size");
  if (!key) return;
  while (files.ReadLine(line.data(), kLineSize)) {
    if (starts_with(line.data(), kModulusTag)) {
      key = start_sign_section(files, line.data(), method,
                               "Error extracting next modulus size");
      if (!key) return;
      continue;
    }
    const int nid = digest_nid(line.data());
    if (!files.Copy(line.data())) return;
    if (nid != 0 && !sign_test(files, line.data(), nid, method, key.get())) {
      return;
    }
  }
}

void test_rsa_verify_from_file(const char* name, int /*unused_method*/) {
  RunnerFiles files;
  if (!files.Open(name)) return;
  // The key a complete runner would fill from the request; this version
  // stops at the first test before using it.
  UniqueRsa rsa(RSA_new());
  if (!rsa) {
    Fail("Couldn't create rsa struct");
    return;
  }
  std::array<char, kLineSize> line{};
  int bits = 0;
  if (!find_first_section(files, line.data()) ||
      !section_size(line.data(), "Error extracting first modulus size",
                    &bits) ||
      !files.Copy(line.data())) {
    return;
  }
  while (files.ReadLine(line.data(), kLineSize)) {
    if (starts_with(line.data(), kModulusTag)) {
      if (!section_size(line.data(), "Error extracting next modulus size",
                        &bits)) {
        return;
      }
    } else if (starts_with(line.data(), kModulusLineTag)) {
      UniqueBignum n;
      if (!extract_modulus(line.data(), &n)) {
        Fail("Error extracting modulus");
        return;
      }
    } else if (digest_nid(line.data()) != 0) {
      if (!files.Copy(line.data())) return;
      Fail("RSA param n is null");
      return;
    }
    if (!files.Copy(line.data())) return;
  }
}

}  // namespace fipsval
