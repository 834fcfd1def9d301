# An application bundle, with stand-ins for the two frameworks, at whose signatures alone the helper looks. Signed with
# a Developer ID of the team (BRH_SIGNING_IDENTITY) it is one that the helper answers.
set_target_properties(Brimo PROPERTIES MACOSX_BUNDLE TRUE MACOSX_BUNDLE_BUNDLE_NAME Brimo
  MACOSX_BUNDLE_GUI_IDENTIFIER ${BRH_CLIENT_BUNDLE_IDENTIFIER} MACOSX_BUNDLE_BUNDLE_VERSION ${BRH_BUILD_NUMBER})
foreach(framework Bugsnag Sparkle)
  add_library(${framework} SHARED ${PROJECT_SOURCE_DIR}/packaging/macos/framework.cpp)
  set_target_properties(${framework} PROPERTIES FRAMEWORK TRUE FRAMEWORK_VERSION A
    MACOSX_FRAMEWORK_IDENTIFIER ${BRH_CLIENT_BUNDLE_IDENTIFIER}.${framework}
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Brimo.app/Contents/Frameworks)
  brh_sign(${framework} ${BRH_CLIENT_BUNDLE_IDENTIFIER}.${framework} $<TARGET_BUNDLE_DIR:${framework}>)
  # Its signature is sealed into the bundle's.
  set_property(TARGET Brimo APPEND PROPERTY LINK_DEPENDS $<TARGET_FILE:${framework}>)
  add_dependencies(Brimo ${framework})
endforeach()
brh_sign(Brimo ${BRH_CLIENT_BUNDLE_IDENTIFIER} $<TARGET_BUNDLE_DIR:Brimo>)
