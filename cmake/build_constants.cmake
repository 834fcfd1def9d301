# The constants of this build as a header.
set(BRH_CERTIFICATES ${CMAKE_BINARY_DIR}/certificates)

configure_file(${CMAKE_SOURCE_DIR}/cmake/build_constants.h.in ${CMAKE_BINARY_DIR}/generated/build_constants.h @ONLY)
