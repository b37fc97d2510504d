#!/usr/bin/env bash
# Replays each hostile peer against a fresh `ferrylink run` on 127.0.0.1 and
# prints a Markdown table: what the attacker sent, what the bridge sent back
# to it, the bridge's largest resident memory, the slowest join of a
# simulated console while the attack went on (one every second), the
# bridge's CPU time meanwhile and the lines it wrote.
#
#   bench/attacks.sh [--build DIR] [--seconds S] [ATTACK...]
#
# DIR is a configured build tree (default build/default; the sanitizer build,
# build/sanitize, shows findings in the bridge's log). The attacks are those
# of attack_replay: nack ack inflate zeros splits flood spoof. Exits 1 when a
# join failed, memory passed 64 MiB or the bridge answered more than 4 bytes
# for each byte of an attack.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/default
seconds=6
while [[ $# -gt 0 ]]; do
  case $1 in
    --build) build=$(realpath "$2"); shift 2 ;;
    --seconds) seconds=$2; shift 2 ;;
    *) break ;;
  esac
done
attacks=("$@")
[[ ${#attacks[@]} -gt 0 ]] || attacks=(nack ack inflate zeros splits flood spoof)

cmake --build "$build" -j2 --target ferrylink attack_replay load_generator >/dev/null
bin=$build/bin
work=$(mktemp -d)
bridge_pid=""
stop_bridge() {
  [[ -n $bridge_pid ]] || return 0
  kill -TERM "$bridge_pid" 2>/dev/null || true
  # A bridge still busy with an attack gets five seconds to end.
  for _ in $(seq 50); do
    kill -0 "$bridge_pid" 2>/dev/null || break
    sleep 0.1
  done
  kill -KILL "$bridge_pid" 2>/dev/null && echo "  the bridge didn't end within 5 s of SIGTERM" >&2
  wait "$bridge_pid" 2>/dev/null || true
  bridge_pid=""
}
trap 'stop_bridge; rm -rf "$work"' EXIT

echo "| attack | sent | sent back | ratio | peak RSS | joins (failed) | slowest join | bridge CPU | log lines |"
echo "|---|---|---|---|---|---|---|---|---|"
status=0
for attack in "${attacks[@]}"; do
  port=$("$bin/load_generator" free-port)
  # The bridge hands over to a port nothing listens on; only the join counts.
  "$bin/ferrylink" run 127.0.0.1 19132 --listen-host 127.0.0.1 --listen-port "$port" >"$work/$attack.log" 2>&1 &
  bridge_pid=$!
  for _ in $(seq 100); do
    grep -q "$(printf ' 0100007F:%04X ' "$port")" /proc/net/udp && break
    sleep 0.1
  done
  line=$("$bin/attack_replay" --attack "$attack" --port "$port" --pid "$bridge_pid" --seconds "$seconds" 2>/dev/null) || status=1
  alive=yes
  kill -0 "$bridge_pid" 2>/dev/null || alive=no
  stop_bridge
  get() { sed -n "s/.* $1=\([^ ]*\).*/\1/p" <<<" $line"; }
  lines=$(wc -l <"$work/$attack.log")
  printf '| %s | %s B | %s B | %s | %s MiB | %s (%s) | %s ms | %s ms | %s |\n' "$attack" "$(get sent)" \
    "$(get received)" "$(get ratio)" "$(awk -v k="$(get peak_rss_kib)" 'BEGIN { printf "%.1f", k / 1024 }')" \
    "$(get joins)" "$(get failed)" "$(get slowest_join_ms)" "$(get cpu_ms)" "$lines"
  if [[ $alive == no ]] || ! awk -v r="$(get ratio)" -v k="$(get peak_rss_kib)" 'BEGIN { exit !(r <= 4 && k <= 65536) }'; then
    status=1
  fi
  if [[ $alive == no ]]; then
    echo "  the bridge ended during $attack; its last lines:" >&2
    tail -3 "$work/$attack.log" >&2
  fi
done
exit $status
