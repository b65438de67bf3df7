#!/usr/bin/env python3
"""Writes the project's RSA2 key-generation request files and their answers.

    vectors/RSA2/req/KeyGen_186-3.req                    (CR LF)
    vectors/RSA2/fax/KeyGen_186-3.fax                    the request, copied
    vectors/RSA2/req/KeyGen3_3_KAT.req                   (CR CR LF)
    vectors/RSA2/fax/KeyGen3_3_KAT.fax                   with the Result lines
    vectors/RSA2/req/KeyGen_RandomProbablyPrime3_3.req   (CR LF)

Every KAT record is built to meet or to miss one appendix B.3.3 check of
FIPS 186-3 on purpose, and its Result line is the outcome it was built for.
The script re-derives each outcome with its own B.3.3 arithmetic and refuses
to write anything when the two disagree. It does not use the library or
OpenSSL, and it is deterministic: running it again rewrites the same bytes.

Usage: make_rsa_keygen_vectors.py [PROJECT_DIR]
"""

import math
import os
import random
import sys

RNG = random.Random(0x186_3B33)

SMALL_PRIMES = [p for p in range(3, 2000)
                if all(p % d for d in range(2, int(p ** 0.5) + 1))]

REASONS = {
    "4.4": "Step 4.4 p < Floor_SQRT2_TIMES_2Power_n_div_2_minus_1 so get "
           "another random number.",
    "4.7": "Step 4.7 i < (5*(nlen/2)) but not prime so get another random "
           "number.",
    "5.4": "Step 5.4 p and q too close to each other.",
    "5.5": "Step 5.5 q < Floor_SQRT2_TIMES_2Power_n_div_2_minus_1 so get "
           "another random number.",
    "5.8": "Step 5.8 i < (5*(nlen/2)) but not prime so get another random "
           "number.",
    "P": "Step 5.6.2 Q is PROBABLY PRIME SUCCESS",
}


def is_probable_prime(n, rounds=48):
    if n < 2:
        return False
    for p in [2] + SMALL_PRIMES:
        if n % p == 0:
            return n == p
    d, s = n - 1, 0
    while d % 2 == 0:
        d, s = d // 2, s + 1
    for _ in range(rounds):
        x = pow(RNG.randrange(2, n - 1), d, n)
        if x in (1, n - 1):
            continue
        for _ in range(s - 1):
            x = x * x % n
            if x == n - 1:
                break
        else:
            return False
    return True


def sqrt2_floor(half):
    """The largest integer below sqrt(2) * 2^(half - 1)."""
    return math.isqrt(2 ** (2 * half - 1))


def random_prime(half, e, low=None, high=None, congruent=None):
    """A prime of `half` bits in [low, high] with gcd(p - 1, e) = 1, or,
    with congruent=(r, m), a prime p = r mod m (the gcd is then not asked).
    The default range starts above sqrt(2) * 2^(half - 1)."""
    low = sqrt2_floor(half) + 1 if low is None else low
    high = 2 ** half - 1 if high is None else high
    while True:
        c = RNG.randrange(low, high + 1) | 1
        if congruent:
            r, m = congruent
            c = c - (c - r) % m
            if c < low or c % 2 == 0:
                continue
        elif math.gcd(c - 1, e) != 1:
            continue
        if is_probable_prime(c):
            return c


def next_prime_above(x, e):
    c = x + 1 if x % 2 == 0 else x + 2
    while math.gcd(c - 1, e) != 1 or not is_probable_prime(c):
        c += 2
    return c


def odd_composite(half):
    """An odd composite above the sqrt(2) bound with no small factor, so
    that only the Miller-Rabin test finds it out."""
    quarter = half // 2
    while True:
        a = random_prime(quarter, 1, low=3 << (quarter - 2))
        b = random_prime(half - quarter, 1, low=3 << (half - quarter - 2))
        if a * b > sqrt2_floor(half) and (a * b).bit_length() == half:
            return a * b


def b33(nlen, e, p, q):
    """The expected outcome: 'P' or the number of the first failing step."""
    half = nlen // 2
    bound = sqrt2_floor(half)  # x < sqrt(2)*2^(half-1) <=> x <= bound
    if p <= bound:
        return "4.4"
    if math.gcd(p - 1, e) != 1 or not is_probable_prime(p):
        return "4.7"
    if abs(p - q) <= 2 ** (half - 100):
        return "5.4"
    if q <= bound:
        return "5.5"
    if math.gcd(q - 1, e) != 1 or not is_probable_prime(q):
        return "5.8"
    return "P"


