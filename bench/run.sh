#!/usr/bin/env bash
# Measures the bridge as a user runs it (`ferrylink run`), over 127.0.0.1 only,
# side by side with RakNet's own C++ library (the npm package raknet-native)
# and a bare UDP echo, and prints Markdown tables: join-to-transfer latency
# for 1, 100 and 1000 consoles joining at once, hand-overs per second at
# saturation, pongs per second of the bridge, RakNet C++ and the echo, CPU and
# memory idle and under load, instructions per join counted by callgrind, and
# the targets met or missed.
#
#   bench/run.sh                      build (Release, build/release) and measure
#   bench/run.sh --no-build           measure what is built
#   bench/run.sh --bridge PROGRAM     measure another build of `ferrylink`
#                                     (load_generator still from build/release)
#
# Needs valgrind (scripts/install-deps.sh) and npm (scripts/install-deps.sh
# --browser); bench/install_raknet_native.sh installs the RakNet peer. Every
# load is bounded in count and time; a run takes about six minutes on two cores.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/release
bin=$build/bin
bridge_program=$bin/ferrylink
build_first=1
while [[ $# -gt 0 ]]; do
  case $1 in
    --no-build) build_first=0 ;;
    --bridge) bridge_program=$(realpath "$2"); build_first=0; shift ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
  shift
done

if [[ $build_first == 1 ]]; then
  echo "Building (Release) in $build ..." >&2
  (cd "$root" && cmake --preset release >/dev/null &&
    cmake --build --preset release -j2 --target ferrylink load_generator >/dev/null)
fi
"$root/bench/install_raknet_native.sh"
command -v valgrind >/dev/null || { echo "valgrind is missing: scripts/install-deps.sh installs it" >&2; exit 1; }

work=$(mktemp -d)
started=()
stop_started() {
  for pid in "${started[@]}"; do
    kill -TERM "$pid" 2>/dev/null || true
  done
  for pid in "${started[@]}"; do
    wait "$pid" 2>/dev/null || true
  done
  started=()
}
trap 'stop_started; rm -rf "$work"' EXIT

gen=("$bin/load_generator")
# The bridge and the echo run in sessions of their own, so the scheduler
# shares the CPU between them and the thousand console threads as between
# programs (autogroups), not thread by thread: the consoles stand for
# machines of their own.
own_session=(setsid)
# Somewhere to send consoles on to; nothing has to listen there.
target_port=19132

# The value of `key` in the last line of a file that starts with `label`.
value() { grep "^$2" "$1" | tail -1 | tr ' ' '\n' | sed -n "s/^$3=//p"; }

# Waits until a UDP socket is bound to 127.0.0.1:port, looking at the table
# of sockets rather than sending anything.
wait_bound() {
  local hex
  hex=$(printf '0100007F:%04X' "$1")
  for _ in $(seq 1 "$2"); do
    grep -q " $hex " /proc/net/udp && return 0
    sleep 0.1
  done
  echo "nothing bound to 127.0.0.1:$1" >&2
  return 1
}

start_bridge() {  # port, then optional wrapper words before the program
  local port=$1
  shift
  "$@" "$bridge_program" run 127.0.0.1 "$target_port" --listen-host 127.0.0.1 --listen-port "$port" >/dev/null 2>&1 &
  bridge_pid=$!
  started+=("$bridge_pid")
}

now() { date +%s.%N; }

echo "Measuring; about six minutes ..." >&2
port=$("${gen[@]}" free-port)
start_bridge "$port" "${own_session[@]}"
wait_bound "$port" 100
grep -q ferrylink "/proc/$bridge_pid/cmdline" 2>/dev/null || { echo "the bridge isn't process $bridge_pid" >&2; exit 1; }
raknet_port=$("${gen[@]}" free-port)
"${own_session[@]}" node "$root/bench/raknet_native/pong_server.js" "$raknet_port" >/dev/null 2>&1 &
raknet_pid=$!
started+=("$raknet_pid")
wait_bound "$raknet_port" 100

