#!/bin/sh
# Installs the library into a private prefix, builds a tiny C host against
# the installed files with pkg-config, and runs the self-tests through it.
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
prefix=/tmp/fipsval-prefix
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/tmp/install.log
libdir=$(dirname "$(find "$prefix" -name fipsval.pc)")/..
for f in include/fipsval.h; do test -f "$prefix/$f" || { echo "missing $f"; exit 1; }; done
test -L "$libdir/libfipsval.so" && test -L "$libdir/libfipsval.so.1" &&
  test -f "$libdir/libfipsval.so.1.0.0" || { echo "library files missing"; ls -l "$libdir"; exit 1; }
export PKG_CONFIG_PATH="$libdir/pkgconfig"
flags=$(pkg-config --cflags --libs fipsval)
echo "pkg-config: $flags"
# -rdynamic exports the callbacks for the library to find.
$cc $extra -Wall -Wextra -Werror -o /tmp/tiny_host "$source/tests/install/tiny_host.c" $flags -rdynamic
LD_LIBRARY_PATH="$libdir" /tmp/tiny_host > /tmp/tiny_host.out
cat /tmp/tiny_host.out
grep -q '^Self-tests passed$' /tmp/tiny_host.out
grep -q '^mask 0$' /tmp/tiny_host.out
