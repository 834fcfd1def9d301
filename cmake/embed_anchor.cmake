# Turns the PEM file of the trusted root into a C++ source file; without OUTPUT it only looks whether that can be done. Only
# the first certificate is taken: a bundle that also holds a private key must not carry it into the executable.
execute_process(COMMAND openssl x509 -in ${PEM} OUTPUT_VARIABLE certificate ERROR_VARIABLE problem RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PEM} holds no certificate: ${problem}")
endif()
if(OUTPUT)
  file(WRITE ${OUTPUT} "#include \"platform/code_signing/linux/signature.h\"

const char platform::code_signing::anchorPEM[] = R\"(${certificate})\";
")
endif()
