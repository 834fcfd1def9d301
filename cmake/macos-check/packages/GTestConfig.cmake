# GoogleTest and GoogleMock from Debian's sources.
set(source /usr/src/googletest)
add_library(gmock_main STATIC ${source}/googletest/src/gtest-all.cc ${source}/googlemock/src/gmock-all.cc
  ${source}/googlemock/src/gmock_main.cc)
target_include_directories(gmock_main SYSTEM PUBLIC ${source}/googletest/include ${source}/googlemock/include
  PRIVATE ${source}/googletest ${source}/googlemock)
target_compile_options(gmock_main PRIVATE -w)
add_library(GTest::gmock_main ALIAS gmock_main)