# --- Idle, no client ever: both side by side --------------------------------------------
sleep 2
"${gen[@]}" watch --pid "$bridge_pid" --seconds 30 --period 5 >"$work/idle" &
idle_watch=$!
"${gen[@]}" watch --pid "$raknet_pid" --seconds 30 --period 5 >"$work/idle-raknet"
wait "$idle_watch"

# --- Joins --------------------------------------------------------------------------------
joins() {  # output file, then the options
  local out=$1
  shift
  "${gen[@]}" joins --port "$port" --watch-pid "$bridge_pid" "$@" >"$out" 2>>"$work/problems" || true
}
joins "$work/join1" --consoles 1 --rounds 40 --pause-ms 100
# A crowd is counted from the generator's second crowd on; its first, shown
# in the notes, also times the generator's own start.
joins "$work/join100" --consoles 100 --rounds 5 --warmup-rounds 1
joins "$work/join1000" --consoles 1000 --rounds 2 --pause-ms 1000 --warmup-rounds 1
# Hand-overs per second: batches of growing size, each let go at once; the
# best batch is the rate at saturation. Past the 92 requests of 1400 bytes
# that the socket's default receive queue holds, drops and repeats set in.
batches=(40 80 160 320)
for size in "${batches[@]}"; do
  joins "$work/batch$size" --consoles "$size" --rounds 5 --pause-ms 300
done
best=${batches[0]}
for size in "${batches[@]}"; do
  if awk -v a="$(value "$work/batch$size" joins per_s_median)" -v b="$(value "$work/batch$best" joins per_s_median)" \
    'BEGIN { exit !(a + 0 > b + 0) }'; then
    best=$size
  fi
done

# --- Pongs: the bridge, RakNet C++ and the echo, rounds interleaved ------------------------
"${own_session[@]}" "${gen[@]}" echo --seconds 120 >"$work/echo" &
echo_pid=$!
started+=("$echo_pid")
for _ in $(seq 50); do
  [[ -s "$work/echo" ]] && break
  sleep 0.1
done
echo_port=$(sed -n 's/^port=//p' "$work/echo")
"${gen[@]}" pings --target "bridge=$port" --target "raknet=$raknet_port" --target "echo=$echo_port" \
  --seconds 2 --rounds 3 >"$work/pings"
stop_started

# --- Instructions per join under callgrind -------------------------------------------------
# One dump after start-up, one after 3 s idle (the tick's own cost per
# second), then one after each join; a join's count is its dump less the idle
# rate times the time the dump covers. A first join warms up and isn't counted.
joins_counted=20
port=$("${gen[@]}" free-port)
start_bridge "$port" valgrind --tool=callgrind --callgrind-out-file="$work/cg.%p"
wait_bound "$port" 600
dump() { callgrind_control -d "$1" "$bridge_pid" >/dev/null 2>&1; now >"$work/at.$1"; }
"${gen[@]}" joins --port "$port" --consoles 1 --rounds 1 --pause-ms 0 >/dev/null 2>&1 || true
dump start
sleep 3
dump idle
for i in $(seq 1 $joins_counted); do
  "${gen[@]}" joins --port "$port" --consoles 1 --rounds 1 --pause-ms 0 >/dev/null 2>>"$work/problems" || true
  dump "join$i"
done
stop_started

totals() { grep -l "^desc: Trigger: dump $1\$" "$work"/cg.* | xargs sed -n 's/^totals: //p'; }
idle_rate=$(awk -v ir="$(totals idle)" -v a="$(cat "$work/at.start")" -v b="$(cat "$work/at.idle")" \
  'BEGIN { printf "%.0f", ir / (b - a) }')
previous=idle
: >"$work/per-join"
for i in $(seq 1 $joins_counted); do
  awk -v ir="$(totals "join$i")" -v rate="$idle_rate" -v a="$(cat "$work/at.$previous")" -v b="$(cat "$work/at.join$i")" \
    'BEGIN { printf "%.0f\n", ir - rate * (b - a) }' >>"$work/per-join"
  previous=join$i
