# Installs the client library of BUILD under PREFIX, and looks at what is there: the headers by themselves, the symbols, and what
# pkg-config says.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE output OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${PREFIX})
foreach(component library development)
  run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX} --component ${component})
endforeach()

# Each header compiles alone, as C++17, without this project's folders.
file(GLOB headers RELATIVE ${PREFIX}/include ${PREFIX}/include/brimo/*.h)
foreach(header ${headers})
  file(WRITE ${PREFIX}/alone.cpp "#include <${header}>\n")
  run(c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I${PREFIX}/include ${PREFIX}/alone.cpp)
endforeach()
list(LENGTH headers count)
if(count LESS 5)
  message(FATAL_ERROR "Headers are missing: ${headers}")
endif()

file(GLOB library ${PREFIX}/lib/libbrimo-client.so.1 ${PREFIX}/lib/*/libbrimo-client.so.1)
run(nm --dynamic --defined-only --demangle --format=just-symbols ${library})
string(REPLACE "\n" ";" symbols "${output}")
list(FILTER symbols EXCLUDE REGEX "^(brimo::v1::|BRIMO_CLIENT_1)")
if(symbols)
  message(FATAL_ERROR "The library exports what is not its own: ${symbols}")
endif()

set(ENV{PKG_CONFIG_PATH} ${PREFIX}/lib/pkgconfig:${PREFIX}/lib/x86_64-linux-gnu/pkgconfig:${PREFIX}/lib/aarch64-linux-gnu/pkgconfig)
run(pkg-config --cflags brimo-client)
string(REGEX MATCH "-I([^ ]+)" match "${output}")
if(NOT EXISTS ${CMAKE_MATCH_1}/brimo/HelperClient.h)
  message(FATAL_ERROR "pkg-config says ${output}")
endif()
