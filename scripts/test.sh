#!/usr/bin/env bash
# The test command: installs what is missing, configures, builds and runs every test (under Xvfb when
# there is no display). Extra arguments go to ctest, for example `-L gl` or `-LE gl`. Every test is a
# process of its own that shares no files with the others, so they run one per core.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

# The sources keep the project's format; the check changes nothing.
mapfile -t sources < <(git ls-files '*.cpp' '*.h' '*.c' 2>/dev/null || true)
if [ ${#sources[@]} -gt 0 ]; then
    clang-format --dry-run --Werror "${sources[@]}"
fi

build=${ORVEL_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" --parallel "$(nproc)"

ctest_args=(--test-dir "$build" -j"$(nproc)" --output-on-failure --timeout 600 "$@")
if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
    ctest "${ctest_args[@]}"
else
    xvfb-run -a -s "-noreset -screen 0 1920x1080x24" ctest "${ctest_args[@]}"
fi
