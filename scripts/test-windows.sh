#!/usr/bin/env bash
# The Windows test command: installs what is missing, cross-builds the library, the simulated runtime and
# walking platform, the demo and the tests with MinGW-w64 into ${ORVEL_BUILD_DIR:-build-windows}, and runs the
# test suite under Wine (a fresh prefix in the build folder, Xvfb when there is no display). Extra arguments
# go to ctest. The exit code is ctest's: 0 only when every test passed.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/windows-common.sh

if [ -z "${ORVEL_WINDOWS_STAGE:-}" ]; then
    windows_install
    start=$SECONDS
    windows_build
    echo "Windows build: $((SECONDS - start)) s"
    ORVEL_WINDOWS_STAGE=test windows_with_display bash "$0" "$@"
    exit
fi

start=$SECONDS
windows_start_wine
echo "Wine prefix: $((SECONDS - start)) s"
start=$SECONDS
status=0
ctest --test-dir "$windows_build" -j"$(nproc)" --output-on-failure --timeout 600 "$@" || status=$?
echo "Windows tests under Wine: $((SECONDS - start)) s"
exit $status
