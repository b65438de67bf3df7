#!/bin/sh
# usage: install_test.sh BUILD_DIR C_COMPILER SOURCE_DIR [SANITIZERS]: cmake --install, then the
# README's example host, built with pkg-config, passes the self-tests and answers the samples.
set -eu
build=$1 cc=$2 source=$3 extra=${4:+-fsanitize=$4}
case "$extra$cc" in -f*clang*) extra="$extra -fsanitize-link-c++-runtime -lstdc++" ;; esac
fail() { cat /tmp/step.out 2>/dev/null; echo "FAIL: $*"; exit 1; }
prefix=/tmp/fipsval-prefix fv=/tmp/fipsval-prefix/bin/fipsval
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/tmp/step.out || fail "cmake --install"
libdir=$(dirname "$(find "$prefix" -name fipsval.pc)")/..
for h in "$source"/include/*.h; do cmp -s "$h" "$prefix/include/${h##*/}" || fail "header $h"; done
test -L "$libdir/libfipsval.so" && test -L "$libdir/libfipsval.so.1" &&
  test -f "$libdir/libfipsval.so.1.0.0" || fail "library files"
for f in bin/fipsval share/man/man1/fipsval.1 etc/fipsval/vpn.cfg var/lib/fipsval/vpn.cfg.sha256 \
         var/lib/fipsval/firmware.sha256 share/fipsval/fipsval-result.schema.json share/fipsval/fipsval-acvp.schema.json; do test -f "$prefix/$f" || fail "$f not installed"; done
MANWIDTH=80 man -l --warnings "$prefix/share/man/man1/fipsval.1" 2>/tmp/step.out | col -b >/tmp/man.txt
test ! -s /tmp/step.out || fail "man page warnings"
commands=$("$fv" --help | sed -n '/^commands:/,/^$/s/^  \([a-z-]*\).*/\1/p')
test -n "$commands" || fail "no commands in --help"
for c in $commands; do
  grep -q "^       $c\b" /tmp/man.txt || fail "man page lacks $c"
  grep -q "^| \`$c\b" "$source/README.md" || fail "README command table lacks $c"
done
test "$("$fv" --version)" = "fipsval $(sed -n 's/^Version: //p' "$libdir/pkgconfig/fipsval.pc")" ||
  fail "--version"
"$fv" --help | grep -q "\[$prefix/var/lib/fipsval\]" || fail "data dir default"
"$fv" -q selftest >/tmp/step.out || fail "installed selftest"
# A re-install keeps an edited configuration and its new digest.
echo "# edited" >>"$prefix/etc/fipsval/vpn.cfg"
"$fv" -q update-config 2>/tmp/step.out || fail "update-config"
cmake --install "$build" --prefix "$prefix" >/tmp/step.out || fail "cmake --install again"
"$fv" -q selftest >/tmp/step.out || fail "selftest after a re-install"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# The example host is the README's own code block, so that what a reader
# copies is what this test builds.
awk 'f && /^```$/ {exit} f {print} /^```c$/ {c=1; next}
     c {c=0; if (/^\/\* example_host\.c:/) {f=1; print}}' "$source/README.md" >/tmp/example_host.c
test -s /tmp/example_host.c || fail "no example host in README.md"
$cc $extra -Wall -Wextra -Werror -o /tmp/example_host /tmp/example_host.c \
  $(pkg-config --cflags --libs fipsval) -rdynamic \
  -Wl,-rpath,"$(realpath "$(pkg-config --variable=libdir fipsval)")"
/tmp/example_host >/tmp/step.out || fail "example self-tests"
grep -q '^Self-tests passed$' /tmp/step.out && grep -q '^self-test mask 0$' /tmp/step.out ||
  fail "example self-test output"
rm -rf /tmp/example-tree && cp -r "$prefix/share/fipsval/samples" /tmp/example-tree
/tmp/example_host /tmp/example-tree >/tmp/step.out 2>&1 || true
grep -q '^answered AES/ECBMCT128$' /tmp/step.out && ! grep -q '^NOT answered' /tmp/step.out ||
  fail "example run"
# CTR_DRBG needs the random-device driver; every other suite must verify.
"$fv" verify --list ssl --list wf /tmp/example-tree >/tmp/step.out 2>&1 || fail "verify"
rm -rf "$prefix" /tmp/example-tree /tmp/example_host /tmp/example_host.c /tmp/step.out /tmp/man.txt
echo "install test passed"
