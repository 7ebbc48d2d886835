// The one instance. Static, so that it costs no heap and lives for the process.

#include "server/mdx_state.h"

constinit mdx_state_t mdx_state;
