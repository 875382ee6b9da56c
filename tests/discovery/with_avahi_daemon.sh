#!/usr/bin/env bash
# Runs a test program against a real avahi-daemon: usage with_avahi_daemon.sh PROGRAM [ARGS...]
#
# A system bus or avahi-daemon that already runs is used as it is and left
# alone. Otherwise this starts its own, the daemon in a private network
# namespace that has only loopback, so nothing leaves the machine, and stops
# exactly those processes, by PID, when the program is done. When no daemon can
# run here it exits 77, which ctest reports as skipped.
set -uo pipefail

readonly skipped=77
started_bus_pid=""
started_avahi_pid=""
netns=""
workdir=""

log() { echo "with_avahi_daemon: $*" >&2; }

# True while the process runs; a zombie waiting for its parent counts as gone.
alive() {
  [[ -r /proc/$1/status ]] && ! grep -q '^State:[[:space:]]*Z' "/proc/$1/status"
}

stop_pid() {
  local pid=$1
  kill -TERM "$pid" 2>/dev/null || return 0
  for _ in $(seq 50); do
    alive "$pid" || return 0
    sleep 0.1
  done
  log "PID $pid ignored SIGTERM; killing it"
  kill -KILL "$pid" 2>/dev/null
}

cleanup() {
  if [[ -n $started_avahi_pid ]]; then
    stop_pid "$started_avahi_pid"
    rm -f /run/avahi-daemon/pid
  fi
  [[ -n $netns ]] && ip netns del "$netns" 2>/dev/null
  if [[ -n $started_bus_pid ]]; then
    stop_pid "$started_bus_pid"
    rm -f /run/dbus/pid /run/dbus/system_bus_socket  # dbus-daemon leaves them behind
  fi
  [[ -n $workdir ]] && rm -rf "$workdir"
}

skip() {
  echo "SKIPPED: $*"
  exit "$skipped"
}

# Polls a command for up to five seconds.
wait_for() {
  for _ in $(seq 50); do
    "$@" && return 0
    sleep 0.1
  done
  return 1
}

bus_answers() {
  dbus-send --system --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.GetId >/dev/null 2>&1
}

# The daemon is on the bus and has finished starting up (server state 2: running).
avahi_running() {
  dbus-send --system --print-reply --dest=org.freedesktop.Avahi / org.freedesktop.Avahi.Server.GetState \
    2>/dev/null | grep -q 'int32 2'
}

start_bus() {
  command -v dbus-daemon >/dev/null || skip "dbus-daemon is not installed (package dbus)"
  mkdir -p /run/dbus || skip "cannot create /run/dbus"
  rm -f /run/dbus/pid /run/dbus/system_bus_socket
  dbus-daemon --system --fork || skip "dbus-daemon --system did not start"
  started_bus_pid=$(cat /run/dbus/pid 2>/dev/null)
  [[ -n $started_bus_pid ]] || skip "dbus-daemon wrote no pid file"
  wait_for bus_answers || skip "the system bus started but does not answer"
}

start_avahi() {
  command -v avahi-daemon >/dev/null || skip "avahi-daemon is not installed"
  command -v ip >/dev/null || skip "ip is not installed (package iproute2)"
  workdir=$(mktemp -d) || skip "mktemp failed"
  cat >"$workdir/avahi-daemon.conf" <<EOF
[server]
host-name=kxtest-$$
use-ipv4=yes
use-ipv6=no
allow-interfaces=lo
enable-dbus=yes
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
EOF
  netns=kxtest-avahi-$$
  if ! ip netns add "$netns" 2>"$workdir/netns.err"; then
    netns=""
    skip "cannot create a network namespace: $(cat "$workdir/netns.err")"
  fi
  ip -n "$netns" link set lo up || skip "cannot bring up loopback in the namespace"
  ip netns exec "$netns" avahi-daemon -f "$workdir/avahi-daemon.conf" --no-drop-root --no-chroot --no-rlimits -D ||
    skip "avahi-daemon did not start"
  started_avahi_pid=$(cat /run/avahi-daemon/pid 2>/dev/null)
  [[ -n $started_avahi_pid ]] || skip "avahi-daemon wrote no pid file"
  wait_for avahi_running || skip "avahi-daemon started but does not answer on the bus"
}

(($# >= 1)) || { echo "usage: $0 PROGRAM [ARGS...]" >&2; exit 2; }
trap cleanup EXIT
trap 'exit 130' INT TERM

# One user of the daemons at a time on this machine, across ctest runs.
if exec 9>>/tmp/kx-avahi-test.lock; then flock 9; fi 2>/dev/null

if ! bus_answers || ! avahi_running; then
  [[ $(id -u) -eq 0 ]] || skip "no avahi-daemon runs, and starting one needs root"
fi
bus_answers || start_bus
avahi_running || avahi-daemon --check 2>/dev/null || start_avahi
wait_for avahi_running || skip "an avahi-daemon runs but does not answer on the bus"

KX_AVAHI_REQUIRED=1 "$@"
status=$?
exit "$status"
