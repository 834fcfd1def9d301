# Installs what makes desktop programs follow the proxies.
configure_file(dconf/tmpfiles.conf.in tmpfiles.conf @ONLY)
configure_file(dconf/apt-proxy.in apt-proxy @ONLY)

if(BRH_CODE_SIGNING_ANCHOR)
  install(TARGETS BrimoProxiesOff DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/brimo COMPONENT helper)
  install(PROGRAMS dconf/dconf-profile ${CMAKE_CURRENT_BINARY_DIR}/apt-proxy DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/brimo
    COMPONENT helper)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME ${BRH_SERVICE_NAME}.conf
    COMPONENT helper)
endif()