done
# Nearest-rank percentiles of a file of numbers.
rank() { sort -n "$1" | awk -v f="$2" '{ v[NR] = $1 } END { r = int(f * NR); if (r < f * NR) r++; if (r < 1) r = 1; print v[r] }'; }
ir_median=$(rank "$work/per-join" 0.5)
ir_p99=$(rank "$work/per-join" 0.99)

# --- The table ------------------------------------------------------------------------------
mib() { awk -v k="$1" 'BEGIN { printf "%.1f MiB", k / 1024 }'; }
millions() { awk -v n="$1" 'BEGIN { printf "%.2f M", n / 1e6 }'; }
latency_row() {  # label, file
  local transferred failed
  transferred=$(value "$2" joins transferred)
  failed=$(value "$2" joins failed)
  local first=""
  grep -q "^warmup" "$2" && first="; first, uncounted crowd: $(value "$2" warmup transferred) handed over, $(value "$2" warmup failed) not, p99 $(value "$2" warmup p99_ms) ms"
  printf '| %s | %s ms | %s ms | %s of %s handed over; %s datagrams dropped%s |\n' "$1" "$(value "$2" joins median_ms)" \
    "$(value "$2" joins p99_ms)" "${transferred:-0}" "$(( ${transferred:-0} + ${failed:-0} ))" "$(value "$2" watch drops)" "$first"
}

echo
echo "Date: $(date -u '+%Y-%m-%d %H:%M UTC'); bridge $bridge_program, commit $(git -C "$root" rev-parse --short HEAD 2>/dev/null || echo unknown);" \
  "$(nproc) cores, $(awk '/MemTotal/ { printf "%.1f GiB", $2 / 1048576 }' /proc/meminfo) memory;" \
  "load average at the end $(cut -d' ' -f1-3 /proc/loadavg)"
echo
echo "| Measurement | Median | p99 | Notes |"
echo "|---|---|---|---|"
latency_row "Join → transfer, 1 console (40 runs)" "$work/join1"
latency_row "Join → transfer, 100 at once (5 runs)" "$work/join100"
latency_row "Join → transfer, 1000 at once (2 runs)" "$work/join1000"
curve=""
for size in "${batches[@]}"; do
  curve+="${curve:+, }$size: $(value "$work/batch$size" joins per_s_median)"
done
printf '| Hand-overs per second at saturation (%s at once, 5 runs) | %s /s | %s /s | p99: the rate 99 %% of runs reached; %s ms CPU per join; by batch %s |\n' \
  "$best" "$(value "$work/batch$best" joins per_s_median)" "$(value "$work/batch$best" joins per_s_p99)" \
  "$(awk -v ms="$(value "$work/batch$best" watch cpu_ms)" -v n="$(value "$work/batch$best" joins transferred)" \
    'BEGIN { printf "%.2f", (n > 0 ? ms / n : 0) }')" "$curve"
pongs() { value "$work/pings" "pings target=$1" per_s_median; }
pongs_min() { value "$work/pings" "pings target=$1" per_s_min; }
printf '| Unconnected pongs per second, bridge (3 × 2 s) | %s /s | %s /s | %s of RakNet C++, %s of the echo |\n' \
  "$(pongs bridge)" "$(pongs_min bridge)" \
  "$(awk -v a="$(pongs bridge)" -v b="$(pongs raknet)" 'BEGIN { printf "%.2f ×", a / b }')" \
  "$(awk -v a="$(pongs bridge)" -v b="$(pongs echo)" 'BEGIN { printf "%.0f %%", 100 * a / b }')"
printf '| Unconnected pongs per second, RakNet C++ (3 × 2 s) | %s /s | %s /s | raknet-native 1.2.3, same flood |\n' \
  "$(pongs raknet)" "$(pongs_min raknet)"
printf '| UDP echo per second, same loopback (3 × 2 s) | %s /s | %s /s | recvmmsg and sendmmsg: the ceiling |\n' \
  "$(pongs echo)" "$(pongs_min echo)"
