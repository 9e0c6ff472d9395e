#include "program.h"

int main(int argc, char** argv) { return tool::runProgram({argv + (argc > 0 ? 1 : 0), argv + argc}); }
