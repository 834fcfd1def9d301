# Generates the header with the constants of this build. The helper and its property list share the text of each
# requirement.
string(CONCAT signers
  "(certificate leaf[field.1.2.840.113635.100.6.1.9] /* exists */"
  " or certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */"
  " and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */"
  " and certificate leaf[subject.OU] = \"${BRH_TEAM_IDENTIFIER}\")")
set(BRH_FRAMEWORK_REQUIREMENT "anchor apple generic and ${signers}")
set(BRH_CLIENT_REQUIREMENT "anchor apple generic and identifier \"${BRH_CLIENT_BUNDLE_IDENTIFIER}\" and ${signers}")

set(BRH_CERTIFICATES ${PROJECT_BINARY_DIR}/certificates)

configure_file(${PROJECT_SOURCE_DIR}/cmake/build_constants.h.in ${PROJECT_BINARY_DIR}/generated/build_constants.h @ONLY)
