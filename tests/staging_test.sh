#!/bin/sh
# fipsval's private staging for a user who is not root: a user and mount
# namespace of its own. Runs as root outside the test sandbox (a chroot
# refuses nested user namespaces), inside a mount namespace with a fresh
# /tmp, so nothing on the machine is touched whatever fipsval does.
set -eu
skip() { echo "staging test: skipped: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "needs root to run fipsval as a second user (setpriv)"
command -v unshare >/dev/null && command -v setpriv >/dev/null || skip "no unshare or setpriv"
exec unshare --mount --propagation private sh -c '
  set -eu
  mount -t tmpfs tmpfs /tmp
  as() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
  as unshare --user --mount true 2>/dev/null ||
    { echo "staging test: skipped: no user namespaces for other users here"; exit 77; }
  mkdir /tmp/tree && cp -R "$2/HMAC" /tmp/tree/ && chown -R 65534:65534 /tmp/tree
  status=0
  as "$1" run -v --suite HMAC /tmp/tree >/tmp/out 2>/tmp/err || status=$?
  if [ $status -ne 0 ] || ! grep -q "staging: private" /tmp/err || [ -e /tmp/req ] ||
     ! grep -q "Mac = " /tmp/tree/HMAC/resp/HMAC.rsp; then
    echo "staging test: a user who is not root did not get private staging (exit $status):"
    cat /tmp/err /tmp/out
    exit 1
  fi
' sh "$1" "$2"
