/*
 * fipsval: FIPS power-on self-tests and NIST CAVP request-file runners.
 *
 * The library is loaded into a host process that has already loaded
 * OpenSSL's libcrypto; it does not link libcrypto itself. The host exports
 * the callbacks declared under "Host callbacks" below; the library calls
 * them by name.
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
 * ---------------------------------------------------------------------- */
int is_fips_cc_enabled(void);
int fips_check_vpn_cfg(int force);
int fips_hash_vpn_cfg(int unused);
int fips_check_firmware(int force);
int fips_rng_test(int force);
int fips_log_startup_error(const char *text);
int fips_goto_error_mode(int code, const char *text);
int fipsmsg(const char *format, ...);
int fips_read_entropy(unsigned char *buffer, int length);

/* ------------------------------------------------------------------------
 * Test-vector suites
 * ---------------------------------------------------------------------- */

/* A suite: its request files are read from "/tmp/req/<name>.req" and
 * answered in "/tmp/resp/<name>.rsp". `dir` is the CAVP category directory
 * of the files, for the host; the library never reads it. */
typedef struct fips_tv {
  const char *name;
  const char *dir;
  const char *const *(*get_filenames)(void); /* null-terminated */
  void (*run)(void);
} fips_tv;

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

/* Null-terminated lists of suites. */
FIPSVAL_API extern const fips_tv *const fips_tv_ops[];
FIPSVAL_API extern const fips_tv *const fips_tv_ssl_ops[];
FIPSVAL_API extern const fips_tv *const fips_tv_rbg_ops[];
FIPSVAL_API extern const fips_tv *const fips_tv_wf_ops[];

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
