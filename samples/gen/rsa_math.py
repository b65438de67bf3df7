"""RSA arithmetic for the samples: primes, PKCS#1 v1.5 signatures and the
FIPS 186-3 appendix B.3.3 prime checks, in plain Python integers."""

import hashlib
import math
import random

_SMALL_PRIMES = [p for p in range(3, 2000) if all(p % d for d in range(2, math.isqrt(p) + 1))]


def is_probable_prime(n, rounds=10):
    """Miller-Rabin with bases drawn from a generator seeded by n itself,
    so that every answer is reproducible. Ten rounds are twice what FIPS
    186-4 table C.2 asks for random candidates of these sizes."""
    if n < 2:
        return False
    if n == 2:
        return True
    for p in _SMALL_PRIMES:
        if n == p:
            return True
        if n % p == 0:
            return False
    d, s = n - 1, 0
    while d % 2 == 0:
        d, s = d // 2, s + 1
    bases = random.Random(n)
    for _ in range(rounds):
        x = pow(bases.randrange(2, n - 1), d, n)
        if x in (1, n - 1):
            continue
        for _ in range(s - 1):
            x = x * x % n
            if x == n - 1:
                break
        else:
            return False
    return True


def random_prime(rng, bits, accept=lambda p: True):
    """A prime of exactly `bits` bits with its two top bits set (so it is
    above sqrt(2) * 2^(bits-1)) that `accept` takes."""
    while True:
        candidate = rng.getrandbits(bits) | (3 << (bits - 2)) | 1
        if accept(candidate) and is_probable_prime(candidate):
            return candidate


def next_prime(n):
    n |= 1
    while not is_probable_prime(n):
        n += 2
    return n


def keypair(rng, nlen, e):
    """(n, d) of an nlen-bit key with public exponent e; d is the least
    common multiple form of FIPS 186-3."""
    coprime = lambda p: math.gcd(p - 1, e) == 1
    p = random_prime(rng, nlen // 2, coprime)
    q = random_prime(rng, nlen // 2, lambda c: coprime(c) and c != p)
    lcm = (p - 1) * (q - 1) // math.gcd(p - 1, q - 1)
    return p * q, pow(e, -1, lcm)


# DER DigestInfo prefixes of PKCS#1 v1.5 (RFC 8017 section 9.2, note 1).
_DIGEST_INFO = {
    "SHA1": ("sha1", "3021300906052b0e03021a05000414"),
    "SHA224": ("sha224", "302d300d06096086480165030402040500041c"),
    "SHA256": ("sha256", "3031300d060960864801650304020105000420"),
    "SHA384": ("sha384", "3041300d060960864801650304020205000430"),
    "SHA512": ("sha512", "3051300d060960864801650304020305000440"),
}


def pkcs1_sign(n, d, sha_alg, message):
    hash_name, prefix = _DIGEST_INFO[sha_alg]
    t = bytes.fromhex(prefix) + hashlib.new(hash_name, message).digest()
    k = (n.bit_length() + 7) // 8
    encoded = b"\x00\x01" + b"\xff" * (k - len(t) - 3) + b"\x00" + t
    return pow(int.from_bytes(encoded, "big"), d, n).to_bytes(k, "big")


# Reason texts of the B.3.3 checks, as the key-generation KAT answers them.
REASON_P_SMALL = ("Step 4.4 p < Floor_SQRT2_TIMES_2Power_n_div_2_minus_1 "
                  "so get another random number.")
REASON_P_NOT_PRIME = "Step 4.7 i < (5*(nlen/2)) but not prime so get another random number."
REASON_TOO_CLOSE = "Step 5.4 p and q too close to each other."
REASON_Q_SMALL = ("Step 5.5 q < Floor_SQRT2_TIMES_2Power_n_div_2_minus_1 "
                  "so get another random number.")
REASON_Q_NOT_PRIME = "Step 5.8 i < (5*(nlen/2)) but not prime so get another random number."
REASON_PASS = "Step 5.6.2 Q is PROBABLY PRIME SUCCESS"


def b33_check(nlen, e, p, q):
    """(passed, reason) of the FIPS 186-3 B.3.3 candidate checks, in the
    order steps 4.4, 4.7, 5.4, 5.5, 5.8."""
    half = nlen // 2
    bound_squared = 2 * (1 << (half - 1)) ** 2  # (sqrt(2) * 2^(half-1))^2
    if p * p < bound_squared:
        return False, REASON_P_SMALL
    if math.gcd(p - 1, e) != 1 or not is_probable_prime(p):
        return False, REASON_P_NOT_PRIME
    if abs(p - q) <= 1 << (half - 100):
        return False, REASON_TOO_CLOSE
    if q * q < bound_squared:
        return False, REASON_Q_SMALL
    if math.gcd(q - 1, e) != 1 or not is_probable_prime(q):
        return False, REASON_Q_NOT_PRIME
    return True, REASON_PASS
