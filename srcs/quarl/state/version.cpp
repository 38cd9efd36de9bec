#include "state/version.h"

const char* const quarl_version = QUARL_VERSION;
