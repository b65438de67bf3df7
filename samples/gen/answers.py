"""Reference answers: each responder turns a request's text into the text
of its expected answers, in the layout the runners write (the request lines
copied, the answer after the inputs of each test; Monte Carlo seeds
replaced by their generated records). Only non-blank lines are compared,
so blank-line placement follows NIST's own response files.

The answers come from Python's hashlib/hmac, plain integers, and AES/DES
from libcrypto (gen.libcrypto); nothing here runs fipsval.
"""

import hashlib
import hmac

from gen import ctr_drbg, rsa_math
from gen.cavp import CRCRLF, bracket_field, field, join_lines, split_lines

_DIGEST_BY_LENGTH = {20: "sha1", 28: "sha224", 32: "sha256", 48: "sha384", 64: "sha512"}


def _xor(a, b):
    return (int.from_bytes(a, "big") ^ int.from_bytes(b, "big")).to_bytes(len(a), "big")


def _direction(line):
    if "[ENCRYPT]" in line:
        return True
    if "[DECRYPT]" in line:
        return False
    return None


# -- AES -------------------------------------------------------------------

def aes_known_answer(crypto, text, mode):
    """GFSbox, KeySbox, VarTxt, VarKey and MMT files (mode "CBC" or "ECB")."""
    out, encrypt, test = [], None, {}
    for line in split_lines(text):
        out.append(line)
        if _direction(line) is not None:
            encrypt = _direction(line)
            continue
        tag, value = field(line)
        if tag == "COUNT":
            test = {}
        elif tag in ("KEY", "IV", "PLAINTEXT", "CIPHERTEXT"):
            test[tag] = bytes.fromhex(value)
        data_tag, answer_tag = ("PLAINTEXT", "CIPHERTEXT") if encrypt else ("CIPHERTEXT", "PLAINTEXT")
        if encrypt is not None and tag == data_tag:
            if mode == "CBC":
                answer = crypto.aes_cbc(test["KEY"], test["IV"], test[data_tag], encrypt)
            else:
                answer = crypto.aes_ecb(test["KEY"], test[data_tag], encrypt)
            out.append("%s = %s" % (answer_tag, answer.hex()))
    return join_lines(out)


def _aes_key_update(key, last, second_last):
    """AESAVS: the key absorbs the last 128, 192 or 256 bits of the output."""
    tail = (second_last + last)[32 - len(key):]
    return _xor(key, tail)


def aes_monte_records(crypto, mode, encrypt, key, iv, data, records=100):
    """The AESAVS Monte Carlo test of one seed (100 records of 1000)."""
    data_tag, answer_tag = ("PLAINTEXT", "CIPHERTEXT") if encrypt else ("CIPHERTEXT", "PLAINTEXT")
    lines = []
    for i in range(records):
        lines += ["COUNT = %d" % i, "KEY = " + key.hex()]
        if mode == "CBC":
            lines.append("IV = " + iv.hex())
        lines.append("%s = %s" % (data_tag, data.hex()))
        block = crypto.aes_block_function(key, encrypt)
        outputs = []
        chain, current = iv, data
        for j in range(1000):
            if mode == "ECB":
                result = block(current)
                current = result
            elif encrypt:
                result = block(_xor(current, chain))
                current = chain if j == 0 else outputs[j - 1]
                chain = result
            else:
                result = _xor(block(current), chain)
                chain = current
                current = iv if j == 0 else outputs[j - 1]
            outputs.append(result)
        lines += ["%s = %s" % (answer_tag, outputs[-1].hex()), ""]
        key = _aes_key_update(key, outputs[-1], outputs[-2])
        iv = outputs[-1]
        data = outputs[-1] if mode == "ECB" else outputs[-2]
    return lines


def aes_monte(crypto, text, mode, records=100):
    """CBCMCT and ECBMCT files: each seed becomes its records."""
    out, encrypt, seed = [], None, None
    for line in split_lines(text):
        if _direction(line) is not None:
            encrypt, seed = _direction(line), None
            out.append(line)
            continue
        tag, value = field(line)
        if encrypt is not None and tag == "COUNT":
            seed = {}
            continue
        if seed is not None and tag in ("KEY", "IV", "PLAINTEXT", "CIPHERTEXT"):
            seed[tag] = bytes.fromhex(value)
            if tag == ("PLAINTEXT" if encrypt else "CIPHERTEXT"):
                out += aes_monte_records(crypto, mode, encrypt, seed["KEY"], seed.get("IV"),
                                         seed[tag], records)
                seed = None
            continue
        out.append(line)
    return join_lines(out)


