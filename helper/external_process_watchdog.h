// Ending the processes that the main application has listed for its own death.
#pragma once

/// Kills every process listed in /tmp/Brimo-External-Processes-Watchdog.json that still runs the listed executable as
/// the owner of the file, and deletes the file. A file that may have been planted is refused and left. On the main
/// queue.
void BRHKillWatchedExternalProcesses();
