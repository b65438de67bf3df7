#!/usr/bin/env python3
"""Writes the bundled sample requests of fipsval and their expected answers.

    samples/generate.py                 rewrite samples/<DIR>/req and fax
    samples/generate.py --check         report files that differ from what
                                        the generator writes (exit 1)
    samples/generate.py --self-check    feed the NIST requests of a CAVP tree
                                        through the same answer code and
                                        compare with NIST's answers
                                        [--cavp DIR] [--quick]

Deterministic: each file draws its values from its own generator, seeded
with a fixed text and the file's name, so reruns write the same bytes.
Python standard library only, plus libcrypto (ctypes) for AES and DES.
"""

import sys

sys.dont_write_bytecode = True  # keep the samples tree free of caches

import argparse  # noqa: E402
import hashlib  # noqa: E402
import os  # noqa: E402
import random  # noqa: E402
import time  # noqa: E402

from gen import answers, requests, selfcheck  # noqa: E402
from gen.cavp import CRCRLF, CRLF, join_lines, non_blank  # noqa: E402
from gen.libcrypto import LibCrypto  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
SEED = "fipsval samples, first edition"


class Sample:
    """One request file, its builder and (when answered) its responder."""

    def __init__(self, directory, name, build, respond=None, eol=CRLF):
        self.directory, self.name = directory, name
        self.build, self.respond, self.eol = build, respond, eol

    def paths(self, root):
        base = os.path.join(root, self.directory)
        return (os.path.join(base, "req", self.name + ".req"),
                os.path.join(base, "fax", self.name + ".fax") if self.respond else None)


class Context:
    """What a builder gets: the file's own random generator, the ciphers
    and a place to leave the answers its construction implies."""

    def __init__(self, crypto, sample):
        digest = hashlib.sha256(("%s/%s/%s" % (SEED, sample.directory, sample.name)).encode())
        self.rng = random.Random(int.from_bytes(digest.digest(), "big"))
        self.crypto = crypto
        self.intended_answers = []

    def aes(self, mode, key, iv, data):
        if mode == "CBC":
            return self.crypto.aes_cbc(key, iv, data, True)
        return self.crypto.aes_ecb(key, data, True)

    def tdes(self, keys, iv, data, encrypt):
        return self.crypto.tdes_cbc(keys, iv, data, encrypt)


def _samples():
    """Every request file of every suite, in the suites' order."""
    table = []
    aes_kat = lambda mode: lambda crypto, text: answers.aes_known_answer(crypto, text, mode)
    aes_mct = lambda mode: lambda crypto, text: answers.aes_monte(crypto, text, mode)
    for kind in ("GFSbox", "KeySbox", "VarTxt", "VarKey", "MMT"):
        for bits in (128, 192, 256):
            table.append(Sample("AES", "CBC%s%d" % (kind, bits),
                                lambda ctx, k=kind, b=bits: requests.aes_known_answer(ctx, "CBC", k, b),
                                aes_kat("CBC")))
    for bits in (128, 192, 256):
        table.append(Sample("AES", "CBCMCT%d" % bits,
                            lambda ctx, b=bits: requests.aes_monte(ctx, "CBC", b), aes_mct("CBC")))
    for kind in ("GFSbox", "KeySbox", "VarKey", "VarTxt", "MMT"):
        table.append(Sample("AES", "ECB%s128" % kind,
                            lambda ctx, k=kind: requests.aes_known_answer(ctx, "ECB", k, 128),
                            aes_kat("ECB")))
    table.append(Sample("AES", "ECBMCT128", lambda ctx: requests.aes_monte(ctx, "ECB", 128),
                        aes_mct("ECB")))

    tdes_kat = answers.tdes_known_answer
    for kind in ("vartext", "invperm", "varkey", "permop", "subtab"):
        table.append(Sample("TDES", "TCBC" + kind,
                            lambda ctx, k=kind: requests.tdes_known_answer(ctx, k), tdes_kat))
    for keys in (1, 2, 3):
        table.append(Sample("TDES", "TCBCMMT%d" % keys,
                            lambda ctx, n=keys: requests.tdes_mmt(ctx, n), tdes_kat))
    for keys in (1, 2, 3):
        table.append(Sample("TDES", "TCBCMonte%d" % keys,
                            lambda ctx, n=keys: requests.tdes_monte(ctx, n), answers.tdes_monte))

    for sha, length in (("SHA1", 20), ("SHA256", 32)):
        short = [0, 8, 136, 440, 448, 512]
        long = [1304, 4472, 16304]
        table += [
            Sample("SHA", sha + "ShortMsg",
                   lambda ctx, n=length, b=short: requests.sha_messages(ctx, n, b, "ShortMsg"),
                   lambda crypto, text: answers.sha_messages(text)),
            Sample("SHA", sha + "LongMsg",
                   lambda ctx, n=length, b=long: requests.sha_messages(ctx, n, b, "LongMsg"),
                   lambda crypto, text: answers.sha_messages(text)),
            Sample("SHA", sha + "Monte", lambda ctx, n=length: requests.sha_monte(ctx, n),
                   lambda crypto, text: answers.sha_monte(text)),
        ]

    table.append(Sample("HMAC", "HMAC", requests.hmac_file,
                        lambda crypto, text: answers.hmac_file(text)))
    # The DRBG under test is the platform's; gen.ctr_drbg computes what it
    # must answer, so a broken DRBG path fails the sample run.
    table.append(Sample("DRBG800-90A", "CTR_DRBG", requests.ctr_drbg,
                        answers.ctr_drbg_file))
    # Signatures and generated keys are random: fipsval verify checks them
    # mathematically, and the SigVer response against its request.
    table += [
        Sample("RSA2", "SigGen15_186-3", requests.rsa_siggen),
        Sample("RSA2", "SigVer15_186-3", requests.rsa_sigver),
        Sample("RSA2", "KeyGen_186-3", requests.rsa_keygen,
               lambda crypto, text: answers.rsa_keygen_copy(text)),
        Sample("RSA2", "KeyGen3_3_KAT", requests.rsa_keygen_kat,
               lambda crypto, text: answers.rsa_keygen_kat(text), CRCRLF),
        Sample("RSA2", "KeyGen_RandomProbablyPrime3_3", requests.rsa_random_probable_prime),
    ]
    table += [
        Sample("KDF135", "ssh", requests.ssh_file, lambda crypto, text: answers.ssh_file(text)),
        Sample("KDF135", "tls", requests.tls_file, lambda crypto, text: answers.tls_file(text)),
    ]
    return table


