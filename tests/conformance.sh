#!/bin/sh
# Conformance of one suite against a CAVP vector tree: copies the tree (and
# the project's own vectors) into the sandbox, runs the suite with
# `fipsval run` and checks the responses with `fipsval verify --strict`.
#
# usage: conformance.sh FIPSVAL CAVP_DIR PROJECT_VECTORS SUITE QUICK [WRAPPER...]
#   QUICK=1 cuts every Monte Carlo request to its first seed and NIST's
#   answers at the same place, so each record of the shortened request must
#   still be answered; WRAPPER (e.g. valgrind ...) is put in front of
#   `fipsval run`.
set -eu
fipsval=$1 cavp=$2 vectors=$3 suite=$4 quick=$5
shift 5

if [ ! -d "$cavp" ]; then
  echo "conformance: skipped: no CAVP vector tree at $cavp" \
       "(configure with -DFIPSVAL_CAVP_DIR=/path/to/tree to run it)"
  exit 77
fi
if [ "${FIPSVAL_SANDBOX:-}" != 1 ]; then
  echo "conformance: skipped: run it through sandbox_run (it uses /tmp/req and /tmp/resp)"
  exit 77
fi

tree=/tmp/cavp-tree
rm -rf "$tree"
mkdir -p "$tree"
cp -R "$cavp"/. "$tree"/
if [ -d "$vectors" ]; then cp -R "$vectors"/. "$tree"/; fi
chmod -R u+w "$tree"
rm -rf "$tree"/*/resp

if [ "$quick" = 1 ]; then
  for request in "$tree"/AES/req/*MCT*.req "$tree"/TDES/req/TCBCMonte*.req; do
    [ -f "$request" ] || continue
    answers=${request%/req/*}/fax/$(basename "$request" .req).fax
    sed -i '/\[DECRYPT\]/,$d' "$request"
    if [ -f "$answers" ]; then sed -i '/\[DECRYPT\]/,$d' "$answers"; fi
  done
fi

log=/tmp/conformance-run.log
if ! "$@" "$fipsval" run --suite "$suite" "$tree" >"$log" 2>&1; then
  echo "conformance: fipsval run --suite $suite failed:"
  tail -n 40 "$log"
  exit 1
fi
verdicts=/tmp/conformance-verify.log
status=0
"$fipsval" verify --strict --suite "$suite" "$tree" >"$verdicts" || status=$?
cat "$verdicts"
if [ "$status" -ne 0 ]; then
  echo "--- library output of the run (last lines) ---"
  tail -n 20 "$log"
  exit 1
fi
if ! grep -q '^PASS ' "$verdicts"; then
  echo "conformance: nothing was checked for suite $suite"
  exit 1
fi
