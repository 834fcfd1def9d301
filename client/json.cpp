// Compiles the JSON library into the shared client library.
#include <boost/json/src.hpp>
