#include "server/server_state.h"

uint16_t nport;
int is_nt;