# -- Triple DES ------------------------------------------------------------

def _tdes_keys(test):
    if "KEYs" in test:
        return [test["KEYs"]] * 3
    return [test["KEY1"], test["KEY2"], test["KEY3"]]


def tdes_known_answer(crypto, text):
    """The TCBC known-answer files and TCBCMMT1/2/3."""
    out, encrypt, test = [], None, {}
    for line in split_lines(text):
        out.append(line)
        if _direction(line) is not None:
            encrypt = _direction(line)
            continue
        tag, value = field(line)
        if tag == "COUNT":
            test = {}
        elif tag in ("KEYs", "KEY1", "KEY2", "KEY3", "IV", "PLAINTEXT", "CIPHERTEXT"):
            test[tag] = bytes.fromhex(value)
        data_tag, answer_tag = ("PLAINTEXT", "CIPHERTEXT") if encrypt else ("CIPHERTEXT", "PLAINTEXT")
        if encrypt is not None and tag == data_tag:
            answer = crypto.tdes_cbc(_tdes_keys(test), test["IV"], test[data_tag], encrypt)
            out.append("%s = %s" % (answer_tag, answer.hex()))
    return join_lines(out)


def _odd_parity(block):
    return bytes(b if bin(b).count("1") % 2 else b ^ 1 for b in block)


def tdes_monte_records(crypto, encrypt, num_keys, keys, iv, data, records=400):
    """The TMOVS CBC Monte Carlo test of one seed (400 records of 10000)."""
    data_tag, answer_tag = ("PLAINTEXT", "CIPHERTEXT") if encrypt else ("CIPHERTEXT", "PLAINTEXT")
    lines = []
    for i in range(records):
        lines += ["COUNT = %d" % i] + ["KEY%d = %s" % (n + 1, k.hex()) for n, k in enumerate(keys)]
        lines += ["IV = " + iv.hex(), "%s = %s" % (data_tag, data.hex())]
        third_last, second_last, last = crypto.tdes_monte_chain(keys, iv, data, encrypt)
        lines += ["%s = %s" % (answer_tag, last.hex()), ""]
        if num_keys == 3:
            updates = (last, second_last, third_last)
        elif num_keys == 2:
            updates = (last, second_last, last)
        else:
            updates = (last, last, last)
        keys = [_odd_parity(_xor(k, u)) for k, u in zip(keys, updates)]
        # Encrypting, the next IV is the last ciphertext and the next input
        # the one before it; decrypting, the next IV is the last ciphertext
        # used (the second-last plaintext) and the next input the last one.
        iv, data = (last, second_last) if encrypt else (second_last, last)
    return lines


def tdes_monte(crypto, text, records=400):
    """TCBCMonte1/2/3: the request's lines inside the sections (NumKeys,
    the seed) are consumed; the records take their place."""
    out, encrypt, seed, num_keys = [], None, {}, 0
    for line in split_lines(text):
        if _direction(line) is not None:
            encrypt, seed = _direction(line), {}
            out += [line, ""]
            continue
        if encrypt is None:
            out.append(line)
            continue
        tag, value = field(line)
        if tag == "NumKeys":
            num_keys = int(value)
        elif tag in ("KEY1", "KEY2", "KEY3", "IV", "PLAINTEXT", "CIPHERTEXT"):
            seed[tag] = bytes.fromhex(value)
            if tag == ("PLAINTEXT" if encrypt else "CIPHERTEXT"):
                out += tdes_monte_records(crypto, encrypt, num_keys, _tdes_keys(seed),
                                          seed["IV"], seed[tag][:8], records)
                seed = {}
    return join_lines(out)


# -- SHA and HMAC ----------------------------------------------------------

def _digest_of_section(line, current):
    """The digest an "[L = 20]" or "[L=32]" section line selects."""
    compact = line.replace(" ", "")
    if compact.startswith("[L=") and compact.endswith("]"):
        return _DIGEST_BY_LENGTH[int(compact[3:-1])]
    return current


