"""Builders of the sample requests, one per request file. Each takes a
context (ctx.rng, the file's own random generator; ctx.aes and ctx.tdes,
for decrypt sections that reuse the answers of their encrypt section as
NIST's known-answer files do) and returns the request's lines, without
line ends.

The comment lines avoid every word a runner searches for anywhere in a line
("COUNT", "KEY", tags with " = ", section markers)."""

import math

from gen import rsa_math

ORIGIN = "fipsval sample request, written by samples/generate.py"


def _bytes(rng, n):
    return bytes(rng.getrandbits(8) for _ in range(n))


def _leading_ones(bits, ones):
    """A value of `bits` bits whose first `ones` bits are set (VarTxt, VarKey)."""
    return (((1 << ones) - 1) << (bits - ones)).to_bytes(bits // 8, "big")


def _single_bit(bits, position):
    return (1 << (bits - 1 - position)).to_bytes(bits // 8, "big")


def _odd_parity(block):
    return bytes(b if bin(b).count("1") % 2 else b ^ 1 for b in block)


def _des_key(rng):
    return _odd_parity(_bytes(rng, 8))


def _header(*comments):
    return ["# " + ORIGIN] + ["# " + c for c in comments] + [""]


# -- AES -------------------------------------------------------------------

def _aes_vector_lines(mode, count, key, iv, data_tag, data):
    lines = ["COUNT = %d" % count, "KEY = " + key.hex()]
    if mode == "CBC":
        lines.append("IV = " + iv.hex())
    return lines + ["%s = %s" % (data_tag, data.hex()), ""]


def aes_known_answer(ctx, mode, kind, bits):
    """[ENCRYPT] and [DECRYPT] sections of three vectors each. The
    known-answer kinds decrypt the ciphertexts of their encrypt section, the
    multi-block-message kind has its own random decrypt vectors."""
    rng, nbytes = ctx.rng, bits // 8
    zero_key, zero_block = bytes(nbytes), bytes(16)
    if kind == "GFSbox":
        vectors = [(zero_key, _bytes(rng, 16)) for _ in range(3)]
    elif kind == "KeySbox":
        vectors = [(_bytes(rng, nbytes), zero_block) for _ in range(3)]
    elif kind == "VarTxt":
        vectors = [(zero_key, _leading_ones(128, n)) for n in (1, 64, 128)]
    elif kind == "VarKey":
        vectors = [(_leading_ones(bits, n), zero_block) for n in (1, bits // 2, bits)]
    else:
        vectors = [(_bytes(rng, nbytes), _bytes(rng, 16 * blocks)) for blocks in (1, 2, 4)]
    ivs = [_bytes(rng, 16) if kind == "MMT" else zero_block for _ in vectors]

    if kind == "MMT":
        decrypt = [(_bytes(rng, nbytes), _bytes(rng, 16), _bytes(rng, 16 * blocks))
                   for blocks in (1, 3, 5)]
    else:
        decrypt = [(key, iv, ctx.aes(mode, key, iv, data))
                   for (key, data), iv in zip(vectors, ivs)]

    lines = _header("AESVS %s test data for %s" % (kind, mode),
                    "State : Encrypt and Decrypt", "Key Length : %d" % bits)
    lines += ["[ENCRYPT]", ""]
    for count, ((key, data), iv) in enumerate(zip(vectors, ivs)):
        lines += _aes_vector_lines(mode, count, key, iv, "PLAINTEXT", data)
    lines += ["[DECRYPT]", ""]
    for count, (key, iv, data) in enumerate(decrypt):
        lines += _aes_vector_lines(mode, count, key, iv, "CIPHERTEXT", data)
    return lines


def aes_monte(ctx, mode, bits):
    """One seed in each section."""
    rng = ctx.rng
    lines = _header("AESVS MCT test data for %s" % mode, "State : Encrypt and Decrypt",
                    "Key Length : %d" % bits)
    for section, data_tag in (("[ENCRYPT]", "PLAINTEXT"), ("[DECRYPT]", "CIPHERTEXT")):
        lines += [section, ""]
        lines += _aes_vector_lines(mode, 0, _bytes(rng, bits // 8), _bytes(rng, 16), data_tag,
                                   _bytes(rng, 16))
    return lines


# -- Triple DES ------------------------------------------------------------

_TDES_TITLES = {
    "vartext": "VARIABLE PLAINTEXT/CIPHERTEXT - KAT for CBC",
    "invperm": "INVERSE PERMUTATION - KAT for CBC",
    "varkey": "VARIABLE KEY - KAT for CBC",
    "permop": "PERMUTATION OPERATION - KAT for CBC",
    "subtab": "SUBSTITUTION TABLE - KAT for CBC",
}


def _tdes_single_key_lines(count, key, iv, data_tag, data):
    return ["COUNT = %d" % count, "KEYs = " + key.hex(), "IV = " + iv.hex(),
            "%s = %s" % (data_tag, data.hex()), ""]


def tdes_known_answer(ctx, kind):
    """The five "KEYs = " known-answer files: three vectors per section, the
    decrypt section taking the ciphertexts of the encrypt section."""
    rng = ctx.rng
    weak = bytes.fromhex("0101010101010101")
    zero = bytes(8)
    if kind == "vartext":
        vectors = [(weak, _single_bit(64, n)) for n in (0, 1, 63)]
    elif kind == "invperm":  # the ciphertexts of vartext, so the answers are single bits
        vectors = [(weak, ctx.tdes([weak] * 3, zero, _single_bit(64, n), True)) for n in (0, 1, 63)]
    elif kind == "varkey":  # one key bit at a time, the parity bits aside
        vectors = [(_odd_parity(_single_bit(64, n + n // 7)), zero) for n in (0, 1, 55)]
    elif kind == "permop":
        vectors = [(_des_key(rng), zero) for _ in range(3)]
    else:
        vectors = [(_des_key(rng), _bytes(rng, 8)) for _ in range(3)]

    lines = _header(_TDES_TITLES[kind], "State : Encrypt and Decrypt")
    lines.append("[ENCRYPT]")
    for count, (key, data) in enumerate(vectors):
        lines += _tdes_single_key_lines(count, key, zero, "PLAINTEXT", data)
    lines.append("[DECRYPT]")
    for count, (key, data) in enumerate(vectors):
        lines += _tdes_single_key_lines(count, key, zero, "CIPHERTEXT",
                                        ctx.tdes([key] * 3, zero, data, True))
    return lines


def _tdes_keys(rng, distinct):
    """KEY1, KEY2, KEY3 with one, two (KEY3 = KEY1) or three distinct keys."""
    k1, k2, k3 = _des_key(rng), _des_key(rng), _des_key(rng)
    return {1: [k1, k1, k1], 2: [k1, k2, k1], 3: [k1, k2, k3]}[distinct]


def tdes_mmt(ctx, distinct):
    """TCBCMMT1/2/3: messages of one, two and three blocks in each section."""
    rng = ctx.rng
    lines = _header("TDES Multi block Message Test for CBC", "State : Encrypt and Decrypt")
    for section, data_tag in (("[ENCRYPT]", "PLAINTEXT"), ("[DECRYPT]", "CIPHERTEXT")):
        lines += [section, ""]
        for count, blocks in enumerate((1, 2, 3)):
            lines += ["COUNT = %d" % count]
            lines += ["KEY%d = %s" % (n + 1, k.hex())
                      for n, k in enumerate(_tdes_keys(rng, distinct))]
            lines += ["IV = " + _bytes(rng, 8).hex(),
                      "%s = %s" % (data_tag, _bytes(rng, 8 * blocks).hex()), ""]
    return lines


def tdes_monte(ctx, distinct):
    """TCBCMonte1/2/3: one seed per section, each section opening with its
    "NumKeys = " line."""
    rng = ctx.rng
    lines = _header("TDES Monte Carlo (Modes) Test for CBC", "State : Encrypt and Decrypt")
    for section, data_tag in (("[ENCRYPT]", "PLAINTEXT"), ("[DECRYPT]", "CIPHERTEXT")):
        lines += [section, "NumKeys = %d" % distinct, "", "COUNT = 0"]
        lines += ["KEY%d = %s" % (n + 1, k.hex()) for n, k in enumerate(_tdes_keys(rng, distinct))]
        lines += ["IV = " + _bytes(rng, 8).hex(), "%s = %s" % (data_tag, _bytes(rng, 8).hex()), ""]
    return lines


# -- SHA, HMAC -------------------------------------------------------------

_SHA_NAMES = {20: "SHA-1", 32: "SHA-256"}


def sha_messages(ctx, digest_length, bit_lengths, kind):
    """Len/Msg pairs; a length of 0 carries the placeholder message 00."""
    lines = _header('"%s %s" information' % (_SHA_NAMES[digest_length], kind),
                    "%s tests are configured for BYTE oriented implementations"
                    % _SHA_NAMES[digest_length])
    lines += ["[L = %d]" % digest_length, ""]
    for bits in bit_lengths:
        message = _bytes(ctx.rng, bits // 8) if bits else b"\x00"
        lines += ["Len = %d" % bits, "Msg = " + message.hex(), ""]
    return lines


def sha_monte(ctx, digest_length):
    lines = _header('"%s Monte" information' % _SHA_NAMES[digest_length],
                    "SHA tests are configured for BYTE oriented implementations")
    return lines + ["[L = %d]" % digest_length, "", "Seed = " + _bytes(ctx.rng, digest_length).hex(), ""]


def hmac_file(ctx):
    """HMAC-SHA-1 and HMAC-SHA-256 sections with short, block-sized and
    longer-than-a-block keys and several tag lengths."""
    rng = ctx.rng
    lines = _header("HMAC information", "Hash sizes tested: 20 32")
    for digest_length, tests in ((20, [(10, 10), (64, 12), (70, 20)]),
                                 (32, [(32, 16), (45, 24), (80, 32)])):
        lines += ["[L=%d]" % digest_length, ""]
        for count, (key_length, tag_length) in enumerate(tests):
            lines += ["Count = %d" % count, "Klen = %d" % key_length, "Tlen = %d" % tag_length,
                      "Key = " + _bytes(rng, key_length).hex(), "Msg = " + _bytes(rng, 128).hex(), ""]
    return lines


# -- CTR_DRBG --------------------------------------------------------------

def ctr_drbg(ctx):
    """One "[AES-256 use df]" section without prediction resistance, every
    optional input present."""
    rng = ctx.rng
    lines = _header('DRBG800-90A information for "fipsval samples"',
                    "CTR_DRBG options: AES-256 use df")
    lines += ["[AES-256 use df]", "[PredictionResistance = False]", "[EntropyInputLen = 256]",
              "[NonceLen = 128]", "[PersonalizationStringLen = 256]", "[AdditionalInputLen = 256]",
              "[ReturnedBitsLen = 512]", ""]
    for count in range(3):
        lines += ["COUNT = %d" % count,
                  "EntropyInput = " + _bytes(rng, 32).hex(),
                  "Nonce = " + _bytes(rng, 16).hex(),
                  "PersonalizationString = " + _bytes(rng, 32).hex(),
                  "EntropyInputReseed = " + _bytes(rng, 32).hex(),
                  "AdditionalInputReseed = " + _bytes(rng, 32).hex(),
                  "AdditionalInput = " + _bytes(rng, 32).hex(),
                  "AdditionalInput = " + _bytes(rng, 32).hex(),
                  ""]
    return lines


# -- RSA -------------------------------------------------------------------

def rsa_siggen(ctx):
    """Short random messages for each digest; one SHA-224 test, which the
    runner copies without a signature."""
    rng = ctx.rng
    lines = _header('"SigGen PKCS#1 Ver1.5" information',
                    "Combinations selected: Mod Size 1024 with SHA-1 SHA-224 SHA-256 SHA-384 "
                    "SHA-512; Mod Size 2048 with SHA-1 SHA-256 SHA-384 SHA-512")
    sections = ((1024, ["SHA1", "SHA1", "SHA224", "SHA256", "SHA384", "SHA512"]),
                (2048, ["SHA1", "SHA256", "SHA384", "SHA512"]))
    for modulus, algorithms in sections:
        lines += ["[mod = %d]" % modulus, ""]
        for algorithm in algorithms:
            message = _bytes(rng, rng.randrange(16, 65))
            lines += ["SHAAlg = " + algorithm, "Msg = " + message.hex(), ""]
    return lines


def rsa_sigver(ctx):
    """A 1024-bit key and signed messages, two of them altered. The section
    opens with a SHA-224 test (copied like any other line) so that the
    runner's stop comes at the second test."""
    rng = ctx.rng
    e = 0x10001
    n, d = rsa_math.keypair(rng, 1024, e)
    lines = _header('"SigVer PKCS#1 Ver 1.5" information',
                    "Combinations selected: Mod Size 1024 with SHA-1 SHA-224 SHA-256 SHA-384 SHA-512")
    lines += ["[mod = 1024]", "", "n = %0256x" % n, ""]
    for number, algorithm in enumerate(["SHA224", "SHA1", "SHA1", "SHA256", "SHA384", "SHA512"]):
        message = _bytes(rng, 128)
        signature = rsa_math.pkcs1_sign(n, d, algorithm, message)
        if number in (2, 4):  # a signature that must not verify
            signature = signature[:-1] + bytes([signature[-1] ^ 0x01])
        lines += ["SHAAlg = " + algorithm, "e = %06x" % e, "d = 0", "Msg = " + message.hex(),
                  "S = " + signature.hex(), ""]
    return lines


def rsa_keygen(ctx):
    """A small request of the copy-only key-generation file."""
    rng = ctx.rng
    lines = _header('"KeyGen RSA (FIPS 186-3)" information',
                    "Mod size selected: 2048")
    lines += ["[mod = 2048]", ""]
    for _ in range(2):
        lines += ["e = %x" % (rng.getrandbits(32) | 0x10001), "seed = " + _bytes(rng, 28).hex(), ""]
    return lines


def _sqrt2_bound(bits):
    """The least integer of `bits` bits that is not below sqrt(2) * 2^(bits-1)."""
    return math.isqrt(1 << (2 * bits - 1)) + 1


def rsa_keygen_kat_records(rng):
    """(modulus bits, e, p, q, intended reason) of the B.3.3 KAT: candidates
    that pass, and candidates built to fail each check in turn."""
    e = 0x10001
    wide_e = rng.getrandbits(64) | (1 << 63) | 1

    def prime(bits, exponent=e):
        return rsa_math.random_prime(rng, bits, lambda p: math.gcd(p - 1, exponent) == 1)

    records = [
        (2048, e, prime(1024), prime(1024), rsa_math.REASON_PASS),
        (2048, wide_e, prime(1024, wide_e), prime(1024, wide_e), rsa_math.REASON_PASS),
    ]
    # p a prime just above 2^1023, below the sqrt(2) bound.
    small_p = rsa_math.next_prime((1 << 1023) + rng.getrandbits(1000))
    records.append((2048, e, small_p, prime(1024), rsa_math.REASON_P_SMALL))
    # p a prime in range whose p - 1 is a multiple of e.
    low, high = _sqrt2_bound(1024) // (2 * e) + 1, (1 << 1024) // (2 * e)
    p = 2 * e * rng.randrange(low, high) + 1
    while not rsa_math.is_probable_prime(p):
        p = 2 * e * rng.randrange(low, high) + 1
    records.append((2048, e, p, prime(1024), rsa_math.REASON_P_NOT_PRIME))
    # q the next suitable prime after p: far closer than 2^(1024 - 100).
    p = prime(1024)
    q = rsa_math.next_prime(p + 2)
    while math.gcd(q - 1, e) != 1:
        q = rsa_math.next_prime(q + 2)
    records.append((2048, e, p, q, rsa_math.REASON_TOO_CLOSE))
    # q in range but the product of two 512-bit primes.
    q = prime(512) * prime(512)
    while q < _sqrt2_bound(1024):
        q = prime(512) * prime(512)
    records.append((2048, e, prime(1024), q, rsa_math.REASON_Q_NOT_PRIME))
    # A 3072-bit pass: the runner tests these with four Miller-Rabin rounds.
    records.append((3072, e, prime(1536), prime(1536), rsa_math.REASON_PASS))
    return records


def rsa_keygen_kat(ctx):
    """KeyGen3_3_KAT (written with CR CR LF line ends)."""
    lines = _header('"Random Probably Prime Known Answer Test" information',
                    "Mod sizes selected: 2048 3072")
    lines += ["[PrimeMethod = ProbRandom]", ""]
    current = None
    records = rsa_keygen_kat_records(ctx.rng)
    ctx.intended_answers += ["Result = %s (%s)" % ("P" if reason == rsa_math.REASON_PASS else "F",
                                                   reason) for *_, reason in records]
    for nlen, e, p, q, _ in records:
        if nlen != current:
            lines += ["[mod = %d]" % nlen, ""]
            current = nlen
        lines += ["e = %x" % e, "prandom = %x" % p, "qrandom = %x" % q, ""]
    return lines


def rsa_random_probable_prime(ctx):
    """One 2048-bit key: key generation is slow."""
    lines = _header('"KeyGen RSA Random Probably Prime" information', "Mod size selected: 2048")
    return lines + ["[mod = 2048]", "", "N = 1", ""]


# -- Key derivation --------------------------------------------------------

def _mpint(value):
    """The SSH wire encoding of a shared secret: 4-byte length, big-endian
    bytes with a leading zero when the top bit is set."""
    body = value.to_bytes((value.bit_length() + 7) // 8, "big")
    if body[0] & 0x80:
        body = b"\x00" + body
    return len(body).to_bytes(4, "big") + body


def ssh_file(ctx):
    rng = ctx.rng
    lines = _header("'SSH' information for fipsval samples", "SHA sizes tested: SHA-1, SHA-256")
    for name, digest_length, secret_bits, iv_bits, key_bits in (("SHA-1", 20, 1024, 64, 192),
                                                                 ("SHA-256", 32, 2048, 128, 256)):
        lines += ["[%s]" % name, "[shared secret length = %d]" % secret_bits,
                  "[IV length = %d]" % iv_bits, "[encryption key length = %d]" % key_bits, ""]
        for count in range(3):
            h = _bytes(rng, digest_length)
            session_id = h if count == 0 else _bytes(rng, digest_length)
            lines += ["COUNT = %d" % count,
                      "K = " + _mpint(rng.getrandbits(secret_bits) | 1 << (secret_bits - 2)).hex(),
                      "H = " + h.hex(), "session_id = " + session_id.hex(), ""]
    return lines


def tls_file(ctx):
    rng = ctx.rng
    lines = _header("'TLS' information for fipsval samples",
                    "Cases tested:  [TLS 1.0/1.1] [TLS 1.2, SHA-256]")
    for section, key_block_bits in (("[TLS 1.0/1.1]", 832), ("[TLS 1.2, SHA-256]", 1024)):
        lines += [section, "[pre-master secret length = 384]",
                  "[key block length = %d]" % key_block_bits, ""]
        for count in range(3):
            lines += ["COUNT = %d" % count, "pre_master_secret = " + _bytes(rng, 48).hex()]
            lines += ["%s = %s" % (tag, _bytes(rng, 32).hex())
                      for tag in ("serverHello_random", "clientHello_random", "server_random",
                                  "client_random")]
            lines.append("")
    return lines
