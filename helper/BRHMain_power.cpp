// Keeping the machine awake, and the DNS cache.
#include "helper/BRHMain.h"

void BRHMain::preventSleepTemporarily() {}

void BRHMain::flushSystemDNS() {}
