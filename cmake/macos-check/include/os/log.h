// The parts of <os/log.h> that the helper uses; see cmake/macos-check/README.md.
#pragma once

#include <os/availability.h>
#include <stdbool.h>
#include <stdint.h>

__BEGIN_DECLS

typedef struct os_log_s* os_log_t;

typedef uint8_t os_log_type_t;
enum : os_log_type_t {
  OS_LOG_TYPE_DEFAULT = 0x00,
  OS_LOG_TYPE_INFO = 0x01,
  OS_LOG_TYPE_DEBUG = 0x02,
  OS_LOG_TYPE_ERROR = 0x10,
  OS_LOG_TYPE_FAULT = 0x11,
};

extern struct mach_header __dso_handle;
extern struct os_log_s _os_log_default;
#define OS_LOG_DEFAULT (&_os_log_default)

bool os_log_type_enabled(os_log_t log, os_log_type_t type);
void _os_log_impl(void* image, os_log_t log, os_log_type_t type, const char* format, uint8_t* buffer, uint32_t size);

__END_DECLS

#define os_log_with_type(log, type, format, ...)                                                     \
  __extension__({                                                                                    \
    static const char text[] __attribute__((section("__TEXT,__oslogstring,cstring_literals"))) = format; \
    uint8_t buffer[__builtin_os_log_format_buffer_size(format, ##__VA_ARGS__)];                     \
    __builtin_os_log_format(buffer, format, ##__VA_ARGS__);                                          \
    if (os_log_type_enabled(log, type)) {                                                            \
      _os_log_impl(&__dso_handle, log, type, text, buffer, (uint32_t)sizeof buffer);                 \
    }                                                                                                \
  })
#define os_log(log, format, ...) os_log_with_type(log, OS_LOG_TYPE_DEFAULT, format, ##__VA_ARGS__)
