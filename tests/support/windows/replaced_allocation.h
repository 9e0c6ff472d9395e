// Every way in which the library gets memory from this host, replaced for a whole test program. For one source file of
// the program.
#pragma once

#include "support/replaced_operators.h"
