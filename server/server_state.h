// What the parent process settles before the first fork and every child reads.

#pragma once

#include <cstdint>

// The port that the server listens on, in host byte order.
extern uint16_t nport;

// 0: this is not Windows NT.
extern int is_nt;
