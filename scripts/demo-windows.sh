#!/usr/bin/env bash
# The Windows demo under Wine: installs what is missing, cross-builds the demo host with the simulated runtime
# into ${ORVEL_BUILD_DIR:-build-windows}, and runs it on the generated scene (or the PLY or LAS file given) with
# the arguments of scripts/demo.sh. Without a display it runs under Xvfb for 300 frames and writes the last
# left-eye picture to demo-mirror.png.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/windows-common.sh

if [ -z "${ORVEL_WINDOWS_STAGE:-}" ]; then
    windows_install
    windows_build orvel_demo
    args=("$@")
    if ! { [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; }; then
        # A session script ends the session itself.
        case " $* " in *" --frames "* | *" --script "*) ;; *) args+=(--frames 300) ;; esac
        case " $* " in *" --screenshot "*) ;; *) args+=(--screenshot "$PWD/demo-mirror.png") ;; esac
    fi
    ORVEL_WINDOWS_STAGE=demo windows_with_display bash "$0" "${args[@]}"
    exit
fi

windows_start_wine
status=0
wine "$windows_build/examples/orvel_demo.exe" "$@" || status=$?
exit $status
