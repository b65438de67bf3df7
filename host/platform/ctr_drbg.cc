#include "host/platform/ctr_drbg.h"

#include <openssl/crypto.h>

#include <cstring>

namespace fipsval::host {
namespace {

void StoreBe32(uint32_t value, uint8_t* out) {
  out[0] = static_cast<uint8_t>(value >> 24);
  out[1] = static_cast<uint8_t>(value >> 16);
  out[2] = static_cast<uint8_t>(value >> 8);
  out[3] = static_cast<uint8_t>(value);
}

// BCC chaining over a byte stream: each complete block is XORed into the
// chaining value, which is then encrypted. Absorbing the bytes straight
// into the chaining value saves building the padded string S in memory.
class Bcc {
 public:
  explicit Bcc(const AES_KEY& key) : key_(key) {}
  ~Bcc() { OPENSSL_cleanse(chain_.data(), chain_.size()); }

  void Absorb(const uint8_t* data, std::size_t len) {
    for (std::size_t i = 0; i < len; ++i) {
      chain_[fill_++] ^= data[i];
      if (fill_ == chain_.size()) EncryptChain();
    }
  }
  void Absorb(CtrDrbg::Bytes data) { Absorb(data.data(), data.size()); }
  // Ends the stream, zero-padding a partial last block.
  const std::array<uint8_t, CtrDrbg::kBlockLen>& Finish() {
    if (fill_ != 0) EncryptChain();
    return chain_;
  }

 private:
  void EncryptChain() {
    AES_encrypt(chain_.data(), chain_.data(), &key_);
    fill_ = 0;
  }

  const AES_KEY& key_;
  std::array<uint8_t, CtrDrbg::kBlockLen> chain_{};
  std::size_t fill_ = 0;
};

}  // namespace

CtrDrbg::~CtrDrbg() {
  OPENSSL_cleanse(&key_schedule_, sizeof key_schedule_);
  OPENSSL_cleanse(v_.data(), v_.size());
}

CtrDrbg::Seed CtrDrbg::DerivationFunction(std::initializer_list<Bytes> parts) {
  std::size_t input_len = 0;
  for (Bytes part : parts) input_len += part.size();
  // S = L || N || input || 0x80, then zero padding (done by Bcc::Finish).
  uint8_t lengths[8];
  StoreBe32(static_cast<uint32_t>(input_len), lengths);
  StoreBe32(static_cast<uint32_t>(kSeedLen), lengths + 4);
  static constexpr uint8_t kPadStart = 0x80;

  std::array<uint8_t, kKeyLen> df_key;
  for (std::size_t i = 0; i < df_key.size(); ++i) {
    df_key[i] = static_cast<uint8_t>(i);
  }
  AES_KEY schedule;
  AES_set_encrypt_key(df_key.data(), 8 * kKeyLen, &schedule);

  Seed temp;
  for (std::size_t i = 0; i * kBlockLen < kSeedLen; ++i) {
    Bcc bcc(schedule);
    std::array<uint8_t, kBlockLen> iv{};
    StoreBe32(static_cast<uint32_t>(i), iv.data());
    bcc.Absorb(iv);
    bcc.Absorb(lengths, sizeof lengths);
    for (Bytes part : parts) bcc.Absorb(part);
    bcc.Absorb(&kPadStart, 1);
    const auto& block = bcc.Finish();
    std::memcpy(temp.data() + i * kBlockLen, block.data(), kBlockLen);
  }

  // K is the leftmost keylen bits of temp, X the next block.
  AES_set_encrypt_key(temp.data(), 8 * kKeyLen, &schedule);
  std::array<uint8_t, kBlockLen> x;
  std::memcpy(x.data(), temp.data() + kKeyLen, kBlockLen);
  Seed out;
  for (std::size_t i = 0; i * kBlockLen < kSeedLen; ++i) {
    AES_encrypt(x.data(), x.data(), &schedule);
    std::memcpy(out.data() + i * kBlockLen, x.data(), kBlockLen);
  }
  OPENSSL_cleanse(&schedule, sizeof schedule);
  OPENSSL_cleanse(temp.data(), temp.size());
  OPENSSL_cleanse(x.data(), x.size());
  return out;
}

void CtrDrbg::SetKey(const uint8_t* key) {
  AES_set_encrypt_key(key, 8 * kKeyLen, &key_schedule_);
}

void CtrDrbg::NextBlock(uint8_t* out) {
  for (std::size_t i = v_.size(); i-- > 0;) {
    if (++v_[i] != 0) break;
  }
  AES_encrypt(v_.data(), out, &key_schedule_);
}

void CtrDrbg::Update(const Seed& provided) {
  Seed temp;
  for (std::size_t i = 0; i < kSeedLen; i += kBlockLen) {
    NextBlock(temp.data() + i);
  }
  for (std::size_t i = 0; i < kSeedLen; ++i) temp[i] ^= provided[i];
  SetKey(temp.data());
  std::memcpy(v_.data(), temp.data() + kKeyLen, kBlockLen);
  OPENSSL_cleanse(temp.data(), temp.size());
}

void CtrDrbg::Instantiate(Bytes entropy, Bytes nonce, Bytes personalization) {
  Seed seed = DerivationFunction({entropy, nonce, personalization});
  const std::array<uint8_t, kKeyLen> zero_key{};
  SetKey(zero_key.data());
  v_.fill(0);
  Update(seed);
  reseed_counter_ = 1;
  OPENSSL_cleanse(seed.data(), seed.size());
}

void CtrDrbg::Reseed(Bytes entropy, Bytes additional) {
  Seed seed = DerivationFunction({entropy, additional});
  Update(seed);
  reseed_counter_ = 1;
  OPENSSL_cleanse(seed.data(), seed.size());
}

bool CtrDrbg::Generate(std::span<uint8_t> out, Bytes additional) {
  if (reseed_counter_ == 0 || reseed_counter_ > kReseedInterval ||
      out.size() > kMaxRequest) {
    return false;
  }
  // Without additional input the closing update mixes in zeros.
  Seed mixed{};
  if (!additional.empty()) {
    mixed = DerivationFunction({additional});
    Update(mixed);
  }
  std::size_t done = 0;
  for (; out.size() - done >= kBlockLen; done += kBlockLen) {
    NextBlock(out.data() + done);
  }
  if (done < out.size()) {
    std::array<uint8_t, kBlockLen> last;
    NextBlock(last.data());
    std::memcpy(out.data() + done, last.data(), out.size() - done);
    OPENSSL_cleanse(last.data(), last.size());
  }
  Update(mixed);
  ++reseed_counter_;
  OPENSSL_cleanse(mixed.data(), mixed.size());
  return true;
}

}  // namespace fipsval::host
