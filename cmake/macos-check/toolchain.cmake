# Cross-builds for macOS on Linux with the SDK from make-sysroot. Needs -DCMAKE_SYSTEM_PROCESSOR=arm64 or x86_64,
# -DBRH_MACOS_SYSROOT=FOLDER and -DBRH_MACOS_LIBRARIES=FOLDER, a folder with Boost, {fmt} and GoogleTest laid out as in
# Debian's packages.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CMAKE_SYSTEM_PROCESSOR BRH_MACOS_SYSROOT BRH_MACOS_LIBRARIES)
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_OSX_SYSROOT ${BRH_MACOS_SYSROOT}/sdk)
set(CMAKE_FIND_ROOT_PATH ${BRH_MACOS_SYSROOT}/sdk)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

set(llvm /usr/lib/llvm-19/bin)
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET ${CMAKE_SYSTEM_PROCESSOR}-apple-macos)
endforeach()
set(CMAKE_C_COMPILER ${llvm}/clang)
set(CMAKE_CXX_COMPILER ${llvm}/clang++)
set(CMAKE_OBJCXX_COMPILER ${llvm}/clang++)
set(CMAKE_AR ${llvm}/llvm-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${llvm}/llvm-ranlib CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL ${llvm}/llvm-install-name-tool CACHE FILEPATH "")
# Uses the headers from make-sysroot instead of those next to the compiler.
foreach(language CXX OBJCXX)
  set(CMAKE_${language}_FLAGS_INIT "-nostdinc++ -isystem ${CMAKE_OSX_SYSROOT}/usr/include/c++/v1")
endforeach()
foreach(kind EXE MODULE SHARED)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()
# Apple's compiler links this by default: for __builtin_available and 128-bit integers.
set(CMAKE_CXX_STANDARD_LIBRARIES -lcompiler_rt)
set(CMAKE_OBJCXX_STANDARD_LIBRARIES -lcompiler_rt)

# Libraries that come from Homebrew on a Mac.
foreach(library Boost fmt GTest)
  set(${library}_DIR ${CMAKE_CURRENT_LIST_DIR}/packages CACHE PATH "")
endforeach()
