#!/bin/sh
# usage: conformance.sh FIPSVAL CAVP_DIR PROJECT_VECTORS SUITE QUICK [WRAPPER...]
# Runs SUITE on a copy of the CAVP tree (plus the project's vectors) and checks it with
# `verify`. QUICK=1 cuts each Monte Carlo .req and its .fax after [DECRYPT]: every
# record of the shortened request must still be answered. WRAPPER (valgrind...) runs `run`.
set -eu
fipsval=$1 cavp=$2 vectors=$3 suite=$4 quick=$5
shift 5
skip() { echo "conformance: skipped: $*"; exit 77; }
[ -d "$cavp" ] || skip "no CAVP vector tree at $cavp" \
  "(configure with -DFIPSVAL_CAVP_DIR=/path/to/tree to run it)"
[ "${FIPSVAL_SANDBOX:-}" = 1 ] || skip "run it through sandbox_run (it uses /tmp/req and /tmp/resp)"

tree=/tmp/cavp-tree log=/tmp/conformance-run.log verdicts=/tmp/conformance-verify.log
rm -rf "$tree" && mkdir -p "$tree" && cp -R "$cavp"/. "$tree"/
[ ! -d "$vectors" ] || cp -R "$vectors"/. "$tree"/
chmod -R u+w "$tree" && rm -rf "$tree"/*/resp
if [ "$quick" = 1 ]; then
  for request in "$tree"/AES/req/*MCT*.req "$tree"/TDES/req/TCBCMonte*.req; do
    fax=${request%/req/*}/fax/$(basename "$request" .req).fax
    [ ! -f "$request" ] || sed -i '1,/\[DECRYPT\]/!d' "$request"
    [ ! -f "$fax" ] || sed -i '1,/\[DECRYPT\]/!d' "$fax"
  done
fi

if ! "$@" "$fipsval" run --suite "$suite" "$tree" >"$log" 2>&1; then
  echo "conformance: fipsval run --suite $suite failed:"
  tail -n 40 "$log"
  exit 1
fi
status=0
"$fipsval" verify --suite "$suite" "$tree" >"$verdicts" || status=$?
cat "$verdicts"
if [ "$status" -ne 0 ]; then
  echo "--- library output of the run (last lines) ---"
  tail -n 20 "$log"
  exit 1
fi
grep -q '^PASS ' "$verdicts" || { echo "conformance: nothing was checked for suite $suite"; exit 1; }
