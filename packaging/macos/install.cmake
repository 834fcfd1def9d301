# Installs the helper as a launchd daemon. The executable contains its property lists.
foreach(list Info launchd)
  string(TOLOWER __${list}_plist section)
  target_link_options(BrimoHelper PRIVATE LINKER:-sectcreate,__TEXT,${section},${lists}/${list}.plist)
  set_property(TARGET BrimoHelper APPEND PROPERTY LINK_DEPENDS ${lists}/${list}.plist)
endforeach()
# The helper is installed as a plain file: CMake would change an installed target and so make its signature invalid.
set(BRH_INSTALLED_HELPER /Library/PrivilegedHelperTools/${BRH_SERVICE_NAME})
configure_file(macos/LaunchDaemon.plist.in ${lists}/LaunchDaemon.plist @ONLY)
install(PROGRAMS $<TARGET_FILE:BrimoHelper> DESTINATION /Library/PrivilegedHelperTools RENAME ${BRH_SERVICE_NAME}
  COMPONENT helper)
install(FILES ${lists}/LaunchDaemon.plist DESTINATION /Library/LaunchDaemons RENAME ${BRH_SERVICE_NAME}.plist COMPONENT helper)
