#!/usr/bin/env bash
# Installs the Debian packages a command needs. Idempotent: packages already present are skipped,
# and the package lists are refreshed only when something has to be installed. The package
# manager's own output goes to build/setup.log; this prints one line when it installs anything.
#   scripts/setup.sh run     the main job: the library, the PocketSphinx engine, the Java host
#   scripts/setup.sh test    also the tests, the sanitizer and fuzz builds, the stress form
#   scripts/setup.sh arm     also the 32-bit ARM cross build (armhf packages, run under qemu)
#   scripts/setup.sh eval    also what scripts/evaluate.sh speaks, degrades and plots with
#   scripts/setup.sh         the same as test
set -euo pipefail
cd "$(dirname "$0")/.."

run_packages=(
  build-essential cmake pkg-config
  android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev
  android-libnativehelper-dev
  rapidjson-dev libsndfile1-dev libasound2-dev openjdk-17-jdk-headless
  libpocketsphinx-dev libsphinxbase-dev pocketsphinx-en-us flite
)
test_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev junit5 blueprint-tools
  clang libclang-rt-14-dev stress-ng
  g++-arm-linux-gnueabihf qemu-user
)
# Speech synthesis for the evaluation set: festival's kal diphone voice at 16 kHz and the HTS slt
# voice, espeak-ng's formant voices; sox degrades the audio, gnuplot draws the error curves.
# festival's 8 kHz kal voice conflicts with the 16 kHz one (same voice name and folder), so it is
# not installed: its package is unpacked into build/voices below.
eval_packages=(
  sox festival festvox-kallpc16k festvox-us-slt-hts espeak-ng gnuplot-nox
)
# The normal build's tests compile two checks for the device's 32-bit ARM and run one under qemu:
# the cross compiler and qemu are test packages. The ARM build also needs the armhf libraries.
arm_packages=()
for p in android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev \
         android-libnativehelper-dev libsndfile1-dev libgtest-dev libgmock-dev; do
  arm_packages+=("$p:armhf")
done

groups=("$@")
[ ${#groups[@]} -eq 0 ] && groups=(test)
packages=("${run_packages[@]}")
arm=false
evaluation=false
for group in "${groups[@]}"; do
  case "$group" in
    run) ;;
    test) packages+=("${test_packages[@]}") ;;
    arm) packages+=("${test_packages[@]}" "${arm_packages[@]}"); arm=true ;;
    eval) packages+=("${eval_packages[@]}"); evaluation=true ;;
    *) echo "setup: unknown group '$group' (run, test, arm, eval)" >&2; exit 2 ;;
  esac
done

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
mkdir -p build
log=build/setup.log
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${#missing[@]} Debian packages (a few minutes the first time; log in $log)"
  : >"$log"
  if $arm && ! dpkg --print-foreign-architectures | grep -qx armhf; then
    ${SUDO[@]+"${SUDO[@]}"} dpkg --add-architecture armhf
  fi
  # A mirror in the middle of a sync can fail one index (seen with the security archive); the
  # install below still fails clearly if a package really cannot be found.
  ${SUDO[@]+"${SUDO[@]}"} apt-get update -qq >>"$log" 2>&1 ||
    echo "setup: some package lists could not be refreshed; trying with those there are" >&2
  if ! ${SUDO[@]+"${SUDO[@]}"} env DEBIAN_FRONTEND=noninteractive \
       apt-get install -y -qq --no-install-recommends "${missing[@]}" >>"$log" 2>&1; then
    tail -n 20 "$log" >&2
    echo "setup: installing ${missing[*]} failed; the package manager's output is in $log" >&2
    exit 1
  fi
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

if $evaluation && [ ! -f build/voices/kallpc8k/festvox/kal_diphone.scm ]; then
  work=$(mktemp -d)
  if (cd "$work" && apt-get download -qq festvox-kallpc8k >>"$OLDPWD/$log" 2>&1 &&
      dpkg-deb -x ./*.deb unpacked); then
    mkdir -p build/voices
    rm -rf build/voices/kallpc8k
    cp -r "$work/unpacked/usr/share/festival/voices/english/kal_diphone" build/voices/kallpc8k
  else
    echo "setup: could not fetch festvox-kallpc8k (log in $log); the evaluation goes without it" >&2
  fi
  rm -rf "$work"
fi
