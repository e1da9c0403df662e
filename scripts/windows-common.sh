# Shared by scripts/test-windows.sh and scripts/demo-windows.sh (sourced, not run): the packages the Windows
# build needs, its configuration, and a Wine prefix to run what it built.

windows_build=${ORVEL_BUILD_DIR:-build-windows}

# The MinGW-w64 cross compilers (posix threads), Wine, Mesa for Wine's OpenGL, Xvfb, and what fetching and
# building Debian's source packages needs.
windows_install() {
    local packages=(cmake ninja-build pkg-config make dpkg-dev python3-glad fonts-noto-cjk
        g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
        wine64 wine libgl1-mesa-dri libgl1 xvfb xauth x11-utils)
    local missing=() p
    for p in "${packages[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        echo "Installing: ${missing[*]}"
        local sudo_cmd=""
        if [ "$(id -u)" -ne 0 ]; then sudo_cmd="sudo"; fi
        $sudo_cmd apt-get update -qq
        DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
}

# Configures and builds the given targets (all when none) for Windows.
windows_build() {
    bash scripts/windows-deps.sh "$windows_build/deps/prefix"
    cmake -S . -B "$windows_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-mingw.cmake" \
        -DORVEL_WINDOWS_DEPS="$PWD/$windows_build/deps/prefix" -DORVEL_BUILD_BENCHMARKS=OFF >/dev/null
    local targets=()
    local t
    for t in "$@"; do targets+=(--target "$t"); done
    cmake --build "$windows_build" --parallel "$(nproc)" "${targets[@]}"
}

# A fresh Wine prefix in the build folder, its server kept running for the commands that follow, and crash
# dialogs switched off so that a crashing program ends instead of waiting for a click.
windows_start_wine() {
    export WINEPREFIX="$PWD/$windows_build/wine-prefix"
    export WINEARCH=win64
    export WINEDEBUG=${WINEDEBUG:--all}
    # No Mono or Gecko installer prompts while the prefix is made. No debugger either: Wine starts winedbg for
    # a crashing program even when the AeDebug key names none, and under winedbg the program ends with exit
    # code 0 (a crashed test would pass) after it has held the test's output open while it walks the debug
    # information, minutes for one test. Without it a crashing program ends at once with a failing code.
    export WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe=d"
    rm -rf "$WINEPREFIX"
    mkdir -p "$WINEPREFIX"
    wineserver -p
    wine wineboot -i >/dev/null 2>&1
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1
    # The first program that opens a window would otherwise start the desktop process, which inherits that
    # program's output and keeps it open: ctest would wait for it until the test's timeout.
    wine explorer.exe /desktop </dev/null >/dev/null 2>&1 &
    sleep 2
    trap 'wineserver -k 2>/dev/null || true' EXIT
}

# Runs the command with a display: the current one, or Xvfb's.
windows_with_display() {
    if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
        "$@"
    else
        xvfb-run -a -s "-noreset -screen 0 1920x1080x24" "$@"
    fi
}
