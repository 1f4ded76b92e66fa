#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Idempotent: packages already present
# are skipped, and the package lists are refreshed only when something has to be installed.
set -euo pipefail

packages=(
  build-essential cmake
  android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev
  android-libnativehelper-dev
  rapidjson-dev libsndfile1-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  g++-arm-linux-gnueabihf
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

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "setup: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
