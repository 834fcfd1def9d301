#include "client/HelperClient.h"

// The helper, where this machine has one, refuses this program.
int main() {
  try {
    brimo::HelperClient client;
    client.version();
  } catch (const brimo::HelperUnreachable&) {
    return 0;
  }
  return 1;
}
