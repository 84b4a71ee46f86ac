#!/usr/bin/env bash
# Installs the Debian packages that the build needs, and nothing when they are all there already.
set -euo pipefail

packages=(build-essential cmake pkg-config qtbase5-dev libgtest-dev libgmock-dev libbenchmark-dev)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "install-deps: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
