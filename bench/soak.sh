#!/usr/bin/env bash
# Soak: waves of simulated consoles of every login envelope join the bridge of
# the sanitizer build (AddressSanitizer + UndefinedBehaviorSanitizer) and are
# handed over, over 127.0.0.1 only. It fails when a console isn't handed over,
# when the sanitizers report anything (leaks at exit included), or when the
# bridge's resident memory, once the consoles have left, has grown over the
# waves after the first.
#
#   bench/soak.sh            1000 consoles in 10 waves of 100, a few minutes
#   bench/soak.sh --short    200 consoles in 4 waves of 50, about 30 s (CI)
#
# The bridge comes from build/sanitize, the load generator from build/default;
# both are built first when needed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

waves=10
per_wave=100
if [[ "${1:-}" == "--short" ]]; then
  waves=4
  per_wave=50
fi
# One protocol per wave, in turn: the chain login, its v818 envelope, the
# token-only one and the newest framing.
protocols=(560 649 818 944 2168)

cmake --preset sanitize >/dev/null
cmake --build --preset sanitize --target ferrylink >/dev/null
cmake --preset default >/dev/null
cmake --build --preset default --target load_generator >/dev/null
bridge_bin=build/sanitize/bin/ferrylink
gen=build/default/bin/load_generator

work=$(mktemp -d)
bridge_pid=
cleanup() {
  [[ -n "$bridge_pid" ]] && kill -TERM "$bridge_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# Freed memory goes back to the system within a second rather than waiting in
# a quarantine of 256 MiB (which is resident, and would hide whether the
# bridge let go of its consoles); 1 MiB of quarantine still catches a use of
# a connection's buffers right after they are freed.
export ASAN_OPTIONS=quarantine_size_mb=1:allocator_release_to_os_interval_ms=1000:detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

rss_kib() { awk '/^VmRSS:/ { print $2 }' "/proc/$bridge_pid/status"; }
mib() { awk -v k="$1" 'BEGIN { printf "%.1f", k / 1024 }'; }
# Joins `count` consoles of `protocol` at once; every one must be handed over.
wave() {
  local out=$work/wave.$1
  "$gen" joins --port "$port" --consoles "$2" --rounds 1 --protocol "$3" --timeout-ms 60000 >"$out" 2>&1 || true
  if ! grep -q "^joins .* transferred=$2 failed=0" "$out"; then
    cat "$out" >&2
    echo "soak: wave $1 of $2 consoles (protocol $3) was not handed over whole" >&2
    exit 1
  fi
}
# Waits until the bridge's table is empty: the consoles said goodbye, and
# what didn't has timed out (4 s of silence).
settle() { sleep 6; }

port=$("$gen" free-port)
setsid "$bridge_bin" run 127.0.0.1 19132 --listen-host 127.0.0.1 --listen-port "$port" --quiet \
  >"$work/bridge.out" 2>"$work/bridge.err" &
bridge_pid=$!
hex=$(printf '0100007F:%04X' "$port")
for _ in $(seq 1 100); do
  grep -q " $hex " /proc/net/udp && break
  sleep 0.1
done

# Idle: after one console of each protocol, so that what the first join of a
# kind sets up for good (per-thread inflaters, the world tables) is counted.
index=0
for protocol in "${protocols[@]}"; do
  wave "warm$((index++))" 1 "$protocol"
done
settle
idle=$(rss_kib)

peak=$idle
started=$(date +%s)
for ((w = 0; w < waves; w++)); do
  wave "$w" "$per_wave" "${protocols[w % ${#protocols[@]}]}" &
  wave_pid=$!
  while kill -0 "$wave_pid" 2>/dev/null; do
    now=$(rss_kib)
    ((now > peak)) && peak=$now
    sleep 0.2
  done
  wait "$wave_pid"
  # What the allocator keeps once a whole wave has come and gone is its
  # working set; later waves must not add to it.
  if ((w == 0)); then
    settle
    working=$(rss_kib)
  fi
done
settle
after=$(rss_kib)
seconds=$(($(date +%s) - started))

kill -INT "$bridge_pid"
status=0
wait "$bridge_pid" || status=$?
bridge_pid=
echo "soak: $((waves * per_wave)) consoles in $waves waves handed over in ${seconds} s; resident memory" \
  "idle $(mib "$idle") MiB, after the first wave $(mib "$working") MiB, peak $(mib "$peak") MiB, after $(mib "$after") MiB"

if [[ $status -ne 0 ]] || grep -qE "AddressSanitizer|LeakSanitizer|runtime error" "$work/bridge.err"; then
  tail -n 60 "$work/bridge.err" >&2
  echo "soak: the bridge ended with status $status or a sanitizer report" >&2
  exit 1
fi
# The allocator keeps the pages a wave of consoles at once needed (some
# 5 MiB above idle for 50 of them under the sanitizers) and lends them to the
# next wave; what fails is memory that grows from wave to wave: more than
# 4 MiB or a tenth of idle, whichever is more, above what the first wave
# left behind.
allowance=$((idle / 10 > 4096 ? idle / 10 : 4096))
if ((after > working + allowance)); then
  echo "soak: resident memory grew $(mib $((after - working))) MiB over the waves after the first" >&2
  exit 1
fi
