# Turns the PEM file of the trusted roots into a C++ source file. Certificates alone are taken: a bundle that also holds a
# private key must not carry it into the executable.
file(READ ${PEM} text)
string(REGEX MATCHALL "-----BEGIN CERTIFICATE-----[A-Za-z0-9+/=\r\n]+-----END CERTIFICATE-----" certificates "${text}")
if(NOT certificates)
  message(FATAL_ERROR "No certificate in ${PEM}")
endif()
list(JOIN certificates "\n" certificates)
file(WRITE ${OUTPUT} "#include \"platform/code_signing/linux/signature.h\"

const char platform::code_signing::anchorPEM[] = R\"(${certificates}
)\";
")
