# {fmt} from Debian's headers alone.
add_library(fmt::fmt INTERFACE IMPORTED)
target_include_directories(fmt::fmt SYSTEM INTERFACE ${BRH_MACOS_SYSROOT}/libraries/include)
target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
