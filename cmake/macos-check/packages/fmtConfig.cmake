# Header-only {fmt} from Debian's headers.
add_library(fmt::fmt-header-only INTERFACE IMPORTED)
target_include_directories(fmt::fmt-header-only SYSTEM INTERFACE ${BRH_MACOS_LIBRARIES}/usr/include)
target_compile_definitions(fmt::fmt-header-only INTERFACE FMT_HEADER_ONLY)
