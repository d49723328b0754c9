#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a while (seconds: $1, default 10),
# seeded with the keys, signatures and certificates of the test data, the token file reader with
# token files made by token_seeds, and the SKF library's readers with what skf_seeds makes.
# Prints the runs of each target; exits non-zero on a finding.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-10}"
build=build/fuzz

CC=clang CXX=clang++ cmake -S . -B $build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOREL_BUILD_FUZZ=ON \
  -DVOREL_BUILD_TESTS=OFF -DVOREL_BUILD_BENCH=OFF >/dev/null
cmake --build $build -j"$(nproc)" --target fuzz

seeds=$build/seeds
mkdir -p $seeds
bash tests/data/make-test-data.sh $seeds >/dev/null
rm -rf $seeds/tokens $seeds/skf
$build/bin/token_seeds $seeds/tokens $seeds/sm2.key.der $seeds/sm2.crt.der
mkdir -p $seeds/skf
$build/bin/skf_seeds $seeds/skf
export LSAN_OPTIONS="suppressions=$PWD/scripts/lsan.supp"
export build seeds seconds

# One target for $seconds over its corpus; prints its runs, or the finding and exits non-zero.
run_target() {
  local target=$1 name corpus
  name=$(basename "$target")
  corpus=$build/corpus/$name
  mkdir -p "$corpus"
  case "$name" in
    fuzz_token) cp $seeds/tokens/*.token "$corpus"/ ;;
    fuzz_device_names | fuzz_config | fuzz_master_file | fuzz_blobs) cp $seeds/skf/"$name"/* "$corpus"/ ;;
    *) cp $seeds/*.der $seeds/*.sig "$corpus"/ ;;
  esac
  # libksba reports every malformed certificate on stderr; keep only libFuzzer's summary.
  if ! "$target" -max_total_time="$seconds" -rss_limit_mb=2048 -print_final_stats=0 "$corpus" \
       >$build/$name.log 2>&1; then
    grep -vE '^ksba:' $build/$name.log | tail -40
    echo "$name: finding (see $build/$name.log)"
    return 1
  fi
  echo "$name: $(grep -E '^Done' $build/$name.log)"
}
export -f run_target

# One target a core at a time.
ls $build/bin/fuzz_* | xargs -P "$(nproc)" -n 1 bash -c 'set -euo pipefail; run_target "$0"'
