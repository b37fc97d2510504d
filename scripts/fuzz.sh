#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, ASan + UBSan) and runs each one.
#   scripts/fuzz.sh            6 s per target (FUZZ_SECONDS), about a minute in all: CI
#   scripts/fuzz.sh --long     10 million executions per target
#   scripts/fuzz.sh --long login batch    only the targets named
# Corpora grow in build/fuzz/corpus/<target>, seeded on the first run from
# the byte rows, JSON and adverts of the test suites that speak the target's
# language. A crash, a sanitizer report or a fatal fault stops the run and
# leaves the input in build/fuzz/findings/; reproduce it with
# build/fuzz/bin/fuzz_<target> <file>, and make it a regression test of the
# decoder's own suite.
set -euo pipefail
cd "$(dirname "$0")/.."

options=(-max_total_time="${FUZZ_SECONDS:-6}")
if [[ "${1:-}" == "--long" ]]; then
  options=(-runs=10000000)
  shift
fi

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

declare -A fixture_folders=(
  [raknet_packets]=raknet [raknet_connection]=raknet [raknet_listener]=raknet [server_info]="raknet bridge"
  [batch]=bridge [client_packets]=bridge [login]=bridge [web_token]=bridge
  [web_json]="app_web backend" [backend_json]="app backend"
)

# Hex rows ("84 00 00 00", "00*24" for 24 bytes of 00), raw strings that hold
# JSON, and adverts, each into a file of its own.
seed_fixtures() {  # corpus, then test folders
  local corpus=$1
  shift
  for folder; do cat tests/"$folder"/*.cpp; done | CORPUS=$corpus perl -0777 -ne '
    sub seed { open(my $file, ">", "$ENV{CORPUS}/fixture-" . ++$main::count) or die $!; print $file $_[0]; }
    while (/"([0-9A-F]{2}(?: [0-9A-F]{2}|\*\d+)* ?)"/g) {
      (my $hex = $1) =~ s/([0-9A-F]{2})\*(\d+)/$1 x $2/ge;
      $hex =~ s/\s//g;
      seed(pack("H*", $hex));
    }
    seed($1) while /R"\(([\[{].*?)\)"/gs;
    seed($1) while /"(MCPE;[^"\n]*)"/g;'
}

b64url() { base64 -w0 | tr '+/' '-_' | tr -d '='; }
# An unsigned token around the claims on standard input.
token() { printf '%s.%s.c2ln' "$(printf '{"alg":"ES384"}' | b64url)" "$(b64url)"; }
# A login body: protocol, then behind its var-int length the identity and the
# client data, each behind its little-endian length.
login_body() {  # protocol, identity, client data
  perl -e 'my ($protocol, $identity, $client) = @ARGV;
    my $request = pack("V/a* V/a*", $identity, $client);
    my ($length, $varint) = (length $request, "");
    while ($length >= 0x80) { $varint .= chr($length & 0x7F | 0x80); $length >>= 7 }
    print pack("N", $protocol) . $varint . chr($length) . $request' "$@"
}

seed() {  # target, corpus
  seed_fixtures "$2" ${fixture_folders[$1]}
  local chain client file
  case $1 in
    web_token)
      for file in "$2"/fixture-*; do
        token <"$file" >"$file.token"
        rm "$file"
      done ;;
    login)
      chain="{\"chain\":[\"$(printf '%s' '{"extraData":{"XUID":"1","identity":"6f1c","displayName":"Steve"},"identityPublicKey":"MHYw"}' | token)\"]}"
      client=$(printf '%s' '{"ThirdPartyName":"Steve"}' | token)
      login_body 560 "$chain" "$client" >"$2/login-chain"
      login_body 818 "{\"AuthenticationType\":0,\"Certificate\":\"${chain//\"/\\\"}\",\"Token\":\"\"}" "$client" \
        >"$2/login-certificate"
      login_body 944 "{\"AuthenticationType\":0,\"Certificate\":\"\",\"Token\":\"$(printf '%s' '{"xname":"Steve"}' | token)\"}" \
        "$client" >"$2/login-token" ;;
  esac
}

targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then
  for program in build/fuzz/bin/fuzz_*; do
    targets+=("${program#build/fuzz/bin/fuzz_}")
  done
fi

mkdir -p build/fuzz/findings
for target in "${targets[@]}"; do
  corpus=build/fuzz/corpus/$target
  if [[ ! -d $corpus ]]; then
    mkdir -p "$corpus"
    seed "$target" "$corpus"
  fi
  log=build/fuzz/findings/$target.log
  # Ten seconds for one input is a stall, whatever the input.
  if ! build/fuzz/bin/fuzz_"$target" "${options[@]}" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix=build/fuzz/findings/"$target"- "$corpus" >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "fuzz_$target found a fault: see $log" >&2
    exit 1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  echo "fuzz_$target: $runs executions, corpus of $(find "$corpus" -type f | wc -l) inputs"
done
