"""CTR_DRBG of SP 800-90A with AES-256 and the block-cipher derivation
function, no prediction resistance: the DRBG that answers the CTR_DRBG test
requests, written from the standard on top of gen.libcrypto's AES.

One test (the DRBGVS procedure): instantiate with the entropy input, nonce
and personalization string; reseed with the reseed entropy input and its
additional input; generate twice with the two additional inputs; the second
output is the answer."""

KEY_LEN = 32
BLOCK_LEN = 16
SEED_LEN = KEY_LEN + BLOCK_LEN


def _xor(a, b):
    return bytes(x ^ y for x, y in zip(a, b))


class CtrDrbg:
    def __init__(self, crypto):
        self._crypto = crypto
        self._key = bytes(KEY_LEN)
        self._v = bytes(BLOCK_LEN)

    def _encrypt(self, key, block):
        return self._crypto.aes_ecb(key, block, True)

    def _bcc(self, key, data):
        chain = bytes(BLOCK_LEN)
        for offset in range(0, len(data), BLOCK_LEN):
            chain = self._encrypt(key, _xor(chain, data[offset:offset + BLOCK_LEN]))
        return chain

    def derivation_function(self, data, length=SEED_LEN):
        """Block_Cipher_df (SP 800-90A 10.3.2)."""
        s = len(data).to_bytes(4, "big") + length.to_bytes(4, "big") + data + b"\x80"
        s += bytes(-len(s) % BLOCK_LEN)
        df_key = bytes(range(KEY_LEN))
        temp = b""
        i = 0
        while len(temp) < SEED_LEN:
            temp += self._bcc(df_key, i.to_bytes(4, "big") + bytes(BLOCK_LEN - 4) + s)
            i += 1
        key, x = temp[:KEY_LEN], temp[KEY_LEN:SEED_LEN]
        out = b""
        while len(out) < length:
            x = self._encrypt(key, x)
            out += x
        return out[:length]

    def _next_block(self):
        self._v = ((int.from_bytes(self._v, "big") + 1) % (1 << 128)).to_bytes(BLOCK_LEN, "big")
        return self._encrypt(self._key, self._v)

    def _update(self, provided):
        temp = b""
        while len(temp) < SEED_LEN:
            temp += self._next_block()
        temp = _xor(temp[:SEED_LEN], provided)
        self._key, self._v = temp[:KEY_LEN], temp[KEY_LEN:]

    def instantiate(self, entropy, nonce, personalization):
        self._key, self._v = bytes(KEY_LEN), bytes(BLOCK_LEN)
        self._update(self.derivation_function(entropy + nonce + personalization))

    def reseed(self, entropy, additional):
        self._update(self.derivation_function(entropy + additional))

    def generate(self, length, additional):
        if additional:
            additional = self.derivation_function(additional)
            self._update(additional)
        else:
            additional = bytes(SEED_LEN)
        out = b""
        while len(out) < length:
            out += self._next_block()
        self._update(additional)
        return out[:length]


def test(crypto, entropy, nonce, personalization, entropy_reseed, additional_reseed,
         additional1, additional2, returned_bytes):
    drbg = CtrDrbg(crypto)
    drbg.instantiate(entropy, nonce, personalization)
    drbg.reseed(entropy_reseed, additional_reseed)
    drbg.generate(returned_bytes, additional1)
    return drbg.generate(returned_bytes, additional2)
