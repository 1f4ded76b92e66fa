# Cross build for 32-bit ARM (the device's architecture) against Debian's armhf packages, which
# `scripts/setup.sh arm` installs. Test programs run under qemu-arm, which finds the ARM loader and
# libraries where multiarch puts them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Libraries and CMake packages only from the ARM side; programs (java, bpfmt) from the host.
set(CMAKE_FIND_ROOT_PATH /usr/lib/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# Debian's ARM libbacktrace (which libutils needs) loads 7z.so from p7zip, a package that only
# installs for the host's architecture. `scripts/setup.sh arm` unpacks the ARM copy here; the
# linker and the emulated loader look for it here first.
set(WWS_ARMHF_EXTRA_LIBS "${CMAKE_CURRENT_LIST_DIR}/../build-arm/armhf-libs")
get_filename_component(WWS_ARMHF_EXTRA_LIBS "${WWS_ARMHF_EXTRA_LIBS}" ABSOLUTE)
# WWS_EMULATED tells tests that the binary cannot re-execute itself (no binfmt for ARM).
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -E LD_LIBRARY_PATH=${WWS_ARMHF_EXTRA_LIBS}
    -E WWS_EMULATED=1)
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${WWS_ARMHF_EXTRA_LIBS}")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${WWS_ARMHF_EXTRA_LIBS}")
