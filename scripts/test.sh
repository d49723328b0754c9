#!/usr/bin/env bash
# Installs the dependencies, builds the Linux and Windows libraries and runs every suite
# (the Windows ones under wine64). Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

jobs=$(nproc)
export WINEDEBUG=-all
export WINEPREFIX="$PWD/build/wineprefix"

echo "== Linux (OpenSSL)"
cmake -S . -B build/linux -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/linux -j"$jobs"
ctest --test-dir build/linux --output-on-failure

echo "== The demo: the whole signing story through skftool"
bash scripts/demo.sh

echo "== Linux (libgcrypt): the crypto library, tokens and devices with the other implementation"
cmake -S . -B build/linux-gcrypt -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOREL_CRYPTO_BACKEND=gcrypt \
  -DVOREL_BUILD_BENCH=OFF >/dev/null
cmake --build build/linux-gcrypt -j"$jobs" --target crypto_tests token_tests device_tests
ctest --test-dir build/linux-gcrypt --output-on-failure -R "crypto_tests|token_tests|device_tests"

echo "== Handles and threads: the libgcrypt build, and a ThreadSanitizer build (docs/handles.md)"
cmake --build build/linux-gcrypt -j"$jobs" --target hardening_tests
ctest --test-dir build/linux-gcrypt --output-on-failure -R hardening_tests
tsan_start=$SECONDS
cmake -S . -B build/linux-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOREL_TSAN=ON -DVOREL_BUILD_BENCH=OFF >/dev/null
cmake --build build/linux-tsan -j"$jobs" --target hardening_tests
ctest --test-dir build/linux-tsan --output-on-failure -R hardening_tests
echo "ThreadSanitizer stage: $((SECONDS - tsan_start)) s"

echo "== Fuzzing the decoders, the certificate parser and the token file reader (clang, libFuzzer)"
bash scripts/fuzz.sh 10

echo "== Windows x64 (mingw-w64, libgcrypt) under wine64"
cmake -S . -B build/windows -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake >/dev/null
cmake --build build/windows -j"$jobs"
ctest --test-dir build/windows --output-on-failure

echo "== The demo under wine64"
bash scripts/demo.sh --windows
