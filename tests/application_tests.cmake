# Tests two applications outside this project: one that builds the client library from its sources, and the signed example,
# which uses the installed library.
set(example_flags)
if(BRH_SANITIZE)
  set(example_flags -fsanitize=${BRH_SANITIZE})
endif()
function(application_test name sources)
  add_test(NAME ${name} COMMAND ${CMAKE_CTEST_COMMAND} --build-and-test ${sources} ${PROJECT_BINARY_DIR}/${name}
    --build-generator ${CMAKE_GENERATOR}
    --build-options -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER} -DCMAKE_CXX_FLAGS=${example_flags} ${ARGN})
  set_tests_properties(${name} PROPERTIES LABELS unit TIMEOUT 600)
endfunction()
set(prefix ${CMAKE_CURRENT_BINARY_DIR}/prefix)
add_test(NAME install_client COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR} -DPREFIX=${prefix} -DFLAGS=${example_flags}
  -P ${CMAKE_CURRENT_SOURCE_DIR}/install_client.cmake)
set_tests_properties(install_client PROPERTIES LABELS unit TIMEOUT 60 FIXTURES_SETUP installed_client)
application_test(example ${PROJECT_SOURCE_DIR}/examples/application -DCMAKE_PREFIX_PATH=${prefix} -DSIGNING=${BRH_CERTIFICATES}
  -DIDENTIFIER=${BRH_CLIENT_BUNDLE_IDENTIFIER})
set_tests_properties(example PROPERTIES FIXTURES_REQUIRED installed_client FIXTURES_SETUP example)
if(TEST system_examples)
  set_tests_properties(system_examples PROPERTIES FIXTURES_REQUIRED example)
endif()
if(NOT BRH_SANITIZE)
  application_test(application_by_subdirectory ${CMAKE_CURRENT_SOURCE_DIR}/application
    -DBUILD_TESTING=ON -DBRIMO_SOURCES=${PROJECT_SOURCE_DIR})
endif()
