/*
 * fipsval: FIPS power-on self-tests and NIST CAVP request-file runners.
 *
 * The library is loaded into a host process that has already loaded
 * OpenSSL's libcrypto; it does not link libcrypto itself. It uses the
 * 1.1-compatible API, but a build against OpenSSL 3 headers imports
 * OpenSSL 3 names (EVP_MD_get_size, ...): at run time it needs the
 * libcrypto it was compiled against (3.x). The host exports the callbacks
 * declared under "Host callbacks" below; the library calls them by name.
 * The CTR_DRBG suite also needs the random-device ioctl of
 * fipsval_drbg.h, which a stock kernel lacks and the host may provide.
 *
 * Every function reports through its return value and standard output;
 * nothing here keeps state between calls.
 */
#ifndef FIPSVAL_H
#define FIPSVAL_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The fixed paths of the library: request files are read from
 * FIPSVAL_REQUEST_DIR "/<name>.req", responses and the entropy samples are
 * written to FIPSVAL_RESPONSE_DIR, and FIPSVAL_FORCE_MARKER names the test
 * to force at the next self-test run. */
#define FIPSVAL_REQUEST_DIR "/tmp/req"
#define FIPSVAL_RESPONSE_DIR "/tmp/resp"
#define FIPSVAL_FORCE_MARKER "/data/etc/katfail"

#if defined(FIPSVAL_BUILDING_LIBRARY)
#define FIPSVAL_API __attribute__((visibility("default")))
#else
#define FIPSVAL_API
#endif

/* ------------------------------------------------------------------------
 * Power-on self-tests
 * ---------------------------------------------------------------------- */

/* Failure-mask bits (also the values that select a test to force). */
#define FIPS_ST_FIRMWARE 1u
#define FIPS_ST_AES 2u
#define FIPS_ST_HMAC_SHA1 4u
#define FIPS_ST_TDES 8u
#define FIPS_ST_RSA 16u
#define FIPS_ST_RNG 32u
#define FIPS_ST_CONFIG 64u
#define FIPS_ST_HMAC_SHA256 128u

/* Runs the eight self-tests; returns the failure mask (0 = all passed). */
FIPSVAL_API int fips_self_tests(void);
/* Reads and deletes "/data/etc/katfail"; returns the bit to force or 0. */
FIPSVAL_API int fips_check_fail(void);
/* Configuration-integrity check: 0 when intact, -1 otherwise. */
FIPSVAL_API int fips_check_config(int mode);
/* Asks the host to re-hash its configuration in FIPS-CC mode; returns 0. */
FIPSVAL_API int fips_update_config(void);
FIPSVAL_API int fips_get_max_hash_tests(void);

/* Known-answer tests: 1 pass, 0 fail; a non-zero force makes them fail. */
FIPSVAL_API int fips_kat_aes_test(int force);
FIPSVAL_API int fips_kat_sha1_test(int force);
FIPSVAL_API int fips_kat_sha256_test(int force);
FIPSVAL_API int fips_kat_3des_test(int force);
FIPSVAL_API int fips_kat_rsa_test(int force);

/* ------------------------------------------------------------------------
 * Host callbacks: defined by the host application, called by the library.
 *
 * The host defines all nine, with C linkage, and exports them so that the
 * library can resolve them by name: link the program with -rdynamic (or
 * -Wl,--export-dynamic), or define them in a shared library that is loaded
 * before libfipsval.
 *
 * Return conventions differ from the usual C habit of 0 for success: the
 * three test callbacks (fips_check_vpn_cfg, fips_check_firmware,
 * fips_rng_test) return 1 for PASS; 0 or any value below 1 is a failure.
 *
 * `force`: the library's self-test run passes either 0 or the test's own
 * failure-mask bit (never 1 for a test whose bit is not 1). A non-zero
 * force asks the host to make its test fail, as it would for a real fault,
 * so that the failure path can be shown; it is set by the forced-failure
 * marker "/data/etc/katfail", which the library reads and deletes but never
 * creates (the device image provides /data; whoever forces a test creates
 * /data/etc if needed, as the reference host's "selftest --force" does).
 *
 * Memory: every string and buffer the library passes belongs to the
 * library and is valid only during the call; the host neither frees it nor
 * keeps the pointer (copy the text if it is needed later). No callback
 * hands memory to the library.
 * ---------------------------------------------------------------------- */

/* FIPS-CC mode. Called by fips_update_config. Return non-zero when the
 * mode is on (the library then calls fips_hash_vpn_cfg), 0 when it is off. */
int is_fips_cc_enabled(void);

