#!/bin/sh
# usage: acvp_conformance.sh FIPSVAL ACVP_DIR [KEEP_DIR]
# Every vector set below ACVP_DIR (prompt.json, expectedResults.json) goes through `fipsval
# acvp` and `acvp --check`: all answered tests pass, or no group is answerable and each is
# refused with its reason. KEEP_DIR keeps the responses (<set>.json) and logs.
set -u
fipsval=$1 sets=$2 keep=${3:-}
skip() { echo "acvp conformance: skipped: $*"; exit 77; }
[ -d "$sets" ] || skip "no ACVP vector sets at $sets"
[ "${FIPSVAL_SANDBOX:-}" = 1 ] || skip "run it through sandbox_run (the suites use /tmp/req and /tmp/resp)"

work=${keep:-/tmp/acvp-conformance}
rm -rf "$work" && mkdir -p "$work"
failures=0 answered=0 refused=0
for prompt in $(find "$sets" -name prompt.json | sort); do
  dir=$(dirname "$prompt") && name=$(basename "$dir")
  [ -f "$dir/expectedResults.json" ] || continue
  out=$work/$name status=0 check=0
  "$fipsval" acvp "$prompt" --output "$out.json" >"$out.out" 2>"$out.err" || status=$?
  "$fipsval" acvp --check "$dir/expectedResults.json" "$out.json" >"$out.check" 2>&1 || check=$?
  groups=$(grep -c '^tgId ' "$out.check") not_answered=$(grep -c ': NOT ANSWERED (' "$out.check")
  if [ "$status" -eq 0 ] && [ "$check" -eq 0 ]; then
    answered=$((answered + 1))
    echo "PASS $name: $(tail -n 1 "$out.check"), $not_answered of $groups groups not answered"
  elif [ "$status" -eq 1 ] && [ "$groups" -gt 0 ] && [ "$groups" -eq "$not_answered" ] &&
       grep -q 'no group of the vector set could be answered' "$out.err"; then
    refused=$((refused + 1))
    echo "PASS $name: no group answerable, each listed with its reason"
  else
    failures=$((failures + 1))
    echo "FAIL $name: acvp exit $status, check exit $check"
    cat "$out.err" "$out.check"
  fi
  grep -h 'NOT ANSWERED' "$out.check" | sed 's/^/    /'
done
[ -n "$keep" ] || rm -rf "$work"
echo "$answered vector sets answered and checked, $refused refused with reasons, $failures failed"
[ "$answered" -gt 0 ] || { echo "acvp conformance: no vector set was answered"; exit 1; }
[ "$failures" -eq 0 ]
