#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Idempotent: packages already present
# are skipped, and the package lists are refreshed only when something has to be installed.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev
  android-libnativehelper-dev
  rapidjson-dev libsndfile1-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  g++-arm-linux-gnueabihf qemu-user blueprint-tools
  openjdk-17-jdk-headless junit5
  libpocketsphinx-dev libsphinxbase-dev pocketsphinx-en-us flite
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

# As root, apt-get runs directly; otherwise through sudo, which a minimal machine may not have.
SUDO=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "setup: missing packages (${missing[*]}); run this script as root or install sudo" >&2
    exit 1
  fi
  SUDO=(sudo)
fi
echo "setup: installing ${missing[*]}"
${SUDO[@]+"${SUDO[@]}"} apt-get update -qq
${SUDO[@]+"${SUDO[@]}"} env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
