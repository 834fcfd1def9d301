# Generates a source file with the trusted roots: those in BRH_CODE_SIGNING_ANCHOR or a throw-away root.
if(NOT BRH_CODE_SIGNING_ANCHOR)
  set(BRH_ANCHOR_FILE ${BRH_CERTIFICATES}/root.pem)
  add_custom_command(
    OUTPUT ${BRH_ANCHOR_FILE} ${BRH_CERTIFICATES}/leaf.pem ${BRH_CERTIFICATES}/leaf.key ${BRH_CERTIFICATES}/intermediate.pem
    COMMAND ${PROJECT_SOURCE_DIR}/tools/make-development-certificates ${BRH_CERTIFICATES} ${BRH_TEAM_IDENTIFIER}
    DEPENDS ${PROJECT_SOURCE_DIR}/tools/make-development-certificates
    COMMENT "Making a throw-away code signing root"
    VERBATIM)
  add_custom_target(certificates DEPENDS ${BRH_ANCHOR_FILE})
else()
  get_filename_component(BRH_ANCHOR_FILE ${BRH_CODE_SIGNING_ANCHOR} ABSOLUTE BASE_DIR ${PROJECT_SOURCE_DIR})
  if(NOT EXISTS ${BRH_ANCHOR_FILE})
    message(FATAL_ERROR "BRH_CODE_SIGNING_ANCHOR: there is no file ${BRH_ANCHOR_FILE}")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -DPEM=${BRH_ANCHOR_FILE} -P ${PROJECT_SOURCE_DIR}/cmake/embed_anchor.cmake
    COMMAND_ERROR_IS_FATAL ANY)
endif()

set(BRH_ANCHOR_SOURCE ${PROJECT_BINARY_DIR}/generated/code_signing_anchor.cpp)
add_custom_command(
  OUTPUT ${BRH_ANCHOR_SOURCE}
  COMMAND ${CMAKE_COMMAND} -DPEM=${BRH_ANCHOR_FILE} -DOUTPUT=${BRH_ANCHOR_SOURCE} -P ${PROJECT_SOURCE_DIR}/cmake/embed_anchor.cmake
  DEPENDS ${BRH_ANCHOR_FILE} ${PROJECT_SOURCE_DIR}/cmake/embed_anchor.cmake
  VERBATIM)

# A target of its own, because a custom command can only be used in the folder that defines it.
add_library(code_signing_anchor OBJECT ${BRH_ANCHOR_SOURCE})
brh_use_common(code_signing_anchor)
