"""AES and Triple-DES from the system's libcrypto through ctypes.

Python's standard library has no block ciphers, so the reference answers
use OpenSSL's low-level AES and DES entry points directly. Only whole blocks
are ever passed in.
"""

import ctypes

_AES_KEY_SIZE = 256  # sizeof(AES_KEY) is 244; leave headroom
_DES_SCHEDULE_SIZE = 128  # sizeof(DES_key_schedule)
_DES_MONTE_INNER = 10000


class LibCrypto:
    def __init__(self, soname="libcrypto.so.3"):
        lib = ctypes.CDLL(soname)
        p, i, size = ctypes.c_void_p, ctypes.c_int, ctypes.c_size_t
        self._sig(lib.AES_set_encrypt_key, [p, i, p], i)
        self._sig(lib.AES_set_decrypt_key, [p, i, p], i)
        self._sig(lib.AES_encrypt, [p, p, p], None)
        self._sig(lib.AES_decrypt, [p, p, p], None)
        self._sig(lib.AES_cbc_encrypt, [p, p, size, p, p, i], None)
        self._sig(lib.DES_set_key_unchecked, [p, p], None)
        self._sig(lib.DES_ede3_cbc_encrypt, [p, p, ctypes.c_long, p, p, p, p, i], None)
        self._sig(lib.DES_ecb3_encrypt, [p, p, p, p, p, i], None)
        self._lib = lib
        self._overlap_ok = None

    @staticmethod
    def _sig(fn, argtypes, restype):
        fn.argtypes = argtypes
        fn.restype = restype

    # -- AES ---------------------------------------------------------------

    def aes_key(self, key, encrypt):
        """Key schedule for one direction; raises on a bad key length."""
        schedule = ctypes.create_string_buffer(_AES_KEY_SIZE)
        setup = self._lib.AES_set_encrypt_key if encrypt else self._lib.AES_set_decrypt_key
        if setup(key, len(key) * 8, schedule) != 0:
            raise ValueError("AES key of %d bytes" % len(key))
        return schedule

    def aes_ecb(self, key, data, encrypt):
        _whole_blocks(data, 16)
        schedule = self.aes_key(key, encrypt)
        block = self._lib.AES_encrypt if encrypt else self._lib.AES_decrypt
        out = ctypes.create_string_buffer(len(data))
        for offset in range(0, len(data), 16):
            block(data[offset:offset + 16], ctypes.byref(out, offset), schedule)
        return out.raw

    def aes_cbc(self, key, iv, data, encrypt):
        _whole_blocks(data, 16)
        out = ctypes.create_string_buffer(len(data))
        chain = ctypes.create_string_buffer(bytes(iv), 16)
        self._lib.AES_cbc_encrypt(data, out, len(data), self.aes_key(key, encrypt),
                                  chain, 1 if encrypt else 0)
        return out.raw

    def aes_block_function(self, key, encrypt):
        """A one-block function bound to one key schedule (Monte Carlo)."""
        schedule = self.aes_key(key, encrypt)
        block = self._lib.AES_encrypt if encrypt else self._lib.AES_decrypt
        out = ctypes.create_string_buffer(16)

        def run(data):
            block(data, out, schedule)
            return out.raw

        return run

    # -- Triple DES --------------------------------------------------------

    def _des_schedules(self, keys):
        schedules = []
        for key in keys:
            if len(key) != 8:
                raise ValueError("DES key of %d bytes" % len(key))
            schedule = ctypes.create_string_buffer(_DES_SCHEDULE_SIZE)
            self._lib.DES_set_key_unchecked(key, schedule)
            schedules.append(schedule)
        return schedules

    def tdes_cbc(self, keys, iv, data, encrypt):
        """Three-key EDE CBC (keys = key 1, key 2, key 3)."""
        _whole_blocks(data, 8)
        ks1, ks2, ks3 = self._des_schedules(keys)
        out = ctypes.create_string_buffer(len(data))
        chain = ctypes.create_string_buffer(bytes(iv), 8)
        self._lib.DES_ede3_cbc_encrypt(data, out, len(data), ks1, ks2, ks3, chain,
                                       1 if encrypt else 0)
        return out.raw

    def tdes_ecb_block(self, keys, block, encrypt):
        ks1, ks2, ks3 = self._des_schedules(keys)
        out = ctypes.create_string_buffer(8)
        self._lib.DES_ecb3_encrypt(block, out, ks1, ks2, ks3, 1 if encrypt else 0)
        return out.raw

    def tdes_monte_chain(self, keys, iv, data, encrypt, inner=_DES_MONTE_INNER):
        """The inner loop of the TMOVS CBC Monte Carlo test.

        Returns the last three inner results, oldest first: CT[inner-3],
        CT[inner-2], CT[inner-1] encrypting, the PT values decrypting.

        One libcrypto call runs the whole chain: the next input block of the
        test is always an earlier output (encrypting PT[j] = CT[j-2] after
        PT[0] and PT[1] = IV; decrypting CT[j] = PT[j-1]), so the output is
        written into the input buffer two blocks (one block) ahead of the
        read position. That needs DES_ede3_cbc_encrypt to read each block
        before it writes the matching output block, which the portable C
        implementation does; the first use compares the result with a
        block-at-a-time run and falls back to it when they differ.
        """
        if self._overlap_ok is None:
            probe = ([b"\x01\x23\x45\x67\x89\xab\xcd\xef", b"\x23\x45\x67\x89\xab\xcd\xef\x01",
                      b"\x45\x67\x89\xab\xcd\xef\x01\x23"], b"\x12" * 8, b"\x34" * 8)
            self._overlap_ok = all(
                self._monte_overlap(*probe, enc, 64) == self._monte_blockwise(*probe, enc, 64)
                for enc in (True, False))
        run = self._monte_overlap if self._overlap_ok else self._monte_blockwise
        return run(keys, iv, data, encrypt, inner)

    def _monte_overlap(self, keys, iv, data, encrypt, inner):
        ks1, ks2, ks3 = self._des_schedules(keys)
        chain = ctypes.create_string_buffer(bytes(iv), 8)
        if encrypt:
            buf = ctypes.create_string_buffer(bytes(data) + bytes(iv), (inner + 2) * 8)
            ahead = 16
        else:
            buf = ctypes.create_string_buffer(bytes(data), (inner + 1) * 8)
            ahead = 8
        self._lib.DES_ede3_cbc_encrypt(buf, ctypes.byref(buf, ahead), inner * 8,
                                       ks1, ks2, ks3, chain, 1 if encrypt else 0)
        raw = buf.raw
        return [raw[len(raw) - 8 * k:len(raw) - 8 * (k - 1)] for k in (3, 2, 1)]

    def _monte_blockwise(self, keys, iv, data, encrypt, inner):
        ks1, ks2, ks3 = self._des_schedules(keys)
        out = ctypes.create_string_buffer(8)
        flag = 1 if encrypt else 0
        results = []
        chain, block = bytes(iv), bytes(data)
        for j in range(inner):
            if encrypt:
                self._lib.DES_ecb3_encrypt(_xor(block, chain), out, ks1, ks2, ks3, flag)
                result = out.raw
                block = chain if j == 0 else results[j - 1]
                chain = result
            else:
                self._lib.DES_ecb3_encrypt(block, out, ks1, ks2, ks3, flag)
                result = _xor(out.raw, chain)
                chain, block = block, result
            results.append(result)
        return results[-3:]


def _xor(a, b):
    return bytes(x ^ y for x, y in zip(a, b))


def _whole_blocks(data, size):
    if not data or len(data) % size:
        raise ValueError("data of %d bytes is not whole %d-byte blocks" % (len(data), size))