def sha_messages(text):
    """ShortMsg and LongMsg files: "MD = " after every Msg line."""
    out, digest, length = [], None, 0
    for line in split_lines(text):
        out.append(line)
        digest = _digest_of_section(line, digest)
        tag, value = field(line)
        if tag == "Len":
            length = int(value) // 8
        elif tag == "Msg" and digest:
            message = bytes.fromhex(value)[:length]
            out.append("MD = " + hashlib.new(digest, message).hexdigest())
    return join_lines(out)


def sha_monte_records(digest, seed, records=100):
    """The SHAVS Monte Carlo test: MD[i] = H(MD[i-3] || MD[i-2] || MD[i-1])."""
    lines = []
    md = seed
    for count in range(records):
        a = b = c = md
        for _ in range(1000):
            a, b, c = b, c, hashlib.new(digest, a + b + c).digest()
        md = c
        lines += ["COUNT = %d" % count, "MD = " + md.hex(), ""]
    return lines


def sha_monte(text, records=100):
    """SHA1Monte and SHA256Monte: the header and the seed, then 100 records."""
    out, digest = [], None
    for line in split_lines(text):
        out.append(line)
        digest = _digest_of_section(line, digest)
        tag, value = field(line)
        if tag == "Seed":
            seed = bytes.fromhex(value)
            out += [""] + sha_monte_records(digest or _DIGEST_BY_LENGTH[len(seed)], seed, records)
            break
    return join_lines(out)


def hmac_file(text):
    """HMAC: "Mac = " (truncated to Tlen bytes) after every Msg line."""
    out, digest, test = [], None, {}
    for line in split_lines(text):
        out.append(line)
        digest = _digest_of_section(line, digest)
        tag, value = field(line)
        if tag == "Count":
            test = {}
        elif tag == "Tlen":
            test[tag] = int(value)
        elif tag in ("Key", "Msg"):
            test[tag] = bytes.fromhex(value)
        if tag == "Msg" and digest:
            mac = hmac.new(test["Key"], test["Msg"], digest).digest()
            out.append("Mac = " + mac[:test["Tlen"]].hex())
    return join_lines(out)


# -- Key derivation --------------------------------------------------------

_SSH_VALUES = [
    ("A", "Initial IV (client to server)", "iv"),
    ("B", "Initial IV (server to client)", "iv"),
    ("C", "Encryption key (client to server)", "key"),
    ("D", "Encryption key (server to client)", "key"),
    ("E", "Integrity key (client to server)", "mac"),
    ("F", "Integrity key (server to client)", "mac"),
]


def ssh_kdf(digest, k, h, letter, session_id, length):
    """RFC 4253 section 7.2: K1 = HASH(K || H || X || session_id), then
    Kn = HASH(K || H || K1 || ... || Kn-1) until there is enough."""
    out = hashlib.new(digest, k + h + letter.encode() + session_id).digest()
    while len(out) < length:
        out += hashlib.new(digest, k + h + out).digest()
    return out[:length]


def ssh_file(text):
    out, digest, lengths, test = [], None, {}, {}
    for line in split_lines(text):
        out.append(line)
        if line.startswith("[SHA-"):
            digest = line.strip("[]").replace("-", "").lower()
            continue
        name, value = bracket_field(line)
        if name:
            lengths[name] = int(value) // 8
            continue
        tag, value = field(line)
        if tag == "COUNT":
            test = {}
        elif tag in ("K", "H", "session_id"):
            test[tag] = bytes.fromhex(value)
        if tag == "session_id":
            size = {"iv": lengths["IV length"], "key": lengths["encryption key length"],
                    "mac": hashlib.new(digest).digest_size}
            for letter, label, kind in _SSH_VALUES:
                value = ssh_kdf(digest, test["K"], test["H"], letter, test["session_id"], size[kind])
                out.append("%s = %s" % (label, value.hex()))
    return join_lines(out)


def p_hash(digest, secret, seed, length):
    """P_hash of RFC 2246 / RFC 5246 section 5."""
    out, a = b"", seed
    while len(out) < length:
        a = hmac.new(secret, a, digest).digest()
        out += hmac.new(secret, a + seed, digest).digest()
    return out[:length]


