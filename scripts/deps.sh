#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
# Sourced by probe.sh and test.sh; safe to run again.
set -euo pipefail

ZIRK_PACKAGES=(cmake make g++ python3 zlib1g-dev libgtest-dev libgmock-dev nlohmann-json3-dev libcli11-dev)
# CI's extras: the programs the probe's output tests check against (ffmpeg
# decodes what --extract writes, rsvg-convert renders --timeline) and
# pkg-config for the installed-library check.
if [[ "${ZIRK_WITH_MEDIA_TOOLS:-0}" == "1" ]]; then
  ZIRK_PACKAGES+=(ffmpeg librsvg2-bin pkg-config)
fi
if [[ "${ZIRK_WITH_FUZZ:-0}" == "1" ]]; then
  ZIRK_PACKAGES+=(clang libclang-rt-dev)
fi

missing=()
for pkg in "${ZIRK_PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$pkg")
  fi
done

if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}" >&2
  SUDO=""
  if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
