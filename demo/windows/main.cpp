// File names beyond the system's character set arrive only as wide arguments.
#include "demo.h"

int wmain(int argc, wchar_t** argv) { return demo::run({argv, argv + argc}); }
