# Turns the PEM file of the trusted roots into a C++ source file; without OUTPUT it only looks whether that can be done.
# Certificates alone are taken: a bundle that also holds a private key must not carry it into the executable.
file(READ ${PEM} text)
string(REGEX MATCHALL "-----BEGIN CERTIFICATE-----[A-Za-z0-9+/=\r\n]+-----END CERTIFICATE-----" certificates "${text}")
if(NOT certificates)
  message(FATAL_ERROR "${PEM} holds no certificate")
endif()
execute_process(COMMAND openssl crl2pkcs7 -nocrl -certfile ${PEM} INPUT_FILE /dev/null OUTPUT_QUIET ERROR_VARIABLE problem
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PEM} holds what is no certificate: ${problem}")
endif()
if(OUTPUT)
  list(JOIN certificates "\n" certificates)
  file(WRITE ${OUTPUT} "#include \"platform/code_signing/linux/signature.h\"

const char platform::code_signing::anchorPEM[] = R\"(${certificates}
)\";
")
endif()
