#!/usr/bin/env bash
# Installs the dependencies, builds the Linux and Windows libraries and runs every suite
# (the Windows ones under wine64). Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."

# Each stage prints its name; the times of all stages are printed at the end.
stage_name="Installing the dependencies"
stage_start=$SECONDS
stage_times=()
stage() {
  stage_times+=("$(printf '%5d s  %s' $((SECONDS - stage_start)) "$stage_name")")
  stage_name=$1
  stage_start=$SECONDS
  echo "== $1"
}

bash scripts/install-deps.sh

stage "House rules of the layout (docs/architecture.md)"
bash scripts/house-rules.sh

jobs=$(nproc)
export WINEDEBUG=-all
# The suites are independent processes with folders of their own: run them side by side.
export CTEST_PARALLEL_LEVEL=$jobs
export WINEPREFIX="$PWD/build/wineprefix"

stage "Linux (OpenSSL)"
cmake -S . -B build/linux -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/linux -j"$jobs"
ctest --test-dir build/linux --output-on-failure

stage "The demo: the whole signing story through skftool"
bash scripts/demo.sh

stage "Linux (libgcrypt): the crypto library, tokens and devices with the other implementation"
cmake -S . -B build/linux-gcrypt -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOREL_CRYPTO_BACKEND=gcrypt \
  -DVOREL_BUILD_BENCH=OFF >/dev/null
cmake --build build/linux-gcrypt -j"$jobs" --target crypto_tests token_tests device_tests
ctest --test-dir build/linux-gcrypt --output-on-failure -R "crypto_tests|token_tests|device_tests"

stage "Handles and threads: the libgcrypt build, and a ThreadSanitizer build (docs/handles.md)"
cmake --build build/linux-gcrypt -j"$jobs" --target hardening_tests
ctest --test-dir build/linux-gcrypt --output-on-failure -R hardening_tests
cmake -S . -B build/linux-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOREL_TSAN=ON -DVOREL_BUILD_BENCH=OFF >/dev/null
cmake --build build/linux-tsan -j"$jobs" --target hardening_tests
ctest --test-dir build/linux-tsan --output-on-failure -R hardening_tests

stage "Linux (OpenSSL) under AddressSanitizer and UndefinedBehaviorSanitizer, leaks checked"
# Every Linux suite and the processes they start (about 4 minutes to build and 1.2 to run on
# 2 cores). Any finding fails the run: undefined behaviour is built not to recover and ASan halts
# on its first error. Leak suppressions: scripts/lsan.supp.
cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOREL_SANITIZE=ON -DVOREL_BUILD_BENCH=OFF >/dev/null
cmake --build build/asan -j"$jobs" --target unit_tests crypto_tests token_tests integration_tests device_tests \
  hardening_tests
ASAN_OPTIONS=detect_leaks=1:halt_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
  LSAN_OPTIONS="suppressions=$PWD/scripts/lsan.supp" ctest --test-dir build/asan --output-on-failure

stage "Fuzzing every reader of outside bytes, 10 s a target (clang, libFuzzer; docs/hardening.md)"
bash scripts/fuzz.sh 10

stage "Windows x64 (mingw-w64, libgcrypt) under wine64"
cmake -S . -B build/windows -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake >/dev/null
cmake --build build/windows -j"$jobs"
# The first Wine start makes the prefix; suites starting side by side on a new prefix race for it.
/usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1
/usr/lib/wine/wineserver -w
ctest --test-dir build/windows --output-on-failure

stage "The demo under wine64"
bash scripts/demo.sh --windows

stage "Done"
printf '%s\n' "${stage_times[@]}"
