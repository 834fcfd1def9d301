# Converts the PEM file of the trusted roots to a C++ source file. Without OUTPUT, only checks the file. Copies nothing but
# certificates, so that a private key in the same file does not get into the executable.
file(READ ${PEM} text)
string(REGEX MATCHALL "-----BEGIN CERTIFICATE-----[A-Za-z0-9+/=\r\n]+-----END CERTIFICATE-----" certificates "${text}")
if(NOT certificates)
  message(FATAL_ERROR "${PEM} contains no certificate")
endif()
execute_process(COMMAND openssl crl2pkcs7 -nocrl -certfile ${PEM} INPUT_FILE /dev/null OUTPUT_QUIET ERROR_VARIABLE problem
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PEM} contains an invalid certificate: ${problem}")
endif()
if(OUTPUT)
  list(JOIN certificates "\n" certificates)
  file(WRITE ${OUTPUT} "#include \"platform/code_signing/linux/signature.h\"

const char platform::code_signing::anchorPEM[] = R\"(${certificates}
)\";
")
endif()
