#!/usr/bin/env bash
# Installs the RakNet reference peer of bench/run.sh (the npm package
# raknet-native, pinned in bench/raknet_native/package-lock.json). Its install
# script would build from source; it is skipped, and the prebuilt library that
# ships in the package is put where the package looks for a build of its own.
set -euo pipefail
here=$(cd "$(dirname "$0")/raknet_native" && pwd)
package=$here/node_modules/raknet-native
[[ -f $package/build/Release/node-raknet.node ]] && exit 0
command -v npm >/dev/null || { echo "npm is missing: scripts/install-deps.sh --browser installs it" >&2; exit 1; }
(cd "$here" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error)
prebuilt=$(ls "$package"/prebuilds/linux-*-x64/node-raknet.node | head -1)
mkdir -p "$package/build/Release"
cp "$prebuilt" "$package/build/Release/node-raknet.node"
