// Compile-time checks of the macOS constants and layouts that portable code relies on.
#include <fcntl.h>
#include <libproc.h>
#include <net/if_dl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>

// Flags for opening files in /tmp.
static_assert((O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC) == 0x100030D);
static_assert((O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC) == 0x1000104);

// Process information.
static_assert(sizeof(proc_bsdinfo) == 136 && offsetof(proc_bsdinfo, pbi_uid) == 20);
static_assert(PROC_PIDTBSDINFO == 3 && PROC_PIDPATHINFO_MAXSIZE == 4096);

// Socket addresses that messages carry as bytes (BRSockAddrObject.h, bsd_socket_address.h).
static_assert(AF_INET == 2 && AF_INET6 == 30 && AF_LINK == 18 && sizeof(sockaddr_storage) == 128);
static_assert(sizeof(sockaddr_in) == 16 && offsetof(sockaddr_in, sin_len) == 0 &&
              offsetof(sockaddr_in, sin_family) == 1);
static_assert(offsetof(sockaddr_in, sin_port) == 2 && offsetof(sockaddr_in, sin_addr) == 4);
static_assert(sizeof(sockaddr_in6) == 28 && offsetof(sockaddr_in6, sin6_len) == 0);
static_assert(offsetof(sockaddr_in6, sin6_family) == 1 && offsetof(sockaddr_in6, sin6_port) == 2);
static_assert(offsetof(sockaddr_in6, sin6_flowinfo) == 4 && offsetof(sockaddr_in6, sin6_addr) == 8);
static_assert(offsetof(sockaddr_in6, sin6_scope_id) == 24);
static_assert(offsetof(sockaddr_dl, sdl_nlen) == 5 && offsetof(sockaddr_dl, sdl_alen) == 6);
static_assert(offsetof(sockaddr_dl, sdl_data) == 8);

// Ancillary data.
static_assert(sizeof(cmsghdr) == 12 && CMSG_LEN(sizeof(int)) == 16 && CMSG_SPACE(1) - CMSG_SPACE(0) == 4);
