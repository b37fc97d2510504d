#!/usr/bin/env bash
# Installs what is needed, builds Ferrylink and runs it with the given arguments.
#   scripts/run.sh                 the app, served on http://127.0.0.1:8080
#   scripts/run.sh app --listen 0.0.0.0:8080   the app for phones on this network
#   scripts/run.sh run HOST [PORT] the bridge alone, headless
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target ferrylink
[[ $# -eq 0 ]] && set -- app
exec build/default/bin/ferrylink "$@"
