#!/usr/bin/env bash
# Builds every fuzz target, static against the library, into $OUT, each with its corpus beside it as
# TARGET_seed_corpus.zip. Services that fuzz continuously say by variables how: CXX, CXXFLAGS and
# LIB_FUZZING_ENGINE, which may be an option or a library; SRC or WORK for what is built on the way.
set -euo pipefail
cd "$(dirname "$0")/.."
: "${OUT:?where the targets are to be put}"
CXX=${CXX:-clang++}
engine=${LIB_FUZZING_ENGINE:--fsanitize=fuzzer}
work=${WORK:-${SRC:-$OUT}}/zorgenreg64-fuzz
# Without flags of a service: those of scripts/fuzz.
flags=${CXXFLAGS--O1 -g -fsanitize=address,undefined,fuzzer-no-link}

mkdir -p "$OUT"
cmake -S . -B "$work" -DCMAKE_BUILD_TYPE=None -DBUILD_TESTING=OFF -DZORGENREG_TOOL=OFF \
  -DBUILD_SHARED_LIBS=OFF -DZORGENREG_FUZZ=ON -DZORGENREG_FUZZ_ENGINE="$engine" \
  -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_C_COMPILER="${CC:-clang}" >/dev/null
cmake --build "$work" --target fuzz_targets -j "$(nproc)"
for target in "$work"/*_fuzz; do
  name=$(basename "$target" _fuzz)
  cp "$target" "$OUT/"
  python3 -m zipfile -c "$OUT/${name}_fuzz_seed_corpus.zip" "fuzz/corpus/$name"/*
done
