# Cross-compiles for 64-bit Windows with Debian's MinGW-w64. The posix thread model is the one whose
# libstdc++ has std::mutex and std::thread.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ORVEL_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${ORVEL_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ORVEL_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${ORVEL_MINGW_TRIPLET}-windres)

# The libraries built for Windows from Debian's sources (scripts/windows-deps.sh) share one prefix.
set(ORVEL_WINDOWS_DEPS "" CACHE PATH "Prefix of the libraries cross-built for Windows")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVEL_WINDOWS_DEPS)
set(CMAKE_FIND_ROOT_PATH /usr/${ORVEL_MINGW_TRIPLET} ${ORVEL_WINDOWS_DEPS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
if(ORVEL_WINDOWS_DEPS)
    set(ENV{PKG_CONFIG_LIBDIR} ${ORVEL_WINDOWS_DEPS}/lib/pkgconfig)
endif()

# The GCC runtime, libstdc++ and winpthreads are linked into every program and DLL: no MinGW DLL has to be
# found beside them (a program missing one exits under Wine with code 53 and no message).
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Test programs and test discovery run under Wine.
find_program(ORVEL_WINE wine)
if(ORVEL_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${ORVEL_WINE})
endif()
