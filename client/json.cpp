// The JSON library's own code.
#include <boost/json/src.hpp>
