#!/usr/bin/env bash
# Installs the Debian packages the build needs, and only those that are missing,
# so that a second run on a prepared machine touches nothing and needs no network.
set -euo pipefail

packages=(
  build-essential cmake pkg-config clang libclang-rt-14-dev
  libtbb-dev libsparsehash-dev libxxhash-dev libexpat1-dev liblmdb-dev libpq-dev postgresql uuid-dev
  libgtest-dev libgmock-dev libbenchmark-dev libpugixml-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
