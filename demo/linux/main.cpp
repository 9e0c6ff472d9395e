#include "demo.h"

int main(int argc, char** argv) { return demo::run({argv, argv + argc}); }
