// A library that an attacker might load into the application. It creates the file named by PRELOADED.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

__attribute__((constructor)) static void onLoad() {
  if (const char* marker = std::getenv("PRELOADED")) close(open(marker, O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
}