/* Configuration-integrity test: compare the stored configuration with its
 * reference digest. `force` is 0 or FIPS_ST_CONFIG (64) in the self-test
 * run, always 0 from fips_check_config.
 * Return exactly 1 when the configuration is intact, 0 when it is not.
 * The self-test run counts any value below 1 as a failure, but
 * fips_check_config passes only on exactly 1 (2 fails there). */
int fips_check_vpn_cfg(int force);

/* Re-hash the configuration: store its current digest as the reference
 * for fips_check_vpn_cfg. Called by fips_update_config with 0, only when
 * is_fips_cc_enabled returns non-zero. The result is ignored; report a
 * failure through the host's own channels. */
int fips_hash_vpn_cfg(int unused);

/* Firmware-integrity test. `force` is 0 or FIPS_ST_FIRMWARE (1).
 * Return 1 when the firmware image matches its reference, 0 otherwise
 * (any value below 1 is a failure). */
int fips_check_firmware(int force);

/* Random-number generator health test. `force` is 0 or FIPS_ST_RNG (32).
 * Return 1 on pass, 0 on failure (any value below 1 is a failure). */
int fips_rng_test(int force);

/* Log the self-test error text, which begins "FIPS error: " and lists the
 * failed tests' messages joined by ", " (at most 899 characters), e.g.
 * "FIPS error: Configuration Integrity test failed" for a failed
 * configuration test, or "FIPS error: AES self-test failed, Configuration
 * Integrity test failed" when AES fails too. Called once after a failed
 * self-test run, before fips_goto_error_mode.
 * Return 0 (or any non-negative value) when logged, a negative value when
 * the log could not be written: the library then prints "Failed to log
 * self-test failure: <text>" and enters the error mode all the same. */
int fips_log_startup_error(const char *text);

/* Enter the error mode. Called with -3 and the error text after a failed
 * self-test run, with -4 and "configuration" after a failed
 * fips_check_config. The result is ignored, and the library returns to its
 * caller afterwards (with the failure mask, or -1): what the error mode
 * does (stop services, refuse cryptography, exit) is the host's business. */
int fips_goto_error_mode(int code, const char *text);

/* printf-style message to the host's console or log. Called by
 * fips_check_config(1) with "\n%s\n" and "Configuration Integrity check
 * failed" (a "check", unlike the self-test run's "Configuration Integrity
 * test failed"). The result is ignored. */
int fipsmsg(const char *format, ...);

/* Entropy source for fips_tv_get_drbg_entropy_source: fill all `length`
 * bytes of `buffer` (the library passes a 640-byte buffer and 640) with raw
 * noise-source output. Return a negative value on failure: the export
 * prints "Problem reading entropy token" and returns that value. Any other
 * value means success and the whole buffer is used; the export returns the
 * last such value, so return `length`. */
int fips_read_entropy(unsigned char *buffer, int length);

/* ------------------------------------------------------------------------
 * Test-vector suites
 * ---------------------------------------------------------------------- */

/* A suite: the host stages each of its request files as
 * "/tmp/req/<file>.req" and calls run(); the suite writes
 * "/tmp/resp/<file>.rsp" for each (the host creates both directories).
 *   name           the suite's name, e.g. "AES", "DRBG800-90A".
 *   dir            the CAVP category directory of its files (the files of
 *                  a CAVP tree are <tree>/<dir>/req/<file>.req), for the
 *                  host; the library never reads it. Several suites share
 *                  one (AES and AES-WF in "AES", SHA1 and SHA256 in "SHA",
 *                  SSH and TLS in "KDF135").
 *   get_filenames  returns the suite's request base names (no directory,
 *                  no extension) in a constant, static, null-terminated
 *                  array: do not free or change it.
 *   run            runs every file in that order. It returns nothing: a
 *                  missing request ("Couldn't open /tmp/req/<file>.req"), a
 *                  missing field or a failed write is printed on standard
 *                  output and ends that file only (what was written stays
 *                  in its response, so a response may be partial). Some of
 *                  these lines name no file ("Error set_key 62"): for a
 *                  status per file, stage one request at a time, so that
 *                  every line of that run() belongs to it. Not failures:
 *                  the "Couldn't open" lines of files not staged, the
 *                  progress lines ("Running file <file>", the 3DES and
 *                  RSA2 titles, the TDES Monte Carlo "ENCRYPT", "DECRYPT",
 *                  "<i> of 400", "COUNT = <i>") and "RSA param n is null",
 *                  where SigVer15_186-3 stops at its first test by design.
 *                  Not reentrant: the paths are fixed. */
typedef struct fips_tv {
  const char *name;
  const char *dir;
  const char *const *(*get_filenames)(void); /* null-terminated */
  void (*run)(void);
} fips_tv;

