# The helper as a daemon of launchd, its property lists in the executable.
foreach(list Info launchd)
  string(TOLOWER __${list}_plist section)
  target_link_options(BrimoHelper PRIVATE LINKER:-sectcreate,__TEXT,${section},${lists}/${list}.plist)
  set_property(TARGET BrimoHelper APPEND PROPERTY LINK_DEPENDS ${lists}/${list}.plist)
endforeach()
# Not as a target: what CMake changes in an installed target would end its signature.
set(BRH_INSTALLED_HELPER /Library/PrivilegedHelperTools/${BRH_SERVICE_NAME})
configure_file(macos/LaunchDaemon.plist.in ${lists}/LaunchDaemon.plist @ONLY)
install(PROGRAMS $<TARGET_FILE:BrimoHelper> DESTINATION /Library/PrivilegedHelperTools RENAME ${BRH_SERVICE_NAME})
install(FILES ${lists}/LaunchDaemon.plist DESTINATION /Library/LaunchDaemons RENAME ${BRH_SERVICE_NAME}.plist)
