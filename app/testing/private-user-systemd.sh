#!/usr/bin/env bash
# A user service manager of the tests' own: `systemd --user` with the runtime
# folder $1 and the home $2, in a private mount namespace (root only). An empty
# /run with /run/systemd/system in it makes systemd agree to run as a user
# instance on a machine it did not boot; nothing of the machine's /run is seen
# or touched. When the program that started this script ends, the manager is
# told to exit, stopping every service it started.
#
#   unshare --mount app/testing/private-user-systemd.sh RUNTIME HOME
set -euo pipefail
runtime=$1
home=$2
watched=$PPID
mount --make-rprivate /
mount -t tmpfs tmpfs /run
mkdir -p /run/systemd/system
export XDG_RUNTIME_DIR=$runtime HOME=$home
unset DBUS_SESSION_BUS_ADDRESS NOTIFY_SOCKET
systemd --user &
manager=$!
while kill -0 "$manager" 2>/dev/null && kill -0 "$watched" 2>/dev/null; do
  sleep 1
done
systemctl --user exit 2>/dev/null || true
wait "$manager" || true
