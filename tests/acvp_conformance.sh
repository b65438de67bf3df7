#!/bin/sh
# ACVP conformance: every vector set below ACVP_DIR (a directory holding
# prompt.json and expectedResults.json) is answered with `fipsval acvp` and
# the response checked with `fipsval acvp --check`. A set must either be
# answered with every answered test passing, or (when no group of it can be
# answered) be refused with a reason for each of its groups.
#
# usage: acvp_conformance.sh FIPSVAL ACVP_DIR
set -u
fipsval=$1 sets=$2

if [ ! -d "$sets" ]; then
  echo "acvp conformance: no ACVP vector sets at $sets: skipped"
  exit 77
fi
if [ "${FIPSVAL_SANDBOX:-}" != 1 ]; then
  echo "acvp conformance: run through sandbox_run (the suites use /tmp/req and /tmp/resp)" >&2
  exit 77
fi

work=/tmp/acvp-conformance
rm -rf "$work"
mkdir -p "$work"
failures=0 answered=0 refused=0
for prompt in $(find "$sets" -name prompt.json | sort); do
  dir=$(dirname "$prompt")
  name=$(basename "$dir")
  expected=$dir/expectedResults.json
  [ -f "$expected" ] || continue
  response=$work/$name.json
  status=0
  "$fipsval" acvp "$prompt" --output "$response" >"$work/$name.out" 2>"$work/$name.err" || status=$?
  check=0
  "$fipsval" acvp --check "$expected" "$response" >"$work/$name.check" 2>&1 || check=$?
  groups=$(grep -c '^tgId ' "$work/$name.check")
  not_answered=$(grep -c ': NOT ANSWERED (' "$work/$name.check")
  if [ "$status" -eq 0 ] && [ "$check" -eq 0 ]; then
    answered=$((answered + 1))
    echo "PASS $name: $(tail -n 1 "$work/$name.check"), $not_answered of $groups groups not answered"
  elif [ "$status" -eq 1 ] && [ "$groups" -gt 0 ] && [ "$groups" -eq "$not_answered" ] &&
       grep -q 'no group of the vector set could be answered' "$work/$name.err"; then
    refused=$((refused + 1))
    echo "PASS $name: no group answerable, each listed with its reason"
  else
    failures=$((failures + 1))
    echo "FAIL $name: acvp exit $status, check exit $check"
    cat "$work/$name.err" "$work/$name.check"
  fi
  grep -h 'NOT ANSWERED' "$work/$name.check" | sed 's/^/    /'
done
rm -rf "$work"
echo "$answered vector sets answered and checked, $refused refused with reasons, $failures failed"
if [ "$answered" -eq 0 ]; then
  echo "acvp conformance: no vector set was answered"
  exit 1
fi
[ "$failures" -eq 0 ]
