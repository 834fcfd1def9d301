// Formats a router advertisement for output.
#pragma once

#include <brimo/RouterAdvertisement.h>

#include <boost/json/object.hpp>
#include <string>

namespace brimo {

boost::json::object routerObject(const RouterAdvertisement& router);

/// Several lines for people, without a line feed at the end.
std::string routerText(const RouterAdvertisement& router);

}  // namespace brimo
