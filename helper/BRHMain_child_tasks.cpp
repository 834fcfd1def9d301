// The children: the DHCP server and spindump.
#include "helper/BRHMain.h"

namespace json = boost::json;

json::object BRHMain::startDHCP(const json::object&, const platform::Process&) {
  return {};
}

void BRHMain::stopDHCP() {}

void BRHMain::stopAllDHCP() {}

void BRHMain::dhcpdCompleted(const platform::ChildTask*) {}

json::object BRHMain::startSpindump(const json::object&, const platform::Process&) {
  return {};
}

void BRHMain::spindumpCompleted() {}
