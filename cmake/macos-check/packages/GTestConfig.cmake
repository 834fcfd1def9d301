# GoogleTest and GoogleMock from Debian's source package.
set(source ${BRH_MACOS_LIBRARIES}/usr/src/googletest)
add_library(gmock STATIC ${source}/googletest/src/gtest-all.cc ${source}/googlemock/src/gmock-all.cc)
target_include_directories(gmock SYSTEM PUBLIC ${source}/googletest/include ${source}/googlemock/include
  PRIVATE ${source}/googletest ${source}/googlemock)
target_compile_options(gmock PRIVATE -w)
add_library(GTest::gmock ALIAS gmock)
