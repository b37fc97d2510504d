#!/usr/bin/env bash
# Installs the Debian packages Ferrylink builds and tests with. Works as root
# or through sudo; does nothing when everything is there already.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  zlib1g-dev nlohmann-json3-dev libcurl4-openssl-dev libsqlite3-dev
  libcpp-httplib-dev libcli11-dev libssl-dev openssl ca-certificates
  libgtest-dev libgmock-dev libbenchmark-dev
  valgrind
)
if [[ "${1:-}" == "--browser" ]]; then
  # Browser tests drive Debian's Chromium from Node.js.
  packages+=(chromium)
  command -v node >/dev/null || packages+=(nodejs)
  command -v npm >/dev/null || packages+=(npm)
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=()
[[ $(id -u) -ne 0 ]] && sudo=(sudo)
echo "Installing: ${missing[*]}"
"${sudo[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