def produce(crypto, sample):
    """{path relative to the samples root: bytes} of one sample."""
    ctx = Context(crypto, sample)
    request = join_lines(sample.build(ctx), sample.eol)
    request_path, answer_path = sample.paths("")
    files = {request_path: request.encode()}
    if sample.respond:
        answer = sample.respond(crypto, request)
        if ctx.intended_answers:  # the answers the construction implies
            intended = set(ctx.intended_answers)
            computed = [line for line in non_blank(answer) if line in intended]
            if computed != ctx.intended_answers:
                raise SystemExit("%s: computed answers %r, built for %r"
                                 % (sample.name, computed, ctx.intended_answers))
        files[answer_path] = answer.encode()
    return files


def _existing(root, directories):
    found = set()
    for directory in directories:
        for kind in ("req", "fax"):
            folder = os.path.join(root, directory, kind)
            if os.path.isdir(folder):
                found.update(os.path.join(directory, kind, f) for f in os.listdir(folder))
    return found


def generate(crypto, root, check):
    started = time.time()
    wanted = {}
    samples = _samples()
    for sample in samples:
        wanted.update(produce(crypto, sample))
    stale = _existing(root, {s.directory for s in samples}) - set(wanted)
    differing = []
    for path, content in sorted(wanted.items()):
        full = os.path.join(root, path)
        current = None
        if os.path.exists(full):
            with open(full, "rb") as f:
                current = f.read()
        if current == content:
            continue
        differing.append(path)
        if not check:
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, "wb") as f:
                f.write(content)
    if not check:
        for path in stale:
            os.remove(os.path.join(root, path))
    answered = sum(1 for s in samples if s.respond)
    if check:
        for path in differing:
            print("differs: %s" % path)
        for path in sorted(stale):
            print("not written by the generator: %s" % path)
        print("%d files checked, %d differ, %d extra (%.1f s)"
              % (len(wanted), len(differing), len(stale), time.time() - started))
        return 0 if not differing and not stale else 1
    print("%d requests, %d with expected answers; %d files rewritten, %d removed (%.1f s)"
          % (len(samples), answered, len(differing), len(stale), time.time() - started))
    return 0


def default_cavp_dir():
    return os.environ.get("FIPSVAL_CAVP_DIR") or os.path.normpath(
        os.path.join(HERE, "..", "..", "shared", "cavp"))


def main(argv):
    parser = argparse.ArgumentParser(
        description="Write fipsval's sample requests and expected answers.")
    mode = parser.add_mutually_exclusive_group()
    mode.add_argument("--check", action="store_true",
                      help="compare the files on disk with the generator's output")
    mode.add_argument("--self-check", action="store_true",
                      help="compare the answer code with NIST's answers in a CAVP tree")
    parser.add_argument("--cavp", default=default_cavp_dir(),
                        help="CAVP tree for --self-check (default: %(default)s)")
    parser.add_argument("--quick", action="store_true",
                        help="--self-check: only the first 10 Monte Carlo records of a seed")
    parser.add_argument("--root", default=HERE, help="where to write (default: %(default)s)")
    args = parser.parse_args(argv)
    crypto = LibCrypto()
    if args.self_check:
        return 0 if selfcheck.run(crypto, args.cavp, 10 if args.quick else None) else 1
    return generate(crypto, args.root, args.check)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
