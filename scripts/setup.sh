#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need, when any is missing.
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config libglfw3-dev libfreetype-dev python3-glad fonts-noto-cjk
          libgtest-dev libgmock-dev libbenchmark-dev libpng-dev xvfb xauth libgl1-mesa-dri libxtst-dev
          clang-format libcairo2-dev nlohmann-json3-dev)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    sudo_cmd=""
    if [ "$(id -u)" -ne 0 ]; then sudo_cmd="sudo"; fi
    $sudo_cmd apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
