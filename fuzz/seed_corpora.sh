#!/bin/sh
# seed_corpora.sh BUILD_DIR CAVP_DIR [CORPORA_DIR]
#
# Fills CORPORA_DIR/<target>/ (default BUILD_DIR/fuzz-corpora) with seed inputs for each fuzz
# target: the request files of CAVP_DIR (NIST's vectors, never copied into
# the source tree) and of the project's own samples/ and vectors/, each cut
# to its first few KB. A runner target's input starts with one byte that
# selects the runner of its family, so each seed gets that byte in front.
# Inputs that fuzzing has added to a corpus before are kept.
set -eu
if [ $# -lt 2 ] || [ $# -gt 3 ]; then
  echo "usage: $0 BUILD_DIR CAVP_DIR [CORPORA_DIR]" >&2
  exit 2
fi
build=$1
cavp=$2
corpora=${3:-$build/fuzz-corpora}
src=$(cd "$(dirname "$0")/.." && pwd)
cut_bytes=4096

# Prints the target and runner byte that a request file seeds.
target_of() {
  case $1 in
    CBCMCT*) echo "cipher_mct_fuzzer 0" ;;
    ECBMCT*) echo "cipher_mct_fuzzer 1" ;;
    TCBCMonte*) echo "cipher_mct_fuzzer 2" ;;
    CBC*) echo "cipher_fuzzer 0" ;;
    ECB*) echo "cipher_fuzzer 1" ;;
    TCBC*) echo "cipher_fuzzer 2" ;;
    SHA1Monte) echo "hash_mct_fuzzer 0" ;;
    SHA256Monte) echo "hash_mct_fuzzer 1" ;;
    SHA1*Msg) echo "hash_fuzzer 0" ;;
    SHA256*Msg) echo "hash_fuzzer 1" ;;
    HMAC) echo "hash_fuzzer 2" ;;
    SigVer15*) echo "rsa_fuzzer 0" ;;
    KeyGen_186-3) echo "rsa_fuzzer 1" ;;
    KeyGen3_3_KAT) echo "rsa_fuzzer 2" ;;
    SigGen15*) echo "rsa_keygen_fuzzer 0" ;;
    KeyGen_RandomProbablyPrime*) echo "rsa_keygen_fuzzer 2" ;;
    CTR_DRBG) echo "drbg_fuzzer 0" ;;
    ssh) echo "kdf_fuzzer 0" ;;
    tls) echo "kdf_fuzzer 1" ;;
  esac
}

for target in request_lines_fuzzer cipher_fuzzer cipher_mct_fuzzer \
  hash_fuzzer hash_mct_fuzzer rsa_fuzzer rsa_keygen_fuzzer drbg_fuzzer \
  kdf_fuzzer; do
  mkdir -p "$corpora/$target"
done

# seed BYTE REQUEST OUT FILTER...: the runner byte, then the request through
# FILTER, cut to its first few KB.
seed() {
  printf "\\$(printf '%03o' "$1")" >"$3"
  seed_request=$2 seed_out=$3
  shift 3
  "$@" <"$seed_request" | head -c $cut_bytes >>"$seed_out"
}

count=0
for tree in "$cavp" "$src/samples" "$src/vectors"; do
  [ -d "$tree" ] || continue
  origin=$(basename "$tree")
  for req in "$tree"/*/req/*.req; do
    [ -f "$req" ] || continue
    name=$(basename "$req" .req)
    set -- $(target_of "$name")
    [ $# -eq 2 ] || continue
    out="$corpora/$1/seed-$origin-$name"
    case $name in
      TCBCMonte*)
        # One TDES Monte Carlo seed costs seconds and the target takes one
        # an input: split the file into its encrypt and decrypt halves (the
        # NumKeys line goes to both).
        seed "$2" "$req" "$out-encrypt" \
          awk '{ print } /\[DECRYPT\]/ { exit }'
        seed "$2" "$req" "$out-decrypt" \
          awk '/\[ENCRYPT\]/ { print; skip = 1; next }
               /\[DECRYPT\]/ { skip = 0 } !skip || /NumKeys/ { print }'
        ;;
      *) seed "$2" "$req" "$out" cat ;;
    esac
    # The toolkit target takes the request bytes as they are.
    head -c $cut_bytes "$req" >"$corpora/request_lines_fuzzer/seed-$origin-$name"
    count=$((count + 1))
  done
done
echo "seed_corpora: $count request files seeded into $corpora"