/* The suites: name, dir, request files.
 *   fips_tv_3des    "3DES"        "TDES"        TCBCvartext, TCBCinvperm,
 *                   TCBCvarkey, TCBCpermop, TCBCsubtab, TCBCMMT1-3,
 *                   TCBCMonte1-3
 *   fips_tv_aes     "AES"         "AES"         CBCGFSbox, CBCKeySbox,
 *                   CBCVarTxt, CBCVarKey, CBCMMT, CBCMCT, each 128, 192, 256
 *   fips_tv_aes_wf  "AES-WF"      "AES"         ECBGFSbox128, ECBKeySbox128,
 *                   ECBVarKey128, ECBVarTxt128, ECBMMT128, ECBMCT128
 *   fips_tv_hmac    "HMAC"        "HMAC"        HMAC
 *   fips_tv_rbg     "DRBG800-90A" "DRBG800-90A" CTR_DRBG
 *                   (each test goes to the kernel's random-device driver by
 *                   an ioctl on "/dev/urandom", fipsval_drbg.h; without a
 *                   driver that answers it, the suite prints "Error set_key
 *                   62" and "Error set params" and its response stops at
 *                   the first test, unless the host defines ioctl itself)
 *   fips_tv_rsa     "RSA2"        "RSA2"        SigGen15_186-3,
 *                   SigVer15_186-3, KeyGen_186-3, KeyGen3_3_KAT,
 *                   KeyGen_RandomProbablyPrime3_3
 *   fips_tv_sha1    "SHA1"        "SHA"         SHA1ShortMsg, SHA1LongMsg,
 *                   SHA1Monte
 *   fips_tv_sha256  "SHA256"      "SHA"         SHA256ShortMsg,
 *                   SHA256LongMsg, SHA256Monte
 *   fips_tv_ssh     "SSH"         "KDF135"      ssh
 *   fips_tv_tls     "TLS"         "KDF135"      tls
 */
FIPSVAL_API extern const fips_tv fips_tv_3des;
FIPSVAL_API extern const fips_tv fips_tv_aes;
FIPSVAL_API extern const fips_tv fips_tv_aes_wf;
FIPSVAL_API extern const fips_tv fips_tv_hmac;
FIPSVAL_API extern const fips_tv fips_tv_rbg;
FIPSVAL_API extern const fips_tv fips_tv_rsa;
FIPSVAL_API extern const fips_tv fips_tv_sha1;
FIPSVAL_API extern const fips_tv fips_tv_sha256;
FIPSVAL_API extern const fips_tv fips_tv_ssh;
FIPSVAL_API extern const fips_tv fips_tv_tls;

/* Constant, null-terminated lists of suites, in this order:
 *   fips_tv_ops      AES, HMAC, SHA1, SHA256, 3DES
 *   fips_tv_ssl_ops  AES, HMAC, RSA2, SHA1, SHA256, 3DES, SSH, TLS
 *   fips_tv_rbg_ops  DRBG800-90A
 *   fips_tv_wf_ops   AES-WF
 * fips_tv_ssl_ops, fips_tv_rbg_ops and fips_tv_wf_ops together hold every
 * suite once; fips_tv_ops is a subset of fips_tv_ssl_ops. */
FIPSVAL_API extern const fips_tv *const fips_tv_ops[];
FIPSVAL_API extern const fips_tv *const fips_tv_ssl_ops[];
FIPSVAL_API extern const fips_tv *const fips_tv_rbg_ops[];
FIPSVAL_API extern const fips_tv *const fips_tv_wf_ops[];

/* The suites' run operations (each descriptor's `run`). */
FIPSVAL_API void fips_test_vectors_3des(void);
FIPSVAL_API void fips_test_vectors_aes(void);
FIPSVAL_API void fips_test_vectors_aes_wf(void);
FIPSVAL_API void fips_test_vectors_hmac(void);
FIPSVAL_API void fips_test_vectors_rbg(void);
FIPSVAL_API void fips_test_vectors_rsa(void);
FIPSVAL_API void fips_test_vectors_sha1(void);
FIPSVAL_API void fips_test_vectors_sha256(void);
FIPSVAL_API void fips_test_vectors_ssh(void);
FIPSVAL_API void fips_test_vectors_tls(void);

/* ------------------------------------------------------------------------
 * Request-file helpers
 * ---------------------------------------------------------------------- */

/* Reads one CR LF terminated line (kept with its ending) into buffer;
 * returns buffer, or NULL at end of input or at a zero byte. */
FIPSVAL_API char *fips_tv_get_line(char *buffer, int size, FILE *stream);
/* Writes 2*length lower-case hex digits and a terminator; returns 1. */
FIPSVAL_API int fips_tv_convert_to_asc(const unsigned char *bytes, int length,
                                       char *text);
