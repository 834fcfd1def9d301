# Cross-builds for macOS on Linux against what make-sysroot has put together. Needs -DCMAKE_SYSTEM_PROCESSOR=arm64 or
# x86_64, -DBRH_MACOS_SYSROOT=FOLDER and -DBRH_MACOS_LIBRARIES=FOLDER, which has Boost, {fmt} and GoogleTest as Debian's
# packages have them.
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
# Not the headers beside the compiler: see make-sysroot.
foreach(language CXX OBJCXX)
  set(CMAKE_${language}_FLAGS_INIT "-nostdinc++ -isystem ${CMAKE_OSX_SYSROOT}/usr/include/c++/v1")
endforeach()
foreach(kind EXE MODULE SHARED)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()
# What a Mac's compiler links by itself: for __builtin_available, for integers of 128 bits.
set(CMAKE_CXX_STANDARD_LIBRARIES -lcompiler_rt)
set(CMAKE_OBJCXX_STANDARD_LIBRARIES -lcompiler_rt)

# The libraries that a Mac has from elsewhere.
foreach(library Boost fmt GTest)
  set(${library}_DIR ${CMAKE_CURRENT_LIST_DIR}/packages CACHE PATH "")
endforeach()
