# An application bundle with stand-ins for the two frameworks, of which the helper checks only the signatures. The
# helper admits the bundle if BRH_SIGNING_IDENTITY is a Developer ID of the team.
set_target_properties(Brimo PROPERTIES MACOSX_BUNDLE TRUE MACOSX_BUNDLE_BUNDLE_NAME Brimo
  MACOSX_BUNDLE_GUI_IDENTIFIER ${BRH_CLIENT_BUNDLE_IDENTIFIER} MACOSX_BUNDLE_BUNDLE_VERSION ${BRH_BUILD_NUMBER})
foreach(framework Bugsnag Sparkle)
  add_library(${framework} SHARED ${PROJECT_SOURCE_DIR}/packaging/macos/framework.cpp)
  set_target_properties(${framework} PROPERTIES FRAMEWORK TRUE FRAMEWORK_VERSION A
    MACOSX_FRAMEWORK_IDENTIFIER ${BRH_CLIENT_BUNDLE_IDENTIFIER}.${framework}
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Brimo.app/Contents/Frameworks)
  brh_sign(${framework} ${BRH_CLIENT_BUNDLE_IDENTIFIER}.${framework} $<TARGET_BUNDLE_DIR:${framework}>)
  # The bundle's signature covers the framework's, so the framework comes first.
  set_property(TARGET Brimo APPEND PROPERTY LINK_DEPENDS $<TARGET_FILE:${framework}>)
  add_dependencies(Brimo ${framework})
endforeach()
brh_sign(Brimo ${BRH_CLIENT_BUNDLE_IDENTIFIER} $<TARGET_BUNDLE_DIR:Brimo>)
