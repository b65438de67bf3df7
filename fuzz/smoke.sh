#!/bin/sh
# smoke.sh BUILD_DIR [CAVP_DIR]: a short run of every fuzz target for CI, in a
# tree configured with -DFIPSVAL_BUILD_FUZZ=ON and built (fuzz_targets). Seeds
# fresh corpora, runs each target FUZZ_SECONDS (default 20) inside sandbox_run
# and fails on a crash, a sanitizer error, a timeout or running out of memory
# (reproducers in BUILD_DIR/fuzz-artifacts, logs in BUILD_DIR/fuzz-logs).
set -eu
[ $# -ge 1 ] && [ $# -le 2 ] || { echo "usage: $0 BUILD_DIR [CAVP_DIR]" >&2; exit 2; }
src=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)
sandbox=$build/tests/support/sandbox_run
targets="request_lines_fuzzer acvp_json_fuzzer cipher_fuzzer cipher_mct_fuzzer hash_fuzzer hash_mct_fuzzer
  rsa_fuzzer rsa_keygen_fuzzer drbg_fuzzer kdf_fuzzer"
for t in $targets; do
  if [ ! -x "$build/fuzz/$t" ]; then
    echo "fuzz smoke: $build/fuzz/$t is missing: configure with -DFIPSVAL_BUILD_FUZZ=ON" \
      "and build fuzz_targets" >&2
    exit 2
  fi
done
status=0
"$sandbox" true || status=$?
if [ $status -eq 77 ]; then
  echo "fuzz smoke: skipped: this machine gives no private mount namespace"
  exit 0
elif [ $status -ne 0 ]; then
  echo "fuzz smoke: $sandbox does not work (status $status)" >&2
  exit 1
fi
# Fresh corpora, so that the run's cost does not grow with earlier finds.
corpora=$build/fuzz-smoke-corpora
rm -rf "$corpora"
"$src/fuzz/seed_corpora.sh" "$build" "${2:-$src/../shared/cavp}" "$corpora"
# sandbox_run keeps the working directory visible even under /tmp.
cd "$build"
mkdir -p fuzz-artifacts fuzz-logs
failed=""
for t in $targets; do
  max_len=8192
  [ $t = hash_fuzzer ] && max_len=24576  # long SHA messages
  [ $t = acvp_json_fuzzer ] && max_len=262144  # whole sample vector sets
  log=$build/fuzz-logs/$t.log
  status=0
  "$sandbox" "$build/fuzz/$t" -max_total_time="${FUZZ_SECONDS:-20}" -timeout=10 \
    -rss_limit_mb=2048 -max_len=$max_len -error_exitcode=1 -timeout_exitcode=2 \
    -artifact_prefix="$build/fuzz-artifacts/$t-" -print_final_stats=1 "$corpora/$t" \
    >"$log" 2>&1 || status=$?
  if [ $status -eq 0 ]; then
    printf 'fuzz smoke: %-22s ok   %s\n' $t "$(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -n 1)"
  else
    printf 'fuzz smoke: %-22s FAILED (status %d), log %s\n' $t $status "$log"
    grep -E 'ERROR|SUMMARY|runtime error|deadly signal|Test unit written' "$log" |
      head -n 20 | sed 's/^/    /'
    failed="$failed $t"
  fi
done
if [ -n "$failed" ]; then
  echo "fuzz smoke: failed:$failed"
  exit 1
fi
echo "fuzz smoke: all targets ran clean"
