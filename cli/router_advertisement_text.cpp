#include "cli/router_advertisement_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <boost/json.hpp>

namespace brimo {

namespace json = boost::json;

namespace {

std::string lifetimeText(std::uint32_t seconds) {
  return seconds == 0xFFFFFFFF ? "for ever" : fmt::format("{} s", seconds);
}

}  // namespace

json::object routerObject(const RouterAdvertisement& router) {
  json::array prefixObjects;
  for (const auto& prefix : router.prefixes) {
    prefixObjects.push_back({{"prefix", prefix.prefix},
                             {"on-link", prefix.onLink},
                             {"autonomous", prefix.autonomous},
                             {"valid-lifetime", prefix.validLifetime},
                             {"preferred-lifetime", prefix.preferredLifetime}});
  }
  json::object object{{"router", router.router},
                      {"lifetime", router.lifetime},
                      {"hop-limit", router.hopLimit},
                      {"managed", router.managed},
                      {"other-configuration", router.otherConfiguration},
                      {"prefixes", std::move(prefixObjects)},
                      {"dns-servers", json::value_from(router.dnsServers)},
                      {"search-domains", json::value_from(router.searchDomains)}};
  if (router.linkLayerAddress) object["link-layer-address"] = *router.linkLayerAddress;
  if (router.mtu) object["mtu"] = *router.mtu;
  return object;
}

std::string routerText(const RouterAdvertisement& router) {
  auto lines = fmt::format("router {}", router.router);
  auto add = [&](const char* name, const std::string& value) { lines += fmt::format("\n  {:<18}{}", name, value); };
  add("lifetime", lifetimeText(router.lifetime));
  if (router.linkLayerAddress) add("hardware address", *router.linkLayerAddress);
  if (router.hopLimit != 0) add("hop limit", fmt::format("{}", router.hopLimit));
  if (router.managed) add("addresses", "by DHCPv6");
  if (router.otherConfiguration) add("other settings", "by DHCPv6");
  for (const auto& prefix : router.prefixes) {
    add("prefix", fmt::format("{}{}{}, valid {}, preferred {}", prefix.prefix, prefix.onLink ? ", on link" : "",
                              prefix.autonomous ? ", autonomous" : "", lifetimeText(prefix.validLifetime),
                              lifetimeText(prefix.preferredLifetime)));
  }
  if (router.mtu) add("MTU", fmt::format("{}", *router.mtu));
  if (!router.dnsServers.empty()) add("DNS servers", fmt::format("{}", fmt::join(router.dnsServers, " ")));
  if (!router.searchDomains.empty()) add("search domains", fmt::format("{}", fmt::join(router.searchDomains, " ")));
  return lines;
}

}  // namespace brimo
