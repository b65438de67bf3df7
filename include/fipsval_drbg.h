/*
 * The CTR_DRBG test ioctl of the random-device driver, as fipsval sends it.
 *
 * For every CTR_DRBG test (AES-256 with a derivation function) the library
 * opens FIPSVAL_DRBG_DEVICE, fills one struct rbg_params and issues
 * ioctl(fd, FIPSVAL_DRBG_SET_PARAMS_IOCTL, &block). The driver instantiates
 * with entropy, nonce and personalization, reseeds with entropy_reseed and
 * additional_reseed, generates twice (additional1, then additional2) and
 * stores the second output, returned_len bytes, in `returned` before the
 * ioctl returns 0. A returned_len of 0 or below asks for no output bytes.
 *
 * The block is a wire format: 280 bytes, no padding, its two integers
 * (length, returned_len) little-endian on every host. Read and write them
 * with fipsval_drbg_load_le32 and fipsval_drbg_store_le32: a plain
 * assignment stores them in the host's byte order, which is wrong on a
 * big-endian host.
 *
 * It has no length fields. entropy, nonce and entropy_reseed are always
 * given and used at full size. personalization and the three additional
 * inputs are empty or 256 bits in the requests answered; an empty one is
 * sent as 32 zero bytes, so the driver cannot tell it from an input of 32
 * zeros. Convention: a driver takes an all-zero personalization or
 * additional input as empty (the reference host's stand-in does so); a
 * real all-zero 256-bit input cannot be sent in this block.
 *
 * A stock kernel does not answer this ioctl (-1, EINVAL or ENOTTY; ENOSYS
 * under an emulator such as qemu-user). A host
 * can answer it itself: the library calls ioctl by name, so the host
 * defines int ioctl(int fd, unsigned long request, ...) with C linkage, in
 * the program linked with -rdynamic or in a preloaded library; it tries
 * the kernel first with syscall(SYS_ioctl, fd, request, arg), passes every
 * other request through that way, and runs its own CTR_DRBG only for this
 * request when the kernel refuses it. The reference host's version is in
 * the source tree: host/platform/ioctl_interpose.cc, host/platform/drbg_standin.cc.
 */
#ifndef FIPSVAL_DRBG_H
#define FIPSVAL_DRBG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define FIPSVAL_DRBG_DEVICE "/dev/urandom"

/* _IOW('R', 2, int): direction write, type 'R', number 2, size field 4. */
#define FIPSVAL_DRBG_SET_PARAMS_IOCTL 0x40045202UL

/* The value of the first word: the number of bytes that follow it. */
#define FIPSVAL_DRBG_PARAMS_FOLLOWING 276u

#define FIPSVAL_DRBG_ENTROPY_LEN 32  /* entropy, entropy_reseed */
#define FIPSVAL_DRBG_NONCE_LEN 16
#define FIPSVAL_DRBG_INPUT_LEN 32    /* personalization, additional inputs */
#define FIPSVAL_DRBG_RETURNED_MAX 64 /* 512 bits */

struct rbg_params {
  uint32_t length; /* always FIPSVAL_DRBG_PARAMS_FOLLOWING */
  uint8_t entropy[FIPSVAL_DRBG_ENTROPY_LEN];
  uint8_t nonce[FIPSVAL_DRBG_NONCE_LEN];
  uint8_t personalization[FIPSVAL_DRBG_INPUT_LEN];
  uint8_t additional1[FIPSVAL_DRBG_INPUT_LEN]; /* first generate call */
  uint8_t entropy_reseed[FIPSVAL_DRBG_ENTROPY_LEN];
  uint8_t additional_reseed[FIPSVAL_DRBG_INPUT_LEN];
  uint8_t additional2[FIPSVAL_DRBG_INPUT_LEN]; /* second generate call */
  uint8_t returned[FIPSVAL_DRBG_RETURNED_MAX]; /* written by the driver */
  int32_t returned_len; /* ReturnedBitsLen / 8, truncated toward zero */
};

/* The block's integers, byte by byte: the same bytes on every host. */
static inline void fipsval_drbg_store_le32(void *field, uint32_t value) {
  uint8_t *b = (uint8_t *)field;
  b[0] = (uint8_t)value;
  b[1] = (uint8_t)(value >> 8);
  b[2] = (uint8_t)(value >> 16);
  b[3] = (uint8_t)(value >> 24);
}

static inline uint32_t fipsval_drbg_load_le32(const void *field) {
  const uint8_t *b = (const uint8_t *)field;
  return (uint32_t)b[0] | (uint32_t)b[1] << 8 | (uint32_t)b[2] << 16 |
         (uint32_t)b[3] << 24;
}

#ifdef __cplusplus
}
#endif

#endif /* FIPSVAL_DRBG_H */
