# A simulated Gateway for a test, on the port $port, which ends with the test, and a folder $work. To be sourced, in bash with
# -euo pipefail.
work=$(mktemp -d)
zulstat-sim --port 0 --port-file "$work/port" >"$work/log" &
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT
for _ in $(seq 100); do
    [ -s "$work/port" ] && break
    sleep 0.1
done
# shellcheck disable=SC2034 # for the test
port=$(cat "$work/port")
