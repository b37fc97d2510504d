#!/usr/bin/env bash
# Installs what is needed, builds and runs every test: the suites in a plain
# build, under AddressSanitizer and UndefinedBehaviorSanitizer, and under
# ThreadSanitizer; every fuzz target for a few seconds; a short soak of the
# sanitizer build; then the browser tests and the client compatibility suite
# against the plain build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh --browser

jobs=$(nproc)
for preset in default sanitize tsan; do
  echo "=== ${preset} build ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done

echo "=== fuzz targets ==="
scripts/fuzz.sh

echo "=== soak ==="
bench/soak.sh --short

if [[ -f tests/web/package.json ]]; then
  echo "=== browser tests ==="
  (cd tests/web && npm ci --no-audit --no-fund --silent)
  FERRYLINK_BIN=build/default/bin node --test tests/web/
fi

echo "=== client compatibility ==="
(cd tests/compat && npm ci --ignore-scripts --no-audit --no-fund --silent)
FERRYLINK_BIN=build/default/bin node tests/compat/run.mjs
