#!/bin/sh
# seed_corpora.sh BUILD_DIR CAVP_DIR [CORPORA_DIR]: seeds CORPORA_DIR/<target>/
# (default BUILD_DIR/fuzz-corpora) with the request files of CAVP_DIR, samples/
# and vectors/, cut to 4 KB, behind the byte that selects the runner of the
# target's family; and acvp_json_fuzzer with the ACVP vector sets beside
# CAVP_DIR (its ../acvp), whole, and each expected-results file paired with
# itself for the comparison. Inputs that fuzzing added before are kept.
set -eu
[ $# -ge 2 ] && [ $# -le 3 ] || { echo "usage: $0 BUILD_DIR CAVP_DIR [CORPORA_DIR]" >&2; exit 2; }
cavp=$2
corpora=${3:-$1/fuzz-corpora}
src=$(cd "$(dirname "$0")/.." && pwd)

# The target and runner byte that a request file seeds.
target_of() {
  case $1 in
    CBCMCT*) echo cipher_mct_fuzzer 0 ;; ECBMCT*) echo cipher_mct_fuzzer 1 ;;
    TCBCMonte*) echo cipher_mct_fuzzer 2 ;;
    CBC*) echo cipher_fuzzer 0 ;; ECB*) echo cipher_fuzzer 1 ;; TCBC*) echo cipher_fuzzer 2 ;;
    SHA1Monte) echo hash_mct_fuzzer 0 ;; SHA256Monte) echo hash_mct_fuzzer 1 ;;
    SHA1*Msg) echo hash_fuzzer 0 ;; SHA256*Msg) echo hash_fuzzer 1 ;; HMAC) echo hash_fuzzer 2 ;;
    SigVer15*) echo rsa_fuzzer 0 ;; KeyGen_186-3) echo rsa_fuzzer 1 ;;
    KeyGen3_3_KAT) echo rsa_fuzzer 2 ;; SigGen15*) echo rsa_keygen_fuzzer 0 ;;
    KeyGen_RandomProbablyPrime*) echo rsa_keygen_fuzzer 2 ;;
    CTR_DRBG) echo drbg_fuzzer 0 ;; ssh) echo kdf_fuzzer 0 ;; tls) echo kdf_fuzzer 1 ;;
  esac
}

# seed BYTE REQUEST OUT FILTER...: the byte, then the request through FILTER.
seed() {
  printf "\\$(printf '%03o' "$1")" >"$3"
  in=$2 out=$3
  shift 3
  "$@" <"$in" | head -c 4096 >>"$out"
}

targets="request_lines_fuzzer acvp_json_fuzzer cipher_fuzzer cipher_mct_fuzzer hash_fuzzer hash_mct_fuzzer
  rsa_fuzzer rsa_keygen_fuzzer drbg_fuzzer kdf_fuzzer"
for t in $targets; do mkdir -p "$corpora/$t"; done
count=0
for tree in "$cavp" "$src/samples" "$src/vectors"; do
  origin=$(basename "$tree")
  for req in "$tree"/*/req/*.req; do
    [ -f "$req" ] || continue
    name=$(basename "$req" .req)
    set -- $(target_of "$name")
    [ $# -eq 2 ] || continue
    out="$corpora/$1/seed-$origin-$name"
    case $name in
      TCBCMonte*)
        # One TDES seed an input (seconds each): NumKeys goes to both halves.
        seed "$2" "$req" "$out-encrypt" awk '{ print } /\[DECRYPT\]/ { exit }'
        seed "$2" "$req" "$out-decrypt" awk '/\[ENCRYPT\]/ { print; skip = 1; next }
          /\[DECRYPT\]/ { skip = 0 } !skip || /NumKeys/ { print }' ;;
      *) seed "$2" "$req" "$out" cat ;;
    esac
    head -c 4096 "$req" >"$corpora/request_lines_fuzzer/seed-$origin-$name"
    count=$((count + 1))
  done
done
# A small vector set in both envelopes, for a tree without the samples.
json=$corpora/acvp_json_fuzzer
printf '%s' '{"vsId":1,"algorithm":"SHA-1","revision":"1.0","testGroups":[{"tgId":1,"testType":"AFT","tests":[{"tcId":1,"msg":"00","len":8}]}]}' >"$json/seed-sha1"
printf '%s' '[{"acvVersion":"1.0"},{"vsId":1,"algorithm":"SHA-1","revision":"1.0","testGroups":[{"tgId":1,"testType":"AFT","tests":[{"tcId":1,"md":"AB"}]}]}]' >"$json/seed-sha1-expected"
sets=0
for set in "$(dirname "$cavp")"/acvp/*/; do
  [ -f "$set/prompt.json" ] || continue
  name=$(basename "$set")
  cat "$set/prompt.json" >"$json/seed-$name-prompt"
  if [ -f "$set/expectedResults.json" ]; then
    { cat "$set/expectedResults.json"; printf '\0'; cat "$set/expectedResults.json"; } \
      >"$json/seed-$name-check"
  fi
  sets=$((sets + 1))
done
echo "seed_corpora: $count request files and $sets ACVP vector sets seeded into $corpora"
