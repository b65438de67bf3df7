#!/bin/sh
# usage: acvp_conformance.sh FIPSVAL ACVP_DIR [KEEP_DIR]
# Every vector set below ACVP_DIR (prompt.json, expectedResults.json) goes through `fipsval
# acvp` and `acvp --check` twice: the bare prompt answered in the array form, then the prompt
# in the protocol's array form answered --bare. A set whose groups are all answered exits 0 and
# all its tests pass; a set with a group not answered exits 1 (acvp and --check) and 0 with
# --allow-unsupported, each such group listed with its reason. KEEP_DIR keeps the responses
# (<set>.json, <set>-bare.json) and logs.
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
  out=$work/$name status=0 check=0 allowed=0 allowed_check=0
  "$fipsval" acvp "$prompt" --output "$out.json" >"$out.out" 2>"$out.err" || status=$?
  "$fipsval" acvp --check "$dir/expectedResults.json" "$out.json" >"$out.check" 2>>"$out.err" || check=$?
  { printf '[{"acvVersion": "1.0"}, '; cat "$prompt"; printf ']'; } >"$out.prompt.json"
  "$fipsval" acvp "$out.prompt.json" --bare --allow-unsupported --output "$out-bare.json" \
    >"$out-bare.out" 2>"$out-bare.err" || allowed=$?
  "$fipsval" acvp --check --allow-unsupported --prompt "$prompt" "$dir/expectedResults.json" \
    "$out-bare.json" >"$out-bare.check" 2>>"$out-bare.err" || allowed_check=$?
  rm -f "$out.prompt.json"
  groups=$(grep -c '^tgId ' "$out.check") not_answered=$(grep -c ': NOT ANSWERED (' "$out.check")
  listed=$(grep -c ': tgId [0-9]* not answered: ' "$out.err")
  envelope=$(head -c 1 "$out.json")$(head -c 1 "$out-bare.json")
  if [ "$envelope" != '[{' ] || [ "$allowed" -ne 0 ] || [ "$allowed_check" -ne 0 ] || ! cmp -s "$out.check" "$out-bare.check"; then
    failures=$((failures + 1))
    echo "FAIL $name: envelopes $envelope, --allow-unsupported: acvp exit $allowed, check exit $allowed_check"
    cat "$out-bare.err" "$out-bare.check"
  elif [ "$not_answered" -eq 0 ] && [ "$status" -eq 0 ] && [ "$check" -eq 0 ]; then
    answered=$((answered + 1))
    echo "PASS $name: $(tail -n 1 "$out.check"), all $groups groups answered"
  elif [ "$not_answered" -gt 0 ] && [ "$status" -eq 1 ] && [ "$check" -eq 1 ] &&
       [ "$listed" -eq "$not_answered" ] && grep -q ', 0 failed$' "$out.check"; then
    [ "$not_answered" -eq "$groups" ] && refused=$((refused + 1)) || answered=$((answered + 1))
    echo "PASS $name: $(tail -n 1 "$out.check"), $not_answered of $groups groups not answered" \
      "(each with its reason); exit 1, 0 with --allow-unsupported"
  else
    failures=$((failures + 1))
    echo "FAIL $name: acvp exit $status, check exit $check, $listed of $not_answered groups listed"
    cat "$out.err" "$out.check"
  fi
  grep -h 'NOT ANSWERED' "$out.check" | sed 's/^/    /'
done
[ -n "$keep" ] || rm -rf "$work"
echo "$answered vector sets answered and checked, $refused refused with reasons, $failures failed"
[ "$answered" -gt 0 ] || { echo "acvp conformance: no vector set was answered"; exit 1; }
[ "$failures" -eq 0 ]
