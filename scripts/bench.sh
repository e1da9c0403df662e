#!/usr/bin/env bash
# The benchmarks: installs what the build needs (setup.sh) and what only the benchmarks need (the Point Cloud
# Library, which the point query is compared with), builds them, and runs each one, noting the machine's
# load before and after; docs/benchmarks.md holds the figures. Results also go to $build/bench-results/ as
# JSON. Without arguments every benchmark runs; names of benchmark programs (orvel_bench_query ...) run only
# those, and arguments starting with -- go to each program (for example --benchmark_filter=1000000).
# The 100 million point rooms take a minute or two each to generate, and with the PCL copy about 5 GB of memory.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

if ! dpkg-query -W -f='${Status}' libpcl-dev 2>/dev/null | grep -q "install ok installed"; then
    echo "Installing: libpcl-dev"
    sudo_cmd=""
    if [ "$(id -u)" -ne 0 ]; then sudo_cmd="sudo"; fi
    $sudo_cmd apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends libpcl-dev
fi

programs=()
options=()
for arg in "$@"; do
    case "$arg" in
        --*) options+=("$arg") ;;
        *) programs+=("$arg") ;;
    esac
done
if [ ${#programs[@]} -eq 0 ]; then
    programs=(orvel_bench_query_pcl orvel_bench_query orvel_bench_periphery orvel_bench_point_upload
              orvel_bench_point_draw)
fi

build=${ORVEL_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" --parallel "$(nproc)" --target "${programs[@]}"

results="$build/bench-results"
mkdir -p "$results"
for program in "${programs[@]}"; do
    echo "== $program, load before: $(uptime)"
    command=("$build/bench/$program" "--benchmark_out=$results/$program.json" --benchmark_out_format=json
             ${options[@]+"${options[@]}"})
    # The point upload and draw benchmarks use OpenGL: under Xvfb where there is no display.
    if [[ "$program" == orvel_bench_point_* ]] && ! { [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; }; then
        xvfb-run -a -s "-noreset -screen 0 1920x1080x24" "${command[@]}"
    else
        "${command[@]}"
    fi
    echo "== $program, load after: $(uptime)"
done