idle_row() {  # label, file
  printf '| Idle CPU, %s (6 × 5 s) | %s %% | %s %% | mean %s %% of one core |\n' "$1" \
    "$(value "$2" watch cpu_median_pct)" "$(value "$2" watch cpu_p99_pct)" "$(value "$2" watch cpu_mean_pct)"
  printf '| Idle resident memory, %s | %s | %s | own %s, program and libraries %s |\n' "$1" \
    "$(mib "$(value "$2" watch rss_median_kib)")" "$(mib "$(value "$2" watch rss_max_kib)")" \
    "$(mib "$(value "$2" watch anon_median_kib)")" "$(mib "$(value "$2" watch file_median_kib)")"
}
idle_row "bridge, no client" "$work/idle"
idle_row "RakNet C++, no client" "$work/idle-raknet"
printf '| CPU during 1000 at once (250 ms windows) | %s %% | %s %% | peak %s %%, %s ms in all |\n' \
  "$(value "$work/join1000" watch cpu_median_pct)" "$(value "$work/join1000" watch cpu_p99_pct)" \
  "$(value "$work/join1000" watch cpu_max_pct)" "$(value "$work/join1000" watch cpu_ms)"
printf '| Resident memory during 1000 at once | %s | %s | own %s, high-water mark %s |\n' \
  "$(mib "$(value "$work/join1000" watch rss_median_kib)")" "$(mib "$(value "$work/join1000" watch rss_max_kib)")" \
  "$(mib "$(value "$work/join1000" watch anon_median_kib)")" "$(mib "$(value "$work/join1000" watch hwm_kib)")"
printf '| Instructions per complete join (callgrind, %s joins) | %s | %s | idle: %s per second |\n' \
  "$joins_counted" "$(millions "$ir_median")" "$(millions "$ir_p99")" "$(millions "$idle_rate")"

# --- Targets ----------------------------------------------------------------------------------
check() {  # label, measured, met (1 or 0)
  printf '| %s | %s | %s |\n' "$1" "$2" "$( [[ $3 == 1 ]] && echo met || echo missed)"
}
le() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a + 0 <= b + 0) }' && echo 1 || echo 0; }
ratio=$(awk -v a="$(pongs bridge)" -v b="$(pongs raknet)" 'BEGIN { printf "%.2f", a / b }')
rss_idle=$(value "$work/idle" watch rss_median_kib)
all_1000=$(( $(value "$work/join1000" joins failed) == 0 ))
drops_1000=$(value "$work/join1000" watch drops)
echo
echo "| Target | Measured | |"
echo "|---|---|---|"
check "Pongs ≥ 2 × RakNet C++" "$ratio ×" "$(le 2 "$ratio")"
check "1 console: p50 ≤ 10 ms" "$(value "$work/join1" joins median_ms) ms" "$(le "$(value "$work/join1" joins median_ms)" 10)"
check "100 at once: p99 ≤ 100 ms" "$(value "$work/join100" joins p99_ms) ms" "$(le "$(value "$work/join100" joins p99_ms)" 100)"
check "1000 at once: all handed over" "$(value "$work/join1000" joins transferred) of $(( $(value "$work/join1000" joins transferred) + $(value "$work/join1000" joins failed) ))" "$all_1000"
check "1000 at once: p99 ≤ 1 s" "$(value "$work/join1000" joins p99_ms) ms" "$(le "$(value "$work/join1000" joins p99_ms)" 1000)"
check "1000 at once: no datagram dropped" "$drops_1000 dropped" "$(le "$drops_1000" 0)"
check "Idle: ≤ 0.2 % of a core" "$(value "$work/idle" watch cpu_mean_pct) %" "$(le "$(value "$work/idle" watch cpu_mean_pct)" 0.2)"
check "Idle: ≤ 8 MiB resident" "$(mib "$rss_idle")" "$(le "$rss_idle" 8192)"
check "Instructions per join ≤ 5.82 M" "$(millions "$ir_median")" "$(le "$ir_median" 5820000)"

if [[ -s "$work/problems" ]]; then
  echo
  echo "Problems seen by consoles:"
  sort "$work/problems" | uniq -c | sort -rn | head -5
fi