/* Decodes hex digit pairs until the first non-digit; returns the count. */
FIPSVAL_API int fips_tv_extract_from_asc(const char *text,
                                         unsigned char *bytes);
/* Reads the next request line, which must hold `tag`, stores its decimal
 * value and copies the line to the response; 1 on success, 0 on failure. */
FIPSVAL_API int fips_tv_extract_len(FILE *request, FILE *response,
                                    const char *tag, int *out);
/* Reads the next request line, which must hold `tag`, decodes its hex value
 * and copies the line; returns the number of bytes, 0 on failure. The
 * output must have room for half the length of the longest line (2048). */
FIPSVAL_API int fips_tv_parse_key(FILE *request, FILE *response,
                                  const char *tag, unsigned char *out);

/* Writes `count` entropy samples to "/tmp/resp/entropy_samples". */
FIPSVAL_API int fips_tv_get_drbg_entropy_source(int count);

/* RSA public exponent 65537; nothing in the library reads it. */
FIPSVAL_API extern const uint32_t exps;

/* ------------------------------------------------------------------------
 * Native AES engine
 * ---------------------------------------------------------------------- */
#define MAXKC (256 / 32)
#define MAXKB (256 / 8)
#define MAXNR 14

#define DIR_ENCRYPT 0
#define DIR_DECRYPT 1
#define MODE_ECB 1
#define MODE_CBC 2
#define MODE_CFB1 3
#define BAD_CIPHER_STATE (-5)
#define BAD_DATA (-8)
#define MAX_KEY_SIZE 64
#define MAX_IV_SIZE 16

FIPSVAL_API int rijndaelKeySetupEnc(uint32_t rk[4 * (MAXNR + 1)],
                                    const uint8_t cipherKey[], int keyBits);
FIPSVAL_API int rijndaelKeySetupDec(uint32_t rk[4 * (MAXNR + 1)],
                                    const uint8_t cipherKey[], int keyBits);
FIPSVAL_API void rijndaelEncrypt(const uint32_t rk[4 * (MAXNR + 1)], int Nr,
                                 const uint8_t pt[16], uint8_t ct[16]);
FIPSVAL_API void rijndaelDecrypt(const uint32_t rk[4 * (MAXNR + 1)], int Nr,
                                 const uint8_t ct[16], uint8_t pt[16]);

typedef struct {
  uint8_t direction;                 /* DIR_ENCRYPT or DIR_DECRYPT */
  int32_t keyLen;                    /* set by fips_aes_init, in bytes */
  char keyMaterial[MAX_KEY_SIZE + 1];
  int32_t Nr;                        /* rounds, from the key schedule */
  uint32_t rk[4 * (MAXNR + 1)];      /* schedule for the key's direction */
  uint32_t ek[4 * (MAXNR + 1)];      /* encryption schedule, for CFB1 */
} keyInstance;

typedef struct {
  uint8_t IV[MAX_IV_SIZE];
  uint8_t mode; /* MODE_ECB, MODE_CBC or MODE_CFB1 */
} cipherInstance;

/* Lengths in bits; results in bits, or BAD_CIPHER_STATE / BAD_DATA. */
FIPSVAL_API int blockEncrypt(cipherInstance *cipher, keyInstance *key,
                             const uint8_t *input, int inputLen,
                             uint8_t *outBuffer);
FIPSVAL_API int blockDecrypt(cipherInstance *cipher, keyInstance *key,
                             const uint8_t *input, int inputLen,
                             uint8_t *outBuffer);
/* Lengths and results in bytes, with PKCS#7-style padding. */
FIPSVAL_API int padEncrypt(cipherInstance *cipher, keyInstance *key,
                           const uint8_t *input, int inputOctets,
                           uint8_t *outBuffer);
FIPSVAL_API int padDecrypt(cipherInstance *cipher, keyInstance *key,
                           const uint8_t *input, int inputOctets,
                           uint8_t *outBuffer);

typedef struct {
  keyInstance key;
  cipherInstance cipher;
} fips_aes_ctx;

FIPSVAL_API int fips_aes_init(fips_aes_ctx *ctx, int encrypt,
                              const uint8_t *key, int keylen,
                              const uint8_t *iv);
FIPSVAL_API int fips_aes_update(fips_aes_ctx *ctx, const uint8_t *in, int len,
                                uint8_t *out);
FIPSVAL_API int fips_aes_final(fips_aes_ctx *ctx, const uint8_t *in, int len,
                               uint8_t *out);
FIPSVAL_API int fips_aes_test(int corrupt);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* FIPSVAL_H */
