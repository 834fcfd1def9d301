#include <brimo/HelperClient.h>

// Passes without a helper, and also with one, because the helper refuses this program.
int main() {
  brimo::HelperClient client;
  return client.call(brimo::version()) ? 1 : 0;
}
