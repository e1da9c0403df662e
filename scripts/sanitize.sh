#!/usr/bin/env bash
# The test suite under sanitizers, each in a build folder of its own:
#
#   bash scripts/sanitize.sh address   AddressSanitizer with LeakSanitizer, and UndefinedBehaviorSanitizer
#                                      with every check (float-cast-overflow and float-divide-by-zero
#                                      included); the first error ends the test that made it. Whole suite.
#   bash scripts/sanitize.sh thread    ThreadSanitizer on every suite that runs threads.
#
# Mesa's software driver is not ours, but it runs inside every GL test. It is preloaded so that it stays
# loaded until the process ends: LeakSanitizer then sees its allocations with their real module names,
# and the suppressions in scripts/sanitize/ (each with its reason) can name the driver's modules instead of
# hiding "unknown module" reports that could be our own. Extra arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=${1:-}
shift || true
case "$mode" in
address)
    flags="-fsanitize=address,undefined,float-cast-overflow,float-divide-by-zero -fno-sanitize-recover=all"
    runtime=$(gcc -print-file-name=libasan.so)
    build=${ORVEL_SANITIZE_BUILD_DIR:-build-asan}
    ;;
thread)
    flags="-fsanitize=thread"
    runtime=$(gcc -print-file-name=libtsan.so)
    build=${ORVEL_SANITIZE_BUILD_DIR:-build-tsan}
    ;;
*)
    echo "usage: bash scripts/sanitize.sh address|thread [ctest arguments]" >&2
    exit 2
    ;;
esac
flags="$flags -fno-omit-frame-pointer"
multiarch=$(gcc -print-multiarch)
# Every test process loads the sanitizer's runtime first, as it must, and the driver after it, which then
# stays loaded to the end.
preload="$runtime:/usr/lib/$multiarch/dri/swrast_dri.so:/usr/lib/$multiarch/libGLX_mesa.so.0"

bash scripts/setup.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVEL_BUILD_BENCHMARKS=OFF \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" \
    -DCMAKE_SHARED_LINKER_FLAGS="$flags" -DORVEL_TEST_PRELOAD="$preload" -DORVEL_TEST_TIMEOUT=900 >/dev/null
cmake --build "$build" --parallel "$(nproc)"

here=$PWD/scripts/sanitize
export ASAN_OPTIONS="abort_on_error=0:detect_leaks=1:detect_stack_use_after_return=1:strict_init_order=1"
export LSAN_OPTIONS="suppressions=$here/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:suppressions=$here/ubsan.supp"
# Lock-order checking is off for the reason given in tsan.supp.
export TSAN_OPTIONS="halt_on_error=1:detect_deadlocks=0:suppressions=$here/tsan.supp"

# The package test installs the library and builds a consumer of it with the system's plain flags, which
# cannot link a sanitized library; the ordinary suite runs it.
selection=(-E "^package\.")
if [ "$mode" = thread ]; then
    # The suites that run threads: whole VR runs, the grabbers, the demo host's query, the log.
    selection=(-R "VRRun|HostObjectsRun|InteractionRun|HostileHost|PointGrabber|Object3dGrabber|VisibilityQuery|SolidSurfaces|Log|Statistics")
fi

run=(ctest --test-dir "$build" -j"$(nproc)" --output-on-failure "${selection[@]}" "$@")
if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
    "${run[@]}"
else
    xvfb-run -a -s "-noreset -screen 0 1920x1080x24" "${run[@]}"
fi
