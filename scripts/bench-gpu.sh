#!/usr/bin/env bash
# The GL benchmarks on a GPU machine. Two steps, because the GPU machine has no compiler set-up of ours and
# no display:
#
#   bash scripts/bench-gpu.sh pack [FOLDER]   here: builds the benchmarks and packs them, their VR/ resources
#                                             and the shared libraries they need beyond the C/C++ runtime
#                                             into FOLDER (default build-gpu)
#   bash scripts/bench-gpu.sh run [FOLDER]    there (from the repository root): runs them on the GPU through
#                                             a headless EGL context and writes JSON results and a summary
#                                             into $OUT (default FOLDER/results)
#
# With the team's device tool: pack, then run `bash scripts/bench-gpu.sh run` there carrying build-gpu.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=${1:-}
folder=${2:-build-gpu}
benchmarks=(orvel_bench_point_draw orvel_bench_point_upload)

case "$mode" in
pack)
    build=${ORVEL_BUILD_DIR:-build}
    bash scripts/setup.sh
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
    cmake --build "$build" --parallel "$(nproc)" --target "${benchmarks[@]}"
    rm -rf "$folder"
    mkdir -p "$folder/lib"
    for name in "${benchmarks[@]}"; do
        cp "$build/bench/$name" "$folder/"
        # Everything but the C and C++ runtime, which the GPU machine has in a newer version.
        ldd "$build/bench/$name" | awk '/=> \// {print $3}' |
            grep -Ev '/(libc|libm|libstdc\+\+|libgcc_s|ld-linux[^/]*|libpthread|libdl|librt)\.so' |
            xargs -r -I{} cp -Ln {} "$folder/lib/"
    done
    # The GL dispatch that finds the GPU vendor's EGL driver by its configuration file.
    for lib in libEGL.so.1 libGLdispatch.so.0; do
        cp -Ln "/usr/lib/$(gcc -print-multiarch)/$lib" "$folder/lib/"
    done
    cp -r "$build/bench/VR" "$folder/"
    du -sh "$folder"
    ;;
run)
    out=${OUT:-$folder/results}
    mkdir -p "$out"
    export LD_LIBRARY_PATH="$PWD/$folder/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
    # No display: the benchmarks make a headless EGL context on the first GPU device.
    unset DISPLAY
    command -v nvidia-smi >/dev/null && nvidia-smi --query-gpu=name,driver_version --format=csv,noheader
    for name in "${benchmarks[@]}"; do
        "$folder/$name" --benchmark_min_time=1 --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
            --benchmark_out="$out/$name.json" --benchmark_out_format=json
    done
    ;;
*)
    echo "usage: bash scripts/bench-gpu.sh pack|run [FOLDER]" >&2
    exit 2
    ;;
esac
