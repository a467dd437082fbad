#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test and run.
# Package names given as arguments are installed as well (scripts/cross.sh
# names the cross compiler and the emulator). Idempotent: packages already
# present are left alone; apt is only asked when something is missing.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config git
  asn1c
  cyclonedds-dev cyclonedds-tools
  libcjson-dev
  libconfig-dev libconfig++-dev
  libmbedtls-dev
  libspdlog-dev libfmt-dev
  libgeographiclib-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang-format clang-tidy
  doxygen  # API reference of the MAP library (target docs)
  chromium libpng-dev
  clang libclang-rt-14-dev
  procps
  dpkg-dev debhelper lintian file man-db systemd  # Debian packages, their checks, systemd-analyze
  "$@"
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
