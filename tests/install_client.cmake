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
# The whole program of the documentation, as it says.
file(READ ${CMAKE_CURRENT_LIST_DIR}/../docs/client.md text)
if(NOT text MATCHES "```cpp\n(#include <brimo[^`]*)```")
  message(FATAL_ERROR "docs/client.md has no program")
endif()
file(WRITE ${PREFIX}/program.cpp "${CMAKE_MATCH_1}")
run(pkg-config --cflags --libs brimo-client)
separate_arguments(flags UNIX_COMMAND "${output}")
run(c++ -std=c++17 ${PREFIX}/program.cpp ${flags} ${FLAGS} -o ${PREFIX}/program)
