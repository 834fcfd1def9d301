# Turns the PEM file of the trusted root into a C++ source file. Only the first certificate is taken: a bundle that
# also holds a private key must not carry it into the executable.
file(READ ${PEM} text)
if(NOT text MATCHES "(-----BEGIN CERTIFICATE-----[A-Za-z0-9+/=\r\n]+-----END CERTIFICATE-----)")
  message(FATAL_ERROR "No certificate in ${PEM}")
endif()
file(WRITE ${OUTPUT} "#include \"platform/code_signing/linux/signature.h\"

const char platform::code_signing::anchorPEM[] = R\"(${CMAKE_MATCH_1}
)\";
")
