#!/usr/bin/env bash
# Installs the build into a fresh prefix, then builds and runs a small program against the
# installed copy only, through its pkg-config file.
#   check_install.sh <build dir> <c++ compiler> <consumer source>
set -euo pipefail
build=$1 cxx=$2 source=$3
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
for expected in lib/libwakewordservice.so lib/libnorvo.so include/norvo/NorvoApi.h \
                include/wakewordservice/WakeWordService.h share/java/wakewordservice.jar \
                include/wakewordservice/host/sys/system_properties.h \
                share/wakewordservice/models/default.manifest lib/pkgconfig/wakewordservice.pc; do
  [ -e "$prefix/$expected" ] || { echo "not installed: $expected" >&2; exit 1; }
done
# Nothing at the include root but the project's own folders: host stand-ins for platform headers
# there would shadow the system's.
stray=$(ls "$prefix/include" | grep -vxE 'norvo|wakewordservice' || true)
[ -z "$stray" ] || { echo "installed at the include root: $stray" >&2; exit 1; }
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046  # pkg-config's flags are meant to split
"$cxx" -o "$prefix/consumer" "$source" $(pkg-config --cflags --libs wakewordservice)
output=$("$prefix/consumer" "$(pkg-config --variable=modelsdir wakewordservice)/default.manifest")
echo "$output"
# The installed engine is the real one, not the tests' fake.
grep -q pocketsphinx <<<"$output" || { echo "the installed libnorvo.so is not the PocketSphinx engine" >&2; exit 1; }
