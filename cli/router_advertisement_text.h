// A router advertisement as it is shown.
#pragma once

#include <brimo/RouterAdvertisement.h>

#include <boost/json/object.hpp>
#include <string>

namespace brimo {

boost::json::object routerObject(const RouterAdvertisement& router);

/// Several lines for people, without the last line feed.
std::string routerText(const RouterAdvertisement& router);

}  // namespace brimo
