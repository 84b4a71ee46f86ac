#!/usr/bin/env bash
# Installs the Debian packages that the build needs, and nothing when they are all there already.
set -euo pipefail

packages=(build-essential cmake pkg-config qtbase5-dev libgtest-dev libgmock-dev libbenchmark-dev libsystemd-dev locales
          clang libclang-rt-14-dev)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
if [ ${#missing[@]} -ne 0 ]; then
    echo "install-deps: installing ${missing[*]}"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The number formatting tests need a locale that groups digits by three with ",".
if ! locale -a 2>/dev/null | grep -qix 'en_US\.utf-\?8'; then
    echo "install-deps: generating en_US.UTF-8"
    $sudo sed -i 's/^# *\(en_US\.UTF-8 UTF-8\)/\1/' /etc/locale.gen
    grep -q '^en_US\.UTF-8 UTF-8' /etc/locale.gen || echo 'en_US.UTF-8 UTF-8' | $sudo tee -a /etc/locale.gen >/dev/null
    $sudo locale-gen
fi
