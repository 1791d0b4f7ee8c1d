#!/usr/bin/env bash
# Runs a fuzz target for as long as one likes; what it finds is kept in the corpus below build/asan.
#
#   scripts/fuzz.sh text|channels|sections|demultiplexer [SECONDS]     60 by default; 0 without end
set -euo pipefail
root=$(dirname "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")")
name=${1:?text, channels, sections or demultiplexer} seconds=${2:-60}
cmake --preset asan -S "$root" >/dev/null
cmake --build "$root/build/asan" --target fuzz_corpus "fuzz_$name"
corpus=$root/build/asan/corpus/$name
"$root/build/asan/bin/fuzz_corpus" "$name" "$corpus"
export LSAN_OPTIONS=suppressions=$root/cmake/leaks.supp:print_suppressions=0
exec "$root/build/asan/bin/fuzz_$name" -max_total_time="$seconds" -max_len=8192 -artifact_prefix="$corpus-" "$corpus"
