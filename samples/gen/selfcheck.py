"""Cross-check of the reference answers against NIST's own: every request
of a CAVP tree that has NIST's expected answers (<DIR>/fax/<name>.fax) and
that the samples answer is fed through the same responder that writes the
samples' .fax files, and the result is compared with NIST's file as the
sequence of non-blank lines. Nothing of the NIST tree is copied."""

import os
import time

from gen import answers
from gen.cavp import field, first_difference, join_lines, split_lines


def responders(crypto, monte_records=None):
    """(DIR, name) -> responder over request text, for every file whose
    answers the samples compute."""
    aes_mct = lambda mode: lambda text: answers.aes_monte(crypto, text, mode, monte_records or 100)
    table = {}
    for kind in ("GFSbox", "KeySbox", "VarTxt", "VarKey", "MMT"):
        for bits in (128, 192, 256):
            table[("AES", "CBC%s%d" % (kind, bits))] = (
                lambda text: answers.aes_known_answer(crypto, text, "CBC"))
        table[("AES", "ECB%s128" % kind)] = lambda text: answers.aes_known_answer(crypto, text, "ECB")
    for bits in (128, 192, 256):
        table[("AES", "CBCMCT%d" % bits)] = aes_mct("CBC")
    table[("AES", "ECBMCT128")] = aes_mct("ECB")
    for name in ("TCBCvartext", "TCBCinvperm", "TCBCvarkey", "TCBCpermop", "TCBCsubtab",
                 "TCBCMMT1", "TCBCMMT2", "TCBCMMT3"):
        table[("TDES", name)] = lambda text: answers.tdes_known_answer(crypto, text)
    for n in (1, 2, 3):
        table[("TDES", "TCBCMonte%d" % n)] = (
            lambda text: answers.tdes_monte(crypto, text, monte_records or 400))
    for sha in ("SHA1", "SHA256"):
        table[("SHA", sha + "ShortMsg")] = answers.sha_messages
        table[("SHA", sha + "LongMsg")] = answers.sha_messages
        table[("SHA", sha + "Monte")] = lambda text: answers.sha_monte(text, monte_records or 100)
    table[("HMAC", "HMAC")] = answers.hmac_file
    table[("KDF135", "ssh")] = answers.ssh_file
    table[("KDF135", "tls")] = answers.tls_file
    table[("DRBG800-90A", "CTR_DRBG")] = lambda text: answers.ctr_drbg_file(crypto, text)
    return table


def _aes256_df_answers(text):
    """The answers of the "[AES-256 use df]" tests: the ones the samples
    compute (NIST's file answers every mechanism after the first of them)."""
    kept, mechanism = [], None
    for line in split_lines(text):
        if line.startswith("[") and line.endswith(" df]"):
            mechanism = line
        if mechanism == "[AES-256 use df]" and line.startswith("ReturnedBits = "):
            kept.append(line)
    return join_lines(kept)


def _first_records(text, records):
    """The expected answers cut to the first `records` Monte Carlo records
    of every section."""
    kept, count = [], None
    for line in split_lines(text):
        if line.startswith("["):
            count = None
        tag, value = field(line)
        if tag == "COUNT":
            count = int(value)
        if count is None or count < records:
            kept.append(line)
    return join_lines(kept)


def run(crypto, cavp_dir, monte_records=None, out=print):
    """Checks every answerable NIST file; True when all agree."""
    if not os.path.isdir(cavp_dir):
        out("self-check: no CAVP tree at %s (give --cavp DIR)" % cavp_dir)
        return False
    failures = checked = 0
    for (directory, name), respond in sorted(responders(crypto, monte_records).items()):
        request = os.path.join(cavp_dir, directory, "req", name + ".req")
        expected = os.path.join(cavp_dir, directory, "fax", name + ".fax")
        if not (os.path.exists(request) and os.path.exists(expected)):
            continue
        started = time.time()
        with open(request, newline="") as f:
            ours = respond(f.read())
        with open(expected, newline="") as f:
            theirs = f.read()
        if monte_records and ("Monte" in name or "MCT" in name):
            theirs = _first_records(theirs, monte_records)
        if name == "CTR_DRBG":
            ours, theirs = _aes256_df_answers(ours), _aes256_df_answers(theirs)
        problem = first_difference(ours, theirs)
        checked += 1
        if problem:
            failures += 1
            out("FAIL %s/%s: %s" % (directory, name, problem))
        else:
            out("ok   %s/%s (%.1f s)" % (directory, name, time.time() - started))
    out("self-check: %d files agree with NIST's answers, %d differ" % (checked - failures, failures))
    return checked > 0 and failures == 0
