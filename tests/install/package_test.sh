#!/bin/sh
# cpack -G DEB makes the runtime, development and tool packages; each holds
# its own files and declares its dependencies, and the three install with
# dpkg into a scratch root, where the tool runs the self-tests.
# usage: package_test.sh BUILD_DIR
set -eu
build=$1
fail() { echo "FAIL: $*"; exit 1; }
for tool in cpack dpkg-deb dpkg; do
  command -v $tool >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
done
out=/tmp/fipsval-packages
rm -rf "$out"
(cd "$build" && cpack -G DEB -B "$out") >/tmp/cpack.log 2>&1 || { cat /tmp/cpack.log; fail cpack; }
version=$(sed -n 's/^set(CPACK_PACKAGE_VERSION "\(.*\)")$/\1/p' "$build/CPackConfig.cmake")
soversion=${version%%.*}
deb() { ls "$out"/$1_"$version"_*.deb 2>/dev/null || fail "no package $1"; }
runtime=$(deb libfipsval$soversion) dev=$(deb libfipsval-dev) tool=$(deb fipsval)

# Each package: its files, and only its files ("path" or "path -> link").
contents() {
  dpkg-deb -c "$1" | awk '$1 !~ /^d/ { sub(/^\.\//, "", $6); print $6 ($7 ? " " $7 " " $8 : "") }' |
    grep -v '^usr/share/fipsval/samples/' | sort
}
expect() {
  actual=$(contents "$1")
  [ "$actual" = "$2" ] || { printf 'expected:\n%s\nactual:\n%s\n' "$2" "$actual"; fail "contents of $1"; }
}
expect "$runtime" "usr/lib/libfipsval.so.$soversion -> libfipsval.so.$version
usr/lib/libfipsval.so.$version"
headers=$(cd "$(dirname "$0")/../../include" && ls *.h | sed 's|^|usr/include/|')
expect "$dev" "$(printf '%s\n' "$headers" "usr/lib/libfipsval.so -> libfipsval.so.$soversion" \
  usr/lib/pkgconfig/fipsval.pc | sort)"
expect "$tool" "etc/fipsval/vpn.cfg
usr/bin/fipsval
usr/share/man/man1/fipsval.1
var/lib/fipsval/firmware.sha256
var/lib/fipsval/vpn.cfg.sha256"
dpkg-deb -c "$tool" | grep -q 'usr/share/fipsval/samples/SHA/req/SHA1Monte.req' || fail "samples"

field() { dpkg-deb -f "$1" "$2"; }
case "$(field "$dev" Depends)" in "libfipsval$soversion (= $version)"*) ;; *) fail "dev depends";; esac
case "$(field "$tool" Depends)" in "libfipsval$soversion (= $version)"*libssl3*) ;; *) fail "tool depends";; esac
dpkg-deb -I "$runtime" shlibs | grep -q "^libfipsval $soversion libfipsval$soversion" || fail shlibs
dpkg-deb -I "$tool" conffiles | grep -qx /etc/fipsval/vpn.cfg || fail conffiles

# dpkg -i into a scratch root with an empty package database; the system's
# libc, libstdc++ and libssl stand in for the dependencies.
root=/tmp/fipsval-root
rm -rf "$root"
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/triggers"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
dpkg --root="$root" --force-depends -i "$runtime" "$dev" "$tool" >/tmp/dpkg.log 2>&1 ||
  { cat /tmp/dpkg.log; fail "dpkg -i"; }
[ "$(dpkg-query --root="$root" -W -f '${Status}\n' fipsval)" = "install ok installed" ] ||
  fail "fipsval not installed"
[ "$("$root/usr/bin/fipsval" --version)" = "fipsval $version" ] || fail "--version"
"$root/usr/bin/fipsval" selftest >/tmp/selftest.out 2>&1 || { cat /tmp/selftest.out; fail selftest; }
"$root/usr/bin/fipsval" --help | grep -q "\[$root/var/lib/fipsval\]" || fail "data dir"
rm -rf "$out" "$root"
echo "package test passed"
