#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Idempotent: packages already present
# are skipped, and the package lists are refreshed only when something has to be installed.
#   scripts/setup.sh        the host build, its tests and the fuzzers
#   scripts/setup.sh arm    also the 32-bit ARM cross build (armhf packages, run under qemu)
set -euo pipefail
cd "$(dirname "$0")/.."
arm=false
[ "${1:-}" = arm ] && arm=true

packages=(
  build-essential cmake pkg-config
  android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev
  android-libnativehelper-dev
  rapidjson-dev libsndfile1-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  g++-arm-linux-gnueabihf qemu-user blueprint-tools
  openjdk-17-jdk-headless junit5
  libpocketsphinx-dev libsphinxbase-dev pocketsphinx-en-us flite
  clang libclang-rt-14-dev
)
if $arm; then
  for p in android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev \
           android-libnativehelper-dev libsndfile1-dev libgtest-dev libgmock-dev; do
    packages+=("$p:armhf")
  done
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

# As root, apt-get runs directly; otherwise through sudo, which a minimal machine may not have.
SUDO=()
if [ ${#missing[@]} -gt 0 ] && [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "setup: missing packages (${missing[*]}); run this script as root or install sudo" >&2
    exit 1
  fi
  SUDO=(sudo)
fi
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  if $arm && ! dpkg --print-foreign-architectures | grep -qx armhf; then
    ${SUDO[@]+"${SUDO[@]}"} dpkg --add-architecture armhf
  fi
  # A mirror in the middle of a sync can fail one index (seen with the security archive); the
  # install below still fails clearly if a package really cannot be found.
  ${SUDO[@]+"${SUDO[@]}"} apt-get update -qq ||
    echo "setup: some package lists could not be refreshed; trying with those there are" >&2
  ${SUDO[@]+"${SUDO[@]}"} env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# Debian's ARM libbacktrace loads 7z.so, whose package installs only for the host architecture:
# the ARM copy is unpacked from its package into the ARM build's folder.
if $arm && [ ! -f build-arm/armhf-libs/7z.so ]; then
  work=$(mktemp -d)
  (cd "$work" && apt-get download -qq p7zip-full:armhf 2>/dev/null && dpkg-deb -x ./*.deb unpacked)
  mkdir -p build-arm/armhf-libs
  cp "$work/unpacked/usr/lib/p7zip/7z.so" build-arm/armhf-libs/
  rm -rf "$work"
fi
