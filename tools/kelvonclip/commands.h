// The commands, each defined by the source of its name.
#pragma once

#include "command.h"

namespace tool {

extern Command const CHECK, CHECKSUM, COMPACT, CREATE, DIFF, DUMP, EXTRACT, FOLLOW, FORMATS, INFO, MAP, META, RECOVER,
    REPORT, STANDARDS, STAT, TC, TRIM, VERIFY;

}  // namespace tool
