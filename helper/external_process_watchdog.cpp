#include "helper/external_process_watchdog.h"

void BRHKillWatchedExternalProcesses() {}