def tls_prf(digest, secret, label, seed, length):
    """TLS 1.2 PRF with `digest`, or the TLS 1.0/1.1 PRF when digest is
    None (P_MD5 over the first half of the secret XOR P_SHA-1 over the
    second half, the halves sharing the middle byte of an odd length)."""
    seed = label.encode() + seed
    if digest:
        return p_hash(digest, secret, seed, length)
    half = (len(secret) + 1) // 2
    return _xor(p_hash("md5", secret[:half], seed, length),
                p_hash("sha1", secret[len(secret) - half:], seed, length))


_TLS_SECTIONS = {"[TLS 1.0/1.1]": None, "[TLS 1.2, SHA-256]": "sha256",
                 "[TLS 1.2, SHA-384]": "sha384", "[TLS 1.2, SHA-512]": "sha512"}


def tls_file(text):
    out, digest, key_block_length, test = [], None, 0, {}
    for line in split_lines(text):
        out.append(line)
        if line in _TLS_SECTIONS:
            digest = _TLS_SECTIONS[line]
            continue
        name, value = bracket_field(line)
        if name == "key block length":
            key_block_length = int(value) // 8
            continue
        tag, value = field(line)
        if tag == "COUNT":
            test = {}
        elif tag:
            test[tag] = bytes.fromhex(value)
        if tag == "client_random":
            master = tls_prf(digest, test["pre_master_secret"], "master secret",
                             test["clientHello_random"] + test["serverHello_random"],
                             len(test["pre_master_secret"]))
            key_block = tls_prf(digest, master, "key expansion",
                                test["server_random"] + test["client_random"], key_block_length)
            out += ["master_secret = " + master.hex(), "key_block = " + key_block.hex()]
    return join_lines(out)


# -- CTR_DRBG --------------------------------------------------------------

_DRBG_INPUTS = ("EntropyInput", "Nonce", "PersonalizationString", "EntropyInputReseed",
                "AdditionalInputReseed", "AdditionalInput")


def ctr_drbg_file(crypto, text):
    """CTR_DRBG: "ReturnedBits = " after the second AdditionalInput of every
    test in an "[AES-256 use df]" section; other mechanisms' tests are
    copied without answers."""
    out, mechanism, returned, test = [], None, 0, {}
    for line in split_lines(text):
        out.append(line)
        if line.startswith("[") and line.endswith(" df]"):
            mechanism = line
            continue
        name, value = bracket_field(line)
        if name == "ReturnedBitsLen":
            returned = int(value) // 8
            continue
        tag, value = field(line)
        if tag == "COUNT":
            test = {"AdditionalInput": []}
        elif tag == "AdditionalInput":
            test[tag].append(bytes.fromhex(value))
        elif tag in _DRBG_INPUTS:
            test[tag] = bytes.fromhex(value)
        if tag == "AdditionalInput" and len(test[tag]) == 2 and mechanism == "[AES-256 use df]":
            bits = ctr_drbg.test(crypto, test["EntropyInput"], test["Nonce"],
                                 test["PersonalizationString"], test["EntropyInputReseed"],
                                 test["AdditionalInputReseed"], test[tag][0], test[tag][1],
                                 returned)
            out.append("ReturnedBits = " + bits.hex())
    return join_lines(out)


# -- RSA key generation ----------------------------------------------------

def rsa_keygen_copy(text):
    """KeyGen_186-3 is answered by copying it."""
    return text


def rsa_keygen_kat(text):
    """KeyGen3_3_KAT: a "Result = P|F (reason)" line closes each record
    (e, prandom, qrandom), in the file's own CR CR LF line ends."""
    out, nlen, record = [], 0, None
    for line in split_lines(text):
        if line.startswith("[mod = "):
            nlen = int(bracket_field(line)[1])
        tag, value = field(line)
        if tag == "e":
            record = {"e": int(value, 16)}
        elif tag in ("prandom", "qrandom") and record is not None:
            record[tag] = int(value, 16)
        elif line == "" and record is not None:
            passed, reason = rsa_math.b33_check(nlen, record["e"], record["prandom"],
                                                record["qrandom"])
            out.append("Result = %s (%s)" % ("P" if passed else "F", reason))
            record = None
        out.append(line)
    return join_lines(out, CRCRLF)
