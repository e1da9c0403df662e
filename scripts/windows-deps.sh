#!/usr/bin/env bash
# Cross-builds the libraries the Windows build links, as static MinGW-w64 libraries, from Debian's own source
# packages: `scripts/windows-deps.sh PREFIX`. Sources and builds are kept under PREFIX/../deps-src; a library is
# fetched and built again only when Debian's version of it changes.
set -euo pipefail

prefix=$(realpath -m "$1")
work=$(dirname "$prefix")/deps-src
host=x86_64-w64-mingw32
toolchain=$(realpath "$(dirname "$0")/../cmake/toolchain-mingw.cmake")
jobs=$(nproc)
mkdir -p "$prefix" "$work"

# apt-get source needs a deb-src entry: the system's own Debian entry is copied with that type.
ensure_sources() {
    if apt-get source --print-uris -qq zlib >/dev/null 2>&1; then
        return
    fi
    local sudo_cmd=""
    if [ "$(id -u)" -ne 0 ]; then sudo_cmd="sudo"; fi
    if [ -f /etc/apt/sources.list.d/debian.sources ]; then
        sed 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources |
            $sudo_cmd tee /etc/apt/sources.list.d/orvel-deb-src.sources >/dev/null
    else
        grep -h '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' |
            $sudo_cmd tee /etc/apt/sources.list.d/orvel-deb-src.list >/dev/null
    fi
    $sudo_cmd apt-get update -qq
}

# Debian's newest version of a source package.
debian_version() {
    apt-cache showsrc "$1" | sed -n 's/^Version: //p' | sort -V | tail -n 1
}

# Fetches and unpacks a source package into $work/$1 and prints the source folder. When a mirror lacks the
# Debian part of a package (seen: pixman's diff, libpng's security update), the upstream tarball apt-get has
# already fetched and checked against Debian's index is unpacked instead.
fetch() {
    local package=$1
    rm -rf "$work/$package"
    mkdir -p "$work/$package"
    if ! (cd "$work/$package" && apt-get source -qq "$package" >fetch.log 2>&1); then
        local orig
        orig=$(ls "$work/$package"/*.orig.tar.* 2>/dev/null | grep -v '\.asc$' | head -n 1 || true)
        if [ -z "$orig" ]; then
            cat "$work/$package/fetch.log" >&2
            echo "apt-get source $package failed" >&2
            return 1
        fi
        echo "warning: $package: Debian's changes could not be fetched; building the upstream source" >&2
        tar -xf "$orig" -C "$work/$package"
    fi
    find "$work/$package" -mindepth 1 -maxdepth 1 -type d | head -n 1
}

cmake_build() {
    local source=$1
    shift
    cmake -S "$source" -B "$source/_build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
        -DORVEL_WINDOWS_DEPS="$prefix" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
        -DBUILD_SHARED_LIBS=OFF -Wno-dev "$@" >"$source/_configure.log" 2>&1
    cmake --build "$source/_build" --parallel "$jobs" >"$source/_build.log" 2>&1
    cmake --install "$source/_build" >/dev/null
}

autotools_build() {
    local source=$1 subdir=$2
    shift 2
    # Debian's patches leave configure.ac and Makefile.am newer than what was generated from them, and make
    # would then want the autotools: every file is given one time, so the generated ones count as current.
    find "$source" -exec touch -h -d "@$(date +%s)" {} +
    (cd "$source" &&
        PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig" ./configure --host=$host CC=$host-gcc-posix \
            --prefix="$prefix" --disable-shared --enable-static "$@" >_configure.log 2>&1 &&
        make -C "$subdir" -j"$jobs" install >_build.log 2>&1)
}

# Debian's zlib source has neither the Windows makefile nor a static-only CMake build: the library is its
# fifteen C files.
build_zlib() {
    local source=$1 file
    local objects=()
    for file in adler32 compress crc32 deflate gzclose gzlib gzread gzwrite infback inffast inflate inftrees \
        trees uncompr zutil; do
        $host-gcc-posix -O2 -c "$source/$file.c" -o "$source/$file.o"
        objects+=("$source/$file.o")
    done
    rm -f "$prefix/lib/libz.a"
    $host-ar rcs "$prefix/lib/libz.a" "${objects[@]}"
    install -m 644 "$source/zlib.h" "$source/zconf.h" "$prefix/include/"
    mkdir -p "$prefix/lib/pkgconfig"
    printf 'prefix=%s\nlibdir=${prefix}/lib\nincludedir=${prefix}/include\n\nName: zlib\nDescription: zlib\nVersion: %s\nLibs: -L${libdir} -lz\nCflags: -I${includedir}\n' \
        "$prefix" "$2" >"$prefix/lib/pkgconfig/zlib.pc"
}

build_one() {
    local package=$1 version stamp source
    version=$(debian_version "$package")
    stamp="$prefix/.built-$package"
    if [ -n "$version" ] && [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$version" ]; then
        return
    fi
    local start=$SECONDS
    source=$(fetch "$package")
    mkdir -p "$prefix/lib" "$prefix/include"
    case $package in
    zlib) build_zlib "$source" "$version" ;;
    libpng1.6) cmake_build "$source" -DPNG_SHARED=OFF -DPNG_STATIC=ON -DPNG_TESTS=OFF -DPNG_EXECUTABLES=OFF \
        -DZLIB_ROOT="$prefix" ;;
    freetype) cmake_build "$source" -DFT_DISABLE_ZLIB=ON -DFT_DISABLE_BZIP2=ON -DFT_DISABLE_PNG=ON \
        -DFT_DISABLE_HARFBUZZ=ON -DFT_DISABLE_BROTLI=ON ;;
    glfw3) cmake_build "$source" -DGLFW_BUILD_EXAMPLES=OFF -DGLFW_BUILD_TESTS=OFF -DGLFW_BUILD_DOCS=OFF ;;
    googletest) cmake_build "$source" -DBUILD_GMOCK=ON -DINSTALL_GTEST=ON ;;
    nlohmann-json3) cmake_build "$source" -DJSON_BuildTests=OFF -DJSON_Install=ON ;;
    pixman) autotools_build "$source" pixman --disable-gtk --disable-libpng --disable-openmp &&
        make -C "$source" install-pkgconfigDATA >/dev/null 2>&1 ;;
    cairo)
        autotools_build "$source" src --disable-xlib --disable-xcb --disable-xlib-xrender --disable-ft \
            --disable-fc --disable-gobject --disable-ps --disable-pdf --disable-svg --disable-script \
            --disable-interpreter --disable-trace --disable-full-testing --enable-png --enable-win32 \
            --enable-win32-font
        # A static cairo needs its own dependencies on every link line, which CMake's pkg-config module
        # only reads from Libs. Its configure turns on _FORTIFY_SOURCE, whose checks MinGW keeps in libssp.
        local libs
        libs="$(PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig" pkg-config --static --libs cairo) -lssp"
        sed -i -e "s|^Libs:.*|Libs: $libs|" -e '/^Libs.private:/d' -e '/^Requires.private:/d' \
            "$prefix/lib/pkgconfig/cairo.pc"
        ;;
    esac
    echo "$version" >"$stamp"
    echo "built $package $version for Windows in $((SECONDS - start)) s"
}

ensure_sources
# Order matters: libpng needs zlib, cairo needs pixman and libpng.
for package in zlib libpng1.6 freetype glfw3 googletest nlohmann-json3 pixman cairo; do
    build_one "$package"
done
