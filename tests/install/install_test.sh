#!/bin/sh
# cmake --install into a private prefix: the library, headers, fipsval.pc,
# the fipsval program with its manual page and data. Then the README's
# example host is built against the installed files with pkg-config (and an
# rpath, no LD_LIBRARY_PATH), passes the self-tests and answers the bundled
# samples, which the installed fipsval verifies.
# usage: install_test.sh BUILD_DIR C_COMPILER SOURCE_DIR [SANITIZERS]
# (a sanitizer build's library needs a host built with the same sanitizers)
set -eu
build=$1 cc=$2 source=$3 sanitize=${4:-}
extra=""
if [ -n "$sanitize" ]; then
  extra="-fsanitize=$sanitize"
  # The library is C++: its sanitizer checks need the C++ runtime parts.
  case "$cc" in *clang*) extra="$extra -fsanitize-link-c++-runtime -lstdc++" ;; esac
fi
fail() { echo "FAIL: $*"; exit 1; }
prefix=/tmp/fipsval-prefix
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/tmp/install.log
libdir=$(dirname "$(find "$prefix" -name fipsval.pc)")/..
for h in "$source"/include/*.h; do
  cmp -s "$h" "$prefix/include/${h##*/}" || fail "header ${h##*/} not installed"
done
test -L "$libdir/libfipsval.so" && test -L "$libdir/libfipsval.so.1" &&
  test -f "$libdir/libfipsval.so.1.0.0" || { ls -l "$libdir"; fail "library files missing"; }
for f in bin/fipsval share/man/man1/fipsval.1 etc/fipsval/vpn.cfg \
         var/lib/fipsval/vpn.cfg.sha256 var/lib/fipsval/firmware.sha256; do
  test -f "$prefix/$f" || fail "$f not installed"
done

# The manual page renders without a warning and names every command.
MANWIDTH=80 man -l --warnings "$prefix/share/man/man1/fipsval.1" 2>/tmp/man.err |
  col -b >/tmp/man.txt
test ! -s /tmp/man.err || { cat /tmp/man.err; fail "man page warnings"; }
"$prefix/bin/fipsval" --help | sed -n '/^commands:/,/^$/s/^  \([a-z-]*\).*/\1/p' >/tmp/commands
test -s /tmp/commands || fail "no commands in --help"
while read -r command; do
  grep -q "^       $command\b" /tmp/man.txt || fail "man page lacks $command"
done </tmp/commands

# The installed program finds its library and its data under the prefix.
version=$(sed -n 's/^Version: //p' "$libdir/pkgconfig/fipsval.pc")
test "$("$prefix/bin/fipsval" --version)" = "fipsval $version" || fail "--version"
"$prefix/bin/fipsval" --help | grep -q "\[$prefix/var/lib/fipsval\]" || fail "data dir default"
"$prefix/bin/fipsval" -q selftest >/tmp/selftest.out || { cat /tmp/selftest.out; fail "installed selftest"; }

# The example host, built as the README says.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
$cc $extra -Wall -Wextra -Werror -o /tmp/example_host "$source/tests/install/example_host.c" \
  $(pkg-config --cflags --libs fipsval) -rdynamic \
  -Wl,-rpath,"$(realpath "$(pkg-config --variable=libdir fipsval)")"
/tmp/example_host >/tmp/example.out || { cat /tmp/example.out; fail "example self-tests"; }
grep -q '^Self-tests passed$' /tmp/example.out && grep -q '^self-test mask 0$' /tmp/example.out ||
  fail "example self-test output"
rm -rf /tmp/example-tree
cp -r "$prefix/share/fipsval/samples" /tmp/example-tree
/tmp/example_host /tmp/example-tree >/tmp/example.out 2>&1 || true
grep -q '^answered AES/ECBMCT128$' /tmp/example.out || { cat /tmp/example.out; fail "example run"; }
if grep -q '^NOT answered' /tmp/example.out; then cat /tmp/example.out; fail "example run"; fi
# CTR_DRBG needs the random-device driver; every other suite must pass.
"$prefix/bin/fipsval" verify --list ssl --list wf /tmp/example-tree >/tmp/verify.out 2>&1 ||
  { cat /tmp/verify.out; fail "example answers do not verify"; }
tail -1 /tmp/verify.out
rm -rf "$prefix" /tmp/example-tree /tmp/example_host
echo "install test passed"
