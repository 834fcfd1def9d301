#include <mach/mach.h>

#include "tests/support/this_machine.h"

std::ptrdiff_t threadCount() {
  thread_act_array_t threads = nullptr;
  mach_msg_type_number_t count = 0;
  if (task_threads(mach_task_self(), &threads, &count) != KERN_SUCCESS) return -1;
  for (mach_msg_type_number_t index = 0; index < count; ++index) mach_port_deallocate(mach_task_self(), threads[index]);
  vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(threads), count * sizeof *threads);
  return count;
}
