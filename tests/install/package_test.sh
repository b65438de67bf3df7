#!/bin/sh
# usage: package_test.sh BUILD_DIR: cpack's runtime, development and tool packages hold their
# own files, declare their dependencies and install with dpkg into a scratch root; an edited
# configuration survives a re-install and an upgrade; the program ships stripped.
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
  $(cd "$(dirname "$0")/../../doc" && ls *.schema.json | sed 's|^|usr/share/fipsval/|')
  var/lib/fipsval/firmware.sha256"
# The program ships stripped, its debug information in the dbgsym package.
ls "$out"/fipsval-dbgsym_"$version"_*.ddeb >/dev/null 2>&1 || fail "no fipsval-dbgsym package"
rm -rf /tmp/fipsval-x && dpkg-deb -x "$tool" /tmp/fipsval-x
LC_ALL=C readelf -S /tmp/fipsval-x/usr/bin/fipsval | grep -q '\.debug_info' && fail "fipsval not stripped"
rm -rf /tmp/fipsval-x
dpkg-deb -c "$tool" | grep -q 'usr/share/fipsval/samples/SHA/req/SHA1Monte.req' || fail "samples"
case "$(dpkg-deb -f "$dev" Depends)" in "libfipsval$so (= $version)"*) ;; *) fail "dev depends";; esac
case "$(dpkg-deb -f "$tool" Depends)" in "libfipsval$so (= $version)"*libssl3*) ;; *) fail "tool depends";; esac
dpkg-deb -I "$runtime" shlibs | grep -q "^libfipsval $so libfipsval$so" || fail shlibs
dpkg-deb -I "$tool" conffiles | grep -qx /etc/fipsval/vpn.cfg || fail conffiles
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/triggers"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
# Maintainer scripts run outside the scratch root, which they find in DPKG_ROOT.
install() { dpkg --root="$root" --force-depends --force-script-chrootless -i "$@" >/tmp/step.out 2>&1; }
fv=$root/usr/bin/fipsval
install "$runtime" "$dev" "$tool" || fail "dpkg -i"
[ "$(dpkg-query --root="$root" -W -f '${Status}' fipsval)" = "install ok installed" ] || fail status
[ "$("$fv" --version)" = "fipsval $version" ] || fail "--version"
"$fv" selftest >/tmp/step.out 2>&1 || fail selftest
"$fv" --help | grep -q "\[$root/var/lib/fipsval\]" || fail "data dir"
# An edited, re-hashed configuration passes its self-test after a re-install
# and after an upgrade to a newer version.
echo "# edited by the administrator" >>"$root/etc/fipsval/vpn.cfg"
"$fv" update-config >/tmp/step.out 2>&1 || fail update-config
install "$tool" || fail "dpkg -i again"
"$fv" selftest >/tmp/step.out 2>&1 || fail "selftest after a re-install"
rm -rf /tmp/fipsval-x && dpkg-deb -R "$tool" /tmp/fipsval-x
sed -i "s/^Version: .*/Version: $version.1/" /tmp/fipsval-x/DEBIAN/control
dpkg-deb -b /tmp/fipsval-x "$out/newer.deb" >/tmp/step.out 2>&1 || fail "newer package"
install "$out/newer.deb" || fail "dpkg -i newer"
[ "$(dpkg-query --root="$root" -W -f '${Version}' fipsval)" = "$version.1" ] || fail upgrade
"$fv" selftest >/tmp/step.out 2>&1 || fail "selftest after an upgrade"
grep -q 'edited by the administrator' "$root/etc/fipsval/vpn.cfg" || fail "configuration kept"
# Nor does an install bless a configuration changed behind the digest's back.
echo "# not re-hashed" >>"$root/etc/fipsval/vpn.cfg"
install "$tool" || fail "dpkg -i over a changed configuration"
"$fv" selftest >/tmp/step.out 2>&1 && fail "a changed configuration passed after an install"
dpkg --root="$root" --force-script-chrootless --purge fipsval >/tmp/step.out 2>&1 || fail purge
test ! -e "$root/var/lib/fipsval/vpn.cfg.sha256" || fail "digest left after purge"
rm -rf "$out" "$root" /tmp/step.out /tmp/fipsval-x
echo "package test passed"
