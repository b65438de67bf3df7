#!/bin/sh
# usage: package_test.sh BUILD_DIR: cpack's runtime, development and tool packages hold their
# own files, declare their dependencies and install with dpkg into a scratch root.
set -eu
build=$1 out=/tmp/fipsval-packages root=/tmp/fipsval-root
fail() { cat /tmp/step.out; echo "FAIL: $*"; exit 1; }
for tool in cpack dpkg-deb dpkg; do
  command -v $tool >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
done
rm -rf "$out" "$root"
(cd "$build" && cpack -G DEB -B "$out") >/tmp/step.out 2>&1 || fail cpack
version=$(sed -n 's/^set(CPACK_PACKAGE_VERSION "\(.*\)")$/\1/p' "$build/CPackConfig.cmake")
so=${version%%.*}
deb() { ls "$out"/$1_"$version"_*.deb 2>/dev/null || fail "no package $1"; }
runtime=$(deb libfipsval$so) dev=$(deb libfipsval-dev) tool=$(deb fipsval)
# Each package holds its files and only them (a link as "path->target").
expect() {
  dpkg-deb -c "$1" | awk '$1 !~ /^d/ { sub(/^\.\//, "", $6); print $6 ($7 ? $7 $8 : "") }' |
    grep -v '^usr/share/fipsval/samples/' | sort >/tmp/step.out
  printf '%s\n' $2 | sort | cmp -s - /tmp/step.out || fail "contents of $1, expected: $2"
}
expect "$runtime" "usr/lib/libfipsval.so.$so->libfipsval.so.$version usr/lib/libfipsval.so.$version"
expect "$dev" "$(cd "$(dirname "$0")/../../include" && ls *.h | sed 's|^|usr/include/|')
  usr/lib/libfipsval.so->libfipsval.so.$so usr/lib/pkgconfig/fipsval.pc"
expect "$tool" "etc/fipsval/vpn.cfg usr/bin/fipsval usr/share/man/man1/fipsval.1
  var/lib/fipsval/firmware.sha256 var/lib/fipsval/vpn.cfg.sha256"
dpkg-deb -c "$tool" | grep -q 'usr/share/fipsval/samples/SHA/req/SHA1Monte.req' || fail "samples"
case "$(dpkg-deb -f "$dev" Depends)" in "libfipsval$so (= $version)"*) ;; *) fail "dev depends";; esac
case "$(dpkg-deb -f "$tool" Depends)" in "libfipsval$so (= $version)"*libssl3*) ;; *) fail "tool depends";; esac
dpkg-deb -I "$runtime" shlibs | grep -q "^libfipsval $so libfipsval$so" || fail shlibs
dpkg-deb -I "$tool" conffiles | grep -qx /etc/fipsval/vpn.cfg || fail conffiles
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/triggers"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
dpkg --root="$root" --force-depends -i "$runtime" "$dev" "$tool" >/tmp/step.out 2>&1 || fail "dpkg -i"
[ "$(dpkg-query --root="$root" -W -f '${Status}' fipsval)" = "install ok installed" ] || fail status
[ "$("$root/usr/bin/fipsval" --version)" = "fipsval $version" ] || fail "--version"
"$root/usr/bin/fipsval" selftest >/tmp/step.out 2>&1 || fail selftest
"$root/usr/bin/fipsval" --help | grep -q "\[$root/var/lib/fipsval\]" || fail "data dir"
rm -rf "$out" "$root" /tmp/step.out
echo "package test passed"
