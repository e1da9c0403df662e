#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs the demo host on a generated scene (or on the
# PLY or LAS file given), mirrored in a desktop window. It runs on the installed OpenVR runtime when there is
# one and on the simulated runtime otherwise; --runtime openvr|simulated|auto chooses. Without a display it
# runs under Xvfb, stops after 300 frames unless told otherwise, and writes the last mirror picture to
# demo-mirror.png.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
build=${ORVEL_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target orvel_demo

demo="$build/examples/orvel_demo"
if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
    exec "$demo" "$@"
fi
args=("$@")
# A session script ends the session itself.
case " $* " in *" --frames "* | *" --script "*) ;; *) args+=(--frames 300) ;; esac
case " $* " in *" --screenshot "*) ;; *) args+=(--screenshot "$PWD/demo-mirror.png") ;; esac
exec xvfb-run -a -s "-noreset -screen 0 1920x1080x24" "$demo" "${args[@]}"