def kat_records(nlen):
    """(intended outcome, e, p, q, note) for one modulus size."""
    half = nlen // 2
    f4 = 0x10001
    odd_e = RNG.randrange(2 ** 16, 2 ** 32) | 1
    gap = 2 ** (half - 100)
    p = random_prime(half, f4)
    q = random_prime(half, f4)
    records = [
        ("P", f4, p, q, "two good primes"),
        ("P", odd_e, random_prime(half, odd_e), random_prime(half, odd_e),
         "two good primes, another exponent"),
        ("4.4", f4, sqrt2_floor(half), q, "p just below the sqrt(2) bound"),
        ("P", f4, next_prime_above(sqrt2_floor(half), f4), q,
         "p the first prime above the sqrt(2) bound"),
        ("4.7", f4, odd_composite(half), q, "p composite"),
        ("4.7", f4, random_prime(half, f4, congruent=(1, 2 * f4)), q,
         "p prime but p - 1 shares a factor with e"),
        ("5.4", f4, p, p, "p = q"),
        ("5.4", f4, p, p + gap, "|p - q| exactly 2^(nlen/2 - 100)"),
        ("5.4", f4, p, p - gap, "q below p by exactly 2^(nlen/2 - 100)"),
        ("5.8", f4, p, p + gap + 1,
         "|p - q| one above 2^(nlen/2 - 100): step 5.4 passes, q is even"),
        ("5.5", f4, p,
         random_prime(half, f4, low=2 ** (half - 1), high=sqrt2_floor(half)),
         "q prime but below the sqrt(2) bound"),
        ("5.8", f4, p, odd_composite(half), "q composite"),
        ("5.8", f4, p, random_prime(half, f4, congruent=(1, 2 * f4)),
         "q prime but q - 1 shares a factor with e"),
    ]
    for outcome, e, p, q, note in records:
        derived = b33(nlen, e, p, q)
        if derived != outcome:
            sys.exit(f"nlen {nlen}, {note}: built for {outcome}, "
                     f"checks give {derived}")
    return records


def hex_value(x):
    text = format(x, "x")
    return text if len(text) % 2 == 0 else "0" + text


def write(path, text):
    with open(path, "wb") as f:
        f.write(text.encode("ascii"))


def keygen_kat(req_path, fax_path):
    end = "\r\r\n"
    header = [
        "# CAVS 11.4",
        '# "FIPS186-3 - KeyGen B.3.3 Probable Primes KAT" information for '
        '"fipsval"',
        "# Mod sizes selected: 2048 3072",
        "# Records built to pass, or to fail one B.3.3 step each",
        "",
        "[PrimeMethod = ProbRandom]",
    ]
    req = [line + end for line in header]
    fax = list(req)
    for nlen in (2048, 3072):
        section = ["", f"[mod = {nlen}]", ""]
        req += [line + end for line in section]
        fax += [line + end for line in section]
        for outcome, e, p, q, _ in kat_records(nlen):
            fields = [f"e = {hex_value(e)}", f"prandom = {hex_value(p)}",
                      f"qrandom = {hex_value(q)}"]
            req += [line + end for line in fields] + [end]
            mark = "P" if outcome == "P" else "F"
            fax += [line + end for line in fields]
            fax.append(f"Result = {mark} ({REASONS[outcome]})"
                       "\r\r\n\r\n\r\r\n")
    write(req_path, "".join(req))
    write(fax_path, "".join(fax))


def keygen_copy(req_path, fax_path):
    lines = [
        "# CAVS 11.4",
        '# "FIPS186-3 - KeyGen RSA" information for "fipsval"',
        "# Combinations selected: Mod Size 2048 with Probable Primes; "
        "Mod Size 3072 with Probable Primes",
        "",
        "[mod = 2048]",
        "",
        "N = 2",
        "",
        "[mod = 3072]",
        "",
        "N = 2",
        "",
    ]
    text = "".join(line + "\r\n" for line in lines)
    write(req_path, text)
    write(fax_path, text)


def keygen_random_probable_prime(req_path):
    lines = [
        "# CAVS 11.4",
        '# "FIPS186-3 - KeyGen B.3.3 Random Probable Primes" information for '
        '"fipsval"',
        "# Mod sizes selected: 2048 3072",
        "",
        "[mod = 2048]",
        "",
        "N = 2",
        "",
        "[mod = 3072]",
        "",
        "N = 1",
        "",
    ]
    write(req_path, "".join(line + "\r\n" for line in lines))


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(
        os.path.dirname(os.path.abspath(__file__)), "..", "..")
    req = os.path.join(root, "vectors", "RSA2", "req")
    fax = os.path.join(root, "vectors", "RSA2", "fax")
    os.makedirs(req, exist_ok=True)
    os.makedirs(fax, exist_ok=True)
    keygen_copy(os.path.join(req, "KeyGen_186-3.req"),
                os.path.join(fax, "KeyGen_186-3.fax"))
    keygen_kat(os.path.join(req, "KeyGen3_3_KAT.req"),
               os.path.join(fax, "KeyGen3_3_KAT.fax"))
    keygen_random_probable_prime(
        os.path.join(req, "KeyGen_RandomProbablyPrime3_3.req"))


if __name__ == "__main__":
    main()
