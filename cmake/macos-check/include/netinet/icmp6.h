// The parts of <netinet/icmp6.h> that the helper uses; see cmake/macos-check/README.md.
#pragma once

#include <stdint.h>
#include <string.h>

#define ND_ROUTER_SOLICIT 133
#define ND_ROUTER_ADVERT 134

#define ICMP6_FILTER 18
struct icmp6_filter {
  uint32_t icmp6_filt[8];
};
#define ICMP6_FILTER_SETBLOCKALL(filter) memset(filter, 0, sizeof(struct icmp6_filter))
#define ICMP6_FILTER_SETPASS(type, filter) (((filter)->icmp6_filt[(type) >> 5]) |= (1u << ((type) & 31)))
