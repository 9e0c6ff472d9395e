#include <string>
#include <utility>
#include <vector>

#include "foundation/kstring.h"
#include "program.h"

int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i)
        arguments.push_back(KelvonClip::KString(argv[i]).toUtf8());
    return tool::runProgram(std::move(arguments));
}
