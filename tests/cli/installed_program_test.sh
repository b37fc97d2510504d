#!/usr/bin/env bash
# The programs as a user gets them: installed into a temporary prefix, the
# installed `ferrylink run` finds its data folder and hands over a simulated
# console on loopback, carries none of the app's libraries, and answers wrong
# arguments with one line and status 2. The join of every client is the
# compatibility suite's.
#   installed_program_test.sh BUILD_DIR SIMCONSOLE VERSION
set -euo pipefail
build=$1 simconsole=$2 version=$3
prefix=$(mktemp -d)
bridge=
trap '[[ -n $bridge ]] && kill "$bridge" 2>/dev/null; rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
ferrylink=$prefix/bin/ferrylink

[[ $("$ferrylink" --version) == "ferrylink $version" ]]
[[ -s $prefix/share/man/man1/ferrylink.1 && -s $prefix/lib/systemd/system/ferrylink.service ]]
if command -v systemd-analyze >/dev/null; then
  MANPATH=$prefix/share/man systemd-analyze verify "$prefix"/lib/systemd/system/*.service
fi
if ldd "$ferrylink" | grep -E 'libssl|libcurl|libsqlite|httplib'; then exit 1; fi
# The app is handed over to the installed ferrylink-app, which checks --listen.
status=0; "$ferrylink" app --listen nowhere 2>/dev/null || status=$?
[[ $status == 2 ]]

# Wrong arguments, one set a line: one line that starts "ferrylink: ", status 2.
while read -r line; do
  eval "words=($line)"
  status=0; output=$("$ferrylink" "${words[@]}" 2>&1) || status=$?
  [[ $status == 2 && $output == "ferrylink: "* && $output != *$'\n'* ]] || { echo "$line: status $status, $output"; exit 1; }
done <<'EOF'
run
run h 0
run h 65536
run h abc
run h --listen-port -1
run ' '
ping
ping h 19132x
fly
EOF

# The bridge, set up in the installed config file as the service has it, says
# where it really listens; the next port stands in for a taken one.
config=$prefix/etc/ferrylink/ferrylink.conf
printf '[run]\nhost = "127.0.0.1"\nport = 19133\nquiet = true\nlisten-host = "127.0.0.1"\nlisten-port = %d\n' \
  $((20000 + RANDOM % 40000)) >"$config"
"$ferrylink" --config "$config" run >"$prefix/run.log" 2>&1 &
bridge=$!
for _ in $(seq 100); do
  port=$(sed -n 's/^Listening on UDP 127\.0\.0\.1:\([0-9]*\).*/\1/p' "$prefix/run.log")
  [[ -n $port ]] && break
  sleep 0.1
done
[[ -n $port ]] || { cat "$prefix/run.log"; exit 1; }

pong=$("$ferrylink" ping 127.0.0.1 "$port")
for line in "address:   127.0.0.1:$port" "time:      " "motd:      Ferrylink" "protocol:  560" "players:   0/99"; do
  [[ $pong == *"$line"* ]] || { echo "no '$line' in: $pong"; exit 1; }
done
# A second bridge on that port is refused, and a name that doesn't resolve
# (a label over 63 letters fails before any query is sent) is told apart
# from a port where nothing answers.
expect_failure() {
  local status=0 output
  output=$("$ferrylink" "${@:2}" 2>&1) || status=$?
  [[ $status == 1 && $output == *"$1"* ]] || { echo "ferrylink ${*:2}: status $status, $output"; exit 1; }
}
expect_failure "ferrylink: Another Ferrylink is already listening on UDP port $port." \
  run 127.0.0.1 --listen-host 127.0.0.1 --listen-port "$port"
# A copy of the program without its data folder says so instead of running.
mkdir -p "$prefix/elsewhere/bin" && cp "$ferrylink" "$prefix/elsewhere/bin/"
ferrylink=$prefix/elsewhere/bin/ferrylink expect_failure "world-data folder portalhop_PortalHop.bundle is missing" run h
expect_failure ": name does not resolve" ping "$(printf 'x%.0s' {1..64}).test"
expect_failure "127.0.0.1:$((port + 1)) within 200 ms: closed port or no server" ping 127.0.0.1 $((port + 1)) --timeout 200

joined=$("$simconsole" --port "$port" --bundle "$prefix/share/ferrylink/portalhop_PortalHop.bundle")
[[ $joined == *$'\nTransfer: 127.0.0.1:19133'* ]]

# SIGTERM, as systemd stops it: joined consoles are told, the status is 0,
# and --quiet kept the per-datagram lines out.
kill -TERM "$bridge"
wait "$bridge"
bridge=
grep -q "Server shutting down!" "$prefix/run.log"
if grep "Unconnected: " "$prefix/run.log"; then exit 1; fi
