#include <brimo/HelperClient.h>

// Passes without a helper, and with one, because it refuses this program.
int main() {
  brimo::HelperClient client;
  return client.call(brimo::version()) ? 1 : 0;
}
