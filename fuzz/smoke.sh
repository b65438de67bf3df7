#!/bin/sh
# smoke.sh BUILD_DIR [CAVP_DIR]
#
# A short run of every fuzz target, for CI. Builds nothing: BUILD_DIR is a
# tree configured with -DFIPSVAL_BUILD_FUZZ=ON and built (fuzz_targets).
# Seeds fresh corpora (seed_corpora.sh into BUILD_DIR/fuzz-smoke-corpora, so
# that the run's cost does not grow with earlier runs' finds), then runs each
# target for FUZZ_SECONDS seconds (default 20) inside sandbox_run, one after
# another.
# Exits non-zero when any target reports a crash, a sanitizer error, a
# timeout or running out of memory; the reproducer is left in
# BUILD_DIR/fuzz-artifacts and the log in BUILD_DIR/fuzz-logs.
set -eu
if [ $# -lt 1 ] || [ $# -gt 2 ]; then
  echo "usage: $0 BUILD_DIR [CAVP_DIR]" >&2
  exit 2
fi
src=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)
cavp=${2:-$src/../shared/cavp}
seconds=${FUZZ_SECONDS:-20}
sandbox=$build/tests/support/sandbox_run
targets="request_lines_fuzzer cipher_fuzzer cipher_mct_fuzzer hash_fuzzer
  hash_mct_fuzzer rsa_fuzzer rsa_keygen_fuzzer drbg_fuzzer kdf_fuzzer"

for t in $targets; do
  if [ ! -x "$build/fuzz/$t" ]; then
    echo "fuzz smoke: $build/fuzz/$t is missing: configure with" \
      "-DFIPSVAL_BUILD_FUZZ=ON and build fuzz_targets" >&2
    exit 2
  fi
done
set +e
"$sandbox" true
status=$?
set -e
if [ $status -eq 77 ]; then
  echo "fuzz smoke: skipped: this machine gives no private mount namespace"
  exit 0
elif [ $status -ne 0 ]; then
  echo "fuzz smoke: $sandbox does not work (status $status)" >&2
  exit 1
fi

corpora=$build/fuzz-smoke-corpora
rm -rf "$corpora"
"$src/fuzz/seed_corpora.sh" "$build" "$cavp" "$corpora"
# From inside the build tree: sandbox_run keeps the working directory
# visible even when it lies under /tmp.
cd "$build"
mkdir -p "$build/fuzz-artifacts" "$build/fuzz-logs"

failed=""
for t in $targets; do
  # Long SHA messages need long lines; everything else fits 8 KB.
  case $t in
    hash_fuzzer) max_len=24576 ;;
    *) max_len=8192 ;;
  esac
  log=$build/fuzz-logs/$t.log
  set +e
  # Distinct exit codes: 77 is sandbox_run's "cannot sandbox".
  "$sandbox" "$build/fuzz/$t" -max_total_time="$seconds" -timeout=10 \
    -rss_limit_mb=2048 -max_len=$max_len -error_exitcode=1 \
    -timeout_exitcode=2 -artifact_prefix="$build/fuzz-artifacts/$t-" \
    -print_final_stats=1 "$corpora/$t" >"$log" 2>&1
  status=$?
  set -e
  summary=$(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -n 1)
  if [ $status -eq 0 ]; then
    printf 'fuzz smoke: %-22s ok   %s\n' "$t" "$summary"
  else
    printf 'fuzz smoke: %-22s FAILED (status %d), log %s\n' "$t" "$status" "$log"
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
