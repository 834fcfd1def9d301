# Functions that define this project's targets.

# The precompiled header, with the headers that nearly every file uses.
add_library(brh_common OBJECT ${PROJECT_SOURCE_DIR}/cmake/precompiled.cpp)
target_link_libraries(brh_common PRIVATE Boost::json ${BRH_FMT} Threads::Threads)
target_precompile_headers(brh_common PRIVATE <fmt/format.h> <boost/json.hpp> <functional> <map> <memory> <mutex>
  <optional> <span> <string> <string_view> <variant> <vector>)

function(brh_use_common target)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_link_libraries(${target} PUBLIC Boost::json ${BRH_FMT} Threads::Threads)
  target_precompile_headers(${target} REUSE_FROM brh_common)
endfunction()

# brh_use_constants(target): lets the target include build_constants.h. platform/ and foundation/ must not use it.
function(brh_use_constants target)
  if(TARGET ${target})  # tests may be disabled
    target_include_directories(${target} PRIVATE ${PROJECT_BINARY_DIR}/generated)
  endif()
endfunction()

# brh_library(name sources…): a static library.
function(brh_library name)
  add_library(${name} STATIC ${ARGN})
  brh_use_common(${name})
endfunction()

# The main() of the unit tests.
if(BRH_BUILD_TESTS)
  add_library(test_main OBJECT ${PROJECT_SOURCE_DIR}/tests/support/test_main.cpp)
  brh_use_common(test_main)
  target_link_libraries(test_main PUBLIC GTest::gmock)
endif()

# brh_program(name sources… LIBRARIES …): an executable.
function(brh_program name)
  cmake_parse_arguments(arg "" "" "LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
  brh_use_common(${name})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
endfunction()

# brh_unit_test(name SOURCES … LIBRARIES …): a GoogleTest executable; ctest runs it under the label "unit".
function(brh_unit_test name)
  if(NOT BRH_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  brh_program(${name} ${arg_SOURCES} LIBRARIES ${arg_LIBRARIES} test_main)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS unit TIMEOUT 120)
endfunction()

# brh_fuzzer(name source libraries…): a libFuzzer target or, without libFuzzer, a program that replays the seed corpus.
# ctest runs it over tests/fuzz_corpus/<name> under the label "fuzz".
add_custom_target(fuzzers)
function(brh_fuzzer name source)
  if(NOT BRH_BUILD_TESTS)
    return()
  endif()
  brh_program(${name} ${source} LIBRARIES ${ARGN})
  if(BRH_FUZZ)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/fuzz_replay_main.cpp)
  endif()
  add_dependencies(fuzzers ${name})
  add_test(NAME ${name} COMMAND ${name} -runs=0 ${PROJECT_SOURCE_DIR}/tests/fuzz_corpus/${name})
  set_tests_properties(${name} PROPERTIES LABELS fuzz TIMEOUT 120)
endfunction()

# brh_sign(target identifier path): signs a target's output with codesign and BRH_SIGNING_IDENTITY. Does nothing
# unless the build runs on a Mac.
function(brh_sign target identifier path)
  if(NOT CMAKE_HOST_APPLE)
    return()
  endif()
  set(options --force --sign "${BRH_SIGNING_IDENTITY}" --identifier ${identifier})
  if(NOT BRH_SIGNING_IDENTITY STREQUAL "-")
    # Notarisation requires both.
    list(APPEND options --options runtime --timestamp)
  endif()
  add_custom_command(TARGET ${target} POST_BUILD COMMAND codesign ${options} ${path} VERBATIM)
endfunction()

# brh_development_bundle(name bundle executable): an application bundle with the executable and two frameworks, signed with
# the development leaf so that the helper admits it. Does nothing on macOS or when the build has its own anchor.
function(brh_development_bundle name bundle executable)
  if(APPLE OR BRH_CODE_SIGNING_ANCHOR)
    return()
  endif()
  add_custom_command(
    OUTPUT ${bundle}/signed
    COMMAND ${PROJECT_SOURCE_DIR}/tools/make-development-bundle ${bundle} $<TARGET_FILE:${executable}> ${BRH_CERTIFICATES}
            ${BRH_CLIENT_BUNDLE_IDENTIFIER}
    DEPENDS ${executable} ${PROJECT_SOURCE_DIR}/tools/make-development-bundle ${PROJECT_SOURCE_DIR}/tools/sign-code
            certificates
    COMMENT "Signing ${bundle}"
    VERBATIM)
  add_custom_target(${name} ALL DEPENDS ${bundle}/signed)
endfunction()

# brh_module([PORTABLE file…] [LINUX file…] [DARWIN file…]): adds sources of the current folder to the platform library. LINUX
# files lie in linux/, DARWIN files in darwin/.
function(brh_module)
  if(NOT TARGET platform)
    return()
  endif()
  cmake_parse_arguments(arg "" "" "PORTABLE;LINUX;DARWIN" ${ARGN})
  string(TOUPPER ${BRH_PLATFORM} system)
  list(TRANSFORM arg_${system} PREPEND ${BRH_PLATFORM}/)
  target_sources(platform PRIVATE ${arg_PORTABLE} ${arg_${system}})
endfunction()

# brh_objective_c(file): adds an Objective-C++ source to the platform library on macOS. It needs a target of its own, because
# it cannot use the C++ precompiled header.
function(brh_objective_c file)
  if(NOT APPLE)
    return()
  endif()
  get_filename_component(name ${file} NAME_WE)
  add_library(objective_c_${name} OBJECT ${file})
  target_include_directories(objective_c_${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(objective_c_${name} PRIVATE Boost::json)
  target_compile_options(objective_c_${name} PRIVATE -fobjc-arc)
  target_sources(platform PRIVATE $<TARGET_OBJECTS:objective_c_${name}>)
endfunction()

# brh_needs_tools(test): defines TOOLS_FOLDER for a test that signs files.
function(brh_needs_tools name)
  if(TARGET ${name})
    target_compile_definitions(${name} PRIVATE TOOLS_FOLDER="${PROJECT_SOURCE_DIR}/tools")
  endif()
endfunction()
