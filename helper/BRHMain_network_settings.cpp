// The proxies and the IPv4 configuration of network services.
#include "helper/BRHMain.h"

namespace json = boost::json;

bool BRHMain::applyProxySettings(const json::object&) {
  return false;
}

void BRHMain::cleanupProxySettings() {}

json::object BRHMain::setStaticIP(const json::object&) {
  return {};
}
