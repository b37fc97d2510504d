#!/usr/bin/env bash
# Installs the Debian packages Ferrylink builds, tests and packages with
# (help2man writes the man pages, dpkg-dev and file let CPack find the
# package's dependencies), and the npm package of the app's font. Works as root or through sudo; does nothing when
# everything is there already.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  zlib1g-dev nlohmann-json3-dev libcurl4-openssl-dev libsqlite3-dev
  libcpp-httplib-dev libcli11-dev libssl-dev openssl ca-certificates
  libgtest-dev libgmock-dev libbenchmark-dev
  valgrind
  librsvg2-bin
  help2man dpkg-dev file
  # libFuzzer and its sanitizer runtimes come with Debian's clang.
  clang libclang-rt-dev
)
# npm brings the app's font (resources/font); the browser tests drive
# Debian's Chromium from Node.js.
command -v node >/dev/null || packages+=(nodejs)
command -v npm >/dev/null || packages+=(npm)
if [[ "${1:-}" == "--browser" ]]; then
  packages+=(chromium)
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
if [[ ${#missing[@]} -gt 0 ]]; then
  sudo=()
  [[ $(id -u) -ne 0 ]] && sudo=(sudo)
  echo "Installing: ${missing[*]}"
  "${sudo[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The font package, pinned in resources/font/package-lock.json; the build
# compiles it into the program.
font="$(dirname "$0")/../resources/font"
pinned=$(grep -o '"@fontsource/pixelify-sans": "[^"]*"' "$font/package.json" | cut -d'"' -f4)
installed=$(grep -o '"version": "[^"]*"' "$font/node_modules/@fontsource/pixelify-sans/package.json" 2>/dev/null | cut -d'"' -f4 || true)
if [[ "$installed" != "$pinned" ]]; then
  (cd "$font" && npm ci --no-audit --no-fund --silent)
fi
