# Installation on Linux: the component "helper", and the component "client", which is Brimo in its bundle. The man page of
# brimo-sign-code belongs to the component "development" (client/CMakeLists.txt).

# The units contain the helper's path, so the prefix cannot change after configuring. DESTDIR is allowed.
install(CODE "
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL \"${CMAKE_INSTALL_PREFIX}\")
    message(FATAL_ERROR \"The units name ${BRH_INSTALLED_HELPER}: configure with -DCMAKE_INSTALL_PREFIX=\${CMAKE_INSTALL_PREFIX} to install there\")
  endif()" COMPONENT helper)

install(TARGETS BrimoHelper DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/brimo COMPONENT helper)
install(FILES ${units}/${BRH_SERVICE_NAME}.socket ${units}/${BRH_SERVICE_NAME}.service DESTINATION lib/systemd/system
  COMPONENT helper)
install(FILES systemd/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME brimo-helper.conf COMPONENT helper)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/man/BrimoHelper.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT helper)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/man/brimo-check-code-signature.1 ${CMAKE_CURRENT_BINARY_DIR}/man/brimo-helper-info.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT helper)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/man/brimo-sign-code.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT development)

set(bundle lib/brimo/Brimo.app/Contents)
install(TARGETS Brimo DESTINATION ${bundle}/MacOS COMPONENT client)
foreach(framework Bugsnag Sparkle)
  # Stand-ins: the helper checks only their signatures.
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${framework} "A stand-in for the ${framework} framework.\n")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${framework} DESTINATION ${bundle}/Frameworks/${framework}.framework COMPONENT client)
endforeach()
install(CODE "
  set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
  file(MAKE_DIRECTORY \"\${folder}/bin\")
  file(CREATE_LINK ../${bundle}/MacOS/Brimo \"\${folder}/bin/Brimo\" SYMBOLIC)
  message(STATUS \"The helper admits the bundle after its three files are signed with tools/sign-code\")" COMPONENT client)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/man/Brimo.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT client)
install(FILES completion/Brimo.bash DESTINATION share/bash-completion/completions RENAME Brimo COMPONENT client)
install(FILES completion/_Brimo DESTINATION share/zsh/site-functions COMPONENT client)
