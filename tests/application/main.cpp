#include <brimo/HelperClient.h>

// The helper, where this machine has one, refuses this program.
int main() {
  brimo::HelperClient client;
  return client.call(brimo::version()) ? 1 : 0;
}
